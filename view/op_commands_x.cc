// The view commands crop, resize and the picture operations.
#include "view/view_hooks_x.h"

namespace quilla {

bool RunOperationCommand(Widget, Widget, const char *) { return false; }

}  // namespace quilla
