// The toolkit-free half of batch conversion: the conversion of one file with
// the overwrite policies, the runs of Multi Convert and Sequence Convert one
// file per step, the sequence set-up from the dialog's fields, and the
// converter script that "Save Script..." writes and "Load Script..." reads.
#ifndef QUILLA_FILES_BATCH_MODEL_H
#define QUILLA_FILES_BATCH_MODEL_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/settings.h"
#include "files/save_model.h"
#include "imgproc/batch_text.h"
#include "imgproc/catalogue.h"
#include "tessel.h"

namespace quilla {

class BatchPipeline;

// The "Overwrite" menu, in its order.
enum class OverwritePolicy { kReplace = 0, kAsk = 1, kSkip = 2, kRename = 3 };

// Batch flags.
constexpr unsigned kBatchDeleteOriginal = 1;  // "Delete Original"
constexpr unsigned kBatchSuppressErrors = 2;  // "Suppress read errors"

// The input format that means "find out from the file"; also the start of
// a sequence that has no range.
constexpr int kDetectFormat = 65535;
constexpr int kNoSequenceRange = 65535;

// Loads `path` (format kDetectFormat: found out) into *pic with the Load
// settings, unattended and without a display, so any thread may call it.
// On a failure other than TSL_STOPPED, *error receives the message the load
// reports.  `progress` (may be null) is handed to the library: a non-zero
// answer abandons the load.  Returns the library code's low 8 bits.
int LoadForBatch(const std::string &path, int format, const SettingsRecord &settings, TslPicture *pic,
                 std::string *error, TslProgressFunc progress = nullptr, void *progress_data = nullptr);

// What a batch asks of its surroundings beyond the save's questions.
class BatchUi : public SaveUi {
 public:
  // Loads `path` (format kDetectFormat: found out) into *pic; failures are
  // shown through Message when `report_errors`.  Returns the library code.
  // The default is LoadForBatch.  Runs with worker threads load there
  // directly and report through Message.
  virtual int LoadPicture(const std::string &path, int format, bool report_errors, const SettingsRecord &settings,
                          TslPicture *pic);
  // A yes/no question; true for yes.
  virtual bool Confirm(const std::string &question) = 0;
  // "Converting \n    <name>" before each file, and the bar after it.
  virtual void ShowConverting(const std::string & /*text*/) {}
  virtual void Advance() {}
};

// "Do you want to overwrite\n<path> ?"
std::string OverwriteQuestion(const std::string &path);
// "Converting \n    <name>"
std::string ConvertingText(const std::string &name);

struct ConvertRequest {
  std::string input, output;          // output before the extension fix-up
  int in_format = kDetectFormat;      // kDetectFormat: found out from the file
  int out_format = -1;
  const OpProcessList *operations = nullptr;
  unsigned flags = 0;                 // kBatchDeleteOriginal | kBatchSuppressErrors
  bool remember = false;              // reuse the run's conversion instead of asking
  OverwritePolicy overwrite = OverwritePolicy::kReplace;
  uint16_t *memory = nullptr;         // where the run keeps its conversion
};

struct ConvertOutcome {
  bool saved = false, skipped = false, deleted = false;
  std::string written;  // the path saved to
};

// Converts one file: load, operations, extension, overwrite policy, save
// (unattended, no progress), and the original removed only after a good
// save and never when it is the output itself.  Returns 1 to go on, 0 to
// stop the run (a load failure without kBatchSuppressErrors).
int ConvertOneFile(BatchUi &ui, const SettingsRecord &settings, const ConvertRequest &request,
                   ConvertOutcome *outcome = nullptr);

// The output path of Multi Convert: `out_dir` (the input's own directory
// when empty) joined with the input's file name.
std::string MultiOutputPath(const std::string &out_dir, const std::string &input);

// `dir` with "/" appended when it is not empty and lacks one, then `file`.
std::string JoinTemplate(const std::string &dir, const std::string &file);

// Sequence Convert's fields.
struct SequenceFields {
  std::string in_dir, in_file, out_dir, out_file;
  int in_format = kDetectFormat, out_format = -1;
  long start = 0, end = 0, step = 1;
};
struct SequenceSetup {
  std::string in_template, out_template;
  int in_format = kDetectFormat, out_format = -1;
  int start = kNoSequenceRange, end = 0, step = 1;  // start kNoSequenceRange: a single file
};
// Builds the templates and the range; false with "The input filename is
// missing !!" or "The output filename is missing !!" in *error.
bool MakeSequenceSetup(const SequenceFields &fields, SequenceSetup *setup, std::string *error);

// One batch: the list of files to convert, one per Step.
struct BatchJob {
  std::string input, output;
};

class BatchRun {
 public:
  BatchRun();
  BatchRun(BatchRun &&) noexcept;
  BatchRun &operator=(BatchRun &&) noexcept;
  ~BatchRun();  // a pipeline still running is stopped and its leftovers removed

  // Multi Convert of `inputs` into `out_dir`.
  static BatchRun Multi(const std::vector<std::string> &inputs, const std::string &out_dir, int out_format);
  // Sequence Convert.
  static BatchRun Sequence(const SequenceSetup &setup);

  // Settings of the run (taken from the dialog before Go).
  OpProcessList operations;
  unsigned flags = 0;
  OverwritePolicy overwrite = OverwritePolicy::kReplace;

  // The loads, operations and saves of the files ahead run on `threads`
  // worker threads (0: one per core) while Step takes the files one at a
  // time in list order: questions, messages, the overwrite policy, putting
  // the file in place and deleting the original stay with Step, so a run
  // gives the files and asks the questions of the one-thread run.  Call
  // before the first Step; 1 (the default) converts within Step.
  void SetThreads(unsigned threads);
  // Whether the next Step will not wait for a worker; waits up to `wait`
  // for the next file.  Always true without worker threads.  The first
  // call (or Step) starts the workers with a copy of `settings`.
  bool Ready(const SettingsRecord &settings, std::chrono::milliseconds wait);

  // One call of the work procedure: converts the next file, or finishes.
  // Returns true when the run is over.
  bool Step(BatchUi &ui, const SettingsRecord &settings);
  // The Stop button: the run ends at the next Step.
  void Stop() { stop_ = true; }

  bool finished() const { return finished_; }
  // Whether the browser's list should be refreshed at the end (not after a
  // Sequence run that was stopped).
  bool refresh() const { return refresh_; }
  size_t done() const { return index_; }
  const std::vector<BatchJob> &jobs() const { return jobs_; }
  int in_format() const { return in_format_; }
  int out_format() const { return out_format_; }

 private:
  std::vector<BatchJob> jobs_;
  int in_format_ = kDetectFormat, out_format_ = -1;
  bool sequence_ = false;
  size_t index_ = 0;
  bool stop_ = false, finished_ = false, refresh_ = false, remember_ = false;
  uint16_t memory_ = kNoConversion;
  unsigned threads_ = 1;
  std::unique_ptr<BatchPipeline> pipeline_;

  ConvertRequest RequestFor(const BatchJob &job);
  void StartPipeline(const SettingsRecord &settings);
  void Finish(bool refresh);
};

// ---- scripts

// The script line of a Multi Convert or a Sequence Convert, with the Load
// settings that matter for the input format (Photo CD base, headerless
// geometry and channel layout).
ScriptSettings MultiScript(const std::vector<std::string> &inputs, const std::string &out_dir, int out_format,
                           unsigned flags, const OpProcessList &operations, const SettingsRecord &settings);
ScriptSettings SequenceScript(const SequenceSetup &setup, unsigned flags, const OpProcessList &operations,
                              const SettingsRecord &settings);

// Reads a line as SaveScriptLine writes it (blanks separate the words, which
// are never quoted).  False with a reason in *error on anything else.
bool ReadScriptLine(const std::string &line, ScriptSettings *script, std::string *error);

// The script file: the line and a newline, written whole through a
// temporary file.  The reader takes the first line that starts with
// "tesconv".
bool WriteScriptFile(const std::string &path, const ScriptSettings &script);
bool ReadScriptFile(const std::string &path, ScriptSettings *script, std::string *error);

}  // namespace quilla

#endif
