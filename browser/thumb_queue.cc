// The thumbnail loop and its decode-ahead workers.
//
// The main thread owns the list, the cache and every decision; workers only
// run ThumbnailLoad (or the information call) on copies of the paths, the
// same function the main thread would run itself.  A job is taken in display
// order: when the main thread reaches an entry whose job no worker has
// started yet, it runs that job itself instead of waiting.
#include "browser/thumb_queue.h"

#include <fcntl.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>

#include "imgproc/geometry.h"
#include "imgproc/operations.h"

namespace quilla {

namespace {

// Turns a picture upright by its EXIF orientation (2..8).
int applyOrientation(TslPicture *pic, int orientation) {
  int quarters = 0;
  bool mirror = false, flip = false;
  switch (orientation) {
    case 2: mirror = true; break;
    case 3: quarters = 2; break;
    case 4: flip = true; break;
    case 5: quarters = 3; mirror = true; break;  // transpose
    case 6: quarters = 3; break;                 // 90 degrees clockwise
    case 7: quarters = 1; mirror = true; break;  // transverse
    case 8: quarters = 1; break;                 // 90 degrees counter-clockwise
    default: return TSL_OK;
  }
  if (quarters) {
    TslPicture turned{};
    if (RotateQuarters(pic, &turned, quarters) != kOpDone) return TSL_ERR_MEMORY;
    tslFree(pic);
    *pic = turned;
  }
  const OpParams none;
  if (mirror && OpFlipHorizontal(pic, nullptr, nullptr, none) != kOpDone) return TSL_ERR_MEMORY;
  if (flip && OpFlipVertical(pic, nullptr, nullptr, none) != kOpDone) return TSL_ERR_MEMORY;
  return TSL_OK;
}

}  // namespace

int ThumbnailLoad(const char *path, TslPicture *picture, TslFileInfo *info, int width, int height,
                  bool by_extension) {
  *picture = TslPicture{};
  const int format = by_extension ? tslFormatFromExtension(path) : -1;
  if (by_extension && format < 0) {
    std::memset(info, 0, sizeof *info);
    info->format = -1;
    return TSL_ERR_FORMAT;
  }
  int code = tslFileInformation(path, format, 0, info);
  if (code != TSL_OK) return code;
  const bool sideways = info->orientation >= 5 && info->orientation <= 8;
  TslParams params;
  tslDefaultParams(&params);
  params.format = info->format;
  params.page = 0;
  params.target_width = sideways ? height : width;
  params.target_height = sideways ? width : height;
  code = tslLoad(path, picture, &params);
  if (code == TSL_OK) code = applyOrientation(picture, info->orientation);
  if (code != TSL_OK) {
    tslFree(picture);
    *picture = TslPicture{};
  }
  return code;
}

ThumbStep::ThumbStep(ThumbStep &&o) noexcept
    : finished(o.finished), resorted(o.resorted), position(o.position), redraw(o.redraw), from_cache(o.from_cache),
      progress(std::move(o.progress)), picture_(o.picture_) {
  o.picture_ = TslPicture{};
}

ThumbStep &ThumbStep::operator=(ThumbStep &&o) noexcept {
  if (this != &o) {
    tslFree(&picture_);
    finished = o.finished;
    resorted = o.resorted;
    position = o.position;
    redraw = o.redraw;
    from_cache = o.from_cache;
    progress = std::move(o.progress);
    picture_ = o.picture_;
    o.picture_ = TslPicture{};
  }
  return *this;
}

struct ThumbLoop::Job {
  int position = 0;
  std::string path;
  bool info_only = false;
  int width = 0, height = 0;
  bool by_extension = false;
  bool started = false, done = false, cancelled = false;
  int code = TSL_ERR_INTERNAL;
  TslPicture picture{};
  TslFileInfo info{};

  void run() {
    if (info_only) code = tslFileInformation(path.c_str(), -1, 0, &info);
    else code = ThumbnailLoad(path.c_str(), &picture, &info, width, height, by_extension);
  }
  void discard() {
    tslFree(&picture);
    picture = TslPicture{};
    tslFileInformationFree(&info);
  }
};

ThumbLoop::ThumbLoop(FileList *list, ThumbCache *cache, int threads) : list_(list), cache_(cache) {
  if (threads < 0) threads = static_cast<int>(std::thread::hardware_concurrency());
  if (threads <= 0) return;
  if (::pipe2(pipe_, O_NONBLOCK | O_CLOEXEC) != 0) pipe_[0] = pipe_[1] = -1;
  try {
    for (int k = 0; k < threads; ++k) workers_.emplace_back(&ThumbLoop::workerMain, this);
  } catch (const std::system_error &) {
    // Fewer workers (or none: every load on the calling thread).
  }
}

ThumbLoop::~ThumbLoop() {
  stop();
  {
    std::lock_guard<std::mutex> lock(mutex_);
    quit_ = true;
  }
  work_cv_.notify_all();
  for (std::thread &t : workers_) t.join();
  for (int fd : pipe_)
    if (fd >= 0) ::close(fd);
}

void ThumbLoop::workerMain() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    work_cv_.wait(lock, [this] { return quit_ || !queue_.empty(); });
    if (quit_) return;
    JobPtr job = queue_.front();
    queue_.pop_front();
    job->started = true;
    lock.unlock();
    job->run();
    lock.lock();
    job->done = true;
    if (job->cancelled) job->discard();
    done_cv_.notify_all();
    if (pipe_[1] >= 0) {
      const char byte = 1;
      (void)!::write(pipe_[1], &byte, 1);
    }
  }
}

void ThumbLoop::drainReady() {
  char buf[64];
  if (pipe_[0] >= 0)
    while (::read(pipe_[0], buf, sizeof buf) > 0) {
    }
}

void ThumbLoop::cancelJobs() {
  std::lock_guard<std::mutex> lock(mutex_);
  queue_.clear();
  dropBefore(INT_MAX);
}

void ThumbLoop::start(const ThumbSettings &settings) {
  stop();
  settings_ = settings;
  running_ = true;
  cursor_ = 0;
  scan_ = 0;
  schedule();
}

void ThumbLoop::stop() {
  running_ = false;
  cancelJobs();
}

bool ThumbLoop::needsLoad(int position) const {
  const FileEntry &e = list_->at(position);
  if ((e.state & kStateUnreadable) || e.isDirectory()) return false;
  const int mode = settings_.view_mode;
  if (mode == kViewList) return !(e.state & kStateKnown);
  if (mode != kViewIcons && mode != kViewSmallIcons) return false;
  const Thumbnail &thumb = mode == kViewIcons ? e.large : e.small;
  if ((e.state & kStateKnown) && thumb.handle) return false;
  const std::string path = list_->pathOf(e);
  if (settings_.known_extensions_only && tslFormatFromExtension(path.c_str()) < 0) return false;
  if (mode == kViewIcons && cache_ && cache_->contains(e.name, static_cast<uint32_t>(e.mtime), e.size)) return false;
  return true;
}

void ThumbLoop::schedule() {
  if (workers_.empty() || !running_) return;
  // Enough work ahead to keep every worker busy while finished thumbnails
  // wait for their turn.
  const size_t window = workers_.size() * 4;
  bool added = false;
  std::lock_guard<std::mutex> lock(mutex_);
  dropBefore(cursor_);
  if (scan_ < cursor_) scan_ = cursor_;
  while (jobs_.size() < window && scan_ < list_->count()) {
    const int pos = scan_++;
    if (!needsLoad(pos)) continue;
    auto job = std::make_shared<Job>();
    const FileEntry &e = list_->at(pos);
    job->position = pos;
    job->path = list_->pathOf(e);
    job->info_only = settings_.view_mode == kViewList;
    job->width = settings_.view_mode == kViewSmallIcons ? kSmallIconSize : settings_.width;
    job->height = settings_.view_mode == kViewSmallIcons ? kSmallIconSize : settings_.height;
    job->by_extension = settings_.known_extensions_only;
    jobs_.emplace(pos, job);
    queue_.push_back(job);
    added = true;
  }
  if (added) work_cv_.notify_all();
}

void ThumbLoop::dropBefore(int position) {
  // Jobs of entries already passed (a cache hit, a restart) are of no use.
  while (!jobs_.empty() && jobs_.begin()->first < position) {
    JobPtr old = jobs_.begin()->second;
    old->cancelled = true;
    if (old->done) old->discard();
    for (auto it = queue_.begin(); it != queue_.end(); ++it)
      if (*it == old) {
        queue_.erase(it);
        break;
      }
    jobs_.erase(jobs_.begin());
  }
}

ThumbLoop::JobPtr ThumbLoop::takeJob(int position) {
  std::unique_lock<std::mutex> lock(mutex_);
  dropBefore(position);
  auto it = jobs_.find(position);
  if (it == jobs_.end()) return nullptr;
  JobPtr job = it->second;
  jobs_.erase(it);
  if (!job->started) {
    // No worker has it yet: the caller runs it now.
    for (auto q = queue_.begin(); q != queue_.end(); ++q)
      if (*q == job) {
        queue_.erase(q);
        break;
      }
    job->started = true;
    lock.unlock();
    job->run();
    job->done = true;
    return job;
  }
  done_cv_.wait(lock, [&] { return job->done; });
  return job;
}

bool ThumbLoop::nextReady() {
  if (!running_ || workers_.empty() || cursor_ >= list_->count()) return true;
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = jobs_.find(cursor_);
  return it == jobs_.end() || it->second->done;
}

int ThumbLoop::loadFor(int position, TslPicture *picture, TslFileInfo *info) {
  JobPtr job = takeJob(position);
  if (!job) {
    // Not decoded ahead: the same call, here.
    const FileEntry &e = list_->at(position);
    const std::string path = list_->pathOf(e);
    if (!picture) return tslFileInformation(path.c_str(), -1, 0, info);
    const bool small = settings_.view_mode == kViewSmallIcons;
    return ThumbnailLoad(path.c_str(), picture, info, small ? kSmallIconSize : settings_.width,
                         small ? kSmallIconSize : settings_.height, settings_.known_extensions_only);
  }
  *info = job->info;
  job->info = TslFileInfo{};
  if (picture) {
    *picture = job->picture;
    job->picture = TslPicture{};
  }
  return job->code;
}

ThumbStep ThumbLoop::step() {
  ThumbStep s;
  if (!running_) {
    s.finished = true;
    return s;
  }
  const int count = list_->count();
  if (cursor_ >= count) {
    stop();
    s.finished = true;
    if ((settings_.sort_setting & 0x7f) == kSortType) {
      list_->sort(settings_.sort_setting);
      s.resorted = true;
    }
    return s;
  }
  char text[64];
  std::snprintf(text, sizeof text, "Processing: %d%%", (cursor_ + 1) * 100 / count);
  s.progress = text;
  const int pos = cursor_;
  FileEntry &e = list_->at(pos);
  s.position = pos;
  const int mode = settings_.view_mode;
  auto advance = [&](bool redraw) {
    s.redraw = redraw;
    ++cursor_;
    schedule();
  };
  if (e.state & kStateUnreadable) {
    advance(false);
    return s;
  }
  if (e.isDirectory()) {
    e.state |= kStateSkipped;
    advance(false);
    return s;
  }
  if (mode == kViewColumns || mode < kViewIcons || mode > kViewColumns) {
    // Nothing is read in the column view.
    stop();
    s.finished = true;
    s.position = -1;
    return s;
  }
  const std::string path = list_->pathOf(e);
  TslFileInfo info{};
  if (mode == kViewList) {
    if (e.state & kStateKnown) {
      advance(false);
      return s;
    }
    if (loadFor(pos, nullptr, &info) == TSL_OK) {
      SetEntryInfo(&e, info);
      e.state |= kStateKnown;
    } else {
      e.state |= kStateUnreadable;
    }
    tslFileInformationFree(&info);
    advance(true);
    return s;
  }
  const Thumbnail &thumb = mode == kViewIcons ? e.large : e.small;
  if ((e.state & kStateKnown) && thumb.handle) {
    advance(false);
    return s;
  }
  TslPicture pic{};
  int code;
  if (settings_.known_extensions_only && tslFormatFromExtension(path.c_str()) < 0) {
    code = TSL_ERR_FORMAT;
  } else if (mode == kViewIcons && cache_ &&
             cache_->lookup(e.name, static_cast<uint32_t>(e.mtime), e.size, &pic, &info)) {
    code = TSL_OK;
    s.from_cache = true;
  } else {
    code = loadFor(pos, &pic, &info);
    if (code == TSL_OK && mode == kViewIcons && cache_)
      cache_->store(e.name, static_cast<uint32_t>(e.mtime), e.size, pic, info);
  }
  if (code == TSL_OK) {
    s.picture_ = pic;
    SetEntryInfo(&e, info);
    e.state |= kStateKnown;
  } else {
    tslFree(&pic);
    e.state |= kStateUnreadable;
  }
  tslFileInformationFree(&info);
  advance(true);
  return s;
}

}  // namespace quilla
