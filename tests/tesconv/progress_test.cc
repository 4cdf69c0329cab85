// The terminal progress line: counts, times and a name cut to the width.
#include <gtest/gtest.h>

#include "tools/tesconv/tesconv.h"

namespace quilla {
namespace {

TEST(TesconvProgress, CountsTimesAndEstimate) {
  EXPECT_EQ(ProgressLine(0, 1000, "a.jpg", 0.4, 80), "[0/1000] 0:00 elapsed, --:-- left  a.jpg");
  // 10 files in 25 s: 990 more take 2475 s.
  EXPECT_EQ(ProgressLine(10, 1000, "b.jpg", 25, 80), "[10/1000] 0:25 elapsed, 41:15 left  b.jpg");
  EXPECT_EQ(ProgressLine(1, 3, "c", 4000, 80), "[1/3] 1:06:40 elapsed, 2:13:20 left  c");
}

TEST(TesconvProgress, LongNamesKeepTheirEndAndTheLineNeverWraps) {
  const std::string name = "/very/long/directory/of/holiday/pictures/IMG_0001.jpg";
  const std::string line = ProgressLine(2, 9, name, 3, 60);
  EXPECT_EQ(line.size(), 59u);
  EXPECT_EQ(line.substr(line.size() - 12), "IMG_0001.jpg");
  EXPECT_NE(line.find("..."), std::string::npos);
  // A terminal narrower than the counts: cut, still one column short.
  EXPECT_EQ(ProgressLine(2, 9, name, 3, 10).size(), 9u);
}

}  // namespace
}  // namespace quilla
