// The thumbnail cache: byte layout of both files, the slot and entry rules,
// and damaged files.
#include "browser/cache_db.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#include <zlib.h>

#include <cstring>
#include <random>

#include "test_util.h"

using namespace quilla;
using testutil::FileExists;
using testutil::ReadFile;
using testutil::WriteFile;

namespace {

// Big-endian bytes written by hand.
struct Bytes {
  std::string s;
  Bytes &u8(uint32_t v) { s.push_back(static_cast<char>(v)); return *this; }
  Bytes &u16(uint32_t v) { return u8(v >> 8).u8(v); }
  Bytes &u32(uint32_t v) { return u16(v >> 16).u16(v); }
  Bytes &str(const std::string &t) { s += t; s.push_back(0); return *this; }
  Bytes &raw(const std::string &t) { s += t; return *this; }
  Bytes &magic() { return raw(std::string("Quilla DB v1.05", 15)).u8(0); }
};

// A 2 x 1 RGB picture: red, then green.
TslPicture TwoPixels() {
  TslPicture p{};
  tslAllock(&p, TSL_RGB, 0, 2, 1);
  const uint8_t px[6] = {255, 0, 0, 0, 255, 0};
  std::memcpy(p.pixels, px, 6);
  p.attr_word = 0x1234;
  return p;
}

TslFileInfo PngInfo() {
  TslFileInfo i{};
  i.format = tslFormatGetIndex("png");
  i.width = 640;
  i.height = 480;
  i.bits_per_plane = 8;
  i.planes = 3;
  i.colors = 1 << 24;
  i.color_model = TSL_RGB;
  i.compression = TSL_COMP_DEFLATE;
  i.pages = 1;
  i.dpi_x = 72;
  i.dpi_y = 96;
  i.orientation = 6;
  i.has_alpha = 1;
  return i;
}

// The stored form of PngInfo(), written out by hand.
std::string PngInfoBytes() {
  return Bytes()
      .u32(1 << 24).u16(8).u16(3).u32(640)
      .u32(480).u16(TSL_RGB).u16(TSL_COMP_DEFLATE).u32(1)
      .u16(72).u16(96).u16(6)
      .u32(2)
      .u16(4).str("png")
      .u16(14).str("Deflate (ZIP)")
      .s;
}

// An entry record of a 2 x 1 RGB thumbnail with the given payload.
std::string EntryBytes(const std::string &name, uint32_t size, uint32_t mtime, const std::string &payload) {
  const std::string info = PngInfoBytes();
  const uint32_t length = static_cast<uint32_t>(18 + info.size() + 4 + payload.size());
  return Bytes()
      .u16(static_cast<uint32_t>(name.size() + 1)).str(name)
      .u32(size).u32(mtime).u32(length)
      .u32(2).u32(1).u32(6).u16(TSL_RGB).u16(3).u16(0x1234)
      .raw(info)
      .u32(static_cast<uint32_t>(payload.size())).raw(payload)
      .s;
}

std::string DatabaseHeader(uint32_t count, int mode, int w, int h) {
  return Bytes().magic().u32(count).u16(mode).u16(w).u16(h).s;
}

std::string Slot(const std::string &path, bool in_use) {
  std::string s = path;
  s.resize(4096, '\0');
  s.push_back(in_use ? 1 : 0);
  return s;
}

std::string IndexBytes(const std::vector<std::string> &slots) {
  Bytes b;
  b.magic().u32(static_cast<uint32_t>(slots.size()));
  for (const std::string &s : slots) b.raw(s);
  return b.s;
}

const std::string kRawPixels("\xff\x00\x00\x00\xff\x00", 6);

class CacheTest : public ::testing::Test {
 protected:
  testutil::TempDir tmp;
  std::string root = tmp.path() + "/home/.quilla/cache/";
  std::string dir = tmp.path() + "/pics/";

  void SetUp() override {
    ::mkdir((tmp.path() + "/home").c_str(), 0755);
    ::mkdir(dir.c_str(), 0755);
  }
  // A cache configured and opened on `directory`.
  void Begin(ThumbCache &c, int mode = kCacheRaw, int w = 92, int h = 69, const std::string &directory = "") {
    c.configure(true, mode);
    c.setThumbnailSize(w, h);
    c.open(false);
    c.setDirectory(directory.empty() ? dir : directory);
  }
  bool Store(ThumbCache &c, const char *name, uint32_t mtime = 1000, uint32_t size = 50) {
    testutil::Pic pic(TwoPixels());
    return c.store(name, mtime, size, pic, PngInfo());
  }
  bool Has(ThumbCache &c, const char *name, uint32_t mtime = 1000, uint32_t size = 50) {
    testutil::Pic pic;
    TslFileInfo info;
    return c.lookup(name, mtime, size, &pic, &info);
  }
};

}  // namespace

TEST_F(CacheTest, FilesAreLaidOutByteForByte) {
  {
    ThumbCache c(root);
    Begin(c, kCacheRaw, 92, 69);
    EXPECT_FALSE(FileExists(root + "0.db"));  // pending until the first store
    ASSERT_TRUE(Store(c, "a.png", 1000, 50));
    ASSERT_TRUE(Store(c, "bb.png", 2000, 60));
    // Before the close the header still counts nothing.
    EXPECT_EQ(ReadFile(root + "0.db").substr(0, 26), DatabaseHeader(0, kCacheRaw, 92, 69));
    c.close();
  }
  EXPECT_EQ(ReadFile(root + "0.db"), DatabaseHeader(2, kCacheRaw, 92, 69) + EntryBytes("a.png", 50, 1000, kRawPixels) +
                                         EntryBytes("bb.png", 60, 2000, kRawPixels));
  EXPECT_EQ(ReadFile(root + "cache.db"), IndexBytes({Slot(dir, true)}));
}

TEST_F(CacheTest, ReadsHandBuiltFilesOfEveryMode) {
  ::mkdir((tmp.path() + "/home/.quilla").c_str(), 0755);
  ::mkdir(root.c_str(), 0755);
  // Slot 0 is free, slot 1 holds the directory, with a zlib payload made here.
  uLongf len = compressBound(6);
  std::string zipped(len, '\0');
  ASSERT_EQ(compress2(reinterpret_cast<Bytef *>(&zipped[0]), &len, reinterpret_cast<const Bytef *>(kRawPixels.data()),
                      6, Z_DEFAULT_COMPRESSION),
            Z_OK);
  zipped.resize(len);
  WriteFile(root + "cache.db", IndexBytes({Slot("/elsewhere/", false), Slot(dir, true)}));
  WriteFile(root + "1.db", DatabaseHeader(1, kCacheZip, 40, 30) + EntryBytes("z.png", 9, 8, zipped));
  ThumbCache c(root);
  Begin(c, kCacheZip, 40, 30);
  EXPECT_EQ(c.currentSlot(), 1);
  testutil::Pic pic;
  TslFileInfo info;
  ASSERT_TRUE(c.lookup("z.png", 8, 9, &pic, &info));
  EXPECT_EQ(pic->width, 2u);
  EXPECT_EQ(pic->height, 1u);
  EXPECT_EQ(pic->color_model, TSL_RGB);
  EXPECT_EQ(pic->attr_word, 0x1234);
  EXPECT_EQ(pic->transparent_index, -1);
  EXPECT_EQ(std::string(reinterpret_cast<char *>(pic->pixels), 6), kRawPixels);
  EXPECT_EQ(info.format, tslFormatGetIndex("png"));
  EXPECT_EQ(info.width, 640u);
  EXPECT_EQ(info.height, 480u);
  EXPECT_EQ(info.bits_per_plane, 8);
  EXPECT_EQ(info.planes, 3);
  EXPECT_EQ(info.orientation, 6);
  EXPECT_EQ(info.dpi_y, 96);
  EXPECT_EQ(info.has_alpha, 1);
  EXPECT_EQ(info.comment, nullptr);
  // Wrong time or size: a miss.
  EXPECT_FALSE(Has(c, "z.png", 9, 9));
  EXPECT_FALSE(Has(c, "z.png", 8, 10));
}

TEST_F(CacheTest, JpegModesStoreBaselineOfTheirQuality) {
  testutil::Pic photo(testutil::MakePicture(TSL_RGB, 92, 69, 7));
  testutil::Pic grey(testutil::MakePicture(TSL_GREY, 64, 48, 3));
  std::vector<uint8_t> payload[2];
  for (int mode : {kCacheJpegLow, kCacheJpegHigh}) {
    CacheRows rows{photo->width, photo->height, photo->bytes_per_line, 3};
    ASSERT_TRUE(EncodeCachePayload(mode, rows, photo->pixels, &payload[mode - 2]));
    const std::vector<uint8_t> &p = payload[mode - 2];
    // Baseline: an SOF0 marker and no SOF2.
    bool sof0 = false, sof2 = false;
    for (size_t k = 0; k + 1 < p.size(); ++k) {
      sof0 |= p[k] == 0xFF && p[k + 1] == 0xC0;
      sof2 |= p[k] == 0xFF && p[k + 1] == 0xC2;
    }
    EXPECT_TRUE(sof0 && !sof2);
    std::vector<uint8_t> back(static_cast<size_t>(rows.height) * rows.stride);
    ASSERT_TRUE(DecodeCachePayload(mode, rows, p.data(), p.size(), back.data()));
    testutil::Pic out;
    tslAllock(&out, TSL_RGB, 0, rows.width, rows.height);
    std::memcpy(out->pixels, back.data(), back.size());
    EXPECT_LT(testutil::MeanAbsDiff(photo, out), mode == kCacheJpegLow ? 12.0 : 8.0);
    // A stream cut short still decodes (the end is supplied).
    ASSERT_TRUE(DecodeCachePayload(mode, rows, p.data(), p.size() * 2 / 3, back.data()));
  }
  // Quality 75 spends more bytes than quality 50.
  EXPECT_GT(payload[1].size(), payload[0].size());

  // Through the database: grey stays grey.
  ThumbCache c(root);
  Begin(c, kCacheJpegHigh, 64, 48);
  ASSERT_TRUE(c.store("g.pgm", 1, 2, grey, PngInfo()));
  c.setDirectory(dir);  // reopened: reads the entries back
  testutil::Pic g;
  TslFileInfo info;
  ASSERT_TRUE(c.lookup("g.pgm", 1, 2, &g, &info));
  EXPECT_EQ(g->color_model, TSL_GREY);
  EXPECT_LT(testutil::MeanAbsDiff(grey, g), 8.0);
  c.close();
}

TEST_F(CacheTest, OtherModelsAreStoredAsGreyOrRgb) {
  ThumbCache c(root);
  Begin(c, kCacheRaw, 16, 16);
  testutil::Pic pal(testutil::MakePicture(TSL_INDEXED, 16, 16, 5, 16));
  testutil::Pic bits(testutil::MakePicture(TSL_BINARY, 13, 5, 2));
  testutil::Pic bgra(testutil::MakePicture(TSL_BGRA, 7, 3, 9));
  ASSERT_TRUE(c.store("p.gif", 1, 2, pal, PngInfo()));
  ASSERT_TRUE(c.store("b.pbm", 1, 2, bits, PngInfo()));
  ASSERT_TRUE(c.store("a.tga", 1, 2, bgra, PngInfo()));
  c.setDirectory(dir);
  testutil::Pic p, b, a;
  TslFileInfo info;
  ASSERT_TRUE(c.lookup("p.gif", 1, 2, &p, &info));
  ASSERT_TRUE(c.lookup("b.pbm", 1, 2, &b, &info));
  ASSERT_TRUE(c.lookup("a.tga", 1, 2, &a, &info));
  EXPECT_EQ(p->color_model, TSL_RGB);
  EXPECT_TRUE(testutil::SameColors(pal, p));
  EXPECT_EQ(b->color_model, TSL_GREY);
  EXPECT_TRUE(testutil::SameColors(bits, b));
  EXPECT_EQ(a->color_model, TSL_RGB);
  EXPECT_TRUE(testutil::SameColors(bgra, a));
  c.close();
}

TEST_F(CacheTest, NestingPendingAndSlotReuse) {
  ThumbCache c(root);
  c.configure(true, kCacheZip);
  c.open(false);
  c.open(false);
  // A directory without thumbnails never gets a slot or a file.
  c.setDirectory(tmp.path() + "/empty/");
  EXPECT_TRUE(c.hasPending());
  for (int k = 0; k < 5; ++k) {
    c.setDirectory(dir + std::to_string(k) + "/");
    ASSERT_TRUE(Store(c, "x.png"));
  }
  EXPECT_EQ(c.slotCount(), 5);
  c.close();
  EXPECT_FALSE(FileExists(root + "cache.db"));  // only the outermost close writes
  c.close();
  ASSERT_TRUE(FileExists(root + "cache.db"));
  EXPECT_EQ(ReadFile(root + "cache.db").size(), 20u + 5 * 4097);

  c.open(false);
  EXPECT_EQ(c.nthInUse(3), 3);
  c.deleteSlot(3);
  EXPECT_FALSE(FileExists(root + "3.db"));
  EXPECT_EQ(c.nthInUse(3), 4);
  c.setDirectory(dir + "new/");
  ASSERT_TRUE(Store(c, "y.png"));
  EXPECT_EQ(c.currentSlot(), 3);
  EXPECT_TRUE(FileExists(root + "3.db"));
  c.setDirectory(dir + "4/");
  EXPECT_TRUE(Has(c, "x.png"));
  c.close();
  const std::string index = ReadFile(root + "cache.db");
  EXPECT_EQ(index.substr(20 + 3 * 4097, 4097), Slot(dir + "new/", true));
  EXPECT_EQ(c.nthInUse(0), -1);  // closed: nothing held
}

TEST_F(CacheTest, CachingOffUnlessForced) {
  ThumbCache c(root);
  c.configure(false, kCacheRaw);
  c.open(false);
  EXPECT_FALSE(c.isOpen());
  c.setDirectory(dir);
  EXPECT_FALSE(Store(c, "a.png"));
  c.close();
  EXPECT_FALSE(FileExists(root));
  c.open(true);
  EXPECT_TRUE(c.isOpen());
  EXPECT_TRUE(FileExists(root));  // made with its parent
  c.close();
}

TEST_F(CacheTest, SizeOrModeChangeWipesOnNextOpen) {
  {
    ThumbCache c(root);
    Begin(c, kCacheRaw, 92, 69);
    ASSERT_TRUE(Store(c, "a.png"));
    c.close();
  }
  {
    // Another size: the database is deleted and started empty.
    ThumbCache c(root);
    Begin(c, kCacheRaw, 64, 64);
    EXPECT_FALSE(Has(c, "a.png"));
    EXPECT_EQ(ReadFile(root + "0.db"), DatabaseHeader(0, kCacheRaw, 64, 64));
    ASSERT_TRUE(Store(c, "a.png"));
    EXPECT_TRUE(Has(c, "a.png"));
    // A size change while the directory is open reopens and wipes it too.
    c.setThumbnailSize(32, 32);
    EXPECT_FALSE(Has(c, "a.png"));
    EXPECT_EQ(ReadFile(root + "0.db"), DatabaseHeader(0, kCacheRaw, 32, 32));
    c.close();
  }
  {
    ThumbCache c(root);
    Begin(c, kCacheRaw, 32, 32);
    ASSERT_TRUE(Store(c, "a.png"));
    // A mode change while the directory is open: the same.
    c.configure(true, kCacheZip);
    EXPECT_FALSE(Has(c, "a.png"));
    EXPECT_EQ(ReadFile(root + "0.db"), DatabaseHeader(0, kCacheZip, 32, 32));
    ASSERT_TRUE(Store(c, "a.png"));
    c.close();
  }
  {
    ThumbCache c(root);
    Begin(c, kCacheJpegLow, 32, 32);
    EXPECT_EQ(ReadFile(root + "0.db"), DatabaseHeader(0, kCacheJpegLow, 32, 32));
    c.close();
  }
}

TEST_F(CacheTest, ChangedFilesMissAndCompactionDropsStaleEntries) {
  for (const char *n : {"keep.png", "change.png", "gone.png"}) WriteFile(dir + n, "12345");
  struct stat st;
  ASSERT_EQ(::stat((dir + "keep.png").c_str(), &st), 0);
  const uint32_t t = static_cast<uint32_t>(st.st_mtime);
  ThumbCache c(root);
  Begin(c, kCacheZip);
  for (const char *n : {"keep.png", "change.png", "gone.png"}) ASSERT_TRUE(Store(c, n, t, 5));
  // The changed file misses and is stored again; the stale entry stays.
  WriteFile(dir + "change.png", "123456");
  ASSERT_EQ(::stat((dir + "change.png").c_str(), &st), 0);
  EXPECT_FALSE(Has(c, "change.png", static_cast<uint32_t>(st.st_mtime), 6));
  ASSERT_TRUE(Store(c, "change.png", static_cast<uint32_t>(st.st_mtime), 6));
  ::unlink((dir + "gone.png").c_str());
  c.setDirectory(dir);
  EXPECT_TRUE(Has(c, "change.png", t, 5));  // stale, until a compaction
  const size_t before = ReadFile(root + "0.db").size();

  c.compactAll();
  EXPECT_FALSE(FileExists(root + "tmp.db"));
  const std::string after = ReadFile(root + "0.db");
  EXPECT_LT(after.size(), before);
  EXPECT_EQ(after.substr(16, 4), Bytes().u32(2).s);
  c.setDirectory(dir);
  EXPECT_TRUE(Has(c, "keep.png", t, 5));
  EXPECT_TRUE(Has(c, "change.png", static_cast<uint32_t>(st.st_mtime), 6));
  EXPECT_FALSE(Has(c, "change.png", t, 5));
  EXPECT_FALSE(Has(c, "gone.png", t, 5));
  c.close();
}

TEST_F(CacheTest, LongNamesAreCutAndNoLongerMatch) {
  const std::string longname(5000, 'n');
  const std::string limit(4095, 'm');
  ThumbCache c(root);
  Begin(c);
  ASSERT_TRUE(Store(c, longname.c_str()));
  ASSERT_TRUE(Store(c, limit.c_str()));
  ASSERT_TRUE(Store(c, "after.png"));
  c.setDirectory(dir);
  EXPECT_FALSE(Has(c, longname.c_str()));
  EXPECT_TRUE(Has(c, limit.c_str()));
  EXPECT_TRUE(Has(c, "after.png"));  // the long record was skipped whole
  c.close();
}

TEST_F(CacheTest, ForeignIndexIsIgnoredThenOverwritten) {
  ::mkdir((tmp.path() + "/home/.quilla").c_str(), 0755);
  ::mkdir(root.c_str(), 0755);
  std::string old = IndexBytes({Slot(dir, true)});
  old[14] = '4';  // "Quilla DB v1.04"
  WriteFile(root + "cache.db", old);
  WriteFile(root + "0.db", DatabaseHeader(1, kCacheRaw, 92, 69) + EntryBytes("a.png", 50, 1000, kRawPixels));
  ThumbCache c(root);
  Begin(c);
  EXPECT_EQ(c.slotCount(), 0);
  EXPECT_TRUE(c.hasPending());
  c.close();
  EXPECT_EQ(ReadFile(root + "cache.db"), old);  // no slot: not rewritten
  c.open(false);
  c.setDirectory(dir);
  ASSERT_TRUE(Store(c, "b.png"));
  c.close();
  EXPECT_EQ(ReadFile(root + "cache.db"), IndexBytes({Slot(dir, true)}));
  // Slot 0 reused the old file, which had the right header: both entries.
  c.open(false);
  c.setDirectory(dir);
  EXPECT_TRUE(Has(c, "a.png"));
  EXPECT_TRUE(Has(c, "b.png"));
  c.close();
}

TEST_F(CacheTest, UncountedAndDamagedTailsAreCutOff) {
  ThumbCache c(root);
  Begin(c);
  ASSERT_TRUE(Store(c, "a.png"));
  c.setDirectory(dir);  // header counts a.png
  ASSERT_TRUE(Store(c, "b.png"));
  // A crash now: b.png is behind the count.  Simulate by copying the file.
  const std::string crashed = ReadFile(root + "0.db");
  c.close();
  WriteFile(root + "0.db", crashed + std::string("\x00\x07partial", 9));
  c.open(false);
  c.setDirectory(dir);
  EXPECT_TRUE(Has(c, "a.png"));
  EXPECT_FALSE(Has(c, "b.png"));
  ASSERT_TRUE(Store(c, "c.png"));
  c.close();
  EXPECT_EQ(ReadFile(root + "0.db"), DatabaseHeader(2, kCacheRaw, 92, 69) + EntryBytes("a.png", 50, 1000, kRawPixels) +
                                         EntryBytes("c.png", 50, 1000, kRawPixels));

  // A record length of 0xFFFFFFFF cannot be skipped: it ends the database.
  std::string b = EntryBytes("b.png", 50, 1000, kRawPixels);
  b.replace(2 + 6 + 8, 4, "\xff\xff\xff\xff");
  WriteFile(root + "0.db", DatabaseHeader(3, kCacheRaw, 92, 69) + EntryBytes("a.png", 50, 1000, kRawPixels) + b +
                               EntryBytes("c.png", 50, 1000, kRawPixels));
  c.open(false);
  c.setDirectory(dir);
  EXPECT_TRUE(Has(c, "a.png"));
  EXPECT_FALSE(Has(c, "b.png"));
  EXPECT_FALSE(Has(c, "c.png"));
  c.close();
  EXPECT_EQ(ReadFile(root + "0.db"), DatabaseHeader(1, kCacheRaw, 92, 69) + EntryBytes("a.png", 50, 1000, kRawPixels));
}

TEST_F(CacheTest, ListingRowsAndActions) {
  ThumbCache c(root);
  Begin(c, kCacheRaw, 92, 69, "/short/");
  ASSERT_TRUE(Store(c, "a.png"));
  ASSERT_TRUE(Store(c, "b.png"));
  c.setDirectory("/a/very/long/directory/path/that/goes/on/");
  ASSERT_TRUE(Store(c, "c.png"));
  c.close();
  ::unlink((root + "1.db").c_str());
  std::vector<std::string> rows = c.listRows();
  ASSERT_EQ(rows.size(), 2u);
  const std::string size0 = std::to_string(ReadFile(root + "0.db").size());
  EXPECT_EQ(rows[0], "/short/" + std::string(31 + 4 + 5, ' ') + "2    " + size0);
  // The count query made an empty file for the slot that lost its own.
  const std::string longdir = "/a/very/long/directory/path/that/goes/on/";
  EXPECT_EQ(rows[1], "..." + longdir.substr(longdir.size() - 27) + std::string(8 + 4 + 5, ' ') + "0    0");
  EXPECT_TRUE(FileExists(root + "1.db"));

  c.deleteRows({1});
  rows = c.listRows();
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0].substr(0, 3), "...");
  EXPECT_FALSE(FileExists(root + "0.db"));
  c.deleteAll();
  EXPECT_TRUE(c.listRows().empty());
  EXPECT_FALSE(FileExists(root + "1.db"));
  c.clean();  // nothing to do, nothing breaks
}

TEST_F(CacheTest, DamagedFilesNeverCrash) {
  // A good database and index, then many damaged copies of each: every
  // open and look-up must end quietly.
  {
    ThumbCache c(root);
    Begin(c, kCacheZip);
    for (int k = 0; k < 6; ++k) ASSERT_TRUE(Store(c, ("f" + std::to_string(k)).c_str()));
    c.close();
  }
  const std::string db = ReadFile(root + "0.db"), index = ReadFile(root + "cache.db");
  std::mt19937 rng(11);
  for (int round = 0; round < 300; ++round) {
    std::string d = db, i = index;
    if (round % 3 == 0) d.resize(rng() % d.size());
    else
      for (int f = 0; f < 1 + round % 8; ++f) d[rng() % d.size()] ^= static_cast<char>(1 << (rng() % 8));
    if (round % 5 == 0) i.resize(rng() % i.size());
    if (round % 7 == 0) i[16 + rng() % 4] = '\xff';  // absurd slot count
    WriteFile(root + "0.db", d);
    WriteFile(root + "cache.db", i);
    ThumbCache c(root);
    Begin(c, kCacheZip);
    for (int k = 0; k < 6; ++k) Has(c, ("f" + std::to_string(k)).c_str());
    Store(c, "new");
    c.listRows();
    c.close();
  }
}
