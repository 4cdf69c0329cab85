// The toolkit-free half of multi-page file creation: the output name, the
// formats offered, the ordering of the input list and Create, which joins
// the inputs one page each through the library's multi-page writer.
#ifndef QUILLA_FILES_MULTI_MODEL_H
#define QUILLA_FILES_MULTI_MODEL_H

#include <functional>
#include <string>
#include <vector>

#include "core/settings.h"

namespace quilla {

// The output path: a path without any "." gets "." and the format's default
// suffix (when it has one); a path with a dot anywhere is kept as it is.
std::string MultiOutputPath(const std::string &path, int format);

// The formats the library can write with several pages, in its order.
std::vector<int> MultiPageFormats();

// The orders of the input list ("Sort By").
enum class MultiSort { kName, kDate, kSize, kExtension };
void SortMultiInputs(std::vector<std::string> *paths, MultiSort key, bool descending);

// The regular files of a directory whose extension names a format the
// library reads, by name.
std::vector<std::string> PicturesInFolder(const std::string &dir);

struct MultiResult {
  int code = 0;       // 0, or the library's code of the first error
  std::string error;  // the user's text of that error, naming the output or the input
  std::string path;   // the file written (with its suffix)
  int pages = 0;      // pages in it
};

// Creates `output` in `format` from `inputs`, one page each in list order.
// The first error stops the run; the pages added before it stay in the
// file.  The file grows under a temporary name beside it and replaces the
// target once closed and flushed.  Compression is the settings' own for
// "dcx" (Save.PcxCompress) and "tiff" (Save.TiffBinaryCompress for
// black-and-white pages, else Save.TiffCompress), passed exactly as stored.
// `progress` is called before each input with its index.
MultiResult CreateMultiPage(const SettingsRecord &settings, const std::string &output, int format,
                            const std::vector<std::string> &inputs,
                            const std::function<void(size_t)> &progress = nullptr);

}  // namespace quilla

#endif
