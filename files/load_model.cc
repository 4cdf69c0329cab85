// Load parameters from the settings, LUT files and the load's texts.
#include "files/load_model.h"

#include <cstdio>
#include <cstring>

#include "imgproc/path_text.h"

namespace quilla {

PageSize PostscriptPageSize(int value) {
  static const PageSize kSizes[] = {{792, 1224}, {2380, 3368}, {1684, 2380}, {1190, 1684}, {842, 1190},
                                    {595, 842},  {421, 595},   {709, 1002},  {501, 709},   {1224, 792},
                                    {612, 1008}, {612, 792},   {612, 792}};
  if (value < 1 || value > 13) return PageSize();
  return kSizes[value - 1];
}

void FillLoadRequest(const SettingsRecord &settings, int format, int page, bool app_switch, LoadRequest *req) {
  const auto &load = settings.Load;
  TslParams &p = req->params;
  tslDefaultParams(&p);
  p.format = format;
  p.page = page;
  p.progress = nullptr;
  p.progress_data = nullptr;
  p.flags = app_switch ? TSL_FLAG_APP : 0;

  // Headerless input: "raw" has its own geometry, everything else gets the
  // YUV one (only the headerless readers look at it).
  const char *name = format >= 0 ? tslFormatGetName(format) : nullptr;
  if (name && std::strcmp(name, "raw") == 0) {
    p.width = load.RawWidth;
    p.height = load.RawHeight;
    p.offset = load.RawOffset;
  } else {
    p.width = load.YuvWidth;
    p.height = load.YuvHeight;
    p.offset = load.YuvOffset;
  }

  p.pcd_base = load.PcdBase;
  p.grob_bpp = load.GrobBpp + 1;
  p.channel_order = load.ChannelOrder;
  p.channel_type = load.ChannelType;
  p.ps_dpi = load.PostscriptDpi;
  PageSize ps = PostscriptPageSize(load.PostscriptPageSize);
  p.ps_page_width = ps.width;
  p.ps_page_height = ps.height;

  req->lut = Lut();
  if (load.UseLut && ReadLutFile(load.Lut10to8Name, 1024, &req->lut)) UseLut(req->lut, &p);

  if (load.IgnoreError) p.flags |= TSL_FLAG_KEEP_DAMAGED;
}

std::string FileNameOnly(const char *path) { return path ? FileNamePart(path) : std::string(); }

std::string LoadingLabel(const char *path) { return "Loading " + FileNameOnly(path); }

std::string LoadErrorText(const char *path, int code, const char *library_message) {
  size_t size = (path ? std::strlen(path) : 0) + (library_message ? std::strlen(library_message) : 0) + 64;
  std::vector<char> buffer(size);
  tslErrorText(buffer.data(), buffer.size(), path ? path : "", code, library_message);
  return buffer.data();
}

}  // namespace quilla
