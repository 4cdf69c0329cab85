// Batch conversion texts.
#include "imgproc/batch_text.h"
#include "imgproc/op_args.h"

#include <cctype>
#include <cstdio>

namespace quilla {

namespace {

const char *const kChannelTypes[] = {"grey", "rgb", "bgr", "rgba", "abgr", "cmy", "cmyk"};
const char *const kChannelOrders[] = {"inter", "seq", "sep"};

std::string format(const char *fmt, long a, long b = 0, long c = 0) {
  char buf[96];
  std::snprintf(buf, sizeof buf, fmt, a, b, c);
  return buf;
}

}  // namespace

std::string SaveScriptLine(const ScriptSettings &s) {
  std::string out = "tesconv ";
  if (s.pcd_base >= 0) out += format("-npcd %ld ", s.pcd_base);
  if (s.raw_width >= 0 && s.raw_height >= 0) out += format("-size %ldx%ld+%ld ", s.raw_width, s.raw_height, s.raw_offset);
  if (s.channel_type >= 0 && s.channel_type < 7) out += std::string("-ctype ") + kChannelTypes[s.channel_type] + " ";
  if (s.channel_order >= 0 && s.channel_order < 3) out += std::string("-corder ") + kChannelOrders[s.channel_order] + " ";
  if (s.sequence) {
    if (!s.input_format.empty()) out += "-in " + s.input_format + " ";
    out += format("-n %ld %ld %ld ", s.start, s.end, s.step);
  }
  out += "-out " + s.output_format + " ";
  if (s.delete_original) out += "-D ";
  if (!s.output.empty()) out += "-o " + s.output + " ";
  out += OpProcessListCommandLine(s.operations);
  // "Set DPI" is written without its values, and the reader takes two
  // integers after it as the values: an input list that starts with two
  // numeric names would be read as resolutions, so the first is written
  // as "./name" (the same file).
  const int last = s.operations.empty() ? -1 : s.operations.back().index;
  const bool bare_dpi = last >= 0 && last < OpCatalogueCount() && OpCatalogue()[last].kind == kKindDpi;
  for (size_t k = 0; k < s.inputs.size(); ++k) {
    const bool numeric_pair = k == 0 && s.inputs.size() > 1 && IsIntegerWord(s.inputs[0]) && IsIntegerWord(s.inputs[1]);
    out += (bare_dpi && numeric_pair ? "./" : "") + s.inputs[k] + " ";
  }
  return out;
}

std::string NameFromTemplate(const std::string &templ, int number) {
  const size_t hash = templ.find('#');
  if (hash == std::string::npos) return templ + std::to_string(number);
  size_t run = 0;
  while (hash + run < templ.size() && templ[hash + run] == '#') ++run;
  char digits[64];
  std::snprintf(digits, sizeof digits, "%0*d", static_cast<int>(run > 40 ? 40 : run), number);
  return templ.substr(0, hash) + digits + templ.substr(hash + run);
}

std::string RenameCandidate(const std::string &path, int number) {
  const size_t slash = path.rfind('/');
  size_t dot = path.rfind('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) dot = path.size();
  return path.substr(0, dot) + "_" + std::to_string(number) + path.substr(dot);
}

std::string RenameOutputPath(const std::string &path, const std::function<bool(const std::string &)> &exists) {
  for (int k = 1; k < 998; ++k) {
    std::string candidate = RenameCandidate(path, k);
    if (!exists(candidate)) return candidate;
  }
  return RenameCandidate(path, 998);
}

std::string FixOutputFileName(const std::string &name, const std::string &extensions) {
  if (name.size() < 2) return name;
  const size_t dot = name.find('.', 1);
  if (dot == std::string::npos) return name;
  if (dot + 1 < name.size() && std::isdigit(static_cast<unsigned char>(name[dot + 1]))) return name;
  return name.substr(0, dot) + "." + extensions.substr(0, extensions.find(';'));
}

}  // namespace quilla
