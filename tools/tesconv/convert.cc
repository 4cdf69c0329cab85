// The conversion of one file: load with the input settings, run the
// operations, fit the picture to what the output format can hold, name the
// output, save, and remove the original when asked to.
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>

#include "imgproc/convert.h"
#include "imgproc/geometry.h"
#include "imgproc/operations.h"
#include "tools/tesconv/tesconv.h"

namespace quilla {

namespace {

bool KindAccepts(const TslCapability &c, const TslPicture &p) {
  switch (c.kind) {
    case 1: return p.color_model == TSL_BINARY;
    case 2: return p.color_model == TSL_GREY && (c.max_colors == -1 || p.colors <= c.max_colors);
    case 4: return p.color_model == TSL_INDEXED && (c.max_colors == -1 || p.colors <= c.max_colors);
    case TSL_KIND_TRUECOLOR: return TSL_IS_TRUECOLOR(p.color_model);
    default: return false;
  }
}

// Does the capability entry hold the result of conversion `code`?  (The
// save flow's matching: grey codes want enough levels, palette codes enough
// entries.)
bool CodeMatches(int code, const TslCapability &c) {
  static const int kLevels[] = {4, 8, 16, 32, 64, 128, 256};
  static const int kColors[] = {8, 16, 32, 64, 128, 216, 256};
  if (code >= 1 && code <= 4) return c.kind == 1;
  if (code == 32) return c.kind == TSL_KIND_TRUECOLOR;
  if (code >= 5 && code <= 17) {
    if (c.kind != 2) return false;
    int levels = kLevels[code <= 11 ? code - 5 : code - 12];
    if (code == 11) return c.max_colors == -1 || c.max_colors == 256;
    return c.max_colors == -1 || c.max_colors >= levels;
  }
  if (code >= 18 && code <= 31) {
    if (c.kind != 4) return false;
    int colors = kColors[code <= 24 ? code - 18 : code - 25];
    return c.max_colors == -1 || c.max_colors >= colors;
  }
  return false;
}

// The largest grey level / palette count that fits `max` (-1 = no limit).
int FitCount(const int *counts, int n, int max) {
  int best = -1;
  for (int k = 0; k < n; ++k)
    if (max == -1 || counts[k] <= max) best = k;
  return best;
}

// Chooses a conversion code for a picture no capability entry accepts:
// lossless first (true colour; an exact palette or grey scale for bilevel
// pictures), then the richest palette, then grey levels, then black and white.
int ChooseConversion(const TslPicture &p, const TslCapability *caps) {
  static const int kLevels[] = {4, 8, 16, 32, 64, 128, 256};
  static const int kColors[] = {8, 16, 32, 64, 128, 216, 256};
  const TslCapability *grey = nullptr, *palette = nullptr;
  bool truecolor = false, binary = false;
  for (int k = 0; k < TSL_MAX_CAPS && caps[k].kind != -1; ++k) {
    if (caps[k].kind == TSL_KIND_TRUECOLOR) truecolor = true;
    else if (caps[k].kind == 1) binary = true;
    else if (caps[k].kind == 2 && (!grey || caps[k].max_colors == -1 || caps[k].max_colors > grey->max_colors))
      grey = &caps[k];
    else if (caps[k].kind == 4 &&
             (!palette || caps[k].max_colors == -1 || caps[k].max_colors > palette->max_colors))
      palette = &caps[k];
  }
  if (p.color_model == TSL_BINARY) {
    if (grey) {
      int k = FitCount(kLevels, 7, grey->max_colors);
      if (k >= 0) return 5 + k;  // plain levels: black and white stay exact
    }
    if (palette) return 18;  // eight entries hold black and white exactly
    if (truecolor) return 32;
    return -1;
  }
  if (truecolor) return 32;
  // A grey picture keeps its grey when the format has grey levels.
  if (p.color_model == TSL_GREY && grey) {
    int k = FitCount(kLevels, 7, grey->max_colors);
    if (k >= 0) return k == 6 ? 11 : 12 + k;
  }
  if (palette) {
    int k = FitCount(kColors, 7, palette->max_colors);
    if (k >= 0) return 25 + k;  // dithered: reductions of photos look better so
  }
  if (grey) {
    int k = FitCount(kLevels, 7, grey->max_colors);
    if (k >= 0) return k == 6 ? 11 : 12 + k;
  }
  if (binary) return 2;  // Floyd-Steinberg
  return -1;
}

int ResizeTo(TslPicture *picture, int width, int height) {
  OpParams p;
  p.width = width;
  p.height = height;
  p.resample = kResampleLinear;
  return OpResize(picture, nullptr, nullptr, p);
}

// Canonical form of a path for the "same file" test: the real directory
// plus the last component (the file itself may not exist yet).
std::string CanonicalPath(const std::string &path) {
  size_t slash = path.rfind('/');
  std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
  std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  char resolved[PATH_MAX];
  if (!::realpath(dir.c_str(), resolved)) return path;
  std::string full = resolved;
  if (full.back() != '/') full += '/';
  full += name;
  // A symbolic link to the file counts as the file.
  if (::realpath(full.c_str(), resolved)) return resolved;
  return full;
}

// The library's channel order for a -ctype word ("grey" is a channel type).
int ChannelOrderFor(const std::string &ctype) {
  if (ctype == "bgr") return TSL_ORDER_BGR;
  if (ctype == "rgba") return TSL_ORDER_RGBA;
  if (ctype == "abgr") return TSL_ORDER_ABGR;
  if (ctype == "cmy") return TSL_ORDER_CMY;
  if (ctype == "cmyk") return TSL_ORDER_CMYK;
  return TSL_ORDER_RGB;
}

int CompressionFor(const ConvOptions &opt, int format) {
  const std::string &c = opt.compress;
  const std::string name = tslFormatGetName(format);
  // Defaults every other program reads: PNG deflated at zlib's own level 6;
  // PCX, DCX, IFF ILBM and Softimage run-length encoded (uncompressed ones
  // are rare and some readers refuse them); TIFF with LZW, which every TIFF reader knows.
  if (c.empty()) {
    if (name == "png") return 6;
    if (name == "pcx" || name == "dcx" || name == "iff" || name == "soft") return 1;
    if (name == "tiff") return TSL_TIFF_LZW;
    return 0;
  }
  if (c[0] >= '0' && c[0] <= '9') return std::atoi(c.c_str());
  if (name == "tiff") {
    if (c == "lzw") return TSL_TIFF_LZW;
    if (c == "packbits" || c == "rle") return TSL_TIFF_PACKBITS;
    if (c == "jpeg") return TSL_TIFF_JPEG;
    if (c == "g3") return TSL_TIFF_CCITT_G3;
    if (c == "g4") return TSL_TIFF_CCITT_G4;
    if (c == "deflate" || c == "zip") return TSL_TIFF_DEFLATE;
    return TSL_TIFF_NONE;
  }
  if (name == "png") return c == "none" ? 0 : 9;  // a zlib level
  return c == "none" ? 0 : 1;                      // run-length formats: on/off
}

}  // namespace

void LoadParams(const ConvOptions &opt, TslParams *params) {
  tslDefaultParams(params);
  params->format = opt.in_format;
  params->flags = TSL_FLAG_UNATTENDED | (opt.keep_damaged ? TSL_FLAG_KEEP_DAMAGED : 0);
  if (opt.have_size) {
    params->width = opt.raw_width;
    params->height = opt.raw_height;
    params->offset = opt.raw_offset;
  }
  params->channel_order = ChannelOrderFor(opt.ctype);
  if (opt.corder == "seq" || opt.corder == "sep") params->channel_type = TSL_CHANNEL_PLANAR;
  else if (!opt.corder.empty()) params->channel_type = TSL_CHANNEL_INTERLEAVED;
  if (opt.ctype == "grey") params->channel_type = TSL_CHANNEL_GREY;
  if (opt.pcd_base >= 0) params->pcd_base = opt.pcd_base;
  params->ps_dpi = opt.ps_dpi;
  params->ps_page_width = opt.ps_page_width;
  params->ps_page_height = opt.ps_page_height;
  if (opt.grob_bpp > 0) params->grob_bpp = opt.grob_bpp;
  params->target_width = opt.target_width;
  params->target_height = opt.target_height;
  UseLut(opt.lut_in, params);
}

void SaveParams(const ConvOptions &opt, const TslPicture &picture, TslParams *params) {
  (void)picture;
  tslDefaultParams(params);
  params->format = opt.out_format;
  params->flags = TSL_FLAG_SAVE | TSL_FLAG_UNATTENDED;
  if (opt.quality > 0) params->quality = opt.quality;
  params->compression = CompressionFor(opt, opt.out_format);
  params->progressive = opt.progressive ? 1 : 0;
  params->hp49_header = opt.hp49 ? 1 : 0;
  params->dpx_10bits = opt.dpx10 ? 1 : 0;
  UseLut(opt.lut_out, params);
  params->gif87a_header = opt.gif87a ? 1 : 0;
  params->os2_header = opt.os2 ? 1 : 0;
  params->ppm_ascii = opt.ascii ? 1 : 0;
  params->optimize_huffman = opt.optimize ? 1 : 0;
  params->transparent_index = opt.transparent;
  // Headerless output uses the same layout switches as headerless input.
  params->channel_order = ChannelOrderFor(opt.ctype);
  if (opt.corder == "seq" || opt.corder == "sep") params->channel_type = TSL_CHANNEL_PLANAR;
  if (opt.ctype == "grey") params->channel_type = TSL_CHANNEL_GREY;
  if (opt.have_size) params->offset = opt.raw_offset;
}

int FitPictureToFormat(TslPicture *picture, int format, std::string *why) {
  TslFormatInfo info;
  if (tslFormatGetInfo(format, &info) != TSL_OK) {
    *why = "unknown output format";
    return TSL_ERR_CANT_SAVE;
  }
  const TslCapability *caps = info.caps;
  for (int k = 0; k < TSL_MAX_CAPS && caps[k].kind != -1; ++k) {
    if (!KindAccepts(caps[k], *picture)) continue;
    if (caps[k].width > 0 && caps[k].height > 0 &&
        (picture->width != static_cast<uint32_t>(caps[k].width) ||
         picture->height != static_cast<uint32_t>(caps[k].height))) {
      if (ResizeTo(picture, caps[k].width, caps[k].height) != kOpDone) {
        *why = "Error converting picture !!";
        return 255;
      }
    }
    return TSL_OK;
  }
  const int code = ChooseConversion(*picture, caps);
  if (code < 1) {
    *why = "Can't save in this format !!";
    return TSL_ERR_CANT_SAVE;
  }
  TslPicture converted;
  std::memset(&converted, 0, sizeof converted);
  if (ConvertByCode(picture, &converted, code) != kOpDone) {
    *why = "Error converting picture !!";
    return 255;
  }
  tslFree(picture);
  *picture = converted;
  for (int k = 0; k < TSL_MAX_CAPS && caps[k].kind != -1; ++k) {
    if (!CodeMatches(code, caps[k])) continue;
    if (caps[k].width > 0 && caps[k].height > 0 &&
        (picture->width != static_cast<uint32_t>(caps[k].width) ||
         picture->height != static_cast<uint32_t>(caps[k].height)) &&
        ResizeTo(picture, caps[k].width, caps[k].height) != kOpDone) {
      *why = "Error converting picture !!";
      return 255;
    }
    break;
  }
  return TSL_OK;
}

std::string ErrorLine(const std::string &path, int code, const char *library_message) {
  char buf[4096 + 256];
  tslErrorText(buf, sizeof buf, path.c_str(), code, library_message);
  std::string text;
  for (const char *p = buf; *p; ++p) {
    if (*p == '\n') {
      if (!text.empty() && text.back() != ' ') text += ' ';
    } else {
      text += *p;
    }
  }
  if (text.find(path) == std::string::npos) text = path + ": " + text;
  return text;
}

ConvResult ConvertOne(const ConvOptions &opt, const ConvJob &job, OutputClaims *claims) {
  ConvResult r;
  TslParams lp;
  LoadParams(opt, &lp);
  TslPicture pic;
  std::memset(&pic, 0, sizeof pic);
  r.code = tslLoad(job.input.c_str(), &pic, &lp);
  if (r.code != TSL_OK) {
    std::string library_message;
    if (r.code == TSL_ERR_BAD_FILE) {
      TslFileInfo info;
      tslFileInformation(job.input.c_str(), opt.in_format, 0, &info);
      library_message = info.message;
      tslFileInformationFree(&info);
    }
    r.message = ErrorLine(job.input, r.code, library_message.c_str());
    return r;
  }

  // Stored pixels are kept unless asked to turn them upright; the written
  // file then carries no turn of its own (orientation 1).
  if (opt.auto_orient) {
    TslFileInfo info;
    const int orientation =
        tslFileInformation(job.input.c_str(), opt.in_format, 0, &info) == TSL_OK ? info.orientation : 0;
    tslFileInformationFree(&info);
    if (orientation > 1) {
      TslPicture upright;
      std::memset(&upright, 0, sizeof upright);
      if (OrientPicture(&pic, &upright, orientation) != kOpDone) {
        r.code = TSL_ERR_MEMORY;
        r.message = job.input + ": -autoorient: Not enough memory";
        tslFree(&pic);
        return r;
      }
      tslFree(&pic);
      pic = upright;
    }
  }

  // Operations in the order given; a refused one (bilevel picture, empty
  // area) leaves the picture as it was and is reported as a note.
  const OpEntry *cat = OpCatalogue();
  for (const OpProcess &p : opt.ops) {
    int status = OpRunProcessList(&pic, OpProcessList{p});
    if (status == kOpDone) continue;
    std::string what = std::string(cat[p.index].option) + (cat[p.index].sub_option ? " " : "") +
                       (cat[p.index].sub_option ? cat[p.index].sub_option : "");
    if (status == kOpNoMemory) {
      r.code = TSL_ERR_MEMORY;
      r.message = job.input + ": " + what + ": Not enough memory";
      tslFree(&pic);
      return r;
    }
    if (!r.message.empty()) r.message += "; ";
    r.message += job.input + ": " + what +
                 (status == kOpNotBilevel ? ": not applicable to a black and white picture, left out"
                                          : ": nothing to do on this picture, left out");
  }
  const std::string notes = r.message;

  std::string why;
  r.code = FitPictureToFormat(&pic, opt.out_format, &why);
  if (r.code != TSL_OK) {
    r.message = job.input + ": " + why;
    tslFree(&pic);
    return r;
  }

  std::vector<char> path(4096, 0);
  std::snprintf(path.data(), path.size(), "%s", job.output.c_str());
  tslSetCorrectExtension(path.data(), opt.out_format);
  std::string out = claims->Claim(path.data(), opt.overwrite);
  if (out.empty()) {
    r.skipped = true;
    r.output = path.data();
    r.message = notes;
    tslFree(&pic);
    return r;
  }
  r.output = out;
  const bool same_file = out == job.input || CanonicalPath(out) == CanonicalPath(job.input);

  TslParams sp;
  SaveParams(opt, pic, &sp);
  r.code = tslSave(out.c_str(), &pic, &sp);
  tslFree(&pic);
  if (r.code != TSL_OK) {
    r.message = ErrorLine(out, r.code, nullptr);
    return r;
  }
  r.message = notes;
  if (opt.delete_original && !same_file) {
    if (::unlink(job.input.c_str()) == 0) {
      r.deleted = true;
    } else {
      r.message += std::string(r.message.empty() ? "" : "; ") + job.input + ": could not delete the original";
    }
  }
  return r;
}

}  // namespace quilla
