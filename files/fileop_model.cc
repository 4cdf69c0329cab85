// The file-operation state machine.
#include "files/fileop_model.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <new>

namespace quilla {

const char kCantOpenSource[] = "Can't open source !!\nStop operation ?";
const char kCantOpenDestination[] = "Can't open destination !!\nStop operation ?";
const char kErrorWriting[] = "Error when writing !!\nStop operation ?";
const char kErrorReading[] = "Error when reading !!\nStop operation ?";
const char kSameFile[] = "Source and destination are the same file !!\nStop operation ?";
const char kCantRename[] = "Can't rename file !!\nStop operation ?";
const char kCantDelete[] = "Can't delete file !!\nStop operation ?";

namespace {

std::string WithSlash(const std::string &dir) { return dir.empty() || dir.back() == '/' ? dir : dir + "/"; }

bool SameFile(const struct stat &a, const struct stat &b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

// Renames without replacing an existing file.
bool RenameNoReplace(const std::string &from, const std::string &to) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  // A file system without the flag: look first.
  struct stat st;
  if (::lstat(to.c_str(), &st) == 0) return false;
  return std::rename(from.c_str(), to.c_str()) == 0;
}

// Flushes a directory's entries, so that a rename into it survives a crash
// before the source of a move is removed.
void SyncDirectory(const std::string &dir) {
  const int fd = ::open(dir.empty() ? "." : dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  ::fsync(fd);
  ::close(fd);
}

}  // namespace

std::string DeleteConfirmText(size_t count) {
  return count == 1 ? "Delete file !! \nConfirm ?" : "Delete selected files !! \nConfirm ?";
}

const char *FileOpTitle(FileOpKind kind) {
  switch (kind) {
    case FileOpKind::kCopy: return "Copy files...";
    case FileOpKind::kMove: return "Move files...";
    case FileOpKind::kRename: return "Rename files...";
    case FileOpKind::kDelete: return "Delete files...";
  }
  return "";
}

FileOp::FileOp(FileOpKind kind, const std::string &source_dir, const std::vector<std::string> &names,
               const std::string &target_dir, const std::vector<std::string> &new_names)
    : kind_(kind), source_dir_(WithSlash(source_dir)), target_dir_(WithSlash(target_dir)), names_(names),
      new_names_(new_names) {}

FileOp::~FileOp() { CloseFiles(); }

void FileOp::Stop() { stop_ = true; }

bool FileOp::Step(FileOpUi &ui) {
  switch (state_) {
    case FileOpState::kFinished:
      return true;
    case FileOpState::kNotStarted:
      if (kind_ == FileOpKind::kCopy || kind_ == FileOpKind::kMove) {
        char *block = new (std::nothrow) char[kFileOpBlock];
        if (!block) {
          state_ = FileOpState::kFinished;
          Finish(ui);
          return true;
        }
        delete[] block;
        buffer_.assign(kFileOpBlock, 0);
      }
      ui.OpenProgress(FileOpTitle(kind_), names_.size());
      progress_open_ = true;
      state_ = FileOpState::kRunning;
      return false;
    case FileOpState::kRunning:
      break;
  }
  if ((stop_ && !in_file()) || index_ >= names_.size()) {
    state_ = FileOpState::kFinished;
  } else if (in_file()) {
    CopyBlock(ui);
  } else {
    const std::string path = source_dir_ + names_[index_];
    ui.ShowName(names_[index_]);
    switch (kind_) {
      case FileOpKind::kDelete: StepDelete(ui, path); break;
      case FileOpKind::kRename: StepRename(ui, path); break;
      default: OpenFiles(ui, path); break;
    }
  }
  if (state_ != FileOpState::kFinished) return false;
  Finish(ui);
  return true;
}

void FileOp::StepDelete(FileOpUi &ui, const std::string &path) {
  if (::unlink(path.c_str()) != 0) return GiveUp(ui, kCantDelete);
  NextFile(ui, true, path, path);
}

void FileOp::StepRename(FileOpUi &ui, const std::string &path) {
  if (rename_index_ >= new_names_.size() || new_names_[rename_index_].empty()) {
    ++rename_index_;
    return NextFile(ui, false, path, path);
  }
  const std::string to = source_dir_ + new_names_[rename_index_++];
  if (to == path) return NextFile(ui, true, path, to);
  if (!RenameNoReplace(path, to)) return GiveUp(ui, kCantRename);
  NextFile(ui, true, path, to);
}

void FileOp::OpenFiles(FileOpUi &ui, const std::string &path) {
  const std::string dst = target_dir_ + names_[index_];
  struct stat src_st, dst_st, dir_st;
  if (::stat(path.c_str(), &src_st) != 0) return GiveUp(ui, kCantOpenSource);
  if (::stat(dst.c_str(), &dst_st) == 0 && SameFile(src_st, dst_st)) return GiveUp(ui, kSameFile);
  if (kind_ == FileOpKind::kMove && ::stat(target_dir_.empty() ? "." : target_dir_.c_str(), &dir_st) == 0 &&
      dir_st.st_dev == src_st.st_dev) {
    // One file system: the rename moves the file whole or not at all.
    if (std::rename(path.c_str(), dst.c_str()) == 0) return NextFile(ui, true, path, dst);
    if (errno != EXDEV) return GiveUp(ui, kCantOpenDestination);
  }
  src_fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (src_fd_ < 0) return GiveUp(ui, kCantOpenSource);
  if (::fstat(src_fd_, &src_st) != 0 || !S_ISREG(src_st.st_mode)) return GiveUp(ui, kCantOpenSource);
  // The copy grows under a hidden temporary name beside its destination.
  std::string templ = target_dir_ + "." + names_[index_] + ".XXXXXX";
  dst_fd_ = ::mkostemp(&templ[0], O_CLOEXEC);
  if (dst_fd_ < 0) return GiveUp(ui, kCantOpenDestination);
  temp_path_ = templ;
  src_path_ = path;
  dst_path_ = dst;
  ::fchmod(dst_fd_, src_st.st_mode & 07777);
}

void FileOp::CopyBlock(FileOpUi &ui) {
  ssize_t n;
  do {
    n = ::read(src_fd_, buffer_.data(), buffer_.size());
  } while (n < 0 && errno == EINTR);
  if (n < 0) return GiveUp(ui, kErrorReading);
  if (n == 0) return CompleteFile(ui);
  size_t written = 0;
  while (written < static_cast<size_t>(n)) {
    const ssize_t w = ::write(dst_fd_, buffer_.data() + written, static_cast<size_t>(n) - written);
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) return GiveUp(ui, kErrorWriting);
    written += static_cast<size_t>(w);
  }
}

void FileOp::CompleteFile(FileOpUi &ui) {
  bool ok = ::fsync(dst_fd_) == 0;
  ok = ::close(dst_fd_) == 0 && ok;
  dst_fd_ = -1;
  if (!ok || std::rename(temp_path_.c_str(), dst_path_.c_str()) != 0) return GiveUp(ui, kErrorWriting);
  temp_path_.clear();  // in place now: never removed
  ::close(src_fd_);
  src_fd_ = -1;
  const std::string from = src_path_, to = dst_path_;
  if (kind_ == FileOpKind::kMove) {
    SyncDirectory(target_dir_);
    struct stat a, b;
    const bool same = ::stat(from.c_str(), &a) == 0 && ::stat(to.c_str(), &b) == 0 && SameFile(a, b);
    if (same || ::unlink(from.c_str()) != 0) {
      // The copy is complete and the source stays: a copy, not a move.
      if (hooks.copied) hooks.copied(from, to);
      return GiveUp(ui, kCantDelete);
    }
  }
  NextFile(ui, true, from, to);
}

void FileOp::GiveUp(FileOpUi &ui, const char *question) {
  CloseFiles();
  if (ui.AskStop(question)) state_ = FileOpState::kFinished;
  NextFile(ui, false, std::string(), std::string());
}

void FileOp::NextFile(FileOpUi &ui, bool ok, const std::string &from, const std::string &to) {
  if (ok) {
    done_.push_back(names_[index_]);
    switch (kind_) {
      case FileOpKind::kCopy: if (hooks.copied) hooks.copied(from, to); break;
      case FileOpKind::kMove:
      case FileOpKind::kRename: if (hooks.moved) hooks.moved(from, to); break;
      case FileOpKind::kDelete: if (hooks.deleted) hooks.deleted(from); break;
    }
  }
  ++index_;
  ui.Advance(index_);
}

void FileOp::CloseFiles() {
  if (src_fd_ >= 0) ::close(src_fd_);
  if (dst_fd_ >= 0) ::close(dst_fd_);
  src_fd_ = dst_fd_ = -1;
  if (!temp_path_.empty()) ::unlink(temp_path_.c_str());
  temp_path_.clear();
}

void FileOp::Finish(FileOpUi &ui) {
  if (progress_open_) ui.CloseProgress();
  progress_open_ = false;
  CloseFiles();
  std::vector<char>().swap(buffer_);
  if (hooks.finished) hooks.finished(*this);
}

}  // namespace quilla
