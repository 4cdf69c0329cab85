// Helpers shared by the format tests: save/load shortcuts, independent
// decoders, hand-made files, truncation sweeps, pixel limits and stopping.
#ifndef QUILLA_TESTS_TESSEL_LEGACY_TEST_HELPERS_H
#define QUILLA_TESTS_TESSEL_LEGACY_TEST_HELPERS_H

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "tessel.h"
#include "test_util.h"

namespace testutil {

inline int Fmt(const char *name) { return tslFormatGetIndex(name); }

// Default parameters for format `format` (nullptr: detect on load).
inline TslParams Params(const char *format = nullptr, int compression = 0) {
  TslParams p;
  tslDefaultParams(&p);
  p.format = format ? Fmt(format) : -1;
  p.compression = compression;
  return p;
}

inline int Save(const std::string &path, const TslPicture &pic, const char *format, int compression = 0,
                int ascii = 0, int os2 = 0) {
  TslParams p = Params(format, compression);
  p.ppm_ascii = ascii;
  p.os2_header = os2;
  return tslSave(path.c_str(), &pic, &p);
}

inline int Save(const std::string &path, const TslPicture &pic, const TslParams &p) {
  return tslSave(path.c_str(), &pic, &p);
}

inline int Load(const std::string &path, TslPicture *pic, int page = 0, unsigned flags = 0, int format = -1) {
  TslParams p = Params();
  p.page = page;
  p.flags = flags;
  p.format = format;
  return tslLoad(path.c_str(), pic, &p);
}

// Writes `bytes` to a file of `dir` and loads it (format detected unless given).
inline Pic LoadBytes(const TempDir &dir, const std::string &bytes, int *code, int format = -1, int page = 0,
                     const std::string &name = "made.bin") {
  WriteFile(dir.file(name), bytes);
  Pic pic;
  *code = Load(dir.file(name), &pic, page, 0, format);
  return pic;
}

// A picture decoded by ImageMagick ("convert file ppm:-"), or by another
// tool of the same command line (GraphicsMagick's "gm convert"), as RGB.
inline bool DecodeWithConvert(const TempDir &dir, const std::string &file, TslPicture *out,
                              const std::string &tool = "convert", const std::string &options = "") {
  const std::string ppm = dir.file("independent.ppm");
  if (Run(tool + " '" + file + "' " + options + " -depth 8 ppm:'" + ppm + "'") != 0) return false;
  return ReadPnm(ppm, out);
}

// Loads what `cmd` (ImageMagick, netpbm, ...) writes as a PNM on its standard
// output; the tool's messages are dropped.
inline bool ToolPnm(const std::string &cmd, const TempDir &dir, TslPicture *out) {
  const std::string pnm = dir.file("tool_out.pnm");
  if (Run("{ { " + cmd + " ; } 2>/dev/null ; } > '" + pnm + "'") != 0) return false;
  return ReadPnm(pnm, out);
}

// Runs a shell command with its messages dropped; returns its exit status.
inline int Sh(const std::string &cmd) { return Run("{ { " + cmd + " ; } 2>/dev/null ; }"); }

// Runs a command template in which SRC and OUT stand for the quoted paths.
inline int RunWith(std::string cmd, const std::string &src, const std::string &out) {
  for (size_t at; (at = cmd.find("SRC")) != std::string::npos;) cmd.replace(at, 3, "'" + src + "'");
  for (size_t at; (at = cmd.find("OUT")) != std::string::npos;) cmd.replace(at, 3, "'" + out + "'");
  return Sh(cmd);
}

// A file of another program, from `command` (SRC: a PPM of `src`, OUT: the
// file), loads as `model` (unless -1) with the colours the reference decoder
// (ImageMagick, or `reference` with -auto-orient style options) sees in it.
inline void ExpectToolFileMatches(const TempDir &dir, const TslPicture &src, const std::string &command,
                                  const std::string &out_name, int model, int tolerance = 0,
                                  const std::string &options = "") {
  SCOPED_TRACE(command);
  const std::string ppm = dir.file("src.ppm"), out = dir.file(out_name);
  WritePpm(ppm, src);
  ASSERT_EQ(RunWith(command, ppm, out), 0);
  Pic ours, theirs;
  ASSERT_EQ(Load(out, &ours), TSL_OK);
  if (model >= 0) {
    EXPECT_EQ(ours->color_model, model);
  }
  ASSERT_TRUE(DecodeWithConvert(dir, out, &theirs, "convert", options));
  EXPECT_TRUE(SameColors(ours, theirs, tolerance));
}

// A copy of a file cut after `length` bytes fails with a read or corruption
// error (a bad-file error is accepted for cuts inside the header), and with
// TSL_FLAG_KEEP_DAMAGED loads at the full size when the header is complete.
// Rows first .. first + rows - 1 of the kept picture equal the full decode's.
inline void ExpectCutHandled(const TempDir &dir, const std::string &file, size_t length, int format = -1,
                             size_t header = 0, uint32_t first = 0, uint32_t rows = 0) {
  SCOPED_TRACE("cut at " + std::to_string(length));
  const std::string cut = dir.file("cut");
  WriteFile(cut, ReadFile(file).substr(0, length));
  Pic pic, full, kept;
  const int code = Load(cut, &pic, 0, 0, format);
  EXPECT_TRUE(code == TSL_ERR_READ || code == TSL_ERR_CORRUPT || (length < header && code == TSL_ERR_BAD_FILE))
      << code;
  EXPECT_EQ(pic->pixels, nullptr);
  if (length < header) return;
  ASSERT_EQ(Load(file, &full, 0, 0, format), TSL_OK);
  ASSERT_EQ(Load(cut, &kept, 0, TSL_FLAG_KEEP_DAMAGED, format), TSL_OK);
  EXPECT_EQ(kept->width, full->width);
  EXPECT_EQ(kept->height, full->height);
  for (uint32_t y = first; y < first + rows && y < full->height; ++y)
    EXPECT_EQ(std::memcmp(kept->pixels + y * kept->bytes_per_line, full->pixels + y * full->bytes_per_line,
                          full->bytes_per_line), 0) << "row " << y;
}

// Cuts a valid file at several lengths, from inside the header (`header`
// bytes) to inside the last row (`trailer` bytes follow the pixel data).
inline void CheckTruncations(const TempDir &dir, const std::string &file, int format, size_t header,
                             size_t trailer = 0) {
  const size_t size = ReadFile(file).size();
  ASSERT_GT(size, header + trailer + 3);
  for (size_t len : {size_t(1), header / 2, header + 1, (header + size) / 2, size - trailer - 3})
    if (len > 0) ExpectCutHandled(dir, file, len, format, header + 1);
}

// The caller's pixel limit refuses a picture of `pixels` pixels one short of
// it; a load reports strictly rising progress up to 100, and a progress
// answer asking to stop at `stop_at` percent stops the load, leaving nothing.
inline void ExpectLimitAndStop(const std::string &file, uint64_t pixels, int stop_at = 50) {
  Pic pic;
  TslParams p = Params();
  p.max_pixels = pixels - 1;
  EXPECT_EQ(tslLoad(file.c_str(), &pic, &p), TSL_ERR_MEMORY);
  EXPECT_EQ(pic->pixels, nullptr);
  struct Calls {
    std::vector<int> seen;
    int stop_at;
  } calls{{}, 101};
  p = Params();
  p.progress_data = &calls;
  p.progress = [](int what, int value, void *data) {
    auto *c = static_cast<Calls *>(data);
    if (what == 0) c->seen.push_back(value);
    return what == 0 && value >= c->stop_at ? 1 : 0;
  };
  ASSERT_EQ(tslLoad(file.c_str(), &pic, &p), TSL_OK);
  tslFree(&pic);
  ASSERT_FALSE(calls.seen.empty());
  EXPECT_EQ(calls.seen.back(), 100);
  for (size_t i = 1; i < calls.seen.size(); ++i) EXPECT_GT(calls.seen[i], calls.seen[i - 1]);
  calls = {{}, stop_at};
  EXPECT_EQ(tslLoad(file.c_str(), &pic, &p), TSL_STOPPED);
  EXPECT_EQ(pic->pixels, nullptr);
}

// Random damage anywhere (four bytes changed, 300 times over) never crashes
// a load of any of the first `pages` pages, with or without damaged files kept.
inline void LoadRandomlyDamaged(const TempDir &dir, const std::string &bytes, uint32_t seed, int pages = 1) {
  std::mt19937 rng(seed);
  for (int i = 0; i < 300; ++i) {
    std::string bad = bytes;
    for (int k = 0; k < 4; ++k) bad[rng() % bad.size()] = static_cast<char>(rng());
    WriteFile(dir.file("damaged"), bad);
    const int page = static_cast<int>(rng() % pages);
    const unsigned flags = rng() % 2 ? TSL_FLAG_KEEP_DAMAGED : 0;
    Pic any;
    Load(dir.file("damaged"), &any, page, flags);
  }
}

inline std::string Le16(unsigned v) { return std::string{char(v & 0xFF), char(v >> 8 & 0xFF)}; }
inline std::string Le32(uint32_t v) { return Le16(v & 0xFFFF) + Le16(v >> 16); }

}  // namespace testutil

#endif
