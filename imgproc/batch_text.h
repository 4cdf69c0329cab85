// Texts of the batch conversion that need no display: the converter command
// line of "Save Script...", the numbered names of Sequence Convert, the
// "Rename" overwrite names and the output-name fix-up.
#ifndef QUILLA_IMGPROC_BATCH_TEXT_H
#define QUILLA_IMGPROC_BATCH_TEXT_H

#include <functional>
#include <string>
#include <vector>

#include "imgproc/catalogue.h"

namespace quilla {

// What the script line is made of.  Negative or empty fields are left out.
struct ScriptSettings {
  int pcd_base = -1;                   // "-npcd %d " when >= 0
  int raw_width = -1, raw_height = -1; // "-size %dx%d+%d " for headerless input, when both >= 0
  long raw_offset = 0;
  int channel_type = -1;   // 0 grey, 1 rgb, 2 bgr, 3 rgba, 4 abgr, 5 cmy, 6 cmyk
  int channel_order = -1;  // 0 inter, 1 seq, 2 sep
  bool sequence = false;   // Sequence Convert: "-in" and "-n" follow
  std::string input_format;  // "-in %s " when not empty (empty = detect)
  int start = 0, end = 0, step = 1;
  std::string output_format;  // "-out %s "
  bool delete_original = false;  // "-D "
  std::string output;            // "-o %s ": output directory or template, left out when empty
  OpProcessList operations;      // the advanced operations, as the converter's options
  std::vector<std::string> inputs;
};

// "tesconv " followed by the items, each ending with a blank; the
// operations come after the output, before the input files.
std::string SaveScriptLine(const ScriptSettings &settings);

// The first run of '#' replaced by the number with as many digits at least
// (zero-padded); without '#' the number is appended.
std::string NameFromTemplate(const std::string &templ, int number);

// The path with "_<number>" inserted before the extension of its file name
// ("%s_%d%s").
std::string RenameCandidate(const std::string &path, int number);
// The first candidate 1..998 that does not exist; 998 when they all do.
std::string RenameOutputPath(const std::string &path, const std::function<bool(const std::string &)> &exists);

// When the name has a '.' after its first character not followed by a
// digit, the text from that dot on becomes "." and the first extension of
// `extensions` ("jpg;jpeg;jpe" gives "jpg").  Other names are returned as
// they are.
std::string FixOutputFileName(const std::string &name, const std::string &extensions);

}  // namespace quilla

#endif
