// The worker threads of a batch run.
#include "files/batch_pipeline.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "files/save_model.h"

namespace quilla {

namespace {

// The save's notes, kept for the main thread to show; the run's conversion
// is never asked here (the worker leaves such saves to the main thread).
class NoteUi : public SaveUi {
 public:
  std::vector<std::string> notes;
  int AskConversion(const std::string &, const TslFormatInfo &, const TslPicture &, int) override { return 0; }
  void Message(const std::string &text) override { notes.push_back(text); }
};

bool Exists(const std::string &path) {
  struct stat st;
  return ::lstat(path.c_str(), &st) == 0;
}

}  // namespace

PreparedFile::PreparedFile(PreparedFile &&other) noexcept { *this = std::move(other); }

PreparedFile &PreparedFile::operator=(PreparedFile &&other) noexcept {
  if (this == &other) return *this;
  Discard();
  load_code = other.load_code;
  load_error = std::move(other.load_error);
  no_memory = other.no_memory;
  pic = other.pic;
  other.pic = TslPicture{};
  saved = other.saved;
  save_code = other.save_code;
  save_notes = std::move(other.save_notes);
  temp = std::move(other.temp);
  other.temp.clear();
  return *this;
}

PreparedFile::~PreparedFile() { Discard(); }

void PreparedFile::Discard() {
  if (pic.pixels || pic.palette) tslFree(&pic);
  pic = TslPicture{};
  if (!temp.empty()) ::unlink(temp.c_str());
  temp.clear();
}

std::string TemporaryBeside(const std::string &output, size_t k) {
  const size_t slash = output.rfind('/');
  const std::string dir = slash == std::string::npos ? "" : output.substr(0, slash + 1);
  const std::string name = output.substr(slash == std::string::npos ? 0 : slash + 1);
  for (int attempt = 0;; ++attempt) {
    std::string temp = dir + "." + name + ".part" + std::to_string(::getpid()) + "_" + std::to_string(k);
    if (attempt > 0) temp += "_" + std::to_string(attempt);
    temp += "~";
    if (!Exists(temp)) return temp;
  }
}

int PutInPlace(const std::string &temp, const std::string &target) {
  std::string final_path = target;
  struct stat st;
  if (::lstat(target.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
    char resolved[PATH_MAX];
    if (::realpath(target.c_str(), resolved)) final_path = resolved;
  }
  int code = TSL_OK;
  if (::stat(final_path.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode)) {
      code = TSL_ERR_CREATE;
    } else {
      // Replacing a file: the new one keeps its mode and is on the disk
      // before the old one goes.
      const int fd = ::open(temp.c_str(), O_RDONLY | O_CLOEXEC);
      if (fd < 0 || ::fchmod(fd, st.st_mode & 07777) != 0 || ::fsync(fd) != 0) code = TSL_ERR_WRITE;
      if (fd >= 0) ::close(fd);
    }
  }
  if (code == TSL_OK && std::rename(temp.c_str(), final_path.c_str()) != 0) code = TSL_ERR_CREATE;
  if (code != TSL_OK) ::unlink(temp.c_str());
  return code;
}

BatchPipeline::BatchPipeline(std::vector<PipelineJob> jobs, const SettingsRecord &settings, int in_format,
                             int out_format, const OpProcessList &operations, unsigned threads)
    : jobs_(std::move(jobs)),
      settings_(settings),
      in_format_(in_format),
      out_format_(out_format),
      operations_(operations),
      window_(std::max(1u, threads) + 2),
      files_(jobs_.size()),
      ready_(jobs_.size(), 0),
      taken_(jobs_.size(), 0) {
  // The workers read the Load and Save settings only; the file types stay
  // with the record they belong to.
  settings_.file_types = nullptr;
  settings_.file_type_count = 0;
  const size_t n = std::min<size_t>(std::max(1u, threads), std::max<size_t>(1, jobs_.size()));
  for (size_t t = 0; t < n; ++t) workers_.emplace_back(&BatchPipeline::Work, this);
}

BatchPipeline::~BatchPipeline() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stop_ = true;
  }
  changed_.notify_all();
  for (std::thread &t : workers_) t.join();
  files_.clear();  // pictures freed, temporaries removed
}

int BatchPipeline::StopPump(int, int, void *data) {
  return static_cast<const std::atomic<bool> *>(data)->load() ? 1 : 0;
}

bool BatchPipeline::Ready(size_t k, std::chrono::milliseconds wait) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (k >= files_.size()) return true;
  if (finished_ < k) {
    finished_ = k;
    changed_.notify_all();
  }
  return changed_.wait_for(lock, wait, [&] { return ready_[k] != 0; });
}

PreparedFile BatchPipeline::Take(size_t k) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (k >= files_.size() || taken_[k]) return PreparedFile();
  if (finished_ < k) {
    finished_ = k;
    changed_.notify_all();
  }
  changed_.wait(lock, [&] { return ready_[k] != 0; });
  taken_[k] = 1;
  PreparedFile file = std::move(files_[k]);
  // The next file may start now that this one left the window.
  changed_.notify_all();
  return file;
}

void BatchPipeline::SetConversion(uint16_t code) {
  std::lock_guard<std::mutex> lock(mutex_);
  conversion_ = code;
}

void BatchPipeline::Work() {
  for (;;) {
    size_t k;
    uint16_t conversion;
    {
      std::unique_lock<std::mutex> lock(mutex_);
      changed_.wait(lock, [&] {
        if (stop_ || next_ >= jobs_.size()) return true;
        if (next_ >= finished_ + window_) return false;
        return !jobs_[next_].after_earlier || finished_ >= next_;
      });
      if (stop_ || next_ >= jobs_.size()) return;
      k = next_++;
      conversion = conversion_;
    }
    PreparedFile file;
    Prepare(k, conversion, &file);
    {
      std::lock_guard<std::mutex> lock(mutex_);
      files_[k] = std::move(file);
      ready_[k] = 1;
    }
    changed_.notify_all();
  }
}

void BatchPipeline::Prepare(size_t k, uint16_t conversion, PreparedFile *out) {
  const PipelineJob &job = jobs_[k];
  out->load_code = LoadForBatch(job.input, in_format_, settings_, &out->pic, &out->load_error, StopPump, &stop_);
  if (out->load_code != TSL_OK) {
    if (out->pic.pixels || out->pic.palette) tslFree(&out->pic);
    out->pic = TslPicture{};
    return;
  }
  if (!operations_.empty() && OpRunProcessList(&out->pic, operations_) == kOpNoMemory) {
    out->no_memory = true;
    tslFree(&out->pic);
    out->pic = TslPicture{};
    return;
  }
  TslFormatInfo info;
  if (out_format_ < 0 || tslFormatGetInfo(out_format_, &info) != TSL_OK) {
    info = TslFormatInfo();
    info.caps[0].kind = -1;
  }
  // The first file never reuses a conversion, later ones the run's once
  // it is known: until then a picture the format cannot hold waits for
  // the main thread, which asks.
  const bool remember = k > 0;
  if (AcceptingCapability(info, out->pic) < 0 && (!remember || conversion == kNoConversion)) return;
  out->temp = TemporaryBeside(job.output, k);
  NoteUi ui;
  SaveOptions options;
  options.unattended = true;
  options.remember = remember;
  options.progress = false;
  options.report_errors = false;  // the main thread reports, with the output's name
  uint16_t memory = conversion;
  options.memory = &memory;
  std::string path = out->temp;
  out->save_code = SavePicture(ui, settings_, &path, out_format_, info, out->pic, options);
  out->save_notes = std::move(ui.notes);
  out->saved = true;
  tslFree(&out->pic);
  out->pic = TslPicture{};
  if (out->save_code != TSL_OK) {
    ::unlink(out->temp.c_str());
    out->temp.clear();
  }
}

}  // namespace quilla
