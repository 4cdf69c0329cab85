// The plain-program form of a side-file fuzz target.
//
//   fuzz_<target>_replay --seeds DIR    writes the target's seed corpus
//   fuzz_<target>_replay DIR_OR_FILE... runs every file through the target
//
// A crash or broken property aborts with the input's name on standard
// error; an input of under 64 KiB that takes more than a second counts as
// a hang and fails the run.
#include <dirent.h>
#include <signal.h>
#include <sys/stat.h>

#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/side_fuzz.h"

namespace {

const char *g_current = nullptr;

void Report(int sig) {
  if (g_current) {
    const char head[] = "fuzz replay: failing input ";
    (void)!write(2, head, sizeof head - 1);
    (void)!write(2, g_current, std::strlen(g_current));
    (void)!write(2, "\n", 1);
  }
  signal(sig, SIG_DFL);
  raise(sig);
}

void Collect(const std::string &path, std::vector<std::string> *out) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return;
  if (!S_ISDIR(st.st_mode)) {
    out->push_back(path);
    return;
  }
  DIR *d = opendir(path.c_str());
  if (!d) return;
  std::vector<std::string> names;
  while (dirent *e = readdir(d))
    if (e->d_name[0] != '.') names.push_back(e->d_name);
  closedir(d);
  for (const std::string &n : names) Collect(path + "/" + n, out);
}

}  // namespace

int main(int argc, char **argv) {
  if (argc == 3 && std::strcmp(argv[1], "--seeds") == 0) {
    mkdir(argv[2], 0777);
    WriteSeeds(argv[2]);
    return 0;
  }
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s --seeds DIR | DIR_OR_FILE...\n", argv[0]);
    return 2;
  }
  for (int sig : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL}) signal(sig, Report);
  std::vector<std::string> files;
  for (int k = 1; k < argc; ++k) Collect(argv[k], &files);
  if (files.empty()) {
    std::fprintf(stderr, "%s: no input files\n", argv[0]);
    return 2;
  }
  int slow = 0;
  for (const std::string &path : files) {
    const std::string data = sidefuzz::ReadFile(path);
    g_current = path.c_str();
    const auto start = std::chrono::steady_clock::now();
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(data.data()), data.size());
    const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (data.size() < 65536 && s > 1.0) {
      std::fprintf(stderr, "%s: %s took %.1f s\n", argv[0], path.c_str(), s);
      ++slow;
    }
  }
  g_current = nullptr;
  std::printf("%s: %zu files, %d too slow\n", argv[0], files.size(), slow);
  return slow ? 1 : 0;
}
