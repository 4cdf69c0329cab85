// Hex dump lines and the file read in windows behind the view.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "files/hexdump_model.h"
#include "test_util.h"

namespace quilla {
namespace {

std::string Dump(const std::string &data) {
  std::string all;
  for (size_t at = 0; at < data.size(); at += 16)
    all += HexDumpLine(reinterpret_cast<const uint8_t *>(data.data()) + at, std::min<size_t>(16, data.size() - at), at) +
           "\n";
  return all;
}

TEST(HexDumpLine, LayoutPaddingAndCharacters) {
  const uint8_t full[16] = {0x00, 0x7f, 0x20, 'A', 0xff, 0x80, '~', '\n', 'z', '0', 0x1f, 0x10, 'q', ' ', '.', '%'};
  const std::string a = HexDumpLine(full, 16, 0x1234abcd);
  EXPECT_EQ(a, "1234abcd: 00 7f 20 41 ff 80 7e 0a 7a 30 1f 10 71 20 2e 25 .. A..~.z0..q .%");
  EXPECT_EQ(a.size(), kHexLineLength);
  const uint8_t one[1] = {'x'};
  const std::string b = HexDumpLine(one, 1, 16);
  EXPECT_EQ(b, "00000010: 78 " + std::string(45, ' ') + "x" + std::string(15, ' '));
  EXPECT_EQ(b.size(), kHexLineLength);
  EXPECT_EQ(HexLineCount(0), 0u);
  EXPECT_EQ(HexLineCount(16), 1u);
  EXPECT_EQ(HexLineCount(17), 2u);
  EXPECT_EQ(HexDumpTitle("/a b"), "Dump: /a b");
}

TEST(HexDumpFile, WindowsGiveTheSameLinesAsTheWholeFile) {
  testutil::TempDir dir;
  std::string data(300001, '\0');
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 7 + (i >> 9));
  testutil::WriteFile(dir.file("big"), data);
  const std::string whole = Dump(data);
  HexDumpFile f;
  std::string error;
  ASSERT_TRUE(f.Open(dir.file("big"), &error));
  EXPECT_EQ(f.line_count(), 18751u);
  // Forward, backward, across window edges and past the end.
  for (uint64_t first : {uint64_t{0}, uint64_t{18700}, uint64_t{4090}, uint64_t{3000}, uint64_t{5}, uint64_t{18750}}) {
    std::string got;
    for (const std::string &l : f.Lines(first, 60)) got += l + "\n";
    const size_t from = first * 75;
    EXPECT_EQ(got, whole.substr(from, std::min<size_t>(60 * 75, whole.size() - from))) << first;
  }
  EXPECT_TRUE(f.Lines(18751, 10).empty());
  EXPECT_EQ(f.Lines(0, 10000).size(), 10000u);  // a request larger than a window
}

TEST(HexDumpFile, RefusalsEmptyAndShrunkFiles) {
  testutil::TempDir dir;
  testutil::WriteFile(dir.file("empty"), "");
  testutil::WriteFile(dir.file("f"), std::string(1000, 'a'));
  HexDumpFile f;
  std::string error;
  ASSERT_TRUE(f.Open(dir.file("empty"), &error));
  EXPECT_EQ(f.line_count(), 0u);
  EXPECT_TRUE(f.Lines(0, 5).empty());
  EXPECT_FALSE(f.Open(dir.file("f"), &error, 999));
  EXPECT_EQ(error, "File too large : " + dir.file("f"));
  EXPECT_TRUE(f.Open(dir.file("f"), &error, 1000));
  EXPECT_FALSE(f.Open(dir.file("missing"), &error));
  EXPECT_EQ(error, "Can't open file : " + dir.file("missing"));
  EXPECT_FALSE(f.Open(dir.path(), &error));

  ASSERT_TRUE(f.Open(dir.file("f"), &error));
  ASSERT_EQ(::truncate(dir.file("f").c_str(), 40), 0);
  const std::vector<std::string> lines = f.Lines(0, 100);
  ASSERT_EQ(lines.size(), 3u);  // what is left, the last line short
  EXPECT_EQ(lines[2].substr(0, 16), "00000020: 61 61 ");
}

}  // namespace
}  // namespace quilla
