// Fuzz target for the batch-script reader ("Load Script...").  Whatever the
// file holds, the reader accepts it or refuses it with a reason; what it
// accepts, written again, reads back to the same line.
#include "files/batch_model.h"
#include "fuzz/side_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string &dir = sidefuzz::ScratchDir();
  const std::string in = dir + "/in.sh", again = dir + "/again.sh";
  if (!sidefuzz::WriteFile(in, data, size)) return 0;
  quilla::ScriptSettings first, second;
  std::string error;
  if (!quilla::ReadScriptFile(in, &first, &error)) {
    if (error.empty()) sidefuzz::Fail("refused without a reason");
    return 0;
  }
  if (!quilla::WriteScriptFile(again, first)) sidefuzz::Fail("script not written");
  if (!quilla::ReadScriptFile(again, &second, &error)) sidefuzz::Fail("a written script does not read back");
  if (quilla::SaveScriptLine(first) != quilla::SaveScriptLine(second)) sidefuzz::Fail("script differs after a round trip");
  return 0;
}

void WriteSeeds(const std::string &dir) {
  const char *const scripts[] = {
      "tesconv -out png -D -o /out/ -negate -yflip /in/a.jpg /in/b.gif \n",
      "tesconv -npcd 3 -size 640x480+128 -ctype bgr -corder seq -in raw -n 1 10 2 -out png -o /o/f###.png "
      "/i/s###.raw \n",
      "#!/bin/sh\n# saved by the batch dialog\ntesconv -out gif -dither -colors 16 -ratio -rtype linear -resize 50% "
      "50% -noise 0.40 gaussian x.png\n",
      "tesconv -out jpeg -n 65535 3 0 -o out -gamma 1e400 -blur -3 a\n",
      "tesconv\ntesconv -out\ntesconv -out png -size 0x0+99999999999999999999 a\n",
  };
  int n = 0;
  for (const char *s : scripts) sidefuzz::WriteWithDamage(dir, "script" + std::to_string(n++), s);
}
