// tesconv: the command-line converter.  Options, output naming, the
// conversion of one file and the listings (-formats, -info), kept apart from
// main() so that the tests can drive them directly.
#ifndef QUILLA_TOOLS_TESCONV_TESCONV_H
#define QUILLA_TOOLS_TESCONV_TESCONV_H

#include <string>
#include <vector>

#include "imgproc/batch_text.h"  // NameFromTemplate, RenameOutputPath
#include "imgproc/catalogue.h"
#include "imgproc/lut_file.h"
#include "imgproc/op_args.h"  // ParseOperation, SplitWords
#include "tessel.h"

namespace quilla {

// What an existing output file does to a conversion (Multi Convert's menu).
enum class Overwrite { kReplace, kSkip, kRename };

// Sentinel of "no range" for -n (a single file).
constexpr int kNoRange = 65535;

struct ConvOptions {
  enum Mode { kConvert, kInfo, kFormats, kHelp, kVersion } mode = kConvert;

  int in_format = -1;         // -in: forced input format, -1 = detect
  int out_format = -1;        // -out: output format (required to convert)
  std::string output;         // -o: a directory (ends with "/" or exists) or a name template
  int seq_start = kNoRange;   // -n START END STEP; kNoRange = no range
  int seq_end = 0, seq_step = 1;
  bool delete_original = false;  // -D
  Overwrite overwrite = Overwrite::kReplace;
  int jobs = 0;               // -j, 0 = number of cores
  bool verbose = false;       // -v: one line per converted file
  bool keep_damaged = false;  // -ignore: keep what a damaged file gives
  bool auto_orient = false;   // -autoorient: turn upright by the EXIF orientation

  // Headerless input (-size, -ctype, -corder) and Photo CD (-npcd).
  int raw_width = 0, raw_height = 0;
  long raw_offset = 0;
  bool have_size = false;
  std::string ctype;          // grey, rgb, bgr, rgba, abgr, cmy, cmyk ("" = library default)
  std::string corder;         // inter, seq, sep
  int pcd_base = -1;
  // PostScript, EPS and PDF (-psdpi N, -pspage WxH in points, 0x0 = the
  // document's own box) and GROB planes read as grey levels (-grobbpp N).
  int ps_dpi = 72, ps_page_width = 0, ps_page_height = 0;
  int grob_bpp = -1;

  // Reduced loading (-thumb WxH): fit while loading, never enlarge.
  int target_width = 0, target_height = 0;

  // Writing options.
  int quality = -1;           // -q
  bool progressive = false;   // -progressive / -interlace
  std::string compress;       // -compress N or a method name, resolved per output format
  bool gif87a = false, os2 = false, ascii = false, optimize = false;
  int transparent = -1;       // -transparent N
  bool hp49 = false;          // -hp49: GROB written with the HP49 header
  bool dpx10 = false;         // -dpx10: DPX written with 10-bit samples
  Lut lut_in;                 // -lut10to8 FILE: Cineon and DPX samples read through this table
  Lut lut_out;                // -lut8to10 FILE: ... written through this one

  OpProcessList ops;          // picture operations, in command-line order
  std::vector<std::string> files;
};

// Parses the arguments after the program name.  Returns true on success;
// on failure *error says why.
bool ParseCommandLine(const std::vector<std::string> &args, ConvOptions *opt, std::string *error);

// One unit of work: an input path and the output path before the extension
// fix-up and the overwrite policy.
struct ConvJob {
  std::string input;
  std::string output;
};

// Expands the file arguments into jobs (sequences, directory/template
// output).  Returns false with *error on an impossible combination.
bool PlanJobs(const ConvOptions &opt, std::vector<ConvJob> *jobs, std::string *error);

// Result of one conversion.
struct ConvResult {
  int code = TSL_OK;      // library code, or 255 when a step before the save failed
  bool skipped = false;   // output existed and -skip was given
  bool deleted = false;   // the original was removed (-D)
  std::string output;     // the path written
  std::string message;    // what went wrong (or a note), one line
};

// Claims output names so that parallel conversions never pick the same
// renamed name.  Thread-safe.
class OutputClaims {
 public:
  // Applies the overwrite policy to `path` (already carrying its final
  // extension).  Returns the path to write, or "" to skip.
  std::string Claim(const std::string &path, Overwrite policy);

 private:
  bool Taken(const std::string &path) const;
  std::vector<std::string> claimed_;
};

// Library parameters for loading with the options' input settings.
void LoadParams(const ConvOptions &opt, TslParams *params);
// Library parameters for saving into the options' output format.
void SaveParams(const ConvOptions &opt, const TslPicture &picture, TslParams *params);

// Converts the picture, when the output format cannot hold it, into a form
// it can (first accepting capability; else a sensible conversion).  Returns
// 0, or a message in *why.
int FitPictureToFormat(TslPicture *picture, int format, std::string *why);

// Loads, applies the operations, fits, names, saves and deletes the original.
ConvResult ConvertOne(const ConvOptions &opt, const ConvJob &job, OutputClaims *claims);

// The library's error text on one line ("\n" folded), with the path when the
// text does not already name it.
std::string ErrorLine(const std::string &path, int code, const char *library_message);

// "-formats": the format table as the Available formats list lays it out.
std::string FormatsListing();
// "-info": the information block of one file; false when it cannot be read
// (the block then holds the error line).
bool InfoText(const std::string &path, const TslParams &params, std::string *text);

// The text of "-help".
std::string UsageText();

// The progress line on a terminal: files done of the total, elapsed time,
// the estimated time left and as much of the current file's name as fits in
// `width` columns (its end is kept).
std::string ProgressLine(size_t done, size_t total, const std::string &name, double elapsed, size_t width);

}  // namespace quilla

#endif
