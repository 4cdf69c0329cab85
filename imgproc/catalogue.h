// The operation catalogue: one row per picture operation, driving the
// Advanced Operations dialog, the view's menus, the converter command lines
// and the options tesconv accepts.
#ifndef QUILLA_IMGPROC_CATALOGUE_H
#define QUILLA_IMGPROC_CATALOGUE_H

#include <string>
#include <vector>

#include "imgproc/op.h"

namespace quilla {

// Parameter kinds (OpParamKind): the panel of the Advanced Operations dialog
// and the values handed to the operation.
enum OpParamKind {
  kKindNone = 0, kKindInt = 1, kKindReal = 2, kKindReal3 = 4, kKindResize = 7, kKindCrop = 8,
  kKindCanvas = 9, kKindAngle = 10, kKindTrueColor = 11, kKindColors = 12, kKindGrey = 13,
  kKindBinary = 14, kKindPosterize = 15, kKindFilterSize = 16, kKindSwap = 17, kKindInt3 = 18,
  kKindDeinterlace = 19, kKindDpi = 20,
};

struct OpParamDesc {
  char label[32];
  int32_t min, max;
};

struct OpEntry {
  OpFunc operation;
  const char *option;      // "-negate"
  const char *sub_option;  // "gaussian", or nullptr
  char name[36];           // display name
  int32_t kind;            // OpParamKind
  int32_t count;           // labelled numeric parameters
  OpParamDesc desc[3];
  int32_t def_int[4];
  double def_real[3];
  uint32_t def_word;
};

// The 55 rows in their fixed order.
const OpEntry *OpCatalogue();
int OpCatalogueCount();
// Row of an option (and sub-option, nullptr when the row has none); -1 when unknown.
int OpCatalogueFind(const char *option, const char *sub_option);
// True when the option's rows carry a sub-option ("-noise", "-edgedetect").
bool OpOptionHasSubOptions(const char *option);

// A chosen operation with its values (a process-list entry).
struct OpProcess {
  int32_t index = 0;
  OpParams params;
};
using OpProcessList = std::vector<OpProcess>;

// A process entry whose parameters are the row's stored defaults.
OpProcess OpDefaultProcess(int index);

// The converter command-line text of one entry / of a whole list.
std::string OpProcessCommandLine(const OpProcess &process);
std::string OpProcessListCommandLine(const OpProcessList &list);

// Runs the list in order on a picture, in place; returns the first non-zero status.
int OpRunProcessList(TslPicture *picture, const OpProcessList &list);

}  // namespace quilla

#endif
