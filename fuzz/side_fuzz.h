// Shared pieces of the fuzz targets for the program's side files (settings,
// user filters, command lines...).  Each target defines
// LLVMFuzzerTestOneInput and WriteSeeds; side_replay.cc turns a target into
// a plain program that writes its seed corpus and replays corpora, so CI
// runs every corpus without libFuzzer (and under the sanitizers).
#ifndef QUILLA_FUZZ_SIDE_FUZZ_H
#define QUILLA_FUZZ_SIDE_FUZZ_H

#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

// Writes the target's seed files into `dir` (which exists).
void WriteSeeds(const std::string &dir);

namespace sidefuzz {

inline std::string &ScratchPath() {
  static std::string path;
  return path;
}

// Removes the scratch directory and what the target left in it.
inline void RemoveScratch() {
  if (ScratchPath().find("/quilla-fuzz-") == std::string::npos) return;  // only our own
  nftw(ScratchPath().c_str(), [](const char *p, const struct stat *, int, struct FTW *) { return ::remove(p); }, 16,
       FTW_DEPTH | FTW_PHYS);
}

// A private scratch directory for the process, made on first use and
// removed when the process ends.
inline const std::string &ScratchDir() {
  static const std::string &dir = [] () -> const std::string & {
    const char *base = std::getenv("TMPDIR");
    std::string templ = std::string(base && *base ? base : "/tmp") + "/quilla-fuzz-XXXXXX";
    if (mkdtemp(&templ[0])) {
      ScratchPath() = templ;
      std::atexit(RemoveScratch);
    } else {
      ScratchPath() = "/tmp";
    }
    return ScratchPath();
  }();
  return dir;
}

inline bool WriteFile(const std::string &path, const void *data, size_t size) {
  FILE *f = std::fopen(path.c_str(), "wb");
  if (!f) return false;
  const bool ok = std::fwrite(data, 1, size, f) == size;
  return std::fclose(f) == 0 && ok;
}

inline bool WriteFile(const std::string &path, const std::string &text) {
  return WriteFile(path, text.data(), text.size());
}

inline std::string ReadFile(const std::string &path) {
  std::string out;
  FILE *f = std::fopen(path.c_str(), "rb");
  if (!f) return out;
  char buf[65536];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
  std::fclose(f);
  return out;
}

// A property the parser must keep was broken: report and stop, so that
// libFuzzer and the replayer both see a crash with the input saved.
[[noreturn]] inline void Fail(const char *what) {
  std::fprintf(stderr, "fuzz property broken: %s\n", what);
  std::abort();
}

// Seeds every target gets: the valid files plus their truncations and a
// few byte-level damages, named base.N.
inline void WriteWithDamage(const std::string &dir, const std::string &base, const std::string &valid) {
  WriteFile(dir + "/" + base, valid);
  int n = 0;
  for (size_t cut : {valid.size() / 2, valid.size() / 3, valid.size() > 1 ? valid.size() - 1 : 0})
    WriteFile(dir + "/" + base + "." + std::to_string(n++), valid.substr(0, cut));
  std::string flipped = valid;
  for (size_t k = 0; k < flipped.size(); k += 97) flipped[k] = static_cast<char>(flipped[k] ^ 0x5A);
  WriteFile(dir + "/" + base + "." + std::to_string(n++), flipped);
}

}  // namespace sidefuzz

#endif
