#include "core/icon.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace quilla {
namespace {

// A compact icon built field by field: little-endian words, 4-byte colours.
std::vector<unsigned char> Compact(uint32_t w, uint32_t h, char blank, const std::vector<std::string> &colours,
                                   const std::string &pixels) {
  std::vector<unsigned char> d;
  auto word = [&](uint32_t v) {
    for (int i = 0; i < 4; ++i) d.push_back(static_cast<unsigned char>(v >> (8 * i)));
  };
  word(w);
  word(h);
  word(static_cast<unsigned char>(blank));
  word(static_cast<uint32_t>(colours.size()));
  for (const std::string &c : colours) d.insert(d.end(), c.begin(), c.end());
  d.insert(d.end(), pixels.begin(), pixels.end());
  return d;
}

// One colour entry: code and RGB, NULs included.
std::string C(const char (&s)[5]) { return std::string(s, 4); }

bool Parse(const std::vector<unsigned char> &d, IconImage *img, std::string *err) {
  return ParseIcon(d.data(), d.size(), img, err);
}

TEST(IconData, BuiltInIconsParseWithEveryPixelAccountedFor) {
  for (int want : {32, 64}) {
    size_t size = 0;
    const unsigned char *data = want == 32 ? Icon32Data(&size) : Icon64Data(&size);
    IconImage img;
    std::string err;
    ASSERT_TRUE(ParseIcon(data, size, &img, &err)) << want << ": " << err;
    EXPECT_EQ(img.width, want);
    EXPECT_EQ(img.height, want);
    ASSERT_EQ(img.colours.size(), 7u);
    EXPECT_EQ(img.colours[0].code, '+');
    EXPECT_EQ(img.colours[0].red, 0xdf);
    EXPECT_EQ(img.colours[0].blue, 0xe0);
    // No pixel twice, all inside, and the blank ones are the rest.
    std::set<int> seen;
    size_t drawn = 0;
    for (const IconColour &c : img.colours) {
      for (const IconPoint &p : c.points) {
        ASSERT_TRUE(p.x >= 0 && p.x < want && p.y >= 0 && p.y < want);
        EXPECT_TRUE(seen.insert(p.y * want + p.x).second);
      }
      drawn += c.points.size();
    }
    size_t blanks = 0;
    for (size_t i = size - static_cast<size_t>(want * want); i < size; ++i) blanks += data[i] == ' ';
    EXPECT_EQ(drawn + blanks, static_cast<size_t>(want * want));
    EXPECT_GT(drawn, static_cast<size_t>(want * want / 2));  // a picture, not an empty square
  }
}

TEST(IconData, MalformedFormsAreRefused) {
  IconImage img;
  std::string err;
  const std::vector<std::string> two = {C("a\x01\x02\x03"), C("b\x04\x05\x06")};
  auto good = Compact(2, 2, '.', two, "ab.a");
  ASSERT_TRUE(Parse(good, &img, &err)) << err;

  for (size_t cut : {size_t{0}, size_t{15}, good.size() - 1}) {
    std::vector<unsigned char> shortened(good.begin(), good.begin() + static_cast<long>(cut));
    EXPECT_FALSE(Parse(shortened, &img, &err)) << cut;
  }
  auto longer = good;
  longer.push_back('a');
  EXPECT_FALSE(Parse(longer, &img, &err));
  EXPECT_FALSE(Parse(Compact(0, 2, '.', two, ""), &img, &err));
  EXPECT_FALSE(Parse(Compact(257, 1, '.', two, std::string(257, 'a')), &img, &err));
  EXPECT_FALSE(Parse(Compact(1, 1, '.', {}, "."), &img, &err));
  EXPECT_FALSE(Parse(Compact(2, 1, '.', {C("a\0\0\0"), C("a\1\1\1")}, "aa"), &img, &err)) << "repeated code";
  EXPECT_FALSE(Parse(Compact(2, 1, 'a', two, "ab"), &img, &err)) << "colour with the blank code";
  EXPECT_FALSE(Parse(Compact(2, 2, '.', two, "abcz"), &img, &err)) << "unknown code";
  EXPECT_FALSE(err.empty());
  // A huge count must not be trusted to size anything.
  auto lying = good;
  lying[12] = 0xff;
  lying[13] = 0xff;
  EXPECT_FALSE(Parse(lying, &img, &err));
  EXPECT_FALSE(ParseIcon(nullptr, 0, &img, &err));
}

TEST(IconSize, SixtyFourOnlyWhenAnEntryAllowsIt) {
  EXPECT_EQ(ChooseIconSize({}), 32);
  EXPECT_EQ(ChooseIconSize({{16, 16, 48, 48}}), 32);
  EXPECT_EQ(ChooseIconSize({{64, 64, 64, 64}}), 64);
  EXPECT_EQ(ChooseIconSize({{16, 16, 128, 128}}), 64);
  EXPECT_EQ(ChooseIconSize({{65, 16, 128, 128}}), 32);   // minimum width too large
  EXPECT_EQ(ChooseIconSize({{16, 16, 128, 63}}), 32);    // maximum height too small
  EXPECT_EQ(ChooseIconSize({{16, 16, 32, 32}, {48, 48, 96, 96}}), 64);
}

}  // namespace
}  // namespace quilla
