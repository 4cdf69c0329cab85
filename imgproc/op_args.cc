// Parsing of the catalogue operations on the command line: the inverse of
// the process-entry writer (OpProcessCommandLine).  An option word names one
// or more catalogue rows; the row's parameter kind says which values follow,
// and a row with a sub-option expects it after the values ("-noise 0.40
// gaussian").  The modifiers "-ratio", "-rtype" and "-dither" come before the
// operation they change.
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "imgproc/op_args.h"

namespace quilla {

namespace {

bool ToInt(const std::string &text, long *out) {
  if (text.empty()) return false;
  errno = 0;
  char *end = nullptr;
  long v = std::strtol(text.c_str(), &end, 10);
  if (errno != 0 || *end != 0 || v < -1000000000L || v > 1000000000L) return false;
  *out = v;
  return true;
}

bool ToReal(const std::string &text, double *out) {
  if (text.empty()) return false;
  errno = 0;
  char *end = nullptr;
  double v = std::strtod(text.c_str(), &end);
  if (errno != 0 || *end != 0 || !std::isfinite(v)) return false;
  *out = v;
  return true;
}

// "50%" -> 50.
bool ToPercent(const std::string &text, long *out) {
  if (text.size() < 2 || text.back() != '%') return false;
  return ToInt(text.substr(0, text.size() - 1), out) && *out >= 0 && *out <= 32767;
}

// Modifiers collected before the operation they belong to.
struct Pending {
  bool ratio = false;
  bool dither = false;
  int resample = 0;  // 0 = none given
};

// Grey level counts and colour counts to the stored codes (the writer's decoding, reversed).
int GreyCode(long count) {
  static const int kCounts[] = {4, 8, 16, 32, 64, 128};
  for (int k = 0; k < 6; ++k)
    if (count == kCounts[k]) return k + 2;
  return count == 256 ? 9 : -1;
}

int ColorCode(long count) {
  static const int kCounts[] = {8, 16, 32, 64, 128, 216};
  for (int k = 0; k < 6; ++k)
    if (count == kCounts[k]) return k + 12;
  return count == 256 ? 18 : -1;
}

class RowParser {
 public:
  RowParser(const std::vector<std::string> &args, size_t pos, const OpEntry &row, const Pending &pending)
      : args_(args), pos_(pos), row_(row), pending_(pending) {}

  // Reads the values of the row's kind; false (with error_) when they do not fit.
  bool Parse(OpParams *p) {
    const std::string opt = row_.option;
    switch (row_.kind) {
      case kKindInt: case kKindAngle: case kKindPosterize: case kKindFilterSize: {
        long v;
        if (!Int(&v)) return false;
        long lo = row_.desc[0].min, hi = row_.desc[0].max;
        if (row_.kind == kKindAngle) lo = -360, hi = 360;
        if (row_.kind == kKindPosterize) lo = 2, hi = 256;
        if (row_.kind == kKindFilterSize) lo = 3, hi = 13;
        if (row_.kind == kKindInt && lo >= hi) lo = -1000000, hi = 1000000;
        if (v < lo || v > hi || (row_.kind == kKindFilterSize && v % 2 == 0))
          return Fail(opt + ": " + std::to_string(v) + " is outside " + std::to_string(lo) + ".." + std::to_string(hi) +
                      (row_.kind == kKindFilterSize ? " (odd sizes)" : ""));
        p->i[0] = static_cast<int32_t>(v);
        return true;
      }
      case kKindReal: {
        double v;
        if (!Real(&v)) return false;
        if (!RealInBounds(0, v)) return false;
        p->r[0] = v;
        return true;
      }
      case kKindReal3:
        for (int k = 0; k < 3; ++k) {
          double v;
          if (!Real(&v) || !RealInBounds(k, v)) return false;
          p->r[k] = v;
        }
        return true;
      case 5: case kKindInt3:
        for (int k = 0; k < 3; ++k) {
          long v;
          if (!Int(&v)) return false;
          if (row_.count > k && row_.desc[k].min < row_.desc[k].max &&
              (v < row_.desc[k].min || v > row_.desc[k].max))
            return Fail(opt + ": " + std::to_string(v) + " is outside " + std::to_string(row_.desc[k].min) + ".." +
                        std::to_string(row_.desc[k].max));
          p->i[k] = static_cast<int32_t>(v);
        }
        return true;
      case 6: case kKindCrop:
        for (int k = 0; k < 4; ++k) {
          long v;
          if (!Int(&v)) return false;
          p->i[k] = static_cast<int32_t>(v);
        }
        return true;
      case kKindResize: case kKindCanvas: {
        if (pos_ + 1 >= args_.size()) return Fail(opt + ": width and height are missing");
        long w, h;
        const std::string &a = args_[pos_], &b = args_[pos_ + 1];
        if (ToPercent(a, &w) && ToPercent(b, &h)) {
          p->width_percent = static_cast<int16_t>(w);
          p->height_percent = static_cast<int16_t>(h);
          p->width = p->height = 0;
        } else if (ToInt(a, &w) && ToInt(b, &h) && w >= 0 && h >= 0) {
          p->width = static_cast<int32_t>(w);
          p->height = static_cast<int32_t>(h);
          p->width_percent = p->height_percent = 0;
        } else {
          return Fail(opt + ": expected WIDTH HEIGHT in pixels or WIDTH% HEIGHT%, not \"" + a + " " + b + "\"");
        }
        pos_ += 2;
        p->keep_ratio = pending_.ratio ? 1 : 0;
        if (pending_.resample) p->resample = static_cast<int16_t>(pending_.resample);
        return true;
      }
      case kKindColors: case kKindGrey: {
        long count;
        if (!Int(&count)) return false;
        int code = row_.kind == kKindColors ? ColorCode(count) : GreyCode(count);
        if (code < 0)
          return Fail(opt + (row_.kind == kKindColors ? ": colours are 8, 16, 32, 64, 128, 216 or 256"
                                                      : ": grey levels are 4, 8, 16, 32, 64, 128 or 256"));
        p->i[0] = code;
        if (pending_.dither) p->i[1] = 1;
        else if (p->i[1] == 1) p->i[1] = 0;
        return true;
      }
      case kKindBinary: {
        static const char *const kWords[] = {"pattern", "halft45", "halft90", "floyd"};
        static const int kMethods[] = {1, 2, 3, 5};
        return Word(kWords, kMethods, 4, &p->i[0]);
      }
      case kKindSwap: {
        static const char *const kWords[] = {"rbg", "bgr", "brg", "grb", "gbr"};
        static const int kChoices[] = {0, 1, 2, 3, 4};
        return Word(kWords, kChoices, 5, &p->i[0]);
      }
      case kKindDeinterlace: {
        static const char *const kFields[] = {"odd", "even"};
        static const char *const kNew[] = {"int", "dup"};
        static const int kBits[] = {0, 1};
        int field, fill;
        if (!Word(kFields, kBits, 2, &field) || !Word(kNew, kBits, 2, &fill)) return false;
        p->i[0] = field | fill << 1;
        return true;
      }
      case kKindDpi: {
        // Written as the option alone; "-dpi X Y" sets the values.
        long x, y;
        if (pos_ + 1 < args_.size() && ToInt(args_[pos_], &x) && ToInt(args_[pos_ + 1], &y)) {
          if (x < 1 || y < 1 || x > 65535 || y > 65535) return Fail(opt + ": resolutions are 1..65535");
          p->i[0] = static_cast<int32_t>(x);
          p->i[1] = static_cast<int32_t>(y);
          pos_ += 2;
        }
        return true;
      }
      default:
        return true;  // the option alone
    }
  }

  // The sub-option after the values, when the row has one.
  bool SubOption() {
    if (!row_.sub_option) return true;
    if (pos_ < args_.size() && args_[pos_] == row_.sub_option) {
      ++pos_;
      return true;
    }
    return Fail(std::string(row_.option) + ": \"" + row_.sub_option + "\" expected");
  }

  size_t pos() const { return pos_; }
  const std::string &error() const { return error_; }

 private:
  bool Fail(const std::string &why) {
    error_ = why;
    return false;
  }
  bool Int(long *v) {
    if (pos_ >= args_.size()) return Fail(std::string(row_.option) + ": a value is missing");
    if (!ToInt(args_[pos_], v)) return Fail(std::string(row_.option) + ": \"" + args_[pos_] + "\" is not an integer");
    ++pos_;
    return true;
  }
  bool Real(double *v) {
    if (pos_ >= args_.size()) return Fail(std::string(row_.option) + ": a value is missing");
    if (!ToReal(args_[pos_], v)) return Fail(std::string(row_.option) + ": \"" + args_[pos_] + "\" is not a number");
    ++pos_;
    return true;
  }
  // Real bounds are stored in hundredths; the written value has two decimals.
  bool RealInBounds(int k, double v) {
    const OpParamDesc &d = row_.desc[k];
    if (d.min >= d.max) return true;
    double lo = d.min / 100.0, hi = d.max / 100.0;
    if (v < lo - 0.005 || v > hi + 0.005) {
      char buf[96];
      std::snprintf(buf, sizeof buf, ": %g is outside %.2f..%.2f", v, lo, hi);
      return Fail(row_.option + std::string(buf));
    }
    return true;
  }
  template <typename T>
  bool Word(const char *const *words, const int *values, int n, T *out) {
    std::string list;
    if (pos_ < args_.size()) {
      for (int k = 0; k < n; ++k) {
        if (args_[pos_] == words[k]) {
          *out = values[k];
          ++pos_;
          return true;
        }
      }
    }
    for (int k = 0; k < n; ++k) list += std::string(k ? ", " : "") + words[k];
    return Fail(std::string(row_.option) + ": expected one of " + list);
  }

  const std::vector<std::string> &args_;
  size_t pos_;
  const OpEntry &row_;
  const Pending &pending_;
  std::string error_;
};

}  // namespace

bool IsIntegerWord(const std::string &text) {
  long v;
  return ToInt(text, &v);
}

int ParseOperation(const std::vector<std::string> &args, size_t *pos, OpProcessList *list, std::string *error) {
  size_t i = *pos;
  Pending pending;
  // Modifiers first.
  while (i < args.size()) {
    if (args[i] == "-ratio") {
      pending.ratio = true;
      ++i;
    } else if (args[i] == "-dither") {
      pending.dither = true;
      ++i;
    } else if (args[i] == "-rtype") {
      if (i + 1 >= args.size()) {
        *error = "-rtype: a method is missing";
        return -1;
      }
      const std::string &m = args[i + 1];
      if (m == "linear") pending.resample = kResampleLinear;
      else if (m == "quick") pending.resample = kResampleQuick;
      else if (m == "bicubic") pending.resample = kResampleBicubic;
      else if (m == "lanczos") pending.resample = kResampleLanczos;
      else {
        *error = "-rtype: expected linear, quick, bicubic or lanczos";
        return -1;
      }
      i += 2;
    } else {
      break;
    }
  }
  const bool had_modifier = i != *pos;
  if (i >= args.size()) {
    if (!had_modifier) return 0;
    *error = args[*pos] + ": no operation follows";
    return -1;
  }

  const std::string &word = args[i];
  const OpEntry *cat = OpCatalogue();
  const int count = OpCatalogueCount();
  std::string first_error;
  size_t furthest = 0;
  bool known = false;
  for (int k = 0; k < count; ++k) {
    if (word != cat[k].option) continue;
    known = true;
    OpProcess process = OpDefaultProcess(k);
    RowParser parser(args, i + 1, cat[k], pending);
    if (!parser.Parse(&process.params) || !parser.SubOption()) {
      // Report the row that read furthest: its values fitted best.
      if (first_error.empty() || parser.pos() > furthest) {
        first_error = parser.error();
        furthest = parser.pos();
      }
      continue;  // another row of the same option may fit (e.g. "-noise reduce")
    }
    const int kind = cat[k].kind;
    if ((pending.ratio || pending.resample) && kind != kKindResize && kind != kKindCanvas) {
      *error = word + ": -ratio and -rtype belong to -resize and -canvas";
      return -1;
    }
    if (pending.resample && kind == kKindCanvas) {
      *error = "-rtype belongs to -resize";
      return -1;
    }
    if (pending.dither && kind != kKindColors && kind != kKindGrey) {
      *error = word + ": -dither belongs to -colors and -grey";
      return -1;
    }
    list->push_back(process);
    *pos = parser.pos();
    return 1;
  }
  if (!known) {
    if (!had_modifier) return 0;
    *error = args[*pos] + ": \"" + word + "\" is no operation";
    return -1;
  }
  // Several rows share "-noise" and "-edgedetect": name the sub-options.
  bool shared = false;
  for (int k = 0; k < count; ++k)
    if (word == cat[k].option && cat[k].sub_option) shared = true;
  if (shared) {
    std::string subs;
    for (int k = 0; k < count; ++k)
      if (word == cat[k].option && cat[k].sub_option) subs += std::string(subs.empty() ? "" : ", ") + cat[k].sub_option;
    *error = first_error + " (" + word + " takes one of " + subs + ")";
  } else {
    *error = first_error;
  }
  return -1;
}

std::vector<std::string> SplitWords(const std::string &text) {
  std::vector<std::string> words;
  std::string cur;
  for (char c : text) {
    if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
      if (!cur.empty()) words.push_back(cur);
      cur.clear();
    } else {
      cur += c;
    }
  }
  if (!cur.empty()) words.push_back(cur);
  return words;
}

}  // namespace quilla
