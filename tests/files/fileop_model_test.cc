// The file-operation state machine on real files: block-by-block copies,
// moves, renames and deletes with scripted answers to its questions, Stop,
// the hooks, and the faults that must lose nothing (a destination that
// fills up or disappears mid-copy).
#include <gtest/gtest.h>

#include <dirent.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "files/fileop_model.h"
#include "test_util.h"

namespace quilla {
namespace {

using testutil::FileExists;
using testutil::ReadFile;
using testutil::TempDir;

class ScriptedUi : public FileOpUi {
 public:
  std::vector<bool> answers;  // to the questions, in order; missing answers are "Cancel"
  std::vector<std::string> questions;
  std::string title;
  size_t maximum = 0;
  bool closed = false;
  bool AskStop(const std::string &q) override {
    questions.push_back(q);
    bool stop = !answers.empty() && answers.front();
    if (!answers.empty()) answers.erase(answers.begin());
    return stop;
  }
  void OpenProgress(const std::string &t, size_t max) override { title = t, maximum = max; }
  void CloseProgress() override { closed = true; }
};

std::string Bytes(size_t n, unsigned seed = 1) {
  std::string s(n, '\0');
  for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>((seed = seed * 1103515245u + 12345u) >> 16);
  return s;
}

std::vector<std::string> Listing(const std::string &dir) {
  std::vector<std::string> names;
  if (DIR *d = ::opendir(dir.c_str())) {
    while (dirent *e = ::readdir(d))
      if (std::string(e->d_name) != "." && std::string(e->d_name) != "..") names.push_back(e->d_name);
    ::closedir(d);
  }
  std::sort(names.begin(), names.end());
  return names;
}

// Runs the operation to its end; returns the number of steps taken.
int RunAll(FileOp &op, FileOpUi &ui) {
  int steps = 1;
  while (!op.Step(ui)) ++steps;
  return steps;
}

ino_t Inode(const std::string &path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 ? st.st_ino : 0;
}

// A directory on tmpfs when that is another file system than `near`'s
// (where a move has to copy), removed at scope end; ok() tells.
class OtherFileSystemDir {
 public:
  explicit OtherFileSystemDir(const std::string &near) {
    struct stat shm, here;
    if (::stat("/dev/shm", &shm) != 0 || ::stat(near.c_str(), &here) != 0 || shm.st_dev == here.st_dev) return;
    std::string templ = "/dev/shm/quilla-fileop-XXXXXX";
    if (::mkdtemp(&templ[0])) path_ = templ;
  }
  ~OtherFileSystemDir() {
    if (ok()) testutil::Run("rm -rf '" + path_ + "'");
  }
  bool ok() const { return !path_.empty(); }
  const std::string &path() const { return path_; }

 private:
  std::string path_;
};

TEST(FileOpCopy, BlocksHooksAndTheTargetWithoutSlash) {
  TempDir src, dst;
  const std::vector<size_t> sizes = {0, 1, 4096, 4097, 10000};
  std::vector<std::string> names;
  for (size_t k = 0; k < sizes.size(); ++k) {
    names.push_back("f" + std::to_string(k));
    testutil::WriteFile(src.file(names.back()), Bytes(sizes[k], static_cast<unsigned>(k)));
  }
  ::chmod(src.file("f1").c_str(), 0640);
  FileOp op(FileOpKind::kCopy, src.path(), names, dst.path());
  std::vector<std::string> copied;
  int finished = 0;
  op.hooks.copied = [&](const std::string &from, const std::string &to) { copied.push_back(from + ">" + to); };
  op.hooks.finished = [&](const FileOp &o) {
    ++finished;
    EXPECT_EQ(o.done(), names);
  };
  ScriptedUi ui;
  // Start, then per file one opening step, one step per block and one to finish it.
  EXPECT_EQ(RunAll(op, ui), 1 + (2 + 0) + (2 + 1) + (2 + 1) + (2 + 2) + (2 + 3) + 1);
  EXPECT_EQ(ui.title, "Copy files...");
  EXPECT_EQ(ui.maximum, 5u);
  EXPECT_TRUE(ui.closed);
  EXPECT_TRUE(ui.questions.empty());
  EXPECT_EQ(finished, 1);
  EXPECT_EQ(Listing(dst.path()), names);  // no temporary left
  for (size_t k = 0; k < sizes.size(); ++k) EXPECT_EQ(ReadFile(dst.file(names[k])), ReadFile(src.file(names[k])));
  struct stat st;
  ASSERT_EQ(::stat(dst.file("f1").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
  ASSERT_EQ(copied.size(), 5u);
  EXPECT_EQ(copied[0], src.file("f0") + ">" + dst.file("f0"));
  EXPECT_FALSE(op.refreshes());
}

TEST(FileOpCopy, QuestionsSkipOrStop) {
  TempDir src, dst;
  testutil::WriteFile(src.file("b"), "bee");
  testutil::WriteFile(src.file("c"), "sea");
  {
    // "Cancel" skips the missing file and goes on.
    FileOp op(FileOpKind::kCopy, src.path() + "/", {"missing", "b"}, dst.path() + "/");
    ScriptedUi ui;
    RunAll(op, ui);
    EXPECT_EQ(ui.questions, std::vector<std::string>{"Can't open source !!\nStop operation ?"});
    EXPECT_EQ(ReadFile(dst.file("b")), "bee");
    EXPECT_EQ(op.done(), std::vector<std::string>{"b"});
  }
  {
    // "O.K." stops: the next file is left alone.
    FileOp op(FileOpKind::kCopy, src.path(), {"missing", "c"}, dst.path());
    ScriptedUi ui;
    ui.answers = {true};
    RunAll(op, ui);
    EXPECT_FALSE(FileExists(dst.file("c")));
  }
  {
    FileOp op(FileOpKind::kCopy, src.path(), {"b"}, dst.file("no/such"));
    ScriptedUi ui;
    RunAll(op, ui);
    EXPECT_EQ(ui.questions, std::vector<std::string>{"Can't open destination !!\nStop operation ?"});
  }
  {
    // Onto itself: refused, the file stays whole.
    for (FileOpKind kind : {FileOpKind::kCopy, FileOpKind::kMove}) {
      FileOp op(kind, src.path(), {"b"}, src.path());
      ScriptedUi ui;
      RunAll(op, ui);
      EXPECT_EQ(ui.questions.size(), 1u);
      EXPECT_EQ(ReadFile(src.file("b")), "bee");
    }
  }
}

TEST(FileOpCopy, StopFinishesTheCurrentFileAndAnAbandonedCopyLeavesNothing) {
  TempDir src, dst;
  const std::string big = Bytes(5 * 4096 + 3);
  testutil::WriteFile(src.file("big"), big);
  testutil::WriteFile(src.file("next"), "n");
  FileOp op(FileOpKind::kCopy, src.path(), {"big", "next"}, dst.path());
  ScriptedUi ui;
  for (int k = 0; k < 3; ++k) ASSERT_FALSE(op.Step(ui));
  EXPECT_TRUE(op.in_file());
  op.Stop();
  RunAll(op, ui);
  EXPECT_EQ(ReadFile(dst.file("big")), big);
  EXPECT_EQ(Listing(dst.path()), std::vector<std::string>{"big"});

  TempDir other;
  {
    FileOp gone(FileOpKind::kCopy, src.path(), {"big"}, other.path());
    for (int k = 0; k < 3; ++k) gone.Step(ui);
    EXPECT_EQ(Listing(other.path()).size(), 1u);  // the hidden temporary
  }  // the window closed mid-copy
  EXPECT_TRUE(Listing(other.path()).empty());
}

TEST(FileOpMove, RenameWithinOneFileSystemCopyAcrossThem) {
  TempDir src, dst;
  testutil::WriteFile(src.file("m"), Bytes(9000));
  const ino_t inode = Inode(src.file("m"));
  FileOp op(FileOpKind::kMove, src.path(), {"m"}, dst.path());
  std::vector<std::string> moved;
  op.hooks.moved = [&](const std::string &from, const std::string &to) { moved.push_back(from + ">" + to); };
  ScriptedUi ui;
  EXPECT_EQ(RunAll(op, ui), 3);  // start, the rename, finish
  EXPECT_EQ(ui.title, "Move files...");
  EXPECT_FALSE(FileExists(src.file("m")));
  EXPECT_EQ(Inode(dst.file("m")), inode);
  EXPECT_EQ(moved, std::vector<std::string>{src.file("m") + ">" + dst.file("m")});
  EXPECT_TRUE(op.refreshes());

  // Across file systems (tmpfs to the test directory) the data is copied.
  OtherFileSystemDir other(dst.path());
  if (!other.ok()) GTEST_SKIP() << "no second file system";
  const std::string &dir = other.path();
  const std::string data = Bytes(3 * 4096 + 1, 7);
  testutil::WriteFile(dir + "/x", data);
  FileOp across(FileOpKind::kMove, dir, {"x"}, dst.path());
  RunAll(across, ui);
  EXPECT_EQ(ReadFile(dst.file("x")), data);
  EXPECT_FALSE(FileExists(dir + "/x"));
}

TEST(FileOpRenameDelete, NewNamesNoClobberAndMissingFiles) {
  TempDir dir;
  testutil::WriteFile(dir.file("a"), "A");
  testutil::WriteFile(dir.file("b"), "B");
  testutil::WriteFile(dir.file("c"), "C");
  FileOp ren(FileOpKind::kRename, dir.path(), {"a", "b", "c"}, "", {"a2", "c", "c3"});
  ScriptedUi ui;
  RunAll(ren, ui);
  EXPECT_EQ(ui.title, "Rename files...");
  // b -> c would overwrite c: refused, both kept; the counter still moves on.
  EXPECT_EQ(ui.questions, std::vector<std::string>{"Can't rename file !!\nStop operation ?"});
  EXPECT_EQ(Listing(dir.path()), (std::vector<std::string>{"a2", "b", "c3"}));
  EXPECT_EQ(ReadFile(dir.file("c3")), "C");

  FileOp del(FileOpKind::kDelete, dir.path(), {"a2", "gone", "c3"});
  std::vector<std::string> deleted;
  del.hooks.deleted = [&](const std::string &p) { deleted.push_back(p); };
  ScriptedUi ui2;
  RunAll(del, ui2);
  EXPECT_EQ(ui2.title, "Delete files...");
  EXPECT_EQ(ui2.questions.size(), 1u);
  EXPECT_EQ(Listing(dir.path()), std::vector<std::string>{"b"});
  EXPECT_EQ(deleted, (std::vector<std::string>{dir.file("a2"), dir.file("c3")}));
  EXPECT_EQ(DeleteConfirmText(1), "Delete file !! \nConfirm ?");
  EXPECT_EQ(DeleteConfirmText(3), "Delete selected files !! \nConfirm ?");
}

// In a child whose files may not grow past 8 KiB (and which ignores the
// signal that would kill it), a copy and a move of a larger file fail with
// the write question: the source stays whole and no partial file remains.
TEST(FileOpFaults, ADestinationThatFillsUpLosesNothing) {
  TempDir src, dst;
  const std::string data = Bytes(40000, 3);
  testutil::WriteFile(src.file("copy"), data);
  testutil::WriteFile(src.file("small"), "fits");
  OtherFileSystemDir other(dst.path());
  const bool two_fs = other.ok();
  const std::string &shm_dir = other.path();
  if (two_fs) testutil::WriteFile(shm_dir + "/move", data);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::signal(SIGXFSZ, SIG_IGN);
    struct rlimit lim = {8192, 8192};
    ::setrlimit(RLIMIT_FSIZE, &lim);
    int bad = 0;
    {
      FileOp op(FileOpKind::kCopy, src.path(), {"copy", "small"}, dst.path());
      ScriptedUi ui;
      RunAll(op, ui);
      if (ui.questions != std::vector<std::string>{kErrorWriting}) bad |= 1;
      if (op.done() != std::vector<std::string>{"small"}) bad |= 2;
    }
    if (two_fs) {
      FileOp op(FileOpKind::kMove, shm_dir, {"move"}, dst.path());
      ScriptedUi ui;
      RunAll(op, ui);
      if (ui.questions != std::vector<std::string>{kErrorWriting}) bad |= 4;
    }
    ::_exit(bad);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(ReadFile(src.file("copy")), data);
  EXPECT_EQ(Listing(dst.path()), std::vector<std::string>{"small"});
  if (two_fs) {
    EXPECT_EQ(ReadFile(shm_dir + "/move"), data);
  }
}

TEST(FileOpFaults, ADestinationThatDisappearsLosesNothing) {
  TempDir src, parent;
  const std::string data = Bytes(6 * 4096, 5);
  testutil::WriteFile(src.file("f"), data);
  // A move copies only across file systems: its source goes on tmpfs.
  OtherFileSystemDir other(parent.path());
  const bool two_fs = other.ok();
  const std::string &shm_dir = other.path();
  if (two_fs) testutil::WriteFile(shm_dir + "/f", data);
  const std::string target = parent.file("target");
  for (FileOpKind kind : {FileOpKind::kCopy, FileOpKind::kMove}) {
    if (kind == FileOpKind::kMove && !two_fs) continue;
    const std::string from = kind == FileOpKind::kCopy ? src.path() : shm_dir;
    ::mkdir(target.c_str(), 0700);
    FileOp op(kind, from, {"f"}, target);
    ScriptedUi ui;
    for (int k = 0; k < 4; ++k) ASSERT_FALSE(op.Step(ui));
    ASSERT_TRUE(op.in_file());
    ASSERT_EQ(testutil::Run("rm -rf '" + target + "'"), 0);
    RunAll(op, ui);
    EXPECT_EQ(ui.questions, std::vector<std::string>{kErrorWriting});
    EXPECT_TRUE(op.done().empty());
    EXPECT_EQ(ReadFile(from + "/f"), data);
    EXPECT_TRUE(Listing(parent.path()).empty());
  }
}

}  // namespace
}  // namespace quilla
