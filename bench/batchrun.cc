// batchrun: a Multi Convert run without a window, for timing.
//
//   batchrun [-j N] [-png-level L] -out FORMAT -o DIRECTORY FILE...
//
// Runs the batch as the dialog's work procedure does: wait a little for the
// next file, finish it, again, until the run is over; questions are
// answered "no" (overwrite) and "true colour" (conversion), messages go to
// standard error.  -j 0 (the default) uses one worker per processor, -j 1
// converts each file inside the step as the one-thread program did.  The
// Save settings are the defaults but for the PNG level (6 by default, the
// converter's own).  Prints the files done and the seconds taken.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "files/batch_model.h"

using namespace quilla;

namespace {

class QuietUi : public BatchUi {
 public:
  int AskConversion(const std::string &, const TslFormatInfo &, const TslPicture &, int) override { return 32; }
  void Message(const std::string &text) override { std::fprintf(stderr, "batchrun: %s\n", text.c_str()); }
  bool Confirm(const std::string &) override { return false; }
};

}  // namespace

int main(int argc, char **argv) {
  unsigned threads = 0;
  int level = 6;
  std::string format, out;
  std::vector<std::string> files;
  for (int k = 1; k < argc; ++k) {
    const std::string a = argv[k];
    if (a == "-j" && k + 1 < argc) threads = static_cast<unsigned>(std::atoi(argv[++k]));
    else if (a == "-png-level" && k + 1 < argc) level = std::atoi(argv[++k]);
    else if (a == "-out" && k + 1 < argc) format = argv[++k];
    else if (a == "-o" && k + 1 < argc) out = argv[++k];
    else files.push_back(a);
  }
  const int out_format = tslFormatGetIndex(format.c_str());
  if (out_format < 0 || files.empty()) {
    std::fprintf(stderr, "usage: batchrun [-j N] [-png-level L] -out FORMAT -o DIRECTORY FILE...\n");
    return 2;
  }
  SettingsRecord settings{};
  ReadSettingsFile(&settings, "/nonexistent/.quillarc");  // every default
  settings.Save.PngCompressionLevel = static_cast<uint8_t>(level);

  const auto start = std::chrono::steady_clock::now();
  BatchRun run = BatchRun::Multi(files, out, out_format);
  run.SetThreads(threads);
  QuietUi ui;
  while (!run.Ready(settings, std::chrono::milliseconds(20)) || !run.Step(ui, settings)) {
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf("%zu files, %.3f s\n", run.done(), seconds);
  FreeFileTypes(&settings);
  return run.done() == files.size() ? 0 : 1;
}
