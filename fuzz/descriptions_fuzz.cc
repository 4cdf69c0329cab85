// Fuzz target of the description-file reader: any bytes are read without a
// fault, and what was read, written back quoted, reads back the same when
// the lines stay within the reader's line length.
//
// Built with FUZZ_REPLAY it is the plain program fuzz_replay_descriptions,
// which runs every file of the given directories through the same check.
#include <dirent.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "browser/descriptions.h"

namespace {

void Check(const uint8_t *data, size_t size) {
  using namespace quilla;
  const DescriptionTable table = ParseDescriptions(std::string(reinterpret_cast<const char *>(data), size));
  bool comparable = true;
  for (const DescriptionRecord &r : table.records) {
    if (r.name.find('"') != std::string::npos || r.name.size() + (r.text ? r.text->size() : 0) > 1000)
      comparable = false;
  }
  const DescriptionTable again = ParseDescriptions(FormatDescriptions(table, true));
  if (!comparable) return;
  size_t j = 0;
  for (const DescriptionRecord &r : table.records) {
    if (!r.text) continue;
    if (j >= again.records.size() || again.records[j].name != r.name || again.records[j].text != r.text) {
      std::fprintf(stderr, "record %zu does not read back\n", j);
      std::abort();
    }
    ++j;
  }
  if (j != again.records.size()) std::abort();
}

}  // namespace

#ifndef FUZZ_REPLAY

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Check(data, size);
  return 0;
}

#else

int main(int argc, char **argv) {
  int files = 0;
  for (int i = 1; i < argc; ++i) {
    DIR *dir = opendir(argv[i]);
    if (!dir) continue;
    while (dirent *e = readdir(dir)) {
      if (e->d_name[0] == '.' && (!e->d_name[1] || (e->d_name[1] == '.' && !e->d_name[2]))) continue;
      std::ifstream in(std::string(argv[i]) + "/" + e->d_name, std::ios::binary);
      std::ostringstream ss;
      ss << in.rdbuf();
      const std::string s = ss.str();
      Check(reinterpret_cast<const uint8_t *>(s.data()), s.size());
      ++files;
    }
    closedir(dir);
  }
  std::printf("%d description files replayed\n", files);
  return files > 0 ? 0 : 1;
}

#endif
