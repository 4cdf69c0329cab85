// Fuzz target for the slide-file reader.  Whatever the file holds, reading
// never fails once the file opens, and what the writer writes from the
// result reads back to a record the writer writes the same way again.
#include "files/slide_model.h"
#include "fuzz/side_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string &dir = sidefuzz::ScratchDir();
  const std::string in = dir + "/in.sld", first = dir + "/first.sld";
  if (!sidefuzz::WriteFile(in, data, size)) return 0;
  quilla::SlideList a, b;
  if (!quilla::ReadSlideFile(in, &a)) sidefuzz::Fail("an existing file did not read");
  if (a.timer <= 0) sidefuzz::Fail("timer not positive");
  for (const std::string &e : a.entries)
    if (e.size() > 4095 || e.find('\n') != std::string::npos) sidefuzz::Fail("bad entry");
  ::unlink(first.c_str());
  if (!quilla::WriteSlideFile(first, a)) sidefuzz::Fail("slide file not written");
  if (a.entries.empty()) return 0;
  if (!quilla::ReadSlideFile(first, &b)) sidefuzz::Fail("written file did not read");
  b.show_filename = a.show_filename;
  b.background = a.background;
  if (quilla::SlideFileText(a) != quilla::SlideFileText(b)) sidefuzz::Fail("slide file differs after a round trip");
  return 0;
}

void WriteSeeds(const std::string &dir) {
  quilla::SlideList list;
  list.switches = quilla::kSlideTimer | quilla::kSlideLoop | quilla::kSlideRandom | quilla::kSlideView1;
  list.timer = 5;
  list.entries = {"/home/u/a.jpg", "/home/u/with \"quotes\".png", "relative/b.gif"};
  sidefuzz::WriteWithDamage(dir, "show.sld", quilla::SlideFileText(list));
  sidefuzz::WriteFile(dir + "/odd.sld",
                      "# Slide Show Sequence\r\nTimer = -5\nView = 1\nView = 2\nTimer=3\n\"\n\"\"\n\"a\"b\"c\n"
                      "Loop = 99999999999999999999\n" + std::string(5000, 'x') + "\n\"" + std::string(5000, 'y') +
                          "\"\n");
  sidefuzz::WriteFile(dir + "/header-late.sld", std::string(520, ' ') + "# Slide Show Sequence\n\"a\"\n");
}
