// Output naming: "#" templates, sequences, output directories and the
// "%s_%d%s" renaming of the Rename policy.
#include <gtest/gtest.h>

#include "test_util.h"
#include "tools/tesconv/tesconv.h"

namespace quilla {
namespace {

TEST(TesconvNaming, ClaimsApplyThePolicyAndNeverHandOutANameTwice) {
  testutil::TempDir dir;
  const std::string a = dir.file("a.png");
  testutil::WriteFile(a, "x");
  OutputClaims claims;
  EXPECT_EQ(claims.Claim(a, Overwrite::kSkip), "");
  EXPECT_EQ(claims.Claim(a, Overwrite::kReplace), a);
  EXPECT_EQ(claims.Claim(a, Overwrite::kRename), dir.file("a_1.png"));
  EXPECT_EQ(claims.Claim(a, Overwrite::kRename), dir.file("a_2.png"));  // a_1 claimed, not yet written
  const std::string fresh = dir.file("new.png");
  EXPECT_EQ(claims.Claim(fresh, Overwrite::kSkip), fresh);
  EXPECT_EQ(claims.Claim(fresh, Overwrite::kSkip), "");  // a second input with the same output name
  // Every number taken: the last one is used again.
  for (int n = 1; n <= 998; ++n) testutil::WriteFile(dir.file("b_" + std::to_string(n) + ".png"), "");
  testutil::WriteFile(dir.file("b.png"), "");
  EXPECT_EQ(claims.Claim(dir.file("b.png"), Overwrite::kRename), dir.file("b_998.png"));
}

ConvOptions Options(const std::vector<std::string> &args) {
  ConvOptions opt;
  std::string error;
  EXPECT_TRUE(ParseCommandLine(args, &opt, &error)) << error;
  return opt;
}

TEST(TesconvNaming, PlanDirectoriesTemplatesAndSequences) {
  std::vector<ConvJob> jobs;
  std::string error;
  ASSERT_TRUE(PlanJobs(Options({"-out", "png", "-o", "out/", "p/a.jpg", "b.gif"}), &jobs, &error));
  ASSERT_EQ(jobs.size(), 2u);
  EXPECT_EQ(jobs[0].output, "out/a.jpg");
  EXPECT_EQ(jobs[1].output, "out/b.gif");

  ASSERT_TRUE(PlanJobs(Options({"-out", "png", "-o", "conv##.png", "a.jpg", "b.jpg", "c.jpg"}), &jobs, &error));
  ASSERT_EQ(jobs.size(), 3u);
  EXPECT_EQ(jobs[2].output, "conv03.png");

  ASSERT_TRUE(PlanJobs(Options({"-out", "png", "p/a.jpg"}), &jobs, &error));
  EXPECT_EQ(jobs[0].output, "p/a.jpg");  // beside the input; the extension is fixed at save time

  EXPECT_FALSE(PlanJobs(Options({"-out", "png", "-o", "one.png", "a.jpg", "b.jpg"}), &jobs, &error));
  EXPECT_FALSE(error.empty());

  ASSERT_TRUE(PlanJobs(Options({"-n", "8", "12", "2", "-out", "png", "-o", "o/t#.png", "s/img###.ppm"}), &jobs, &error));
  ASSERT_EQ(jobs.size(), 3u);
  EXPECT_EQ(jobs[0].input, "s/img008.ppm");
  EXPECT_EQ(jobs[0].output, "o/t8.png");
  EXPECT_EQ(jobs[2].input, "s/img012.ppm");
  EXPECT_EQ(jobs[2].output, "o/t12.png");

  ASSERT_TRUE(PlanJobs(Options({"-n", "1", "2", "1", "-out", "png", "-o", "o/", "s/f#.ppm"}), &jobs, &error));
  ASSERT_EQ(jobs.size(), 2u);
  EXPECT_EQ(jobs[1].output, "o/f2.ppm");

  // A reversed range converts the file as it is named.
  ASSERT_TRUE(PlanJobs(Options({"-n", "5", "1", "1", "-out", "png", "s/f#.ppm"}), &jobs, &error));
  ASSERT_EQ(jobs.size(), 1u);
  EXPECT_EQ(jobs[0].input, "s/f#.ppm");
}

TEST(TesconvNaming, ErrorLineNamesThePathOnOneLine) {
  EXPECT_EQ(ErrorLine("/x/a.png", TSL_ERR_OPEN, nullptr), "Can't open file <\x2fx/a.png>");
  EXPECT_EQ(ErrorLine("a.png", TSL_ERR_CORRUPT, nullptr), "a.png: Corrupt image");
  EXPECT_EQ(ErrorLine("a.png", TSL_ERR_BAD_FILE, "bad header"), "a.png: bad header");
  EXPECT_EQ(ErrorLine("a.png", TSL_ERR_INTERNAL, nullptr), "a.png: Contact your dealer");
}

}  // namespace
}  // namespace quilla
