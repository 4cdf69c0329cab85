// User-defined filters: the line format both ways, the 127-character line
// reads, loading from the user's or the default file, the list operations,
// and the filter arithmetic.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "imgproc/filters.h"
#include "imgproc/userfilter.h"
#include "reference_ops.h"
#include "test_util.h"

using namespace quilla;
using namespace testutil;

namespace {

UserFilter Parse(const char *line) {
  UserFilter f;
  EXPECT_TRUE(ParseUserFilterLine(line, &f)) << line;
  return f;
}

TEST(UserFilterFormat, ReadsLines) {
  UserFilter f = Parse("Sharpen | 3 0 0 | -1x4 12 -1x4\n");
  EXPECT_STREQ(f.name, "Sharpen ");
  EXPECT_EQ(f.size, 3);
  EXPECT_EQ(f.divisor, 1);
  EXPECT_EQ(f.bias, 0);
  const int16_t want[9] = {-1, -1, -1, -1, 12, -1, -1, -1, -1};
  EXPECT_EQ(std::memcmp(f.values, want, sizeof want), 0);
  EXPECT_EQ(f.values[9], 0);

  f = Parse("Big|9 2 -5|1 2 3 4 5 6 7 8 9 10 11");  // size 9 is read as 3; extra weights ignored
  EXPECT_EQ(f.size, 3);
  EXPECT_EQ(f.divisor, 2);
  EXPECT_EQ(f.bias, -5);
  EXPECT_EQ(f.values[8], 9);
  EXPECT_EQ(f.values[9], 0);

  f = Parse("Few\t|5 1 0|\t7x3 3x0 4x-2 2\t-6 5y2");  // runs, empty runs, a token that is no run
  EXPECT_EQ(f.size, 5);
  const int16_t few[6] = {7, 7, 7, 2, -6, 5};
  EXPECT_EQ(std::memcmp(f.values, few, sizeof few), 0);
  for (int k = 6; k < 25; ++k) EXPECT_EQ(f.values[k], 0);

  f = Parse("A name that is much longer than thirty-one characters|3 1 0|1");
  EXPECT_EQ(std::strlen(f.name), 31u);

  UserFilter ignored;
  EXPECT_FALSE(ParseUserFilterLine("# comment | 3 1 0 | 1", &ignored));
  EXPECT_FALSE(ParseUserFilterLine("no bar here", &ignored));
}

TEST(UserFilterFormat, WritesRuns) {
  UserFilter f = Parse("Box | 3 9 0 | 1x9");
  EXPECT_EQ(FormatUserFilterLine(f), "Box  | 3 9 0 | 1x9 \n");
  f = Parse("Mixed|3 -2 7|1 1 0 5 5 5 -1 0 0");
  EXPECT_EQ(FormatUserFilterLine(f), "Mixed | 3 -2 7 | 1x2 0 5x3 -1 0x2 \n");
}

TEST(UserFilterFile, LongLinesAreReadInPieces) {
  TempDir dir;
  // 12 characters of head, then "10 " 49 times: only the first 127
  // characters form the filter line, the rest is a line without a bar.
  std::string line = "Long|7 1 0| ";
  ASSERT_EQ(line.size(), 12u);
  for (int k = 0; k < 49; ++k) line += "10 ";
  WriteFile(dir.file("u.dat"), "anything at all\n" + line + "\nB | 3 1 0 | 2\n");
  UserFilterList list;
  ASSERT_EQ(ReadUserFilterFile(dir.file("u.dat").c_str(), &list), 1);
  ASSERT_EQ(list.count(), 2);
  const UserFilter &f = list.filters[1];  // sorted: "B " before "Long"
  EXPECT_STREQ(list.filters[0].name, "B ");
  EXPECT_EQ(f.size, 7);
  for (int k = 0; k < 38; ++k) EXPECT_EQ(f.values[k], 10) << k;
  EXPECT_EQ(f.values[38], 1);  // the token cut at character 127
  EXPECT_EQ(f.values[39], 0);
}

TEST(UserFilterFile, LoadListOperationsAndSave) {
  TempDir dir;
  const std::string home = dir.path();
  const std::string def = dir.file("default.dat");
  UserFilterList list;
  EXPECT_EQ(LoadUserFilters(home.c_str(), &list, {def}), 0);
  EXPECT_EQ(list.count(), 0);
  EXPECT_EQ(list.path, home + "/.quilla/udf.dat");

  WriteFile(def, std::string(kUserFilterHeader) + "Zeta | 3 1 0 | 0x4 1 0x4\nAlpha | 5 25 0 | 1x25\n");
  ASSERT_EQ(LoadUserFilters(home.c_str(), &list, {dir.file("missing.dat"), def}), 1);
  ASSERT_EQ(list.count(), 2);
  EXPECT_STREQ(list.filters[0].name, "Alpha ");
  EXPECT_EQ(list.path, home + "/.quilla/udf.dat");

  UserFilter edited = list.filters[1];
  edited.divisor = 0;
  ASSERT_EQ(AddUserFilter(&list, "Middle", edited), 1);
  EXPECT_EQ(list.filters[2].divisor, 1);
  EXPECT_TRUE(list.modified);
  ReplaceUserFilter(&list, 7, "Nope", edited);  // out of range: nothing
  ReplaceUserFilter(&list, 0, "Beta", edited);
  EXPECT_STREQ(list.filters[0].name, "Beta");
  EXPECT_EQ(DeleteUserFilter(&list, 3), 0);
  EXPECT_EQ(DeleteUserFilter(&list, 1), 1);  // "Zeta " goes, "Middle" moves down
  ASSERT_EQ(list.count(), 2);
  EXPECT_STREQ(list.filters[1].name, "Middle");

  testing::internal::CaptureStdout();
  ASSERT_EQ(SaveUserFilters(&list), 1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Saving : <" + home + "/.quilla/udf.dat>\n");
  EXPECT_EQ(list.count(), 0);
  EXPECT_EQ(ReadFile(home + "/.quilla/udf.dat"),
            "# Quilla UDF v1.0 (do not edit)\nBeta | 3 1 0 | 0x4 1 0x4 \nMiddle | 3 1 0 | 0x4 1 0x4 \n");

  // The user's file now wins over the default; an unmodified list is not written.
  ASSERT_EQ(LoadUserFilters(home.c_str(), &list, {def}), 1);
  ASSERT_EQ(list.count(), 2);
  EXPECT_STREQ(list.filters[0].name, "Beta ");
  testing::internal::CaptureStdout();
  SaveUserFilters(&list);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(list.count(), 0);
}

TEST(UserFilterFile, ShippedDefaultListParses) {
  UserFilterList list;
  ASSERT_EQ(ReadUserFilterFile(QUILLA_SOURCE_DIR "/data/Filters/udf-def.dat", &list), 1);
  ASSERT_GE(list.count(), 10);
  for (const UserFilter &f : list.filters) {
    // Every filter in it is complete: written back, its line reads the same.
    std::string line = FormatUserFilterLine(f);
    UserFilter again = Parse(line.c_str());
    EXPECT_EQ(std::memcmp(again.values, f.values, sizeof f.values), 0) << f.name;
    int nonzero_in_last_row = 0;
    for (int k = f.size * (f.size - 1); k < f.size * f.size; ++k) nonzero_in_last_row += f.values[k] != 0;
    EXPECT_GT(nonzero_in_last_row, 0) << f.name;
  }
}

TEST(UserFilterApply, MatchesFixedKernelsAndFormula) {
  Pic src(MakePicture(TSL_RGB, 19, 11, 4));
  // A user filter with a fixed kernel's weights gives the same picture.
  for (int k = 0; k < kFixedKernelCount; ++k) {
    UserFilter f{};
    f.size = 3;
    f.divisor = static_cast<int16_t>(FixedKernels[k].divisor);
    f.bias = static_cast<int16_t>(FixedKernels[k].bias);
    std::copy(FixedKernels[k].weight, FixedKernels[k].weight + 9, f.values);
    Pic a, b;
    ASSERT_EQ(ApplyUserFilter(&src, &a, nullptr, f), kOpDone);
    ASSERT_EQ(ApplyKernel3(&src, &b, nullptr, k), kOpDone);
    EXPECT_TRUE(SamePixels(a, b)) << k;
  }
  // 5x5 and 7x7 with negative divisors and large weights, against the formula.
  const OpRect rect{2, 1, 30, 8};
  for (int size : {5, 7})
    for (int divisor : {-3, 7, -1}) {
      UserFilter f{};
      f.size = static_cast<int16_t>(size);
      f.divisor = static_cast<int16_t>(divisor);
      f.bias = 40;
      std::mt19937 rng(static_cast<uint32_t>(size * 100 + divisor + 50));
      for (int i = 0; i < size * size; ++i) f.values[i] = static_cast<int16_t>(static_cast<int>(rng() % 2001) - 1000);
      const std::vector<int> w(f.values, f.values + 49);
      Pic expect, work = src.clone();
      reference::Filter(src, &rect, &expect, [&](int x, int y, int c) {
        return reference::Convolve(src, x, y, c, size, w.data(), divisor, 40);
      });
      ASSERT_EQ(ApplyUserFilter(&work, nullptr, &rect, f), kOpDone);
      EXPECT_TRUE(SamePixels(work, expect)) << size << " " << divisor;
    }
  UserFilter bad{};
  bad.size = 8;
  bad.divisor = 1;
  EXPECT_EQ(ApplyUserFilter(&src, nullptr, nullptr, bad), kOpEmptyRect);
  Pic bin(MakePicture(TSL_BINARY, 4, 4));
  bad.size = 3;
  EXPECT_EQ(ApplyUserFilter(&bin, nullptr, nullptr, bad), kOpNotBilevel);
}

}  // namespace
