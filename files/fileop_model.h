// The toolkit-free half of the file operations: copy, move, rename and delete
// as a state machine that does one piece of work per Step (one file, or one
// 4096-byte block of a copy), with its questions and progress going through
// an interface the dialogs (or a test) provide.
//
// Nothing is lost on the way: a copy is written under a temporary name
// beside its destination, flushed and renamed into place only when
// complete; every read, write and the close are checked; a failed copy
// removes its partial file and keeps the source; a move within one file
// system is a rename, and across file systems deletes its source only once
// the copy is in place.
#ifndef QUILLA_FILES_FILEOP_MODEL_H
#define QUILLA_FILES_FILEOP_MODEL_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace quilla {

enum class FileOpKind { kCopy = 0, kMove = 1, kRename = 2, kDelete = 3 };
enum class FileOpState { kNotStarted = 0, kRunning = 1, kFinished = 2 };

constexpr size_t kFileOpBlock = 4096;

// The questions' texts.
extern const char kCantOpenSource[];       // "Can't open source !!\nStop operation ?"
extern const char kCantOpenDestination[];  // "Can't open destination !!\nStop operation ?"
extern const char kErrorWriting[];         // "Error when writing !!\nStop operation ?"
extern const char kErrorReading[];         // "Error when reading !!\nStop operation ?"
extern const char kSameFile[];             // source and destination are one file
extern const char kCantRename[];           // the new name exists or the rename failed
extern const char kCantDelete[];           // the file could not be removed

// "Delete file !! \nConfirm ?" for one file, "Delete selected files !! \nConfirm ?" for several.
std::string DeleteConfirmText(size_t count);
// "Copy files...", "Move files...", "Rename files...", "Delete files...".
const char *FileOpTitle(FileOpKind kind);

class FileOpUi {
 public:
  virtual ~FileOpUi() = default;
  // A yes/no question; true ("O.K.") stops the operation.  Either way the
  // current file is given up.
  virtual bool AskStop(const std::string &question) = 0;
  virtual void OpenProgress(const std::string & /*title*/, size_t /*maximum*/) {}
  virtual void ShowName(const std::string & /*name*/) {}
  virtual void Advance(size_t /*done*/) {}
  virtual void CloseProgress() {}
};

class FileOp;

// What follows the files: the browser fills these in so that thumbnail
// cache entries and descriptions go where the files went.  Each is called
// only for a file whose operation succeeded.
struct FileOpHooks {
  std::function<void(const std::string &from, const std::string &to)> copied;
  std::function<void(const std::string &from, const std::string &to)> moved;  // moves and renames
  std::function<void(const std::string &path)> deleted;
  // Once at the end, after the progress closed: copy and move pass the
  // cache entries of done() on; move, rename and delete refresh the list.
  std::function<void(const FileOp &op)> finished;
};

class FileOp {
 public:
  // `source_dir` gets a trailing "/" when it lacks one; so does the target
  // directory.  `targets` is the target directory (copy, move) or unused;
  // `new_names` the new names of a rename, one per name.
  FileOp(FileOpKind kind, const std::string &source_dir, const std::vector<std::string> &names,
         const std::string &target_dir = std::string(), const std::vector<std::string> &new_names = {});
  ~FileOp();  // closes what is open and removes an unfinished copy
  FileOp(const FileOp &) = delete;
  FileOp &operator=(const FileOp &) = delete;

  FileOpHooks hooks;

  // One call of the work procedure; true when the operation is over.
  bool Step(FileOpUi &ui);
  // The Stop button: a copy in the middle of a file completes that file
  // first; otherwise the operation ends at the next step.
  void Stop();

  FileOpKind kind() const { return kind_; }
  FileOpState state() const { return state_; }
  size_t index() const { return index_; }
  size_t count() const { return names_.size(); }
  const std::string &source_dir() const { return source_dir_; }
  const std::string &target_dir() const { return target_dir_; }
  // The names whose operation succeeded, in order.
  const std::vector<std::string> &done() const { return done_; }
  // Whether a copy is half-way through a file.
  bool in_file() const { return src_fd_ >= 0; }
  // Whether the list should be refreshed at the end.
  bool refreshes() const { return kind_ != FileOpKind::kCopy; }

 private:
  void StepDelete(FileOpUi &ui, const std::string &path);
  void StepRename(FileOpUi &ui, const std::string &path);
  void OpenFiles(FileOpUi &ui, const std::string &path);
  void CopyBlock(FileOpUi &ui);
  void CompleteFile(FileOpUi &ui);
  void GiveUp(FileOpUi &ui, const char *question);
  void NextFile(FileOpUi &ui, bool ok, const std::string &from, const std::string &to);
  // Closes what is open and removes an unfinished copy.
  void CloseFiles();
  void Finish(FileOpUi &ui);

  FileOpKind kind_;
  FileOpState state_ = FileOpState::kNotStarted;
  std::string source_dir_, target_dir_;
  std::vector<std::string> names_, new_names_, done_;
  size_t index_ = 0, rename_index_ = 0;
  bool stop_ = false, progress_open_ = false;
  std::vector<char> buffer_;
  int src_fd_ = -1, dst_fd_ = -1;
  std::string src_path_, dst_path_, temp_path_;
};

}  // namespace quilla

#endif
