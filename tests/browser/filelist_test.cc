// The browser's file list: reading a directory, the sort rules, the texts
// and the quick refresh.
#include "browser/filelist.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>

#include "test_util.h"

using namespace quilla;

namespace {

FileEntry File(const char *name, uint32_t size = 0, int32_t mtime = 0) {
  FileEntry e;
  std::snprintf(e.name, sizeof e.name, "%s", name);
  e.size = size;
  e.mtime = mtime;
  return e;
}

FileEntry Dir(const char *name) {
  FileEntry e = File(name);
  e.kind = kEntryDirectory;
  return e;
}

// The names of a list in display order.
std::vector<std::string> Names(const FileList &list) {
  std::vector<std::string> out;
  for (int k = 0; k < list.count(); ++k) out.push_back(list.at(k).name);
  return out;
}

void SetTime(const std::string &path, time_t t) {
  struct timeval tv[2] = {{t, 0}, {t, 0}};
  ASSERT_EQ(::utimes(path.c_str(), tv), 0);
}

}  // namespace

TEST(FileListRead, KeepsDotDotAndHiddenDropsDotMarksKinds) {
  testutil::TempDir dir;
  testutil::WriteFile(dir.file("pic.jpg"), "12345");
  testutil::WriteFile(dir.file(".hidden"), "x");
  testutil::WriteFile(dir.file("secret"), "s");
  ::chmod(dir.file("secret").c_str(), 0);
  ::mkdir(dir.file("sub").c_str(), 0755);
  ASSERT_EQ(::symlink("sub", dir.file("linkdir").c_str()), 0);
  ASSERT_EQ(::symlink("pic.jpg", dir.file("linkfile").c_str()), 0);
  ASSERT_EQ(::symlink("nowhere", dir.file("dangling").c_str()), 0);

  std::map<std::string, std::string> desc = {{"pic.jpg", "a picture"}};
  FileList list;
  ASSERT_TRUE(list.read(dir.path(), [&](const char *name) -> const char * {
    auto it = desc.find(name);
    return it == desc.end() ? nullptr : it->second.c_str();
  }));
  EXPECT_EQ(list.directory(), dir.path() + "/");
  std::map<std::string, const FileEntry *> by;
  for (const FileEntry &e : list.entries()) by[e.name] = &e;
  EXPECT_EQ(by.count("."), 0u);
  ASSERT_EQ(by.count(".."), 1u);
  ASSERT_EQ(by.size(), 8u);
  EXPECT_TRUE(by[".."]->isDirectory());
  EXPECT_EQ(by["pic.jpg"]->size, 5u);
  EXPECT_TRUE(by["pic.jpg"]->has_description);
  EXPECT_EQ(by["pic.jpg"]->description, "a picture");
  EXPECT_FALSE(by[".hidden"]->has_description);
  EXPECT_EQ(by["sub"]->kind, kEntryDirectory);
  EXPECT_EQ(by["linkdir"]->kind, kEntryDirectory | kEntryLink);
  EXPECT_EQ(by["linkfile"]->kind, kEntryLink);
  EXPECT_EQ(by["dangling"]->kind & (kEntryLink | kEntryDirectory), kEntryLink);
  if (::geteuid() != 0) {
    EXPECT_TRUE(by["secret"]->kind & kEntryNoAccess);
  }
  EXPECT_FALSE(by["pic.jpg"]->kind & kEntryNoAccess);
  ::chmod(dir.file("secret").c_str(), 0644);

  // The directory's own order until sorted.
  for (int k = 0; k < list.count(); ++k) EXPECT_EQ(list.order()[k], k);
}

TEST(FileListRead, MissingDirectoryLeavesTheListing) {
  testutil::TempDir dir;
  testutil::WriteFile(dir.file("a"), "");
  FileList list;
  ASSERT_TRUE(list.read(dir.path() + "/"));
  const int before = list.count();
  EXPECT_FALSE(list.read(dir.file("missing")));
  EXPECT_EQ(list.count(), before);
  EXPECT_EQ(list.directory(), dir.path() + "/");
}

TEST(FileListSort, DotDotAndDirectoriesLeadInEveryDirection) {
  testutil::TempDir dir;
  for (const char *n : {"b.png", "a.gif", "c.jpg"}) testutil::WriteFile(dir.file(n), n);
  for (const char *n : {"zdir", "adir"}) ::mkdir(dir.file(n).c_str(), 0755);
  FileList list;
  ASSERT_TRUE(list.read(dir.path()));
  for (int key = kSortName; key <= kSortDescription; ++key) {
    list.sort(key | kSortReverse);
    std::vector<std::string> names = Names(list);
    ASSERT_EQ(names.size(), 6u);
    EXPECT_EQ(names[0], "..") << key;
    // Directories before files; ascending except under reverse name order.
    EXPECT_EQ(names[1] + names[2], key == kSortName ? "zdiradir" : "adirzdir") << key;
  }
  list.sort(kSortName | kSortReverse);
  EXPECT_EQ(Names(list), (std::vector<std::string>{"..", "zdir", "adir", "c.jpg", "b.png", "a.gif"}));
  list.sort(kSortExtension);
  EXPECT_EQ(Names(list), (std::vector<std::string>{"..", "adir", "zdir", "a.gif", "c.jpg", "b.png"}));
  // A key outside 1..6 gives back the directory's own order.
  list.sort(0);
  for (int k = 0; k < list.count(); ++k) EXPECT_EQ(list.order()[k], k);
}

TEST(FileListSort, ExtensionRule) {
  // No extension sorts before any extension, with -5000 / 5000.
  EXPECT_EQ(CompareEntries(File("README"), File("a.txt"), kSortExtension), -5000);
  EXPECT_EQ(CompareEntries(File("a.txt"), File("README"), kSortExtension), 5000);
  EXPECT_EQ(CompareEntries(File("a.txt"), File("README"), kSortExtension | kSortReverse), -5000);
  // A leading dot starts no extension; a trailing dot gives an empty one.
  EXPECT_EQ(CompareEntries(File(".profile"), File("a.c"), kSortExtension), -5000);
  EXPECT_EQ(CompareEntries(File("a."), File("README"), kSortExtension), 5000);
  EXPECT_LT(CompareEntries(File("z."), File("a.a"), kSortExtension), 0);
  // Without extensions the texts from the second character compare.
  EXPECT_LT(CompareEntries(File("zab"), File("ab"), kSortExtension), 0);
  EXPECT_LT(CompareEntries(File(".aaa"), File(".b"), kSortExtension), 0);
  // The last dot counts; a tie falls back to the whole names.
  EXPECT_LT(CompareEntries(File("x.tar.gz"), File("a.png"), kSortExtension), 0);
  EXPECT_LT(CompareEntries(File("a.jpg"), File("b.jpg"), kSortExtension), 0);
  EXPECT_GT(CompareEntries(File("a.jpg"), File("b.jpg"), kSortExtension | kSortReverse), 0);
}

TEST(FileListSort, DateSizeTypeDescriptionRules) {
  // Equal values fall back to names; sizes compare as signed 32-bit.
  EXPECT_LT(CompareEntries(File("a", 10), File("b", 10), kSortSize), 0);
  EXPECT_LT(CompareEntries(File("b", 5), File("a", 10), kSortSize), 0);
  EXPECT_LT(CompareEntries(File("a", 0x80000000u), File("b", 1), kSortSize), 0);
  EXPECT_LT(CompareEntries(File("z", 0, 100), File("a", 0, 200), kSortDate), 0);
  EXPECT_LT(CompareEntries(File("a", 0, 7), File("b", 0, 7), kSortDate), 0);
  EXPECT_GT(CompareEntries(File("a", 0, 7), File("b", 0, 7), kSortDate | kSortReverse), 0);

  FileEntry png = File("z.png"), jpeg = File("a.jpg"), unknown = File("b.xyz");
  png.state = jpeg.state = kStateKnown;
  png.info.format = tslFormatGetIndex("png");
  jpeg.info.format = tslFormatGetIndex("jpeg");
  EXPECT_LT(CompareEntries(png, unknown, kSortType), 0);
  EXPECT_GT(CompareEntries(png, unknown, kSortType | kSortReverse), 0);
  EXPECT_LT(CompareEntries(jpeg, png, kSortType), 0);  // "jpeg" < "png" whatever the names

  FileEntry a = File("a"), b = File("b"), none1 = File("c"), none2 = File("d");
  a.has_description = b.has_description = true;
  a.description = "zebra";
  b.description = "apple";
  EXPECT_GT(CompareEntries(a, b, kSortDescription), 0);
  EXPECT_LT(CompareEntries(a, b, kSortDescription | kSortReverse), 0);
  EXPECT_EQ(CompareEntries(none1, a, kSortDescription), 1);
  EXPECT_EQ(CompareEntries(a, none1, kSortDescription), -1);
  EXPECT_EQ(CompareEntries(none1, none2, kSortDescription), 1);
  EXPECT_EQ(CompareEntries(none2, none1, kSortDescription), 1);
  // Under any key ".." is smaller, and a directory before a file.
  EXPECT_EQ(CompareEntries(File(".."), Dir("a"), kSortName | kSortReverse), -1);
  EXPECT_EQ(CompareEntries(Dir("a"), File(".."), kSortName), 1);
  EXPECT_LT(CompareEntries(Dir("z"), File("a"), kSortSize | kSortReverse), 0);
}

TEST(FileListSort, ManyEntriesWithoutDescriptionsSortSafely) {
  // The description rule is no strict order; the sort must still end with a
  // permutation and put the described entries first.
  FileList list;
  testutil::TempDir dir;
  for (int k = 0; k < 300; ++k) testutil::WriteFile(dir.file("f" + std::to_string(k)), "");
  ASSERT_TRUE(list.read(dir.path(), [](const char *name) -> const char * {
    return std::atoi(name + 1) % 7 == 0 ? name : nullptr;
  }));
  list.sort(kSortDescription);
  std::vector<int> order = list.order();
  std::sort(order.begin(), order.end());
  for (int k = 0; k < list.count(); ++k) ASSERT_EQ(order[k], k);
  EXPECT_STREQ(list.at(0).name, "..");
  for (int k = 1; k <= 43; ++k) EXPECT_TRUE(list.at(k).has_description) << k;
  for (int k = 44; k < list.count(); ++k) EXPECT_FALSE(list.at(k).has_description) << k;
}

TEST(FileListText, SizesAndStatusLine) {
  EXPECT_EQ(SizeText(0), "0 bytes");
  EXPECT_EQ(SizeText(1023), "1023 bytes");
  EXPECT_EQ(SizeText(1024), "1.00 Kb");
  EXPECT_EQ(SizeText(1536), "1.50 Kb");
  EXPECT_EQ(SizeText(1048575), "1024.00 Kb");
  EXPECT_EQ(SizeText(1048576), "1.00 Mb");
  EXPECT_EQ(SizeText(1073741824), "1.00 Gb");
  EXPECT_EQ(SizeText(5ull << 40), "5120.00 Gb");

  DiskSpace space{3ull << 30, 512ull << 20};
  EXPECT_EQ(StatusText(12, 0, 0, &space), "12 object(s) [ Total: 3.00 Gb / Free: 512.00 Mb ]");
  // One selected file shows the disk totals, not the selection.
  EXPECT_EQ(StatusText(12, 1, 4096, &space), "12 object(s) [ Total: 3.00 Gb / Free: 512.00 Mb ]");
  EXPECT_EQ(StatusText(12, 2, 3000, &space), "12 object(s) / 2.93 Kb in 2 selected file(s)");
  EXPECT_EQ(StatusText(12, 0, 0, nullptr), "12 object(s)");

  testutil::TempDir dir;
  testutil::WriteFile(dir.file("a"), std::string(100, 'a'));
  testutil::WriteFile(dir.file("b"), std::string(200, 'b'));
  FileList list;
  ASSERT_TRUE(list.read(dir.path()));
  EXPECT_NE(StatusText(list).find("3 object(s) [ Total: "), std::string::npos);
  for (FileEntry &e : list.entries()) e.selected = e.name[0] != '.';
  EXPECT_EQ(StatusText(list), "3 object(s) / 300 bytes in 2 selected file(s)");
}

TEST(FileListText, Columns) {
  FileEntry e = File("x.png");
  EXPECT_EQ(PropertiesText(e), "");
  e.state = kStateKnown;
  e.info.format = tslFormatGetIndex("png");
  e.info.width = 640;
  e.info.height = 480;
  e.info.bits_per_plane = 8;
  e.info.planes = 3;
  EXPECT_EQ(PropertiesText(e), "640x480,16M");
  e.info.planes = 1;
  EXPECT_EQ(PropertiesText(e), "640x480,256");
  e.info.bits_per_plane = 1;
  EXPECT_EQ(PropertiesText(e), "640x480,2");
  EXPECT_EQ(TypeText(e), "png");
  e.state = kStateUnreadable;
  EXPECT_EQ(TypeText(e), "Unknown");
  EXPECT_EQ(TypeText(Dir("d")), "Directory");
  FileEntry link = File("l");
  link.kind = kEntryLink;
  EXPECT_EQ(TypeText(link), "Link");
}

TEST(FileListRefresh, QuickRefreshKeepsUnchangedWork) {
  testutil::TempDir top;
  ::mkdir(top.file("d").c_str(), 0755);
  struct Sub {
    std::string p;
    std::string file(const std::string &n) const { return p + "/" + n; }
    const std::string &path() const { return p; }
  } dir{top.file("d")};
  testutil::WriteFile(dir.file("same.png"), "same");
  testutil::WriteFile(dir.file("grown.png"), "1");
  testutil::WriteFile(dir.file("touched.png"), "t");
  testutil::WriteFile(dir.file("gone.png"), "g");
  for (const char *n : {"same.png", "grown.png", "touched.png", "gone.png"}) SetTime(dir.file(n), 1000000);
  FileList list;
  ASSERT_TRUE(list.read(dir.path()));
  uint64_t handle = 1;
  for (FileEntry &e : list.entries()) {
    e.state = kStateKnown;
    e.info.width = 77;
    e.large = Thumbnail{handle++, 10, 8};
    e.small = Thumbnail{handle++, 4, 3};
    e.selected = std::string(e.name) == "grown.png";
  }
  testutil::WriteFile(dir.file("grown.png"), "12");
  SetTime(dir.file("grown.png"), 1000000);
  SetTime(dir.file("touched.png"), 2000000);
  ::unlink(dir.file("gone.png").c_str());
  testutil::WriteFile(dir.file("new.png"), "n");

  std::vector<uint64_t> released;
  ASSERT_TRUE(list.quickRefresh(nullptr, [&](const Thumbnail &t) { released.push_back(t.handle); }));
  std::map<std::string, const FileEntry *> by;
  for (const FileEntry &e : list.entries()) by[e.name] = &e;
  ASSERT_EQ(by.size(), 5u);  // "..", same, grown, touched, new
  EXPECT_EQ(by["same.png"]->state, kStateKnown);
  EXPECT_EQ(by["same.png"]->info.width, 77u);
  EXPECT_NE(by["same.png"]->large.handle, 0u);
  EXPECT_NE(by["same.png"]->small.handle, 0u);
  EXPECT_NE(by[".."]->large.handle, 0u);
  EXPECT_TRUE(by["grown.png"]->selected);  // the selection stays, even on a changed file
  EXPECT_FALSE(by["same.png"]->selected);
  for (const char *n : {"grown.png", "touched.png", "new.png"}) {
    EXPECT_EQ(by[n]->state, 0u) << n;
    EXPECT_EQ(by[n]->large.handle, 0u) << n;
  }
  // The thumbnails of the changed and vanished files are handed back, and
  // only those.
  EXPECT_EQ(released.size(), 6u);
  for (const FileEntry &e : list.entries())
    for (uint64_t h : {e.large.handle, e.small.handle})
      EXPECT_EQ(std::count(released.begin(), released.end(), h), 0) << e.name;
}

TEST(FileListRemove, DropsPickedEntriesAndResetsTheOrder) {
  testutil::TempDir dir;
  for (const char *n : {".hidden", "b", "a", ".also"}) testutil::WriteFile(dir.file(n), "x");
  FileList list;
  ASSERT_TRUE(list.read(dir.path()));
  list.sort(kSortName | kSortReverse);
  list.removeIf([](const FileEntry &e) { return e.name[0] == '.' && !e.isDotDot(); });
  ASSERT_EQ(list.count(), 3);  // "..", "a", "b" in the directory's order
  ASSERT_EQ(list.order().size(), 3u);
  std::vector<std::string> names;
  for (int i = 0; i < list.count(); ++i) names.push_back(list.at(i).name);
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"..", "a", "b"}));
  list.sort(kSortName);
  EXPECT_EQ(std::string(list.at(0).name), "..");
  EXPECT_EQ(std::string(list.at(2).name), "b");
}
