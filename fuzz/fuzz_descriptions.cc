// Fuzz target of the description-file reader: any bytes are read without a
// fault, and what was read, written back quoted, reads back the same when
// the lines stay within the reader's line length.
#include "browser/descriptions.h"
#include "fuzz/side_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  using namespace quilla;
  const DescriptionTable table = ParseDescriptions(std::string(reinterpret_cast<const char *>(data), size));
  bool comparable = true;
  for (const DescriptionRecord &r : table.records) {
    if (r.name.find('"') != std::string::npos || r.name.size() + (r.text ? r.text->size() : 0) > 1000)
      comparable = false;
  }
  const DescriptionTable again = ParseDescriptions(FormatDescriptions(table, true));
  if (!comparable) return 0;
  size_t j = 0;
  for (const DescriptionRecord &r : table.records) {
    if (!r.text) continue;
    if (j >= again.records.size() || again.records[j].name != r.name || again.records[j].text != r.text)
      sidefuzz::Fail("description does not read back");
    ++j;
  }
  if (j != again.records.size()) sidefuzz::Fail("description count differs after a round trip");
  return 0;
}

void WriteSeeds(const std::string &dir) {
  // Tables written by the program itself, quoted and bare; the hand-made
  // edge cases are kept in the source tree.
  quilla::DescriptionTable table;
  quilla::SetDescription(&table, "holiday 01.jpg", std::string("Beach, \"sunset\"\tand more"));
  quilla::SetDescription(&table, "plain.png", std::string("A caption"));
  quilla::SetDescription(&table, "empty.gif", std::string());
  quilla::SetDescription(&table, std::string(200, 'n'), std::string(700, 't'));
  sidefuzz::WriteWithDamage(dir, "quoted", quilla::FormatDescriptions(table, true));
  sidefuzz::WriteWithDamage(dir, "bare", quilla::FormatDescriptions(table, false));
}
