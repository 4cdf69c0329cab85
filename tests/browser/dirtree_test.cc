// The directory tree model on real directories, with a mount table of the
// test's own.  A file-system layer that records every path it is asked about
// shows that network and automount points are never looked into.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "browser/dirtree.h"
#include "recording_fs.h"
#include "test_util.h"

namespace quilla {
namespace {

std::string Names(const std::vector<DirChild> &children) {
  std::string out;
  for (const DirChild &c : children) {
    const char *kind = c.kind == DirKind::kNoAccess ? "noaccess"
                       : c.kind == DirKind::kLeaf   ? "leaf"
                       : c.kind == DirKind::kBranch ? "branch"
                                                    : "mount";
    out += c.name + ":" + kind + " ";
  }
  return out;
}

class DirTreeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    base_ = tmp_.path();
    for (const char *d : {"alpha", "alpha/sub", "beta", "Zeta", "nfs", "nfs/deep", "auto", "auto/inner",
                          "my share", "my share/x", "plain", "plain/remote", "plain/remote/y", "local", "Local2"})
      ASSERT_EQ(::mkdir((base_ + "/" + d).c_str(), 0755), 0) << d;
    testutil::WriteFile(base_ + "/file.txt", "x");
    ASSERT_EQ(::symlink("alpha", (base_ + "/link_dir").c_str()), 0);
    ASSERT_EQ(::symlink("file.txt", (base_ + "/link_file").c_str()), 0);
    ASSERT_EQ(::symlink("nowhere", (base_ + "/dangling").c_str()), 0);
    mtab_ = base_ + "/mtab";
    std::string b = base_;
    testutil::WriteFile(mtab_,
                        "# a comment line\n"
                        "/dev/sda1 / ext4 rw,relatime 0 0\n"
                        "server:/export " + b + "/nfs nfs rw,hard 0 0\n"
                        "auto.misc " + b + "/auto autofs rw,fd=5 0 0\n"
                        "//srv/share " + b + "/my\\040share cifs rw 0 0\n"
                        "server:/gone " + b + "/plain/remote/ nfs4 rw 0 0\n"
                        "server:/nowhere " + b + "/absent nfs rw 0 0\n"
                        "none " + b + "/local ext4 rw 0 0\n"
                        "broken line\n");
  }
  testutil::TempDir tmp_;
  std::string base_, mtab_;
};

TEST_F(DirTreeTest, ListsSubdirectoriesSortedWithLinksAndWithoutProbingMounts) {
  testutil::RecordingFs fs;
  DirTree tree(mtab_, &fs, "/ [test]");
  // Probing the NFS point would find no access (for a user other than root).
  ::chmod((base_ + "/nfs").c_str(), 0);
  const std::vector<DirChild> kids = tree.Children(base_);
  ::chmod((base_ + "/nfs").c_str(), 0755);
  // Byte order puts capitals first; files, links to files and dangling links
  // are left out; a link to a directory is one.
  EXPECT_EQ(Names(kids),
            "Local2:leaf Zeta:leaf alpha:branch auto:mount beta:leaf link_dir:branch local:leaf "
            "my share:mount nfs:mount plain:branch ");
  for (const char *mount : {"/nfs", "/auto", "/my share", "/plain/remote", "/absent"})
    EXPECT_EQ(fs.TouchedUnder(base_ + mount), std::vector<std::string>{}) << mount;
  // The local mount point is probed like any directory.
  EXPECT_FALSE(fs.TouchedUnder(base_ + "/local").empty());
  // Each listed directory but the mount points is opened once, plus the
  // listed directory itself.
  EXPECT_EQ(fs.opened, 1 + 7);
}

TEST_F(DirTreeTest, ExpandingAMountPointReadsItThen) {
  testutil::RecordingFs fs;
  DirTree tree(mtab_, &fs, "/ [test]");
  EXPECT_EQ(Names(tree.Children(base_ + "/nfs")), "deep:leaf ");
  EXPECT_EQ(Names(tree.Children(base_ + "/plain")), "remote:mount ");
  EXPECT_TRUE(fs.TouchedUnder(base_ + "/plain/remote").empty());
}

TEST_F(DirTreeTest, DirectoriesThatCannotBeReadOrEntered) {
  // Made unreadable (mode 0), unlistable (search only) and not enterable
  // (read only); the checks run as an unprivileged user.
  char templ[] = "/tmp/qtdirXXXXXX";
  ASSERT_NE(::mkdtemp(templ), nullptr);
  const std::string dir = templ;
  ::chmod(dir.c_str(), 0755);
  for (const char *d : {"closed", "closed/in", "searchonly", "searchonly/in", "readonly", "readonly/in", "open"})
    ASSERT_EQ(::mkdir((dir + "/" + d).c_str(), 0755), 0);
  ::chmod((dir + "/closed").c_str(), 0);
  ::chmod((dir + "/searchonly").c_str(), 0111);
  ::chmod((dir + "/readonly").c_str(), 0444);

  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  const pid_t pid = ::fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    ::close(fds[0]);
    if (::geteuid() == 0 && (::setresgid(65534, 65534, 65534) != 0 || ::setresuid(65534, 65534, 65534) != 0))
      ::_exit(2);
    DirTree tree("/nonexistent/mtab", nullptr, "/ [test]");
    std::string text = Names(tree.Children(dir));
    DirNode *node = tree.Show(dir + "/closed");
    text += "| " + node->name + (node->kind == DirKind::kNoAccess ? " noaccess" : " other");
    text += node->children.empty() ? " empty" : " children";
    if (::write(fds[1], text.data(), text.size()) != static_cast<ssize_t>(text.size())) ::_exit(3);
    ::_exit(0);
  }
  ::close(fds[1]);
  std::string got;
  char buf[512];
  ssize_t n;
  while ((n = ::read(fds[0], buf, sizeof buf)) > 0) got.append(buf, static_cast<size_t>(n));
  ::close(fds[0]);
  int status = 0;
  ::waitpid(pid, &status, 0);
  for (const char *d : {"closed", "searchonly", "readonly"}) ::chmod((dir + "/" + d).c_str(), 0755);
  std::system(("rm -rf '" + dir + "'").c_str());
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_EQ(got, "closed:noaccess open:leaf readonly:noaccess searchonly:noaccess | closed noaccess empty");
}

TEST_F(DirTreeTest, ShowFollowsThePathFromTheRoot) {
  DirTree tree(mtab_, nullptr, "/ [test]");
  DirNode *node = tree.Show(base_ + "//alpha/./sub/");
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(node->Path(), base_ + "/alpha/sub");
  EXPECT_EQ(node->kind, DirKind::kLeaf);
  for (DirNode *n = node; n; n = n->parent) EXPECT_TRUE(n->expanded) << n->Path();
  EXPECT_EQ(tree.Root()->name, "/ [test]");
  EXPECT_EQ(tree.Root()->Path(), "/");

  // A missing component stops at the deepest directory shown; a directory
  // made since its parent was read is found by reading the parent again.
  EXPECT_EQ(tree.Show(base_ + "/alpha/missing/deeper")->Path(), base_ + "/alpha");
  ASSERT_EQ(::mkdir((base_ + "/alpha/later").c_str(), 0755), 0);
  EXPECT_EQ(tree.Show(base_ + "/alpha/later")->Path(), base_ + "/alpha/later");
  EXPECT_EQ(tree.Show("/")->Path(), "/");
}

TEST(DirTreePaths, ComponentsLabelsAndMountTable) {
  EXPECT_EQ(DirPathComponents("/a//b/./c/../d/"), (std::vector<std::string>{"a", "b", "d"}));
  EXPECT_EQ(DirPathComponents("/../.."), std::vector<std::string>{});
  EXPECT_EQ(DirJoin("/", "usr"), "/usr");
  EXPECT_EQ(DirJoin("/usr", "lib"), "/usr/lib");
  EXPECT_EQ(DirTreeRootLabel("box"), "/ [box]");
  EXPECT_EQ(DirTreeRootLabel(std::string(80, 'h')), "/ [" + std::string(64, 'h') + "]");
  EXPECT_EQ(DirTreeRootLabel().substr(0, 3), "/ [");

  EXPECT_TRUE(ReadUnprobedMounts("/nonexistent/mtab").empty());
  testutil::TempDir tmp;
  const std::string long_dir = "/" + std::string(300, 'm');
  testutil::WriteFile(tmp.file("mtab"), "a /net/a\\134b\\011c nfs rw 0 0\n"
                                        "b " + long_dir + " ignore rw 0 0\n"
                                        "c /trail\\ autofs rw 0 0\n"
                                        "d /disk ext4 rw 0 0\n"
                                        "e /short\n");
  const std::vector<std::string> mounts = ReadUnprobedMounts(tmp.file("mtab"));
  ASSERT_EQ(mounts.size(), 3u);
  EXPECT_EQ(mounts[0], "/net/a\\b\tc");
  EXPECT_EQ(mounts[1], long_dir.substr(0, 255));
  EXPECT_EQ(mounts[2], "/trail\\");  // a lone backslash stays
}

}  // namespace
}  // namespace quilla
