// Shared helpers of the XWD, SGI, IFF, XBM, XPM and raw format tests.
#ifndef QUILLA_TESTS_TESSEL_XFMT_UTIL_H
#define QUILLA_TESTS_TESSEL_XFMT_UTIL_H

#include <gtest/gtest.h>

#include <string>

#include "tessel.h"
#include "test_util.h"

namespace xfmt {

inline int Format(const char *name) { return tslFormatGetIndex(name); }

inline TslParams Params(int format = -1, unsigned flags = 0) {
  TslParams p;
  tslDefaultParams(&p);
  p.format = format;
  p.flags = flags;
  return p;
}

inline int Save(const TslPicture &pic, const std::string &path, const char *format, int compression = 0) {
  TslParams p = Params(Format(format));
  p.compression = compression;
  return tslSave(path.c_str(), &pic, &p);
}

inline int Load(const std::string &path, TslPicture *pic, unsigned flags = 0, int format = -1) {
  TslParams p = Params(format, flags);
  return tslLoad(path.c_str(), pic, &p);
}

// Runs a shell command whose messages are dropped (Run would merge them into
// a redirected stdout); returns its exit status.
inline int Sh(const std::string &cmd) { return testutil::Run("{ { " + cmd + " ; } 2>/dev/null ; }"); }

// Loads a file with ImageMagick or netpbm into a picture: `cmd` must write a PNM to stdout.
inline bool ToolPnm(const std::string &cmd, const testutil::TempDir &dir, TslPicture *out) {
  const std::string pnm = dir.file("tool_out.pnm");
  // The tool's messages must not end up in the file (Run merges stderr into stdout).
  if (testutil::Run("{ { " + cmd + " ; } 2>/dev/null ; } > '" + pnm + "'") != 0) return false;
  return testutil::ReadPnm(pnm, out);
}

// Owns a picture for the length of a test.
struct Pic {
  TslPicture p;
  Pic() { std::memset(&p, 0, sizeof p); }
  explicit Pic(const TslPicture &q) : p(q) {}
  ~Pic() {
    if (p.pixels) tslFree(&p);
  }
  TslPicture *operator&() { return &p; }
  TslPicture &operator*() { return p; }
  const TslPicture *operator->() const { return &p; }
};

// Writes the first `keep` bytes of a file to another path.
inline void Truncate(const std::string &from, const std::string &to, size_t keep) {
  std::string d = testutil::ReadFile(from);
  testutil::WriteFile(to, d.substr(0, keep < d.size() ? keep : d.size()));
}

// A truncated file fails with a read or corruption error, and loads with the
// damaged-file flag (rows before the cut intact).
inline void ExpectTruncationHandled(const std::string &good, const testutil::TempDir &dir, size_t keep,
                                    int format = -1, uint32_t row = 0) {
  const std::string cut = dir.file("cut.bin");
  Truncate(good, cut, keep);
  Pic full, part, damaged;
  ASSERT_EQ(Load(good, &full, 0, format), TSL_OK);
  int code = Load(cut, &part, 0, format);
  EXPECT_TRUE(code == TSL_ERR_READ || code == TSL_ERR_CORRUPT) << "code " << code << " at " << keep;
  ASSERT_EQ(Load(cut, &damaged, TSL_FLAG_KEEP_DAMAGED, format), TSL_OK) << "at " << keep;
  ASSERT_EQ(damaged->width, full->width);
  // A row stored before the cut survives.
  std::vector<uint8_t> a(full->width * 4), b(full->width * 4);
  tslGetRowRGBA(&*full, row, a.data());
  tslGetRowRGBA(&*damaged, row, b.data());
  EXPECT_EQ(a, b);
}

}  // namespace xfmt

#endif
