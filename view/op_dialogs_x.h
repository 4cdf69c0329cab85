// The dialogs of the picture operations: the parameter dialog of one
// operation, the Advanced Operations dialog QuillOp that builds a process
// list, and the User Defined Filter dialog QuillUserFilter.  Each runs modal
// (a local event loop until it is answered).
#ifndef QUILLA_VIEW_OP_DIALOGS_X_H
#define QUILLA_VIEW_OP_DIALOGS_X_H

#include <X11/Intrinsic.h>

#include <cstdint>
#include <functional>

#include "imgproc/catalogue.h"
#include "imgproc/userfilter.h"

namespace quilla {

// Asks for the parameters of catalogue row `row` in a dialog built from its
// parameter kind, starting from *params.  True (and *params set) on O.K.
// pic_w x pic_h is the picture's size (the size panels convert pixels and
// percent with it; 0 when unknown).
bool AskOperationParameters(Widget owner, int row, OpParams *params, uint32_t pic_w = 0, uint32_t pic_h = 0);

// QuillOp "Advanced Operations": edits *list (the catalogue on the left,
// the process list on the right, the panel of the selected entry below).
// With `apply` given, an "Apply" button runs it on the list as it stands
// (the view applies it to its picture).  True when closed with O.K. (the
// list is then the edited one); false on Cancel, *list unchanged.
bool EditProcessList(Widget owner, OpProcessList *list,
                     const std::function<void(const OpProcessList &)> &apply = nullptr);
// The process list of Image > Advanced Operations as the user last accepted
// it in this session (empty at start).  Batch conversion writes it as
// converter options with OpProcessListCommandLine.
OpProcessList &AdvancedProcessList();

// QuillUserFilter "User Defined Filter": edits the user's filter list (read
// from $HOME, saved through SaveUserFilters when changed).  `apply` runs
// the filter shown on the view's picture (nullptr: no Apply button).
void EditUserFilters(Widget owner, const std::function<void(const UserFilter &)> &apply);

// For tests: called with the dialog's shell each time one of these dialogs
// is up and about to wait for its answer.  Returns the previous hook.
using OpDialogHook = void (*)(Widget shell);
OpDialogHook SetOpDialogHook(OpDialogHook hook);

}  // namespace quilla

#endif
