// The thumbnail loop: what each view mode reads, the known-extension switch,
// the cache, the orientation, and the decode-ahead threads giving exactly
// the one-thread results.
#include "browser/thumb_queue.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <map>

#include "test_util.h"

using namespace quilla;
using testutil::Pic;

namespace {

void Save(const TslPicture &pic, const std::string &path, const char *format) {
  TslParams params;
  tslDefaultParams(&params);
  params.format = tslFormatGetIndex(format);
  ASSERT_EQ(tslSave(path.c_str(), &pic, &params), TSL_OK) << path;
}

// A directory of pictures of several formats, a subdirectory, a damaged
// file and a text file.
struct Folder {
  testutil::TempDir tmp;
  std::string path = tmp.path() + "/";
  Folder() {
    Pic rgb(testutil::MakePicture(TSL_RGB, 300, 200, 1));
    Pic grey(testutil::MakePicture(TSL_GREY, 90, 120, 2));
    Pic pal(testutil::MakePicture(TSL_INDEXED, 64, 64, 3, 32));
    Save(rgb, path + "a.jpg", "jpeg");
    Save(rgb, path + "b.png", "png");
    Save(grey, path + "c.pgm", "pgm");
    Save(pal, path + "d.gif", "gif");
    Save(rgb, path + "e.tif", "tiff");
    Save(pal, path + "f.bmp", "bmp");
    Save(grey, path + "g.png", "png");
    ::mkdir((path + "sub").c_str(), 0755);
    testutil::WriteFile(path + "notes.txt", "not a picture");
    testutil::WriteFile(path + "broken.png", "\x89PNG\r\n\x1a\n trailing");
  }
};

// Runs a loop to its end; the steps' pictures by entry name.
std::map<std::string, Pic> RunAll(ThumbLoop &loop, FileList &list, const ThumbSettings &s,
                                  std::vector<ThumbStep> *steps = nullptr) {
  std::map<std::string, Pic> out;
  loop.start(s);
  for (int guard = 0; guard < 10000; ++guard) {
    ThumbStep step = loop.step();
    if (step.finished) {
      if (steps) steps->push_back(std::move(step));
      break;
    }
    if (step.hasPicture()) out[list.at(step.position).name] = Pic(step.take());
    if (steps) steps->push_back(std::move(step));
  }
  return out;
}

}  // namespace

TEST(ThumbLoop, ColumnViewReadsNothingAndDirectoriesAreSkipped) {
  Folder f;
  FileList list;
  ASSERT_TRUE(list.read(f.path));
  list.sort(kSortName);
  ThumbLoop loop(&list, nullptr, 0);
  ThumbSettings s;
  s.view_mode = kViewColumns;
  std::vector<ThumbStep> steps;
  RunAll(loop, list, s, &steps);
  // ".." and "sub" lead: both skipped; the first file ends the loop unread.
  ASSERT_EQ(steps.size(), 3u);
  EXPECT_EQ(steps[0].progress, "Processing: 9%");  // 1 of 11
  EXPECT_TRUE(steps[2].finished);
  EXPECT_FALSE(loop.running());
  for (const FileEntry &e : list.entries()) {
    EXPECT_EQ(e.state, e.isDirectory() ? kStateSkipped : 0u) << e.name;
  }
}

TEST(ThumbLoop, ListViewReadsInformationOnly) {
  Folder f;
  FileList list;
  ASSERT_TRUE(list.read(f.path));
  list.sort(kSortName);
  ThumbLoop loop(&list, nullptr, 0);
  ThumbSettings s;
  s.view_mode = kViewList;
  std::vector<ThumbStep> steps;
  EXPECT_TRUE(RunAll(loop, list, s, &steps).empty());
  ASSERT_EQ(steps.size(), 12u);  // eleven entries and the end
  EXPECT_EQ(steps[10].progress, "Processing: 100%");
  for (const FileEntry &e : list.entries()) {
    const std::string n = e.name;
    if (e.isDirectory()) continue;
    if (n == "notes.txt" || n == "broken.png") {
      EXPECT_EQ(e.state, kStateUnreadable) << n;
    } else {
      EXPECT_EQ(e.state, kStateKnown) << n;
      EXPECT_GT(e.info.width, 0u) << n;
    }
  }
  const FileEntry *a = nullptr;
  for (const FileEntry &e : list.entries())
    if (std::strcmp(e.name, "a.jpg") == 0) a = &e;
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(a->info.width, 300u);
  EXPECT_EQ(a->info.height, 200u);
  EXPECT_STREQ(tslFormatGetName(a->info.format), "jpeg");
}

TEST(ThumbLoop, IconSizesUnknownExtensionsAndResortByType) {
  Folder f;
  Pic rgb(testutil::MakePicture(TSL_RGB, 40, 30, 4));
  Save(rgb, f.path + "png_named.zzz", "png");
  FileList list;
  ASSERT_TRUE(list.read(f.path));
  list.sort(kSortType);
  ThumbLoop loop(&list, nullptr, 0);
  ThumbSettings s;
  s.view_mode = kViewSmallIcons;
  s.sort_setting = kSortType;
  std::vector<ThumbStep> steps;
  auto pics = RunAll(loop, list, s, &steps);
  ASSERT_EQ(pics.count("a.jpg"), 1u);
  EXPECT_EQ(pics["a.jpg"]->width, 16u);
  EXPECT_EQ(pics["a.jpg"]->height, 10u);
  EXPECT_EQ(pics["c.pgm"]->width, 12u);
  EXPECT_EQ(pics["c.pgm"]->height, 16u);
  EXPECT_EQ(pics.count("png_named.zzz"), 1u);  // found by its content
  ASSERT_TRUE(steps.back().finished);
  EXPECT_TRUE(steps.back().resorted);
  // Sorted by type again: known formats grouped, unknown files last.
  std::vector<std::string> formats;
  for (int k = 0; k < list.count(); ++k)
    if (!list.at(k).isDirectory()) formats.push_back(TypeText(list.at(k)));
  EXPECT_EQ(formats, (std::vector<std::string>{"bmp", "gif", "jpeg", "pgm", "png", "png", "png", "tiff", "Unknown",
                                               "Unknown"}));

  // With the switch on, the unknown extension is not opened.
  FileList again;
  ASSERT_TRUE(again.read(f.path));
  s.known_extensions_only = true;
  s.view_mode = kViewIcons;
  ThumbLoop loop2(&again, nullptr, 0);
  pics = RunAll(loop2, again, s);
  EXPECT_EQ(pics.count("png_named.zzz"), 0u);
  EXPECT_EQ(pics["a.jpg"]->width, 92u);
  EXPECT_EQ(pics["a.jpg"]->height, 61u);
  for (const FileEntry &e : again.entries())
    EXPECT_TRUE(std::strcmp(e.name, "png_named.zzz") != 0 || e.state == kStateUnreadable);
}

TEST(ThumbLoop, LargeIconsGoThroughTheCache) {
  Folder f;
  testutil::TempDir cache_dir;
  FileList list;
  ASSERT_TRUE(list.read(f.path));
  list.sort(kSortName);
  ThumbSettings s;
  std::map<std::string, Pic> first;
  for (int visit = 0; visit < 2; ++visit) {
    ThumbCache cache(cache_dir.path() + "/c/");
    cache.configure(true, kCacheZip);
    cache.setThumbnailSize(s.width, s.height);
    cache.open(false);
    cache.setDirectory(list.directory());
    for (FileEntry &e : list.entries()) e.state = 0;
    ThumbLoop loop(&list, &cache, visit ? 2 : 0);
    std::vector<ThumbStep> steps;
    auto pics = RunAll(loop, list, s, &steps);
    ASSERT_EQ(pics.size(), 7u);
    int cached = 0;
    for (const ThumbStep &st : steps) cached += st.from_cache;
    EXPECT_EQ(cached, visit ? 7 : 0);
    if (visit == 0) {
      first = std::move(pics);
    } else {
      // Palette pictures come back from the cache as RGB, with their colours.
      for (auto &kv : pics) EXPECT_TRUE(testutil::SameColors(kv.second, first[kv.first])) << kv.first;
    }
    cache.close();
  }
  // Small icons are never cached: no new entries.
  const std::string before = testutil::ReadFile(cache_dir.path() + "/c/0.db");
  ThumbCache cache(cache_dir.path() + "/c/");
  cache.open(false);
  cache.setDirectory(list.directory());
  for (FileEntry &e : list.entries()) e.state = 0;
  ThumbLoop loop(&list, &cache, 0);
  s.view_mode = kViewSmallIcons;
  EXPECT_EQ(RunAll(loop, list, s).size(), 7u);
  cache.close();
  EXPECT_EQ(testutil::ReadFile(cache_dir.path() + "/c/0.db"), before);
}

TEST(ThumbLoop, RestartSkipsDoneEntriesAndStopDropsWork) {
  Folder f;
  FileList list;
  ASSERT_TRUE(list.read(f.path));
  list.sort(kSortName);
  ThumbLoop loop(&list, nullptr, 2);
  ThumbSettings s;
  loop.start(s);
  for (int k = 0; k < 4; ++k) {
    ThumbStep st = loop.step();
    if (st.hasPicture()) list.at(st.position).large = Thumbnail{1, 1, 1};
  }
  loop.stop();
  EXPECT_TRUE(loop.step().finished);
  // The two done files are not loaded again.
  auto pics = RunAll(loop, list, s);
  EXPECT_EQ(pics.size(), 5u);
  EXPECT_EQ(pics.count("a.jpg") + pics.count("b.png"), 0u);
}

TEST(ThumbLoop, OrientationTurnsThePictureUpright) {
  testutil::TempDir dir;
  // 40 x 20, red on the left half, blue on the right.
  Pic pic;
  ASSERT_TRUE(tslAllock(&pic, TSL_RGB, 0, 40, 20));
  for (uint32_t y = 0; y < 20; ++y)
    for (uint32_t x = 0; x < 40; ++x) {
      uint8_t *p = pic->pixels + y * pic->bytes_per_line + x * 3;
      p[0] = x < 20 ? 255 : 0;
      p[2] = x < 20 ? 0 : 255;
    }
  const std::string plain = dir.file("plain.jpg");
  Save(pic, plain, "jpeg");
  // An EXIF block saying "turn 90 degrees clockwise", inserted after SOI.
  std::string tiff("MM\0*\0\0\0\x08\0\x01\x01\x12\0\x03\0\0\0\x01\0\x06\0\0\0\0\0\0", 26);
  std::string app1 = std::string("Exif\0\0", 6) + tiff;
  const size_t len = app1.size() + 2;
  std::string jpeg = testutil::ReadFile(plain);
  jpeg.insert(2, std::string("\xFF\xE1", 2) + char(len >> 8) + char(len & 0xFF) + app1);
  testutil::WriteFile(dir.file("turned.jpg"), jpeg);

  Pic thumb;
  TslFileInfo info;
  ASSERT_EQ(ThumbnailLoad(dir.file("turned.jpg").c_str(), &thumb, &info, 16, 16, false), TSL_OK);
  EXPECT_EQ(info.orientation, 6);
  EXPECT_EQ(info.width, 40u);
  // Upright: 8 x 16, red on top.
  ASSERT_EQ(thumb->width, 8u);
  ASSERT_EQ(thumb->height, 16u);
  EXPECT_GT(testutil::Px(thumb, 4, 2, 0), 200);
  EXPECT_LT(testutil::Px(thumb, 4, 2, 2), 60);
  EXPECT_GT(testutil::Px(thumb, 4, 13, 2), 200);
  tslFileInformationFree(&info);
  Pic flat;
  ASSERT_EQ(ThumbnailLoad(plain.c_str(), &flat, &info, 16, 16, false), TSL_OK);
  EXPECT_EQ(flat->width, 16u);
  EXPECT_EQ(flat->height, 8u);
  tslFileInformationFree(&info);
}

TEST(ThumbLoop, DecodeAheadGivesTheOneThreadResults) {
  testutil::TempDir dir;
  const char *formats[] = {"jpeg", "png", "tiff", "bmp", "gif", "webp", "jp2", "pcx", "tga", "ppm"};
  int n = 0;
  for (int k = 0; k < 40; ++k) {
    const char *fmt = formats[k % 10];
    const int model = std::strcmp(fmt, "gif") == 0 ? TSL_INDEXED
                      : k % 3 == 0 && std::strcmp(fmt, "webp") != 0 && std::strcmp(fmt, "ppm") != 0 ? TSL_GREY
                                                                      : TSL_RGB;
    Pic p(testutil::MakePicture(model, 120 + k * 7, 90 + k * 3, k));
    TslFormatInfo fi;
    tslFormatGetInfo(tslFormatGetIndex(fmt), &fi);
    Save(p, dir.file("p" + std::to_string(n++) + "." + fi.suffix), fmt);
  }
  FileList list;
  ASSERT_TRUE(list.read(dir.path()));
  list.sort(kSortSize | kSortReverse);
  ThumbSettings s;
  std::vector<std::map<std::string, Pic>> runs;
  for (int threads : {0, 1, 2, 4}) {
    for (FileEntry &e : list.entries()) e.state = 0;
    ThumbLoop loop(&list, nullptr, threads);
    std::vector<ThumbStep> steps;
    runs.push_back(RunAll(loop, list, s, &steps));
    ASSERT_EQ(runs.back().size(), 40u) << threads;
    // One entry per call, in display order.
    for (size_t k = 0; k + 1 < steps.size(); ++k) EXPECT_EQ(steps[k].position, static_cast<int>(k));
  }
  for (size_t r = 1; r < runs.size(); ++r)
    for (auto &kv : runs[0]) EXPECT_TRUE(testutil::SamePicture(kv.second, runs[r][kv.first])) << kv.first << " " << r;
}
