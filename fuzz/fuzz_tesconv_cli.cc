// Fuzz target for tesconv's command line (the lines batch scripts hold).
// The input is split into arguments at new lines; the parser accepts or
// refuses with a message, and never crashes.
#include "fuzz/side_fuzz.h"
#include "tools/tesconv/tesconv.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string text(reinterpret_cast<const char *>(data), size);
  std::vector<std::string> args;
  size_t start = 0;
  while (start <= text.size() && args.size() < 256) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    args.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  quilla::ConvOptions opt;
  std::string error;
  if (!quilla::ParseCommandLine(args, &opt, &error) && error.empty()) sidefuzz::Fail("refused without a message");
  // The same text as one script line, split the way scripts are read.
  std::vector<std::string> words = quilla::SplitWords(text);
  quilla::ConvOptions opt2;
  quilla::ParseCommandLine(words, &opt2, &error);
  return 0;
}

void WriteSeeds(const std::string &dir) {
  const char *const lines[] = {
      "-info\nphoto.jpg\nscan.tif",
      "-out\npng\n-o\npng/\na.jpg\nb.jpg",
      "-q\n85\n-progressive\n-out\njpeg\n-o\nsmall/\n-ratio\n-resize\n50%\n50%\nphotos/x.png",
      "-dither\n-colors\n16\n-out\ngif\n-rename\nlogo.png",
      "-n\n1\n120\n1\n-out\njpeg\n-o\nout/frame###.jpg\nscan####.tif",
      "-noise\n0.40\ngaussian\n-medianb\n3\n-edetail\n-out\npng\nin.ppm",
      "-resize\n-1\n99999999999\n-colors\n0\n-q\n101\n-n\n5\n1\n0\n",
      "-out\n\n-o\n\n-ctype\ncmyk\n-corder\nsep\n-compress\n9999\n",
      "-gamma\nnan\n-brightness\ninf\n-rotate\n1e400\n",
  };
  int n = 0;
  for (const char *l : lines) sidefuzz::WriteWithDamage(dir, "cli" + std::to_string(n++), l);
}
