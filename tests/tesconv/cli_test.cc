// The tesconv program end to end: real files in a temporary directory, the
// real binary, its exit status and what it leaves on disk.
#include <gtest/gtest.h>

#include <cstdio>

#include "test_util.h"

namespace {

using testutil::FileExists;
using testutil::ReadFile;
using testutil::TempDir;
using testutil::WriteFile;

std::string Quote(const std::string &s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

int Tesconv(const std::vector<std::string> &args, std::string *out = nullptr) {
  std::string cmd = Quote(std::string(QUILLA_BINARY_DIR) + "/tools/tesconv/tesconv");
  for (const std::string &a : args) cmd += " " + Quote(a);
  return testutil::Run(cmd, out);
}

// A binary PPM written by hand, so the inputs do not depend on our writers.
std::string MakePpm(const std::string &path, int w, int h, int seed) {
  std::string data = "P6\n" + std::to_string(w) + " " + std::to_string(h) + "\n255\n";
  for (int i = 0; i < w * h * 3; ++i) data += static_cast<char>((i * 7 + seed * 31 + i / 3 * seed) & 0xff);
  WriteFile(path, data);
  return path;
}

bool Load(const std::string &path, TslPicture *pic) {
  return tslLoad(path.c_str(), pic, nullptr) == TSL_OK;
}

// The PNG written for a PPM holds exactly its pixels.
void ExpectSamePicture(const std::string &ppm, const std::string &png) {
  TslPicture a, b;
  ASSERT_TRUE(testutil::ReadPnm(ppm, &a)) << ppm;
  ASSERT_TRUE(Load(png, &b)) << png;
  EXPECT_TRUE(testutil::SameColors(a, b)) << png;
  tslFree(&a);
  tslFree(&b);
}

TEST(TesconvCli, FailingFilesAreReportedAndTheOthersStillConverted) {
  TempDir d;
  MakePpm(d.file("a.ppm"), 9, 7, 1);
  MakePpm(d.file("b.ppm"), 4, 11, 2);
  WriteFile(d.file("bad.ppm"), "P6\n4 4\n255\nshort");
  std::string out;
  int rc = Tesconv({"-j", "2", "-out", "png", d.file("a.ppm"), d.file("bad.ppm"), d.file("missing.ppm"),
                    d.file("b.ppm")},
                   &out);
  EXPECT_NE(rc, 0);
  EXPECT_NE(out.find("bad.ppm"), std::string::npos) << out;
  EXPECT_NE(out.find("Can't open file <" + d.file("missing.ppm") + ">"), std::string::npos) << out;
  ExpectSamePicture(d.file("a.ppm"), d.file("a.png"));
  ExpectSamePicture(d.file("b.ppm"), d.file("b.png"));
  EXPECT_FALSE(FileExists(d.file("missing.png")));
  EXPECT_EQ(Tesconv({"-out", "png", d.file("a.ppm")}), 0);
}

TEST(TesconvCli, DeleteOriginalOnlyAfterASuccessfulSaveToAnotherFile) {
  TempDir d;
  MakePpm(d.file("a.ppm"), 5, 5, 3);
  EXPECT_EQ(Tesconv({"-D", "-out", "png", d.file("a.ppm")}), 0);
  EXPECT_TRUE(FileExists(d.file("a.png")));
  EXPECT_FALSE(FileExists(d.file("a.ppm")));

  // Converted onto itself: kept, also when spelled differently.
  std::string same = MakePpm(d.file("s.ppm"), 5, 5, 4);
  EXPECT_EQ(Tesconv({"-D", "-out", "ppm", same}), 0);
  EXPECT_TRUE(FileExists(same));
  EXPECT_EQ(Tesconv({"-D", "-out", "ppm", "-o", d.path() + "/./", same}), 0);
  EXPECT_TRUE(FileExists(same));
  ExpectSamePicture(same, same);

  // The save fails (the output directory is a plain file): the original stays.
  MakePpm(d.file("k.ppm"), 5, 5, 5);
  WriteFile(d.file("plain"), "x");
  EXPECT_NE(Tesconv({"-D", "-out", "png", "-o", d.file("plain") + "/k#.png", d.file("k.ppm")}), 0);
  EXPECT_TRUE(FileExists(d.file("k.ppm")));

  // A skipped output is no conversion: the original stays.
  WriteFile(d.file("k.png"), "old");
  EXPECT_EQ(Tesconv({"-D", "-skip", "-out", "png", d.file("k.ppm")}), 0);
  EXPECT_TRUE(FileExists(d.file("k.ppm")));
  EXPECT_EQ(ReadFile(d.file("k.png")), "old");
}

TEST(TesconvCli, OverwritePolicies) {
  TempDir d;
  MakePpm(d.file("a.ppm"), 6, 3, 6);
  WriteFile(d.file("a.png"), "old");
  WriteFile(d.file("a_1.png"), "old1");
  EXPECT_EQ(Tesconv({"-skip", "-out", "png", d.file("a.ppm")}), 0);
  EXPECT_EQ(ReadFile(d.file("a.png")), "old");

  EXPECT_EQ(Tesconv({"-rename", "-out", "png", d.file("a.ppm")}), 0);
  EXPECT_EQ(ReadFile(d.file("a.png")), "old");
  EXPECT_EQ(ReadFile(d.file("a_1.png")), "old1");
  ExpectSamePicture(d.file("a.ppm"), d.file("a_2.png"));

  EXPECT_EQ(Tesconv({"-out", "png", d.file("a.ppm")}), 0);  // replace is the default
  ExpectSamePicture(d.file("a.ppm"), d.file("a.png"));

  // Two inputs with one output name, converted in parallel: no name twice.
  MakePpm(d.file("c.ppm"), 3, 3, 7);
  MakePpm(d.file("sub_c.ppm"), 4, 4, 8);
  ASSERT_EQ(std::system(("mkdir -p " + Quote(d.file("x")) + " && cp " + Quote(d.file("sub_c.ppm")) + " " +
                         Quote(d.file("x/c.ppm")))
                            .c_str()),
            0);
  EXPECT_EQ(Tesconv({"-j", "2", "-rename", "-out", "png", "-o", d.file("out/"), d.file("c.ppm"), d.file("x/c.ppm")}),
            0);
  EXPECT_TRUE(FileExists(d.file("out/c.png")));
  EXPECT_TRUE(FileExists(d.file("out/c_1.png")));
}

TEST(TesconvCli, TemplatesAndSequences) {
  TempDir d;
  for (int n = 1; n <= 4; ++n) MakePpm(d.file("s00" + std::to_string(n) + ".ppm"), 4, 4, n);
  EXPECT_EQ(Tesconv({"-n", "1", "3", "2", "-out", "png", "-o", d.file("t##.png"), d.file("s###.ppm")}), 0);
  ExpectSamePicture(d.file("s001.ppm"), d.file("t01.png"));
  ExpectSamePicture(d.file("s003.ppm"), d.file("t03.png"));
  EXPECT_FALSE(FileExists(d.file("t02.png")));

  EXPECT_EQ(Tesconv({"-out", "png", "-o", d.file("m#.png"), d.file("s002.ppm"), d.file("s004.ppm")}), 0);
  ExpectSamePicture(d.file("s002.ppm"), d.file("m1.png"));
  ExpectSamePicture(d.file("s004.ppm"), d.file("m2.png"));

  // A missing member of a sequence fails alone.
  std::string out;
  EXPECT_NE(Tesconv({"-n", "3", "5", "1", "-out", "png", "-o", d.file("q/"), d.file("s###.ppm")}, &out), 0);
  EXPECT_TRUE(FileExists(d.file("q/s003.png")));
  EXPECT_TRUE(FileExists(d.file("q/s004.png")));
  EXPECT_NE(out.find("s005.ppm"), std::string::npos) << out;
}

TEST(TesconvCli, OperationsRunInOrderAndOutputsFitTheFormat) {
  TempDir d;
  MakePpm(d.file("a.ppm"), 10, 6, 9);
  EXPECT_EQ(Tesconv({"-xflip", "-resize", "50%", "50%", "-out", "png", d.file("a.ppm")}), 0);
  TslPicture src, out;
  ASSERT_TRUE(testutil::ReadPnm(d.file("a.ppm"), &src));
  ASSERT_TRUE(Load(d.file("a.png"), &out));
  EXPECT_EQ(out.width, 5u);
  EXPECT_EQ(out.height, 3u);
  tslFree(&out);

  EXPECT_EQ(Tesconv({"-xflip", "-out", "png", "-o", d.file("f.png"), d.file("a.ppm")}), 0);
  ASSERT_TRUE(Load(d.file("f.png"), &out));
  std::vector<uint8_t> a(src.width * 3), b(src.width * 3);
  for (uint32_t y = 0; y < src.height; ++y) {
    tslGetRowRGB(&src, y, a.data());
    tslGetRowRGB(&out, y, b.data());
    for (uint32_t x = 0; x < src.width; ++x)
      for (int c = 0; c < 3; ++c) ASSERT_EQ(a[3 * x + c], b[3 * (src.width - 1 - x) + c]);
  }
  tslFree(&out);

  // True colour into a bilevel-only format is converted, not refused.
  EXPECT_EQ(Tesconv({"-out", "pbm", d.file("a.ppm")}), 0);
  ASSERT_TRUE(Load(d.file("a.pbm"), &out));
  EXPECT_EQ(out.color_model, TSL_BINARY);
  EXPECT_EQ(out.width, 10u);
  tslFree(&out);
  tslFree(&src);
}

TEST(TesconvCli, FormatsListingLayout) {
  std::string out;
  ASSERT_EQ(Tesconv({"-formats"}, &out), 0);
  std::vector<std::string> lines;
  size_t start = 0;
  for (size_t nl; (nl = out.find('\n', start)) != std::string::npos; start = nl + 1)
    lines.push_back(out.substr(start, nl - start));
  ASSERT_EQ(static_cast<int>(lines.size()), tslCount() + 1);
  EXPECT_EQ(lines[0], "Name                             Read Write Extension");
  const int png = tslFormatGetIndex("png");
  ASSERT_GE(png, 0);
  EXPECT_EQ(lines[png + 1].substr(0, 44), "Portable Network Graphics        Yes  Yes   ");
  EXPECT_EQ(lines[png + 1].substr(44), "png");
  for (int f = 0; f < tslCount(); ++f) {
    const std::string &l = lines[f + 1];
    ASSERT_GE(l.size(), 44u) << l;
    EXPECT_EQ(l.substr(0, 32).find_last_not_of(' ') + 1, std::string(tslFormatGetDescription(f)).size()) << l;
    EXPECT_EQ(l.substr(33, 4), tslFormatIsSupported(f) ? "Yes " : "No  ") << l;
    EXPECT_EQ(l.substr(38, 5), tslFormatIsWritable(f) ? "Yes  " : "No   ") << l;
  }
}

TEST(TesconvCli, InfoDescribesFilesAndFailsOnBadOnes) {
  TempDir d;
  MakePpm(d.file("a.ppm"), 13, 8, 1);
  std::string out;
  EXPECT_EQ(Tesconv({"-info", d.file("a.ppm")}, &out), 0);
  EXPECT_NE(out.find("Size:           13x8\n"), std::string::npos) << out;
  EXPECT_NE(out.find("(ppm)"), std::string::npos) << out;
  EXPECT_NE(out.find("Colors:         16 Millions\n"), std::string::npos) << out;
  EXPECT_NE(out.find("Pages:          1\n"), std::string::npos) << out;
  WriteFile(d.file("junk.png"), "not a picture at all");
  EXPECT_EQ(Tesconv({"-info", d.file("junk.png"), d.file("a.ppm")}, &out), 1);
  EXPECT_NE(out.find("junk.png"), std::string::npos) << out;
  EXPECT_NE(out.find("13x8"), std::string::npos) << out;
  EXPECT_EQ(Tesconv({"-out", "png", "-nonsense", d.file("a.ppm")}, &out), 2);
}

}  // namespace
