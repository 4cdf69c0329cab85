// The description files: the reader's stopping rules, quoting, long lines,
// and the writer's temporary-file replacement.
#include "browser/descriptions.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "test_util.h"

namespace {

using namespace quilla;

std::string Text(const DescriptionTable &t, const std::string &name) {
  const std::string *s = FindDescription(t, name);
  return s ? *s : "<none>";
}

TEST(Descriptions, ReaderTakesQuotedAndUnquotedNamesAndCutsAtLineEnds) {
  const DescriptionTable t = ParseDescriptions(
      "\"my photo.jpg\" A day at the sea\n"
      "plain.png\tTabbed text with \"quotes\"\r\n"
      "\"x.gif\"|separator is any character\n"
      "\"empty.bmp\"\n"
      "dup.png first\n"
      "dup.png second\n");
  ASSERT_EQ(t.records.size(), 6u);
  EXPECT_EQ(Text(t, "my photo.jpg"), "A day at the sea");
  EXPECT_EQ(Text(t, "plain.png"), "Tabbed text with \"quotes\"");
  EXPECT_EQ(Text(t, "x.gif"), "separator is any character");
  EXPECT_EQ(Text(t, "empty.bmp"), "");
  EXPECT_EQ(Text(t, "dup.png"), "first");  // the first record wins
  EXPECT_EQ(Text(t, "DUP.PNG"), "<none>");  // byte for byte
}

TEST(Descriptions, MalformedLinesEndTheReadingKeepingEarlierLines) {
  // A quoted name without its closing quote, a bare name, an empty line.
  for (const char *bad : {"\"unclosed name text\n", "barename\n", "\n", "\"no close\r\n"}) {
    SCOPED_TRACE(bad);
    const DescriptionTable t = ParseDescriptions(std::string("a.jpg one\n") + bad + "b.jpg two\n");
    EXPECT_EQ(Text(t, "a.jpg"), "one");
    EXPECT_EQ(Text(t, "b.jpg"), "<none>");
  }
  // A bare name as the very last line, without a line end, ends the file too.
  EXPECT_EQ(ParseDescriptions("a.jpg one\nlast").records.size(), 1u);
  EXPECT_TRUE(ParseDescriptions("").records.empty());
}

TEST(Descriptions, NameWithASpaceReadsBackOnlyWhenQuoted) {
  DescriptionTable t;
  SetDescription(&t, "two words.jpg", std::string("caption"));
  const DescriptionTable quoted = ParseDescriptions(FormatDescriptions(t, true));
  EXPECT_EQ(Text(quoted, "two words.jpg"), "caption");
  const DescriptionTable bare = ParseDescriptions(FormatDescriptions(t, false));
  EXPECT_EQ(Text(bare, "two words.jpg"), "<none>");
  EXPECT_EQ(Text(bare, "two"), "words.jpg caption");
}

TEST(Descriptions, LongLinesAndNamesAreCut) {
  // A line longer than the reader's 1023 characters goes on as a new line:
  // here its rest is a bare word, which ends the reading.
  const std::string long_text(1100, 'x');
  DescriptionTable t = ParseDescriptions("a.jpg " + long_text + "\nb.jpg two\n");
  ASSERT_EQ(t.records.size(), 1u);
  EXPECT_EQ(Text(t, "a.jpg"), std::string(1017, 'x'));
  // Its rest holding a blank is read as one more record.
  t = ParseDescriptions("a.jpg " + std::string(1017, 'x') + "rest of it\nb.jpg two\n");
  EXPECT_EQ(Text(t, "rest"), "of it");
  EXPECT_EQ(Text(t, "b.jpg"), "two");
  // Names keep at most 255 characters.
  const std::string name(300, 'n');
  t = ParseDescriptions("\"" + name + "\" text\n");
  ASSERT_EQ(t.records.size(), 1u);
  EXPECT_EQ(t.records[0].name, name.substr(0, 255));
}

TEST(Descriptions, SetReplacesOrAppendsAndClearedTextsWriteNoLine) {
  DescriptionTable t = ParseDescriptions("\"a\" one\n\"b\" two\n");
  SetDescription(&t, "a", std::string("uno"));
  SetDescription(&t, "c", std::string("three"));
  SetDescription(&t, "b", std::nullopt);
  EXPECT_EQ(FormatDescriptions(t, true), "\"a\" uno\n\"c\" three\n");
  EXPECT_EQ(FormatDescriptions(t, false), "a uno\nc three\n");
  EXPECT_EQ(FormatDescriptions(DescriptionTable{}, true), "");
}

TEST(Descriptions, SaveReplacesTheFileAndLeavesNoTemporary) {
  testutil::TempDir dir;
  EXPECT_EQ(DescriptionPath(dir.path()), dir.path() + "/.description");
  EXPECT_EQ(DescriptionPath(dir.path() + "/"), dir.path() + "/.description");
  EXPECT_TRUE(LoadDescriptions(dir.path()).records.empty());  // no file yet

  testutil::WriteFile(dir.file(".description"), "old.jpg old text\n");
  chmod(dir.file(".description").c_str(), 0640);
  DescriptionTable t = LoadDescriptions(dir.path());
  SetDescription(&t, "new file.png", std::string("new text"));
  ASSERT_TRUE(SaveDescriptions(t, dir.path() + "/", true));
  EXPECT_EQ(testutil::ReadFile(dir.file(".description")), "\"old.jpg\" old text\n\"new file.png\" new text\n");
  struct stat st;
  ASSERT_EQ(stat(dir.file(".description").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);  // the old file's permissions are kept
  std::string listing;
  testutil::Run("ls -A '" + dir.path() + "'", &listing);
  EXPECT_EQ(listing, ".description\n");

  // An empty table leaves an empty file.
  ASSERT_TRUE(SaveDescriptions(DescriptionTable{}, dir.path(), true));
  EXPECT_EQ(testutil::ReadFile(dir.file(".description")), "");
}

TEST(Descriptions, FailedWritesReportAndLeaveNothingBehind) {
  testutil::TempDir dir;
  DescriptionTable t;
  SetDescription(&t, "a", std::string("lost"));
  // A directory in the way of the file: the rename fails, the temporary goes.
  ::mkdir(dir.file(".description").c_str(), 0755);
  testutil::WriteFile(dir.file(".description/inside"), "kept");
  EXPECT_FALSE(SaveDescriptions(t, dir.path(), true));
  ::testing::internal::CaptureStderr();
  EXPECT_FALSE(SaveListedDescriptions(dir.path(), {{"a", std::string("lost")}}));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "WARNING: Can't save description...");
  std::string listing;
  testutil::Run("ls -A '" + dir.path() + "'", &listing);
  EXPECT_EQ(listing, ".description\n");
  EXPECT_EQ(testutil::ReadFile(dir.file(".description/inside")), "kept");
  // A directory that does not exist, or a file named as one.
  testutil::WriteFile(dir.file("plain"), "");
  EXPECT_FALSE(SaveDescriptions(t, dir.file("missing-dir"), true));
  EXPECT_FALSE(SaveDescriptions(t, dir.file("plain"), true));
}

TEST(Descriptions, CopyCarriesTheTextAlongAndKeepsTheSource) {
  testutil::TempDir a, b;
  testutil::WriteFile(a.file(".description"), "\"pic one.jpg\" Sunset\n\"other.jpg\" x\n");
  testutil::WriteFile(b.file(".description"), "keep.jpg kept\n");
  ASSERT_TRUE(CopyDescription(a.path(), b.path(), "pic one.jpg"));
  EXPECT_EQ(testutil::ReadFile(b.file(".description")), "\"keep.jpg\" kept\n\"pic one.jpg\" Sunset\n");
  EXPECT_NE(testutil::ReadFile(a.file(".description")).find("Sunset"), std::string::npos);
  // A file without a description changes nothing, not even creating a file.
  testutil::TempDir c;
  ASSERT_TRUE(CopyDescription(a.path(), c.path(), "nothing.jpg"));
  EXPECT_FALSE(testutil::FileExists(c.file(".description")));
  // The browser's save writes only the entries that have a text.
  ASSERT_TRUE(SaveListedDescriptions(c.path(), {{"a b", std::string("t")}, {"n", std::nullopt}, {"e", std::string()}}));
  EXPECT_EQ(testutil::ReadFile(c.file(".description")), "\"a b\" t\n\"e\" \n");
}

}  // namespace
