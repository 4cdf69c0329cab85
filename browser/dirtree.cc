// The browser's directory tree: listing, probing, the mount table.
#include "browser/dirtree.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

namespace quilla {

namespace {

constexpr size_t kHostNameSize = 64;
constexpr size_t kMountDirSize = 255;
constexpr size_t kNameSize = 255;

DirTreeFs &RealFs() {
  static DirTreeFs fs;
  return fs;
}

bool IsDot(const std::string &name) { return name == "." || name == ".."; }

bool Contains(const std::vector<std::string> &list, const std::string &path) {
  return std::find(list.begin(), list.end(), path) != list.end();
}

// Mount table fields escape blanks, tabs, newlines and backslashes as \ooo.
std::string DecodeMountField(const std::string &field) {
  std::string out;
  for (size_t i = 0; i < field.size(); ++i) {
    const auto octal = [&](size_t k, char top) { return field[k] >= '0' && field[k] <= top; };
    if (field[i] == '\\' && i + 3 < field.size() && octal(i + 1, '3') && octal(i + 2, '7') && octal(i + 3, '7')) {
      out += static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 + (field[i + 3] - '0'));
      i += 3;
    } else {
      out += field[i];
    }
  }
  return out;
}

bool IsUnprobedType(const std::string &type) {
  static const char *const kTypes[] = {"nfs", "nfs4", "autofs", "ignore", "smbfs", "cifs", "smb3", "fuse.sshfs"};
  for (const char *t : kTypes)
    if (type == t) return true;
  return false;
}

}  // namespace

// ---- the real file system

int DirTreeFs::CanEnter(const std::string &dir) {
  struct stat st;
  if (::stat(dir.c_str(), &st) != 0) return errno;
  if (!S_ISDIR(st.st_mode)) return ENOTDIR;
  return ::faccessat(AT_FDCWD, dir.c_str(), X_OK, AT_EACCESS) == 0 ? 0 : errno;
}

void *DirTreeFs::OpenDir(const std::string &dir, int *error) {
  DIR *d = ::opendir(dir.c_str());
  if (!d && error) *error = errno;
  return d;
}

bool DirTreeFs::ReadDir(void *handle, std::string *name) {
  struct dirent *e = ::readdir(static_cast<DIR *>(handle));
  if (!e) return false;
  *name = e->d_name;
  return true;
}

void DirTreeFs::CloseDir(void *handle) { ::closedir(static_cast<DIR *>(handle)); }

bool DirTreeFs::LinkStat(const std::string &path, struct stat *st) { return ::lstat(path.c_str(), st) == 0; }

bool DirTreeFs::Stat(const std::string &path, struct stat *st) { return ::stat(path.c_str(), st) == 0; }

// ---- paths and labels

std::string DirTreeRootLabel(const std::string &host) { return "/ [" + host.substr(0, kHostNameSize) + "]"; }

std::string DirTreeRootLabel() {
  char host[kHostNameSize + 1] = {};
  if (::gethostname(host, kHostNameSize) != 0) host[0] = '\0';
  host[kHostNameSize] = '\0';
  return DirTreeRootLabel(std::string(host));
}

std::vector<std::string> DirPathComponents(const std::string &path) {
  std::vector<std::string> out;
  size_t i = 0;
  while (i < path.size()) {
    size_t j = path.find('/', i);
    if (j == std::string::npos) j = path.size();
    std::string part = path.substr(i, j - i);
    if (part == "..") {
      if (!out.empty()) out.pop_back();
    } else if (!part.empty() && part != ".") {
      out.push_back(part);
    }
    i = j + 1;
  }
  return out;
}

std::string DirJoin(const std::string &dir, const std::string &name) {
  if (!dir.empty() && dir.back() == '/') return dir + name;
  return dir + "/" + name;
}

std::vector<std::string> ReadUnprobedMounts(const std::string &mtab_path) {
  std::vector<std::string> out;
  std::ifstream in(mtab_path);
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::string device, dir, type;
    if (!(fields >> device >> dir >> type) || device[0] == '#') continue;
    if (!IsUnprobedType(type)) continue;
    dir = DecodeMountField(dir);
    if (dir.size() > kMountDirSize) dir.resize(kMountDirSize);
    if (dir.size() > 1 && dir.back() == '/') dir.pop_back();
    out.push_back(dir);
  }
  return out;
}

// ---- nodes

std::string DirNode::Path() const {
  if (!parent) return "/";
  return DirJoin(parent->Path(), name);
}

DirNode *DirNode::Child(const std::string &child_name) const {
  for (const auto &c : children)
    if (c->name == child_name) return c.get();
  return nullptr;
}

// ---- the tree

DirTree::DirTree(std::string mtab_path, DirTreeFs *fs, std::string root_label)
    : mtab_path_(std::move(mtab_path)), fs_(fs ? fs : &RealFs()) {
  root_.name = std::move(root_label);
  root_.kind = DirKind::kBranch;
}

DirKind DirTree::Probe(const std::string &dir, const std::vector<std::string> &mounts) const {
  if (fs_->CanEnter(dir) != 0) return DirKind::kNoAccess;
  int error = 0;
  void *h = fs_->OpenDir(dir, &error);
  if (!h) return error == EACCES ? DirKind::kNoAccess : DirKind::kLeaf;
  DirKind kind = DirKind::kLeaf;
  std::string name;
  while (fs_->ReadDir(h, &name)) {
    if (IsDot(name)) continue;
    const std::string full = DirJoin(dir, name);
    // A mount point below is a subdirectory, known without looking at it.
    struct stat st;
    if (Contains(mounts, full) || (fs_->Stat(full, &st) && S_ISDIR(st.st_mode))) {
      kind = DirKind::kBranch;
      break;
    }
  }
  fs_->CloseDir(h);
  return kind;
}

std::vector<DirChild> DirTree::Children(const std::string &dir) const {
  std::vector<DirChild> out;
  if (fs_->CanEnter(dir) != 0) return out;
  int error = 0;
  void *h = fs_->OpenDir(dir, &error);
  if (!h) return out;
  const std::vector<std::string> mounts = ReadUnprobedMounts(mtab_path_);
  std::string name;
  while (fs_->ReadDir(h, &name)) {
    if (IsDot(name)) continue;
    if (name.size() > kNameSize) name.resize(kNameSize);
    const std::string full = DirJoin(dir, name);
    if (Contains(mounts, full)) {
      out.push_back({name, DirKind::kMountPoint});
      continue;
    }
    struct stat st;
    if (!fs_->LinkStat(full, &st)) continue;
    if (S_ISDIR(st.st_mode) || (S_ISLNK(st.st_mode) && fs_->Stat(full, &st) && S_ISDIR(st.st_mode)))
      out.push_back({name, DirKind::kBranch});
  }
  fs_->CloseDir(h);
  std::sort(out.begin(), out.end(), [](const DirChild &a, const DirChild &b) { return a.name < b.name; });
  for (DirChild &c : out)
    if (c.kind != DirKind::kMountPoint) c.kind = Probe(DirJoin(dir, c.name), mounts);
  return out;
}

void DirTree::Expand(DirNode *node) {
  if (!node || node->kind == DirKind::kNoAccess) return;
  node->children.clear();
  for (DirChild &c : Children(node->Path())) {
    auto child = std::make_unique<DirNode>();
    child->name = std::move(c.name);
    child->kind = c.kind;
    child->parent = node;
    node->children.push_back(std::move(child));
  }
  node->expanded = true;
}

DirNode *DirTree::Show(const std::string &path) {
  DirNode *node = &root_;
  if (!node->expanded) Expand(node);
  for (const std::string &part : DirPathComponents(path)) {
    DirNode *next = node->Child(part);
    if (!next) {
      // Made since the node was read: read it again once.
      Expand(node);
      next = node->Child(part);
      if (!next) break;
    }
    node = next;
    if (!node->expanded) Expand(node);
  }
  return node;
}

}  // namespace quilla
