// tesconv: converts picture files between the formats of libtessel,
// applying catalogue operations on the way; also lists the formats and
// describes files.
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <thread>

#include "imgproc/path_text.h"
#include "tools/tesconv/tesconv.h"

namespace {

using quilla::ConvJob;
using quilla::ConvOptions;
using quilla::ConvResult;

// Creates a directory and its missing parents.
bool MakeDirs(const std::string &dir) {
  std::string path;
  for (size_t i = 0; i <= dir.size(); ++i) {
    if (i == dir.size() || dir[i] == '/') {
      if (!path.empty() && ::mkdir(path.c_str(), 0777) != 0 && errno != EEXIST) return false;
    }
    if (i < dir.size()) path += dir[i];
  }
  struct stat st;
  return ::stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

class Reporter {
 public:
  Reporter(size_t total, bool verbose) : total_(total), verbose_(verbose), tty_(::isatty(2) != 0) {}

  void Started(const ConvJob &job) {
    if (!tty_) return;
    std::lock_guard<std::mutex> lock(mutex_);
    current_ = quilla::FileNamePart(job.input);
    Draw();
  }

  void Finished(const ConvJob &job, const ConvResult &r) {
    std::lock_guard<std::mutex> lock(mutex_);
    ++done_;
    Clear();
    if (r.code != TSL_OK) {
      ++failed_;
      std::fprintf(stderr, "tesconv: %s\n", r.message.c_str());
    } else {
      if (!r.message.empty()) std::fprintf(stderr, "tesconv: %s\n", r.message.c_str());
      if (verbose_) {
        if (r.skipped) std::printf("%s: %s exists, skipped\n", job.input.c_str(), r.output.c_str());
        else std::printf("%s -> %s%s\n", job.input.c_str(), r.output.c_str(), r.deleted ? " (original deleted)" : "");
        std::fflush(stdout);
      }
    }
    Draw();
  }

  void End() {
    std::lock_guard<std::mutex> lock(mutex_);
    Clear();
  }

  size_t failed() const { return failed_; }

 private:
  void Draw() {
    if (!tty_ || done_ >= total_) return;
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    struct winsize ws {};
    const size_t width = ::ioctl(2, TIOCGWINSZ, &ws) == 0 && ws.ws_col > 0 ? ws.ws_col : 80;
    std::fprintf(stderr, "\r%s\033[K", quilla::ProgressLine(done_, total_, current_, elapsed, width).c_str());
    std::fflush(stderr);
    shown_ = true;
  }
  void Clear() {
    if (!tty_ || !shown_) return;
    std::fprintf(stderr, "\r\033[K");
    shown_ = false;
  }

  std::mutex mutex_;
  size_t total_, done_ = 0, failed_ = 0;
  bool verbose_, tty_, shown_ = false;
  std::string current_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

int Convert(const ConvOptions &opt) {
  std::vector<ConvJob> jobs;
  std::string error;
  if (!quilla::PlanJobs(opt, &jobs, &error)) {
    std::fprintf(stderr, "tesconv: %s\n", error.c_str());
    return 2;
  }
  if (!opt.output.empty() && opt.output.back() == '/' && !MakeDirs(opt.output)) {
    std::fprintf(stderr, "tesconv: cannot create the directory %s\n", opt.output.c_str());
    return 1;
  }
  unsigned threads = opt.jobs > 0 ? static_cast<unsigned>(opt.jobs) : std::thread::hardware_concurrency();
  if (threads < 1) threads = 1;
  if (threads > jobs.size()) threads = static_cast<unsigned>(jobs.size());

  quilla::OutputClaims claims;
  Reporter reporter(jobs.size(), opt.verbose);
  std::atomic<size_t> next{0};
  auto worker = [&]() {
    for (;;) {
      size_t k = next.fetch_add(1);
      if (k >= jobs.size()) return;
      reporter.Started(jobs[k]);
      ConvResult r = quilla::ConvertOne(opt, jobs[k], &claims);
      reporter.Finished(jobs[k], r);
    }
  };
  if (threads <= 1) {
    worker();
  } else {
    std::vector<std::thread> pool;
    for (unsigned t = 0; t < threads; ++t) pool.emplace_back(worker);
    for (std::thread &t : pool) t.join();
  }
  reporter.End();
  return reporter.failed() ? 1 : 0;
}

}  // namespace

int main(int argc, char **argv) {
  tslInitLibrary();
  std::vector<std::string> args(argv + 1, argv + argc);
  ConvOptions opt;
  std::string error;
  if (args.empty()) {
    std::fputs(quilla::UsageText().c_str(), stdout);
    return 2;
  }
  if (!quilla::ParseCommandLine(args, &opt, &error)) {
    std::fprintf(stderr, "tesconv: %s\n", error.c_str());
    return 2;
  }
  int status = 0;
  switch (opt.mode) {
    case ConvOptions::kHelp:
      std::fputs(quilla::UsageText().c_str(), stdout);
      break;
    case ConvOptions::kVersion: {
      char v[16];
      tslVersion(v);
      std::printf("tesconv %s\n", v);
      break;
    }
    case ConvOptions::kFormats:
      std::fputs(quilla::FormatsListing().c_str(), stdout);
      break;
    case ConvOptions::kInfo:
      for (size_t k = 0; k < opt.files.size(); ++k) {
        std::string text;
        TslParams params;  // headerless files are described with -size and -ctype
        quilla::LoadParams(opt, &params);
        if (quilla::InfoText(opt.files[k], params, &text)) {
          std::fputs(text.c_str(), stdout);
        } else {
          std::fprintf(stderr, "tesconv: %s", text.c_str());
          status = 1;
        }
      }
      break;
    case ConvOptions::kConvert:
      status = Convert(opt);
      break;
  }
  tslExitLibrary();
  return status;
}
