// Fuzz target for the settings file reader.  Whatever the file holds, the
// reader fills the record with values the writer can write, and what the
// writer wrote reads back to the same record: writing the re-read record
// gives the same bytes.
#include <memory>

#include "core/settings.h"
#include "fuzz/side_fuzz.h"

using quilla::SettingsRecord;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string &dir = sidefuzz::ScratchDir();
  const std::string in = dir + "/in.rc", first = dir + "/first.rc", second = dir + "/second.rc";
  if (!sidefuzz::WriteFile(in, data, size)) return 0;
  auto a = std::make_unique<SettingsRecord>();
  auto b = std::make_unique<SettingsRecord>();
  quilla::ReadSettingsFile(a.get(), in);
  if (!quilla::WriteSettingsFile(a.get(), first)) sidefuzz::Fail("settings not written");
  quilla::ReadSettingsFile(b.get(), first);
  if (!quilla::WriteSettingsFile(b.get(), second)) sidefuzz::Fail("settings not written again");
  if (sidefuzz::ReadFile(first) != sidefuzz::ReadFile(second)) sidefuzz::Fail("settings differ after a round trip");
  return 0;
}

void WriteSeeds(const std::string &dir) {
  // The defaults as written, and that file damaged.
  auto rec = std::make_unique<SettingsRecord>();
  const std::string none = sidefuzz::ScratchDir() + "/missing.rc", path = dir + "/defaults.rc";
  quilla::ReadSettingsFile(rec.get(), none);
  quilla::WriteSettingsFile(rec.get(), path);
  sidefuzz::WriteWithDamage(dir, "defaults.rc", sidefuzz::ReadFile(path));
  // What users and accidents put in settings files.
  sidefuzz::WriteFile(dir + "/long-line.rc", "View.Fit = " + std::string(10000, '7') + "\n" +
                                                 std::string(10000, 'x') + "\nPathLoad = " +
                                                 std::string(10000, '/') + "\n");
  sidefuzz::WriteFile(dir + "/zeros.rc", std::string(4096, '\0'));
  sidefuzz::WriteFile(dir + "/huge-numbers.rc",
                      "View.Fit = 99999999999999999999999\nView.UseUndo = -99999999999999\n"
                      "Load.PcdBase = 4294967296\nSave.JpegQuality = 1e309\nConvert.DefaultFormat = -1\n"
                      "Slide.Timer = -2147483649\nStart.ToolbarViewConfig = 0x7fffffffffff\n");
  sidefuzz::WriteFile(dir + "/odd-syntax.rc",
                      "View.Fit=3\nView.Fit\n=\n.=.\nView. = 2\n View.Fit = 4 \nNoSuch.Key = B\n"
                      "\r\nFile.DirName_0 = /tmp\r\nFile.DirName_99 = /x\nFile.FileName_-1 = /y\n"
                      "View.Fit = 5\n#comment\n[View]\n");
  std::string random(3000, '\0');
  uint32_t x = 12345;
  for (char &c : random) c = static_cast<char>((x = x * 1103515245 + 12345) >> 16);
  sidefuzz::WriteFile(dir + "/random.rc", random);
}
