// The central save.
#include "files/save_x.h"

#include "files/load_x.h"

namespace quilla {

int CentralSave(Widget owner, const char *path, const TslPicture *pic, int format) {
  TslParams params;
  tslDefaultParams(&params);
  params.format = format;
  params.flags |= TSL_FLAG_SAVE;
  const int code = tslSave(path, pic, &params);
  if (code != 0) ShowLoadError(owner, path, code, nullptr);
  return code;
}

}  // namespace quilla
