// Fuzz target for the LUT file reader.  Whatever the file holds, a table
// that was accepted has the caller's size in all three planes, and its
// first plane written back as a one-channel file reads back the same.
#include "files/load_model.h"
#include "fuzz/side_fuzz.h"

using quilla::Lut;

namespace {

void Check(const std::string &path, int size) {
  Lut lut;
  if (!quilla::ReadLutFile(path.c_str(), size, &lut)) {
    if (!lut.empty()) sidefuzz::Fail("a refused LUT is not empty");
    return;
  }
  if (lut.size != size) sidefuzz::Fail("LUT size differs from the caller's");
  for (const auto &p : lut.plane)
    if (p.size() != static_cast<size_t>(size)) sidefuzz::Fail("LUT plane of the wrong length");
  std::string text = "LUT: 1 " + std::to_string(size) + "\n";
  for (uint16_t v : lut.plane[0]) text += std::to_string(v) + "\n";
  const std::string again_path = sidefuzz::ScratchDir() + "/again.lut";
  sidefuzz::WriteFile(again_path, text);
  Lut again;
  if (!quilla::ReadLutFile(again_path.c_str(), size, &again) || again.plane[0] != lut.plane[0])
    sidefuzz::Fail("LUT does not read back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string path = sidefuzz::ScratchDir() + "/in.lut";
  if (!sidefuzz::WriteFile(path, data, size)) return 0;
  // The two table sizes the program asks for: saving and loading.
  Check(path, 256);
  Check(path, 1024);
  return 0;
}

void WriteSeeds(const std::string &dir) {
  std::string ramp = "# 10 to 8 bits\nLUT: 3 1024\n";
  for (int k = 0; k < 1024; ++k) ramp += std::to_string(k / 4) + "\n";
  sidefuzz::WriteWithDamage(dir, "ramp3.lut", ramp);
  std::string grey = "lut: 1 256\n";
  for (int k = 0; k < 256; ++k) grey += std::to_string(k * 4) + (k % 3 ? "\n" : "\r\n");
  sidefuzz::WriteWithDamage(dir, "grey1.lut", grey);
  // Lenient headers, clamped and odd values, comments in the table.
  sidefuzz::WriteFile(dir + "/odd-header.lut", "noise\nLUT: 2 256\n1\n2\n");
  sidefuzz::WriteFile(dir + "/refused.lut", "LUT: 7 12\n1\n");
  sidefuzz::WriteFile(dir + "/values.lut",
                      "LUT: 3 3\n-5\n70000\n99999999999999999999\n  12 garbage\n#9\nx\n0x10\n+7\n");
  sidefuzz::WriteFile(dir + "/long-lines.lut", std::string(200, '#') + "\nLUT: 1 1024\n" + std::string(127, ' ') +
                                                   "9\n" + std::string(10000, '5') + "\n");
  sidefuzz::WriteFile(dir + "/no-newline.lut", "LUT: 1 256\n42");
  sidefuzz::WriteFile(dir + "/zeros.lut", std::string("LUT: 1 256\n\0\0\0\n3\n", 18));
}
