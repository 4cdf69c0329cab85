// The file selector's model: list lines, directory reading, the path rules,
// the recent directories, completion, the file types and the format list.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include "files/selector_model.h"
#include "default_settings.h"
#include "test_util.h"

namespace quilla {
namespace {

using DefaultSettings = testutil::DefaultSettings;

// 2009-03-07 14:05 in UTC.
time_t KnownTime() {
  setenv("TZ", "UTC", 1);
  tzset();
  return 1236434700;
}

TEST(SelectorListLine, EachKindHasItsColumns) {
  SelectorEntry e;
  e.name = "notime.gif";
  EXPECT_EQ(SelectorListLine(e), "notime.gif");  // no time: the name alone

  e.has_time = true;
  e.mtime = KnownTime();
  e.name = "photo.jpg";
  e.size = 12345;
  EXPECT_EQ(SelectorListLine(e), "photo.jpg                         12345 07/03/09 14:05");
  e.kind = kEntryLink;
  EXPECT_EQ(SelectorListLine(e), "photo.jpg                      Link     07/03/09 14:05");
  e.kind = kEntryCharDevice;
  e.has_numbers = true;
  e.numbers[0] = 1, e.numbers[1] = 3, e.numbers[2] = 12;
  EXPECT_EQ(SelectorListLine(e), "photo.jpg                               07/03/09 14:05    1  3  12");
  // A name longer than its column pushes the rest right, whole.
  e.kind = kEntryFile;
  e.name = std::string(40, 'n');
  EXPECT_EQ(SelectorListLine(e), std::string(40, 'n') + "    12345 07/03/09 14:05");
  // Sizes past 32 bits are printed as they are.
  e.size = 5000000000LL;
  EXPECT_NE(SelectorListLine(e).find(" 5000000000 "), std::string::npos);
}

TEST(SelectorDirectory, DirectoriesFirstHiddenLeftOut) {
  testutil::TempDir dir;
  ::mkdir(dir.file("sub").c_str(), 0755);
  ::mkdir(dir.file(".hidden").c_str(), 0755);
  testutil::WriteFile(dir.file("b.png"), "xx");
  testutil::WriteFile(dir.file("a.gif"), "xxxx");
  testutil::WriteFile(dir.file(".dot"), "x");
  ASSERT_EQ(::symlink("sub", dir.file("linkdir").c_str()), 0);
  ASSERT_EQ(::symlink("a.gif", dir.file("linkfile").c_str()), 0);
  std::vector<SelectorEntry> dirs, files;
  ASSERT_TRUE(ReadSelectorDirectory(dir.path(), &dirs, &files));
  ASSERT_EQ(dirs.size(), 3u);
  EXPECT_EQ(dirs[0].name, "..");
  EXPECT_EQ(dirs[1].name, "linkdir");
  EXPECT_EQ(dirs[2].name, "sub");
  ASSERT_EQ(files.size(), 3u);
  EXPECT_EQ(files[0].name, "a.gif");
  EXPECT_EQ(files[0].size, 4);
  EXPECT_TRUE(files[0].has_time);
  EXPECT_EQ(files[2].name, "linkfile");
  EXPECT_EQ(files[2].kind, kEntryLink);

  ASSERT_TRUE(ReadSelectorDirectory("/", &dirs, &files));
  for (const SelectorEntry &d : dirs) EXPECT_NE(d.name, "..");  // nothing above the root
  EXPECT_FALSE(ReadSelectorDirectory(dir.file("missing"), &dirs, &files));
}

TEST(SelectorPath, RulesForSettingTheDirectory) {
  testutil::TempDir dir;
  ::mkdir(dir.file("sub").c_str(), 0755);
  testutil::WriteFile(dir.file("sub/a.gif"), "x");
  const std::string start = "/start", last = dir.path();

  EXPECT_EQ(StripAutomountPrefix("/tmp_mnt/home/user/a.gif"), "/home/user/a.gif");
  EXPECT_EQ(StripAutomountPrefix("/home/user/a.gif"), "/home/user/a.gif");

  SelectorPlace p = ResolveSelectorPlace("", "/cur", last, start);
  EXPECT_EQ(p.dir, last);  // empty: the last directory
  p = ResolveSelectorPlace("", "/cur", "", start);
  EXPECT_EQ(p.dir, start);  // or the start directory
  p = ResolveSelectorPlace(dir.file("nothing/here.gif"), "/cur", last, start);
  EXPECT_EQ(p.dir, start);  // a missing path falls back
  EXPECT_EQ(p.file, "");
  p = ResolveSelectorPlace(dir.file("sub/a.gif"), "/cur", last, start);
  EXPECT_EQ(p.dir, dir.file("sub"));  // a file: split at its last "/"
  EXPECT_EQ(p.file, "a.gif");
  p = ResolveSelectorPlace("sub/", dir.path(), last, start);
  EXPECT_EQ(p.dir, dir.file("sub"));  // relative to the current directory
  EXPECT_EQ(p.file, "");
  p = ResolveSelectorPlace("/tmp_mnt" + dir.file("sub/a.gif"), "/cur", last, start);
  EXPECT_EQ(p.dir, dir.file("sub"));
  EXPECT_EQ(p.file, "a.gif");
  p = ResolveSelectorPlace("/tmp_mnt/", "/cur", last, start);
  EXPECT_EQ(p.dir, "/");

  EXPECT_EQ(AbsoluteSelectorPath("../x/./y//z/", "/a/b"), "/a/x/y/z");
  EXPECT_EQ(AbsoluteSelectorPath("../../../..", "/a/b"), "/");
  const char *home = std::getenv("HOME");
  const std::string old_home = home ? home : "";
  setenv("HOME", "/home/me", 1);
  EXPECT_EQ(AbsoluteSelectorPath("~/pics", "/a"), "/home/me/pics");
  if (home) setenv("HOME", old_home.c_str(), 1); else unsetenv("HOME");
  EXPECT_EQ(AbsoluteSelectorPath("~x", "/a"), "/a/~x");  // not a home reference

  EXPECT_EQ(AncestorDirectories("/home/user/pics/"),
            (std::vector<std::string>{"/home/user/pics", "/home/user", "/home", "/"}));
  EXPECT_EQ(AncestorDirectories("/"), std::vector<std::string>{"/"});
}

TEST(SelectorRecent, NewestFirstWithoutCopiesAtMostTen) {
  DefaultSettings s;
  EXPECT_TRUE(RecentDirectories(s.rec).empty());
  for (int i = 0; i < 12; ++i) RememberDirectory(&s.rec, "/d" + std::to_string(i));
  std::vector<std::string> r = RecentDirectories(s.rec);
  ASSERT_EQ(r.size(), 10u);
  EXPECT_EQ(r.front(), "/d11");
  EXPECT_EQ(r.back(), "/d2");  // /d0 and /d1 fell off
  RememberDirectory(&s.rec, "/d5");
  r = RecentDirectories(s.rec);
  ASSERT_EQ(r.size(), 10u);
  EXPECT_EQ(r[0], "/d5");
  EXPECT_EQ(std::count(r.begin(), r.end(), "/d5"), 1);
  EXPECT_EQ(r[1], "/d11");
  RememberDirectory(&s.rec, "");  // nothing to remember
  EXPECT_EQ(RecentDirectories(s.rec)[0], "/d5");
  // Gaps in a hand-edited settings file are skipped.
  s.rec.File.DirName[3][0] = 0;
  EXPECT_EQ(RecentDirectories(s.rec).size(), 9u);
}

TEST(SelectorCompletion, LikeAShell) {
  testutil::TempDir dir;
  ::mkdir(dir.file("photos").c_str(), 0755);
  testutil::WriteFile(dir.file("photos/summer_01.png"), "x");
  testutil::WriteFile(dir.file("photos/summer_02.png"), "x");
  testutil::WriteFile(dir.file("photos/winter.gif"), "x");
  testutil::WriteFile(dir.file("photos/.secret"), "x");
  int n = -1;
  EXPECT_EQ(CompleteSelectorPath("pho", dir.path(), &n), "photos/");  // one directory: completed with "/"
  EXPECT_EQ(n, 1);
  EXPECT_EQ(CompleteSelectorPath("photos/w", dir.path(), &n), "photos/winter.gif");
  EXPECT_EQ(CompleteSelectorPath(dir.file("photos/su"), "/", &n), dir.file("photos/summer_0"));
  EXPECT_EQ(n, 2);  // several: their common prefix
  EXPECT_EQ(CompleteSelectorPath("photos/summer_0", dir.path(), &n), "photos/summer_0");
  EXPECT_EQ(n, 2);
  EXPECT_EQ(CompleteSelectorPath("photos/x", dir.path(), &n), "photos/x");  // none: unchanged
  EXPECT_EQ(n, 0);
  EXPECT_EQ(CompleteSelectorPath("photos/", dir.path(), &n), "photos/");  // hidden names stay hidden
  EXPECT_EQ(n, 3);
  EXPECT_EQ(CompleteSelectorPath("photos/.s", dir.path(), &n), "photos/.secret");
  EXPECT_EQ(CompleteSelectorPath("nowhere/a", dir.path(), &n), "nowhere/a");
  EXPECT_EQ(n, 0);
}

TEST(SelectorFileTypes, ExtensionChoosesTheSaveFormat) {
  const int png = tslFormatGetIndex("png"), jpeg = tslFormatGetIndex("jpeg");
  ASSERT_GE(png, 0);
  ASSERT_GE(jpeg, 0);
  EXPECT_EQ(SaveFormatFor("photo.png", jpeg), png);
  EXPECT_EQ(SaveFormatFor("/a/b/PHOTO.PNG", jpeg), png);
  EXPECT_EQ(SaveFormatFor("photo", png), png);  // no extension: the combo box's
  EXPECT_EQ(SaveFormatFor("photo.unknownext", jpeg), jpeg);
  EXPECT_EQ(SaveFormatFor("dir.png/photo", jpeg), jpeg);  // a dot in a directory does not count

  EXPECT_TRUE(NameMatchesFormat("a.JPG", jpeg));
  EXPECT_TRUE(NameMatchesFormat("a.jpeg", jpeg));
  EXPECT_FALSE(NameMatchesFormat("a.jp", jpeg));
  EXPECT_FALSE(NameMatchesFormat("jpg", jpeg));
  EXPECT_FALSE(NameMatchesFormat("a.", jpeg));
  EXPECT_TRUE(NameMatchesFormat("anything", -1));

  const std::vector<FileTypeChoice> open = SelectorFileTypes(false), save = SelectorFileTypes(true);
  ASSERT_FALSE(open.empty());
  EXPECT_EQ(open[0].format, -1);
  for (const FileTypeChoice &c : save) EXPECT_TRUE(tslFormatIsWritable(c.format)) << c.label;
  EXPECT_EQ(save[FileTypeChoiceFor(save, "png")].format, png);
  EXPECT_EQ(FileTypeChoiceFor(save, "nosuchformat"), 0);
  EXPECT_EQ(FileTypeChoiceFor(save, ""), 0);

  // A format switched off among the recognised file types is not offered
  // for opening; saving still offers it.
  testutil::DefaultSettings settings;
  for (int i = 0; i < settings.rec.file_type_count; ++i)
    if (std::string(settings.rec.file_types[i].name) == "jpeg") settings.rec.file_types[i].enabled = false;
  const std::vector<FileTypeChoice> recognised = SelectorFileTypes(false, &settings.rec);
  EXPECT_EQ(recognised.size(), open.size() - 1);
  EXPECT_EQ(FileTypeChoiceFor(recognised, "jpeg"), 0);
  EXPECT_NE(FileTypeChoiceFor(SelectorFileTypes(true, &settings.rec), "jpeg"), 0);
}

TEST(FormatList, SortedByNameOrByLibraryIndex) {
  EXPECT_EQ(FormatListHeader(), "Name                             Read Write Extension");
  const std::vector<std::string> by_name = FormatListLines(false), by_id = FormatListLines(true);
  ASSERT_EQ(by_name.size(), static_cast<size_t>(tslCount()));
  ASSERT_EQ(by_id.size(), by_name.size());
  EXPECT_TRUE(std::is_sorted(by_name.begin(), by_name.end(), [](const std::string &a, const std::string &b) {
    return strcasecmp(a.substr(0, 32).c_str(), b.substr(0, 32).c_str()) < 0;
  }));
  // By index: the line of format f is at f.
  for (int f = 0; f < tslCount(); ++f) {
    TslFormatInfo info;
    ASSERT_EQ(tslFormatGetInfo(f, &info), TSL_OK);
    EXPECT_EQ(by_id[f].compare(0, std::strlen(info.description), info.description), 0) << by_id[f];
    EXPECT_NE(by_id[f].find(info.extensions), std::string::npos);
  }
  const int png = tslFormatGetIndex("png");
  EXPECT_EQ(by_id[png].substr(32, 12), " Yes  Yes   ");
}

}  // namespace
}  // namespace quilla
