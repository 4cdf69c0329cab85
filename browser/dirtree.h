// The browser's directory tree, toolkit-free: which subdirectories a
// directory shows, whether each can be expanded, and following a path from
// the root.  Network and automounted file systems named in the mount table
// are never looked into until the user expands them, so an unreachable
// server cannot freeze the browser.
#ifndef QUILLA_BROWSER_DIRTREE_H
#define QUILLA_BROWSER_DIRTREE_H

#include <sys/stat.h>

#include <memory>
#include <string>
#include <vector>

namespace quilla {

// The file-system calls the tree makes.  The default methods are the real
// ones; a test derives from it to see which paths were touched.
class DirTreeFs {
 public:
  virtual ~DirTreeFs() = default;
  // 0 when the process could change into `dir`, else the errno.
  virtual int CanEnter(const std::string &dir);
  // A directory stream or nullptr with *error set.
  virtual void *OpenDir(const std::string &dir, int *error);
  // The next name (".", ".." included); false at the end.
  virtual bool ReadDir(void *handle, std::string *name);
  virtual void CloseDir(void *handle);
  virtual bool LinkStat(const std::string &path, struct stat *st);  // lstat
  virtual bool Stat(const std::string &path, struct stat *st);      // stat
};

enum class DirKind {
  kNoAccess,    // cannot be entered: the no-access picture, not expandable
  kLeaf,        // no subdirectory
  kBranch,      // has a subdirectory
  kMountPoint,  // network or automount: expandable, never probed
};

struct DirChild {
  std::string name;
  DirKind kind;
  bool Expandable() const { return kind == DirKind::kBranch || kind == DirKind::kMountPoint; }
};

// The root item's label, "/ [host]" (the host name cut to 64 bytes).
std::string DirTreeRootLabel(const std::string &host);
std::string DirTreeRootLabel();  // this machine's name

// The components of an absolute path: "/a//b/./c/" gives {a, b, c}; ".."
// drops the previous component.
std::vector<std::string> DirPathComponents(const std::string &path);
// dir + "/" (unless it ends in one) + name.
std::string DirJoin(const std::string &dir, const std::string &name);

// The mount directories (cut to 255 bytes) of the table's entries whose type
// must not be probed: nfs, nfs4, autofs, ignore and the network file systems
// smbfs, cifs, smb3 and sshfs.  A missing or unreadable table gives none.
std::vector<std::string> ReadUnprobedMounts(const std::string &mtab_path);

// One directory of the tree; the root stands for "/".
struct DirNode {
  std::string name;  // the root's is its label
  DirKind kind = DirKind::kBranch;
  bool expanded = false;
  DirNode *parent = nullptr;
  std::vector<std::unique_ptr<DirNode>> children;

  std::string Path() const;
  DirNode *Child(const std::string &child_name) const;
};

class DirTree {
 public:
  // `fs` is not owned; nullptr uses the real file system.
  explicit DirTree(std::string mtab_path = "/etc/mtab", DirTreeFs *fs = nullptr,
                   std::string root_label = DirTreeRootLabel());

  // The subdirectories of `dir`, sorted byte-wise by name: links to
  // directories count as directories; each is probed once, except mount
  // points of the unprobed types.  The mount table is read on each call.
  // A directory that cannot be entered or opened gives none.
  std::vector<DirChild> Children(const std::string &dir) const;
  // No access, leaf or branch for one directory.
  DirKind Probe(const std::string &dir, const std::vector<std::string> &mounts) const;

  DirNode *Root() { return &root_; }
  // Reads the node's children anew and marks it expanded (not for no-access).
  void Expand(DirNode *node);
  void Collapse(DirNode *node) { node->expanded = false; }
  // Expands the root and the directories along `path` (those not expanded
  // yet) and returns the node of the last component found: the path itself,
  // or its deepest ancestor the tree shows.
  DirNode *Show(const std::string &path);

 private:
  std::string mtab_path_;
  DirTreeFs *fs_;
  DirNode root_;
};

}  // namespace quilla

#endif
