// The thumbnail loop of the browser, without the toolkit: one entry of the
// display order per call, in the way the view mode asks (nothing, the file
// information, or a thumbnail through the cache), with the reduced loads of
// the next entries decoded ahead on worker threads.  The caller (an idle
// procedure of the window) turns each finished thumbnail into a pixmap;
// what it sees is the same, entry by entry, whatever the thread count.
#ifndef QUILLA_BROWSER_THUMB_QUEUE_H
#define QUILLA_BROWSER_THUMB_QUEUE_H

#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "browser/cache_db.h"
#include "browser/filelist.h"
#include "tessel.h"

namespace quilla {

// Size of the small-icon view's thumbnails.
constexpr int kSmallIconSize = 16;

// Loads the first picture of a file reduced to fit width x height (aspect
// kept, never enlarged), with its EXIF orientation applied, and fills *info
// with the file's information.  With by_extension the format is taken from
// the extension alone.  Returns a TSL_ code; on failure *picture is empty.
int ThumbnailLoad(const char *path, TslPicture *picture, TslFileInfo *info, int width, int height,
                  bool by_extension);

struct ThumbSettings {
  int view_mode = kViewIcons;
  int width = 92, height = 69;          // thumbnails of the large-icon view
  bool known_extensions_only = false;   // files with an unknown extension are not opened
  int sort_setting = 0;                 // re-sorted at the end when the key is "type"
};

// What one call did.  A thumbnail made for the entry is owned by the step
// (released with it) until take() hands it over.
class ThumbStep {
 public:
  ThumbStep() { picture_ = TslPicture{}; }
  ~ThumbStep() { tslFree(&picture_); }
  ThumbStep(ThumbStep &&other) noexcept;
  ThumbStep &operator=(ThumbStep &&other) noexcept;
  ThumbStep(const ThumbStep &) = delete;
  ThumbStep &operator=(const ThumbStep &) = delete;

  bool finished = false;  // the loop has ended (call no more)
  bool resorted = false;  // the list was sorted again: relayout and redraw it
  int position = -1;      // display position handled by this call, -1 none
  bool redraw = false;    // that entry changed
  bool from_cache = false;
  std::string progress;   // "Processing: %d%%", empty once finished

  bool hasPicture() const { return picture_.pixels != nullptr; }
  const TslPicture &picture() const { return picture_; }
  TslPicture take() {
    TslPicture p = picture_;
    picture_ = TslPicture{};
    return p;
  }

 private:
  friend class ThumbLoop;
  TslPicture picture_;
};

class ThumbLoop {
 public:
  // `cache` may be null (no caching).  `threads` < 0 means one worker per
  // processor; 0 decodes everything on the calling thread.
  ThumbLoop(FileList *list, ThumbCache *cache, int threads = -1);
  ~ThumbLoop();
  ThumbLoop(const ThumbLoop &) = delete;
  ThumbLoop &operator=(const ThumbLoop &) = delete;

  // Starts from the first entry of the display order.  The list, its order
  // and the settings must not change until stop().
  void start(const ThumbSettings &settings);
  // Stops; decodes under way finish on their threads and are dropped.
  void stop();
  bool running() const { return running_; }
  int cursor() const { return cursor_; }
  int threads() const { return static_cast<int>(workers_.size()); }

  // Handles exactly one entry.  May wait for that entry's decode.
  ThumbStep step();
  // True when step() would not wait.
  bool nextReady();
  // Readable when a decode has finished (for an input callback instead of
  // polling); drainReady() empties it.
  int readyFd() const { return pipe_[0]; }
  void drainReady();

 private:
  struct Job;
  using JobPtr = std::shared_ptr<Job>;

  bool needsLoad(int position) const;
  void schedule();
  void workerMain();
  JobPtr takeJob(int position);
  void dropBefore(int position);  // with mutex_ held
  void cancelJobs();
  int loadFor(int position, TslPicture *picture, TslFileInfo *info);

  FileList *list_;
  ThumbCache *cache_;
  ThumbSettings settings_;
  bool running_ = false;
  int cursor_ = 0;
  int scan_ = 0;  // next display position considered for decoding ahead
  int pipe_[2] = {-1, -1};

  std::mutex mutex_;
  std::condition_variable work_cv_, done_cv_;
  std::deque<JobPtr> queue_;        // not yet started, in display order
  std::map<int, JobPtr> jobs_;      // every job of this run by position
  bool quit_ = false;
  std::vector<std::thread> workers_;
};

}  // namespace quilla

#endif
