// Command-line parsing of tesconv: converter options, format options and the
// catalogue operations, in any order before the files.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/tesconv/tesconv.h"

namespace quilla {

namespace {

bool ParseInt(const std::string &text, long min, long max, long *out) {
  if (text.empty()) return false;
  errno = 0;
  char *end = nullptr;
  long v = std::strtol(text.c_str(), &end, 10);
  if (errno != 0 || *end != 0 || v < min || v > max) return false;
  *out = v;
  return true;
}

bool ParseIntArg(const std::vector<std::string> &args, size_t i, const char *option, long min, long max, long *out,
                 std::string *error) {
  if (i >= args.size()) {
    *error = std::string(option) + ": a value is missing";
    return false;
  }
  if (!ParseInt(args[i], min, max, out)) {
    *error = std::string(option) + ": \"" + args[i] + "\" is not a number in " + std::to_string(min) + ".." +
             std::to_string(max);
    return false;
  }
  return true;
}

// "WxH" or "WxH+OFFSET", as -size and -thumb write it.
bool ParseGeometry(const std::string &text, int *w, int *h, long *offset) {
  int n = 0;
  int width = 0, height = 0;
  long off = 0;
  if (std::sscanf(text.c_str(), "%dx%d%n", &width, &height, &n) != 2) return false;
  const char *rest = text.c_str() + n;
  if (*rest == '+') {
    int m = 0;
    if (std::sscanf(rest + 1, "%ld%n", &off, &m) != 1 || rest[1 + m] != 0 || off < 0) return false;
  } else if (*rest != 0) {
    return false;
  }
  if (width <= 0 || height <= 0) return false;
  *w = width;
  *h = height;
  if (offset) *offset = off;
  return true;
}

bool FormatArg(const std::vector<std::string> &args, size_t i, const char *option, int *format, std::string *error) {
  if (i >= args.size()) {
    *error = std::string(option) + ": a format name is missing";
    return false;
  }
  int f = tslFormatGetIndex(args[i].c_str());
  if (f < 0) {
    *error = std::string(option) + ": unknown format \"" + args[i] + "\" (see tesconv -formats)";
    return false;
  }
  *format = f;
  return true;
}

bool OneOf(const std::string &word, std::initializer_list<const char *> list) {
  for (const char *w : list)
    if (word == w) return true;
  return false;
}

}  // namespace

bool ParseCommandLine(const std::vector<std::string> &args, ConvOptions *opt, std::string *error) {
  size_t i = 0;
  bool saw_out = false;
  while (i < args.size()) {
    const std::string &a = args[i];
    if (a == "--") {
      ++i;
      break;
    }
    if (a.size() < 2 || a[0] != '-') break;  // the first file
    long v = 0;
    if (a == "-help" || a == "-h" || a == "--help") {
      opt->mode = ConvOptions::kHelp;
      ++i;
    } else if (a == "-version" || a == "--version") {
      opt->mode = ConvOptions::kVersion;
      ++i;
    } else if (a == "-formats") {
      opt->mode = ConvOptions::kFormats;
      ++i;
    } else if (a == "-info") {
      opt->mode = ConvOptions::kInfo;
      ++i;
    } else if (a == "-in") {
      if (!FormatArg(args, i + 1, "-in", &opt->in_format, error)) return false;
      i += 2;
    } else if (a == "-out") {
      if (!FormatArg(args, i + 1, "-out", &opt->out_format, error)) return false;
      saw_out = true;
      i += 2;
    } else if (a == "-o") {
      if (i + 1 >= args.size() || args[i + 1].empty()) {
        *error = "-o: a directory or file name is missing";
        return false;
      }
      opt->output = args[i + 1];
      i += 2;
    } else if (a == "-n") {
      long s, e, st;
      if (!ParseIntArg(args, i + 1, "-n", 0, 65535, &s, error) || !ParseIntArg(args, i + 2, "-n", 0, 65535, &e, error) ||
          !ParseIntArg(args, i + 3, "-n", -65535, 65535, &st, error))
        return false;
      // A reversed range or a step below 1 means a single file.
      if (s > e || st < 1) {
        opt->seq_start = kNoRange;
      } else {
        opt->seq_start = static_cast<int>(s);
        opt->seq_end = static_cast<int>(e);
        opt->seq_step = static_cast<int>(st);
      }
      i += 4;
    } else if (a == "-D") {
      opt->delete_original = true;
      ++i;
    } else if (a == "-replace") {
      opt->overwrite = Overwrite::kReplace;
      ++i;
    } else if (a == "-skip") {
      opt->overwrite = Overwrite::kSkip;
      ++i;
    } else if (a == "-rename") {
      opt->overwrite = Overwrite::kRename;
      ++i;
    } else if (a == "-j") {
      if (!ParseIntArg(args, i + 1, "-j", 1, 256, &v, error)) return false;
      opt->jobs = static_cast<int>(v);
      i += 2;
    } else if (a.size() > 2 && a.compare(0, 2, "-j") == 0 && ParseInt(a.substr(2), 1, 256, &v)) {
      opt->jobs = static_cast<int>(v);
      ++i;
    } else if (a == "-v" || a == "-verbose") {
      opt->verbose = true;
      ++i;
    } else if (a == "-ignore") {
      opt->keep_damaged = true;
      ++i;
    } else if (a == "-autoorient") {
      opt->auto_orient = true;
      ++i;
    } else if (a == "-size") {
      if (i + 1 >= args.size() ||
          !ParseGeometry(args[i + 1], &opt->raw_width, &opt->raw_height, &opt->raw_offset)) {
        *error = "-size: expected WIDTHxHEIGHT+OFFSET, e.g. 256x256+0";
        return false;
      }
      opt->have_size = true;
      i += 2;
    } else if (a == "-thumb") {
      if (i + 1 >= args.size() || !ParseGeometry(args[i + 1], &opt->target_width, &opt->target_height, nullptr)) {
        *error = "-thumb: expected WIDTHxHEIGHT, e.g. 92x69";
        return false;
      }
      i += 2;
    } else if (a == "-ctype") {
      if (i + 1 >= args.size() || !OneOf(args[i + 1], {"grey", "rgb", "bgr", "rgba", "abgr", "cmy", "cmyk"})) {
        *error = "-ctype: expected grey, rgb, bgr, rgba, abgr, cmy or cmyk";
        return false;
      }
      opt->ctype = args[i + 1];
      i += 2;
    } else if (a == "-corder") {
      if (i + 1 >= args.size() || !OneOf(args[i + 1], {"inter", "seq", "sep"})) {
        *error = "-corder: expected inter, seq or sep";
        return false;
      }
      opt->corder = args[i + 1];
      i += 2;
    } else if (a == "-npcd") {
      if (!ParseIntArg(args, i + 1, "-npcd", 0, 6, &v, error)) return false;
      opt->pcd_base = static_cast<int>(v);
      i += 2;
    } else if (a == "-psdpi") {
      if (!ParseIntArg(args, i + 1, "-psdpi", 10, 2400, &v, error)) return false;
      opt->ps_dpi = static_cast<int>(v);
      i += 2;
    } else if (a == "-pspage") {
      unsigned w = 0, h = 0;
      char end = 0;
      if (i + 1 >= args.size() || std::sscanf(args[i + 1].c_str(), "%ux%u%c", &w, &h, &end) != 2 || w > 20000 ||
          h > 20000 || (w == 0) != (h == 0)) {
        *error = "-pspage: expected WIDTHxHEIGHT in points (0x0: the document's own box)";
        return false;
      }
      opt->ps_page_width = static_cast<int>(w);
      opt->ps_page_height = static_cast<int>(h);
      i += 2;
    } else if (a == "-grobbpp") {
      if (!ParseIntArg(args, i + 1, "-grobbpp", 1, 8, &v, error)) return false;
      opt->grob_bpp = static_cast<int>(v);
      i += 2;
    } else if (a == "-hp49") {
      opt->hp49 = true;
      ++i;
    } else if (a == "-dpx10") {
      opt->dpx10 = true;
      ++i;
    } else if (a == "-lut10to8" || a == "-lut8to10") {
      const bool in = a == "-lut10to8";
      if (i + 1 >= args.size() || !ReadLutFile(args[i + 1].c_str(), in ? 1024 : 256, in ? &opt->lut_in : &opt->lut_out)) {
        *error = a + ": " + (i + 1 < args.size() ? "\"" + args[i + 1] + "\" is not a readable LUT file" : "a file is missing");
        return false;
      }
      i += 2;
    } else if (a == "-q" || a == "-quality") {
      if (!ParseIntArg(args, i + 1, a.c_str(), 1, 100, &v, error)) return false;
      opt->quality = static_cast<int>(v);
      i += 2;
    } else if (a == "-progressive" || a == "-interlace") {
      opt->progressive = true;
      ++i;
    } else if (a == "-compress") {
      if (i + 1 >= args.size() ||
          (!ParseInt(args[i + 1], 0, 9, &v) &&
           !OneOf(args[i + 1], {"none", "rle", "lzw", "packbits", "deflate", "zip", "jpeg", "g3", "g4"}))) {
        *error = "-compress: expected 0..9 or none, rle, lzw, packbits, deflate, jpeg, g3, g4";
        return false;
      }
      opt->compress = args[i + 1];
      i += 2;
    } else if (a == "-gif87a") {
      opt->gif87a = true;
      ++i;
    } else if (a == "-os2") {
      opt->os2 = true;
      ++i;
    } else if (a == "-ascii") {
      opt->ascii = true;
      ++i;
    } else if (a == "-optimize") {
      opt->optimize = true;
      ++i;
    } else if (a == "-transparent") {
      if (!ParseIntArg(args, i + 1, "-transparent", -1, 255, &v, error)) return false;
      opt->transparent = static_cast<int>(v);
      i += 2;
    } else {
      int r = ParseOperation(args, &i, &opt->ops, error);
      if (r < 0) return false;
      if (r == 0) {
        *error = "unknown option \"" + a + "\" (see tesconv -help)";
        return false;
      }
    }
  }
  opt->files.assign(args.begin() + static_cast<long>(i), args.end());

  if (opt->mode == ConvOptions::kConvert) {
    if (!saw_out) {
      *error = "-out FORMAT is missing (see tesconv -formats)";
      return false;
    }
    if (!tslFormatIsWritable(opt->out_format)) {
      *error = std::string("-out: the format \"") + tslFormatGetName(opt->out_format) + "\" cannot be written";
      return false;
    }
    if (opt->files.empty()) {
      *error = "no input file";
      return false;
    }
  } else if (opt->mode == ConvOptions::kInfo && opt->files.empty()) {
    *error = "-info: no input file";
    return false;
  }
  return true;
}

}  // namespace quilla
