// The bookmark file: reading every kind of line, editing, writing back.
#include "browser/bookmarks.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "test_util.h"

using namespace quilla;
using testutil::ReadFile;
using testutil::WriteFile;

TEST(Bookmarks, ReadsQuotedEmptyAndMalformedLines) {
  testutil::TempDir dir;
  const std::string file = dir.file("bookmark.ini");
  WriteFile(file,
            "\"Home\"*\"/home/me\"\n"
            "\n"
            "\"Only name\"\n"
            "bare*/no/quotes\n"
            "\"Runs\"**\"\"/x\"\"\n"
            "\"With space\"*\"/a b/c\"\r\n"
            "\"Last\"*\"/no/newline\"");
  BookmarkList list;
  list.load(file);
  ASSERT_EQ(list.count(), 7);
  const auto &b = list.items();
  EXPECT_EQ(b[0].name, "Home");
  EXPECT_EQ(b[0].path, "/home/me");
  EXPECT_EQ(b[1].name, "");  // an empty line is an empty bookmark, kept
  EXPECT_EQ(b[1].path, "");
  EXPECT_EQ(b[2].name, "Only name");
  EXPECT_EQ(b[2].path, "");
  EXPECT_EQ(b[3].name, "bare");
  EXPECT_EQ(b[3].path, "/no/quotes");
  EXPECT_EQ(b[4].name, "Runs");
  EXPECT_EQ(b[4].path, "/x");
  EXPECT_EQ(b[5].path, "/a b/c");
  EXPECT_EQ(b[6].path, "/no/newline");
  EXPECT_FALSE(list.modified());

  // Unmodified: nothing is written.
  EXPECT_TRUE(list.save());
  EXPECT_EQ(ReadFile(file).substr(0, 6), "\"Home\"");
  list.rename(0, "Mine");
  ASSERT_TRUE(list.save());
  EXPECT_EQ(ReadFile(file),
            "\"Mine\"*\"/home/me\"\n"
            "\"\"*\"\"\n"
            "\"Only name\"*\"\"\n"
            "\"bare\"*\"/no/quotes\"\n"
            "\"Runs\"*\"/x\"\n"
            "\"With space\"*\"/a b/c\"\n"
            "\"Last\"*\"/no/newline\"\n");
}

TEST(Bookmarks, MissingFileLimitsAndEditing) {
  testutil::TempDir dir;
  const std::string file = dir.file("bookmark.ini");
  BookmarkList list;
  list.load(file);
  EXPECT_EQ(list.count(), 0);
  list.add("/data/pictures", nullptr);
  list.add("/tmp", "");
  const std::string longname(70, 'x');
  list.add("/long", longname.c_str());
  EXPECT_EQ(list.items()[0].name, "????");
  EXPECT_EQ(list.items()[1].name, "????");
  EXPECT_EQ(list.items()[2].name, std::string(64, 'x'));
  EXPECT_EQ(list.editorLine(0), "????                     /data/pictures");
  EXPECT_EQ(list.editorLine(2), std::string(64, 'x') + " /long");
  list.remove(1);
  list.remove(7);  // out of range: ignored
  ASSERT_TRUE(list.save());
  EXPECT_FALSE(list.modified());
  BookmarkList again;
  again.load(file);
  ASSERT_EQ(again.count(), 2);
  EXPECT_EQ(again.items()[1].name, std::string(64, 'x'));
  EXPECT_EQ(again.items()[1].path, "/long");

  // Removing everything leaves an empty file; no temporary stays behind.
  again.remove(0);
  again.remove(0);
  ASSERT_TRUE(again.save());
  EXPECT_EQ(ReadFile(file), "");
  EXPECT_EQ(testutil::Run("ls -A '" + dir.path() + "' | grep -v '^bookmark.ini$' | wc -l | grep -qx 0"), 0);
}

TEST(Bookmarks, UnwritableFileKeepsTheOldOne) {
  testutil::TempDir dir;
  const std::string sub = dir.file("ro");
  ::mkdir(sub.c_str(), 0755);
  const std::string file = sub + "/bookmark.ini";
  WriteFile(file, "\"A\"*\"/a\"\n");
  BookmarkList list;
  list.load(file);
  list.add("/b", "B");
  ::chmod(sub.c_str(), 0555);
  if (::access(sub.c_str(), W_OK) != 0) {  // not when running as root
    EXPECT_FALSE(list.save());
    EXPECT_TRUE(list.modified());
    EXPECT_EQ(ReadFile(file), "\"A\"*\"/a\"\n");
  }
  ::chmod(sub.c_str(), 0755);
}
