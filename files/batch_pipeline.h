// The worker threads of a batch run: while the work procedure finishes one
// file, the files after it are loaded, processed and saved under a
// temporary name beside their output by a small pool of threads.  The run
// takes them back one at a time in list order and decides their fate
// there (questions, overwrite policy, the rename into place), so the
// result is the one-thread run's.  No display is touched here.
#ifndef QUILLA_FILES_BATCH_PIPELINE_H
#define QUILLA_FILES_BATCH_PIPELINE_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "core/settings.h"
#include "files/batch_model.h"
#include "imgproc/catalogue.h"
#include "tessel.h"

namespace quilla {

// One file as a worker left it.
struct PreparedFile {
  int load_code = TSL_OK;
  std::string load_error;  // the load's message, for a failed load
  bool no_memory = false;  // the operations ran out of memory
  // The processed picture, kept when the save needs the run's conversion
  // and it was not known yet (the save is then the main thread's).
  TslPicture pic{};
  // Saved (when `saved`): the save's code (kSaveCancelled: the conversion
  // failed), its notes, and the temporary file holding the result.
  bool saved = false;
  int save_code = 0;
  std::vector<std::string> save_notes;
  std::string temp;

  PreparedFile() = default;
  PreparedFile(PreparedFile &&other) noexcept;
  PreparedFile &operator=(PreparedFile &&other) noexcept;
  PreparedFile(const PreparedFile &) = delete;
  PreparedFile &operator=(const PreparedFile &) = delete;
  // Frees the picture and removes a temporary nobody put in place.
  ~PreparedFile();
  void Discard();
};

// A file of the run for the workers: its input, and the output with the
// format's extension (where the temporary goes).  `after_earlier`: the file
// may be written or removed by an earlier file of the run, so it is loaded
// only when those are finished.
struct PipelineJob {
  std::string input, output;
  bool after_earlier = false;
};

class BatchPipeline {
 public:
  // Starts `threads` workers (at least 1) over `jobs`.
  BatchPipeline(std::vector<PipelineJob> jobs, const SettingsRecord &settings, int in_format, int out_format,
                const OpProcessList &operations, unsigned threads);
  // Stops the workers (a load in progress is abandoned), waits for them,
  // and removes what they made that was not taken.
  ~BatchPipeline();
  BatchPipeline(const BatchPipeline &) = delete;
  BatchPipeline &operator=(const BatchPipeline &) = delete;

  // Whether file k is ready, waiting up to `wait`.  Files are taken in
  // order: asking for k says that every file before k is finished.
  bool Ready(size_t k, std::chrono::milliseconds wait);
  // Waits for file k and hands it over.
  PreparedFile Take(size_t k);
  // The run's conversion is known (the answer to its question): the saves
  // that need one use it from now on.
  void SetConversion(uint16_t code);
  // The settings the workers use (taken at the start), for the saves the
  // main thread finishes, so every file of the run is written alike.
  const SettingsRecord &settings() const { return settings_; }

 private:
  void Work();
  void Prepare(size_t k, uint16_t conversion, PreparedFile *out);
  static int StopPump(int what, int value, void *data);

  const std::vector<PipelineJob> jobs_;
  SettingsRecord settings_;
  const int in_format_, out_format_;
  const OpProcessList operations_;
  const size_t window_;  // files prepared ahead of the one taken, at most

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<PreparedFile> files_;
  std::vector<char> ready_, taken_;
  size_t next_ = 0;      // the next file a worker starts
  size_t finished_ = 0;  // every file before this one is finished
  uint16_t conversion_ = kNoConversion;
  std::atomic<bool> stop_{false};
  std::vector<std::thread> workers_;
};

// Where a worker saves the file that goes to `output`: a hidden name in the
// same directory, not in use.
std::string TemporaryBeside(const std::string &output, size_t k);

// Puts a finished temporary in place of `target` as the library's own save
// would: through a symbolic link to its file, keeping the mode of a file it
// replaces, flushed to the disk before it replaces one.  Returns 0 or the
// library code of the failure (the temporary is then removed).
int PutInPlace(const std::string &temp, const std::string &target);

// The part of a conversion left after a worker's: reports, the overwrite
// policy on the output, the save when the worker could not make it, the
// temporary put in place, the original deleted.  Returns what
// ConvertOneFile returns for the file.
int FinishPreparedFile(BatchUi &ui, const SettingsRecord &settings, const ConvertRequest &request, PreparedFile &file,
                       ConvertOutcome *outcome = nullptr);

}  // namespace quilla

#endif
