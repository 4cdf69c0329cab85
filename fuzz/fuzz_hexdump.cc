// Fuzz target for the hex dump's file reader: any file gives one line per
// 16 bytes, each 74 characters long, whichever way the view scrolls.
#include "files/hexdump_model.h"
#include "fuzz/side_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string path = sidefuzz::ScratchDir() + "/in.bin";
  if (!sidefuzz::WriteFile(path, data, size)) return 0;
  quilla::HexDumpFile f;
  std::string error;
  if (!f.Open(path, &error)) sidefuzz::Fail("a readable file was refused");
  if (f.line_count() != (size + 15) / 16) sidefuzz::Fail("wrong line count");
  const size_t step = size > 0 ? data[0] % 7 + 1 : 1;
  uint64_t n = 0;
  for (uint64_t first = 0; first < f.line_count(); first += step) {
    for (const std::string &line : f.Lines(first, step)) {
      if (line.size() != quilla::kHexLineLength) sidefuzz::Fail("line length");
      ++n;
    }
  }
  if (n != f.line_count()) sidefuzz::Fail("lines missing");
  return 0;
}

void WriteSeeds(const std::string &dir) {
  std::string all;
  for (int i = 0; i < 256; ++i) all += static_cast<char>(i);
  sidefuzz::WriteFile(dir + "/bytes.bin", all);
  sidefuzz::WriteFile(dir + "/seventeen.bin", std::string(17, 'x'));
  sidefuzz::WriteFile(dir + "/empty.bin", "");
  sidefuzz::WriteFile(dir + "/large.bin", std::string(200000, '\x7f'));
}
