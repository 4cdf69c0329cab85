// Batch conversion texts: script line, numbered names, rename numbering and
// the output-name fix-up.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "imgproc/batch_text.h"
#include "imgproc/path_text.h"

using namespace quilla;

namespace {

TEST(BatchText, NameFromTemplate) {
  EXPECT_EQ(NameFromTemplate("img###.png", 7), "img007.png");
  EXPECT_EQ(NameFromTemplate("img###.png", 1234), "img1234.png");
  EXPECT_EQ(NameFromTemplate("scan.tif", 3), "scan.tif3");
  EXPECT_EQ(NameFromTemplate("/d/a#b##.x", 5), "/d/a5b##.x");  // only the first run
  EXPECT_EQ(NameFromTemplate("####", 42), "0042");
}

TEST(BatchText, RenameNumbering) {
  std::set<std::string> existing = {"/o/a.jpg", "/o/a_1.jpg", "/o/a_2.jpg"};
  auto exists = [&](const std::string &p) { return existing.count(p) > 0; };
  EXPECT_EQ(RenameOutputPath("/o/a.jpg", exists), "/o/a_3.jpg");
  EXPECT_EQ(RenameOutputPath("/o/b.jpg", exists), "/o/b_1.jpg");
  EXPECT_EQ(RenameOutputPath("/o/a.jpg", [](const std::string &) { return true; }), "/o/a_998.jpg");
  EXPECT_EQ(RenameCandidate("/o/a.b.tar", 4), "/o/a.b_4.tar");
  EXPECT_EQ(RenameCandidate("/dir.d/file", 2), "/dir.d/file_2");
}

TEST(BatchText, OutputNameFixUp) {
  EXPECT_EQ(FixOutputFileName("img###.jpg", "png"), "img###.png");
  EXPECT_EQ(FixOutputFileName("pic.tar.gz", "tif;tiff"), "pic.tif");
  EXPECT_EQ(FixOutputFileName("frame.001", "png"), "frame.001");  // a digit after the dot
  EXPECT_EQ(FixOutputFileName(".hidden", "png"), ".hidden");      // the dot is the first character
  EXPECT_EQ(FixOutputFileName("name", "png"), "name");
  EXPECT_EQ(FixOutputFileName("end.", "gif"), "end.gif");
}

TEST(BatchText, SaveScriptLine) {
  ScriptSettings multi;
  multi.output_format = "png";
  multi.output = "/out";
  multi.delete_original = true;
  multi.inputs = {"/in/a.jpg", "/in/b.gif"};
  EXPECT_EQ(SaveScriptLine(multi), "tesconv -out png -D -o /out /in/a.jpg /in/b.gif ");

  ScriptSettings seq;
  seq.sequence = true;
  seq.pcd_base = 3;
  seq.raw_width = 640;
  seq.raw_height = 480;
  seq.raw_offset = 128;
  seq.channel_type = 2;
  seq.channel_order = 1;
  seq.input_format = "raw";
  seq.start = 1;
  seq.end = 10;
  seq.step = 2;
  seq.output_format = "tiff";
  seq.output = "/out/img###.tif";
  seq.inputs = {"/in/scan###.raw"};
  EXPECT_EQ(SaveScriptLine(seq),
            "tesconv -npcd 3 -size 640x480+128 -ctype bgr -corder seq -in raw -n 1 10 2 -out tiff "
            "-o /out/img###.tif /in/scan###.raw ");
  seq.input_format.clear();
  seq.pcd_base = -1;
  seq.raw_width = -1;
  seq.channel_type = 6;
  seq.channel_order = 2;
  EXPECT_EQ(SaveScriptLine(seq), "tesconv -ctype cmyk -corder sep -n 1 10 2 -out tiff -o /out/img###.tif /in/scan###.raw ");
}

TEST(PathText, RootBareNamesAndTrailingSlashes) {
  EXPECT_EQ(FileNamePart("/a/b.png"), "b.png");
  EXPECT_EQ(FileNamePart("b.png"), "b.png");
  EXPECT_EQ(FileNamePart("/a/"), "");
  EXPECT_EQ(DirectoryPart("/a/b.png"), "/a");
  EXPECT_EQ(DirectoryPart("/b.png"), "/");
  EXPECT_EQ(DirectoryPart("b.png"), "");
  EXPECT_EQ(DirectoryWithSlash("/a/b.png"), "/a/");
  EXPECT_EQ(DirectoryWithSlash("/b.png"), "/");
  EXPECT_EQ(DirectoryWithSlash("b.png"), "");
}

}  // namespace
