// Fuzz target for the user-filter file.  Every filter the reader accepts is
// well formed (size 3..7, divisor not 0, a terminated name), and the list
// written back reads back the same.
#include <cstring>

#include "fuzz/side_fuzz.h"
#include "imgproc/userfilter.h"

using quilla::UserFilterList;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string &dir = sidefuzz::ScratchDir();
  const std::string in = dir + "/in.dat", out = dir + "/out.dat";
  if (!sidefuzz::WriteFile(in, data, size)) return 0;
  UserFilterList a, b;
  quilla::ReadUserFilterFile(in.c_str(), &a);
  for (const quilla::UserFilter &f : a.filters) {
    if (f.size < 3 || f.size > quilla::kUserFilterMaxSize || f.divisor == 0) sidefuzz::Fail("bad filter accepted");
    if (!std::memchr(f.name, '\0', sizeof f.name)) sidefuzz::Fail("unterminated name");
  }
  if (quilla::WriteUserFilterFile(out.c_str(), a) != 0) return 0;
  quilla::ReadUserFilterFile(out.c_str(), &b);
  if (a.filters.size() != b.filters.size()) sidefuzz::Fail("filter count changed by a round trip");
  for (size_t k = 0; k < a.filters.size(); ++k)
    if (quilla::FormatUserFilterLine(a.filters[k]) != quilla::FormatUserFilterLine(b.filters[k]))
      sidefuzz::Fail("filter changed by a round trip");
  return 0;
}

void WriteSeeds(const std::string &dir) {
  sidefuzz::WriteWithDamage(dir, "udf-def.dat", sidefuzz::ReadFile(QUILLA_SOURCE_DIR "/data/Filters/udf-def.dat"));
  sidefuzz::WriteFile(dir + "/edge.dat",
                      "# Quilla UDF v1.0 (do not edit)\n"
                      "Zero divisor | 3 0 0 | 1x9\n"
                      "Too big | 9 1 0 | 1x81\n"
                      "Too small | 1 1 0 | 1\n"
                      "Short | 5 1 0 | 1 2 3\n"
                      "Repeat overflow | 3 1 0 | 1x4000000000\n"
                      "Huge values | 3 99999 -99999 | 70000 -70000 1x7\n"
                      "A name far too long for the thirty-one characters | 3 9 0 | 1x9\n"
                      "No bars at all\n"
                      "|||\n"
                      "Tabs\t|\t3\t9\t0\t|\t1x9\n");
}
