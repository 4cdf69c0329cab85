// A file-system layer for the directory tree that records every path it is
// asked about, so tests see which directories were looked into.
#ifndef QUILLA_TESTS_RECORDING_FS_H
#define QUILLA_TESTS_RECORDING_FS_H

#include <string>
#include <vector>

#include "browser/dirtree.h"

namespace testutil {

// Forwards to the real calls and keeps every path touched.
class RecordingFs : public quilla::DirTreeFs {
 public:
  int CanEnter(const std::string &dir) override {
    touched.push_back(dir);
    return quilla::DirTreeFs::CanEnter(dir);
  }
  void *OpenDir(const std::string &dir, int *error) override {
    touched.push_back(dir);
    ++opened;
    return quilla::DirTreeFs::OpenDir(dir, error);
  }
  bool LinkStat(const std::string &path, struct stat *st) override {
    touched.push_back(path);
    return quilla::DirTreeFs::LinkStat(path, st);
  }
  bool Stat(const std::string &path, struct stat *st) override {
    touched.push_back(path);
    return quilla::DirTreeFs::Stat(path, st);
  }
  // Paths at or below `dir` that were touched.
  std::vector<std::string> TouchedUnder(const std::string &dir) const {
    std::vector<std::string> out;
    for (const std::string &p : touched)
      if (p == dir || p.compare(0, dir.size() + 1, dir + "/") == 0) out.push_back(p);
    return out;
  }
  std::vector<std::string> touched;
  int opened = 0;
};

}  // namespace testutil

#endif
