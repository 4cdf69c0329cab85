// Batch conversion without a display: one file's conversion under each
// overwrite policy, "Delete Original" and "Suppress read errors", the runs,
// the sequence set-up, and the scripts, run for real through tesconv.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "files/batch_model.h"
#include "imgproc/op_args.h"
#include "default_settings.h"
#include "test_util.h"

namespace quilla {
namespace {

using testutil::FileExists;
using testutil::ReadFile;
using testutil::TempDir;

using Settings = testutil::DefaultSettings;

// Answers the questions from a script and records what was shown.
class ScriptedUi : public BatchUi {
 public:
  std::vector<bool> answers;
  std::vector<std::string> questions, messages, shown;
  int conversions_asked = 0, conversion_answer = 32;

  int AskConversion(const std::string &, const TslFormatInfo &, const TslPicture &, int) override {
    ++conversions_asked;
    return conversion_answer;
  }
  void Message(const std::string &text) override { messages.push_back(text); }
  bool Confirm(const std::string &q) override {
    questions.push_back(q);
    bool a = !answers.empty() && answers.front();
    if (!answers.empty()) answers.erase(answers.begin());
    return a;
  }
  void ShowConverting(const std::string &text) override { shown.push_back(text); }
};

int Fmt(const char *name) { return tslFormatGetIndex(name); }

void WritePicture(const std::string &path, const char *format, uint32_t seed = 1, int model = TSL_RGB) {
  testutil::Pic pic(testutil::MakePicture(model, 37, 23, seed));
  TslParams p;
  tslDefaultParams(&p);
  p.format = Fmt(format);
  p.flags = TSL_FLAG_SAVE;
  ASSERT_EQ(tslSave(path.c_str(), &pic, &p), TSL_OK) << path;
}

ConvertRequest Request(const std::string &in, const std::string &out, OverwritePolicy policy, unsigned flags = 0) {
  ConvertRequest r;
  r.input = in;
  r.output = out;
  r.out_format = Fmt("png");
  r.overwrite = policy;
  r.flags = flags;
  return r;
}

std::vector<std::string> Names(const std::string &dir) { return testutil::DirNames(dir); }

TEST(ConvertOneFile, OverwritePolicies) {
  Settings s;
  TempDir dir;
  const std::string in = dir.file("src.bmp"), out = dir.file("a.png");
  WritePicture(in, "bmp");
  for (const char *name : {"a.png", "a_1.png", "a_2.png"}) testutil::WriteFile(dir.file(name), "old");

  ScriptedUi ui;
  ConvertOutcome o;
  // The output name gets the format's extension before the existence test.
  EXPECT_EQ(ConvertOneFile(ui, s.rec, Request(in, dir.file("a.jpg"), OverwritePolicy::kSkip), &o), 1);
  EXPECT_TRUE(o.skipped);
  EXPECT_EQ(ReadFile(out), "old");

  ui.answers = {false};
  EXPECT_EQ(ConvertOneFile(ui, s.rec, Request(in, out, OverwritePolicy::kAsk), &o), 1);
  EXPECT_TRUE(o.skipped);
  EXPECT_EQ(ui.questions.back(), "Do you want to overwrite\n<" + out + "> ?");
  EXPECT_EQ(ReadFile(out), "old");
  ui.answers = {true};
  EXPECT_EQ(ConvertOneFile(ui, s.rec, Request(in, out, OverwritePolicy::kAsk), &o), 1);
  EXPECT_TRUE(o.saved);
  EXPECT_NE(ReadFile(out), "old");

  EXPECT_EQ(ConvertOneFile(ui, s.rec, Request(in, out, OverwritePolicy::kRename), &o), 1);
  EXPECT_EQ(o.written, dir.file("a_3.png"));
  EXPECT_EQ(ReadFile(dir.file("a_2.png")), "old");

  testutil::WriteFile(out, "old");
  EXPECT_EQ(ConvertOneFile(ui, s.rec, Request(in, out, OverwritePolicy::kReplace), &o), 1);
  EXPECT_EQ(o.written, out);
  EXPECT_EQ(ReadFile(out).substr(1, 3), "PNG");
  EXPECT_TRUE(ui.messages.empty());
}

TEST(ConvertOneFile, DeleteOriginalOnlyAfterAGoodSaveAndNeverOntoItself) {
  Settings s;
  TempDir dir;
  const std::string a = dir.file("a.png"), b = dir.file("b.bmp");
  WritePicture(a, "png");
  WritePicture(b, "bmp");
  ScriptedUi ui;
  ConvertOutcome o;

  // Onto itself: the same string, and the same file under another spelling.
  EXPECT_EQ(ConvertOneFile(ui, s.rec, Request(a, a, OverwritePolicy::kReplace, kBatchDeleteOriginal), &o), 1);
  EXPECT_TRUE(o.saved && !o.deleted);
  EXPECT_TRUE(FileExists(a));
  const std::string alias = dir.path() + "/./a.png";
  EXPECT_EQ(ConvertOneFile(ui, s.rec, Request(a, alias, OverwritePolicy::kReplace, kBatchDeleteOriginal), &o), 1);
  EXPECT_TRUE(FileExists(a));

  // A save that fails (no such directory) keeps the original and stops the run.
  EXPECT_EQ(ConvertOneFile(ui, s.rec, Request(b, dir.file("none/b.png"), OverwritePolicy::kReplace,
                                               kBatchDeleteOriginal | kBatchSuppressErrors), &o), 0);
  EXPECT_FALSE(o.saved || o.deleted);
  EXPECT_TRUE(FileExists(b));

  EXPECT_EQ(ConvertOneFile(ui, s.rec, Request(b, dir.file("b.png"), OverwritePolicy::kReplace, kBatchDeleteOriginal),
                           &o), 1);
  EXPECT_TRUE(o.saved && o.deleted);
  EXPECT_FALSE(FileExists(b));
  testutil::Pic back;
  TslParams p;
  tslDefaultParams(&p);
  EXPECT_EQ(tslLoad(dir.file("b.png").c_str(), &back, &p), TSL_OK);
}

TEST(ConvertOneFile, ReadErrorsStopTheRunUnlessSuppressed) {
  Settings s;
  TempDir dir;
  testutil::WriteFile(dir.file("bad.png"), "\x89PNG\r\n\x1a\n garbage");
  WritePicture(dir.file("good.bmp"), "bmp");

  ScriptedUi quiet;
  BatchRun run = BatchRun::Multi({dir.file("bad.png"), dir.file("good.bmp")}, dir.file(""), Fmt("png"));
  run.flags = kBatchSuppressErrors;
  while (!run.Step(quiet, s.rec)) {
  }
  EXPECT_TRUE(quiet.messages.empty());
  EXPECT_EQ(run.done(), 2u);
  EXPECT_TRUE(FileExists(dir.file("good.png")));
  EXPECT_TRUE(run.refresh());
  EXPECT_EQ(quiet.shown.front(), "Converting \n    bad.png");

  ::unlink(dir.file("good.png").c_str());
  ScriptedUi loud;
  BatchRun stops = BatchRun::Multi({dir.file("bad.png"), dir.file("good.bmp")}, "", Fmt("png"));
  while (!stops.Step(loud, s.rec)) {
  }
  ASSERT_EQ(loud.messages.size(), 1u);
  EXPECT_NE(loud.messages[0].find("bad.png"), std::string::npos);
  EXPECT_EQ(stops.done(), 1u);
  EXPECT_FALSE(FileExists(dir.file("good.png")));
}

TEST(BatchRun, TheConversionQuestionIsAskedOncePerRunAndStopEndsIt) {
  Settings s;
  TempDir in, out;
  std::vector<std::string> files;
  for (int k = 0; k < 3; ++k) {
    files.push_back(in.file("p" + std::to_string(k) + ".png"));
    WritePicture(files.back(), "png", k + 1);
  }
  ScriptedUi ui;
  ui.conversion_answer = 24;  // 256 colours, for a format that cannot hold true colour
  BatchRun run = BatchRun::Multi(files, out.path(), Fmt("gif"));
  while (!run.Step(ui, s.rec)) {
  }
  EXPECT_EQ(ui.conversions_asked, 1);
  EXPECT_EQ(Names(out.path()).size(), 3u);

  ScriptedUi ui2;
  BatchRun seq = BatchRun::Sequence(SequenceSetup{in.file("p#.png"), out.file("q##.bmp"), kDetectFormat, Fmt("bmp"),
                                                  0, 2, 1});
  EXPECT_FALSE(seq.Step(ui2, s.rec));
  seq.Stop();
  EXPECT_TRUE(seq.Step(ui2, s.rec));
  EXPECT_FALSE(seq.refresh());  // a stopped sequence leaves the list as it is
  EXPECT_TRUE(FileExists(out.file("q00.bmp")));
  EXPECT_FALSE(FileExists(out.file("q01.bmp")));
}

TEST(SequenceSetup, FieldsTemplatesAndRange) {
  SequenceSetup setup;
  std::string error;
  SequenceFields f;
  f.in_dir = "/in";
  f.out_file = "o#.png";
  EXPECT_FALSE(MakeSequenceSetup(f, &setup, &error));
  EXPECT_EQ(error, "The input filename is missing !!");
  f.in_file = "img###.tif";
  f.out_file = "";
  EXPECT_FALSE(MakeSequenceSetup(f, &setup, &error));
  EXPECT_EQ(error, "The output filename is missing !!");

  f.out_file = "o#.png";
  f.start = 5, f.end = 1, f.step = 1;
  ASSERT_TRUE(MakeSequenceSetup(f, &setup, &error));
  EXPECT_EQ(setup.in_template, "/in/img###.tif");
  EXPECT_EQ(setup.out_template, "/in/o#.png");  // the output directory defaults to the input's
  EXPECT_EQ(setup.start, kNoSequenceRange);
  BatchRun single = BatchRun::Sequence(setup);
  ASSERT_EQ(single.jobs().size(), 1u);
  EXPECT_EQ(single.jobs()[0].input, "/in/img###.tif");

  f.out_dir = "/out/";
  f.start = 8, f.end = 12, f.step = 2;
  ASSERT_TRUE(MakeSequenceSetup(f, &setup, &error));
  BatchRun run = BatchRun::Sequence(setup);
  ASSERT_EQ(run.jobs().size(), 3u);
  EXPECT_EQ(run.jobs()[2].input, "/in/img012.tif");
  EXPECT_EQ(run.jobs()[2].output, "/out/o12.png");
  f.step = 0;
  ASSERT_TRUE(MakeSequenceSetup(f, &setup, &error));
  EXPECT_EQ(setup.start, kNoSequenceRange);
  EXPECT_EQ(MultiOutputPath("", "/a/b/c.gif"), "/a/b/c.gif");  // beside the input
}

OpProcessList Ops(const std::string &text) {
  OpProcessList list;
  std::vector<std::string> w = SplitWords(text);
  std::string error;
  for (size_t i = 0; i < w.size();) EXPECT_EQ(ParseOperation(w, &i, &list, &error), 1) << error;
  return list;
}

TEST(Script, WriterOrderAndReaderRoundTrip) {
  Settings s;
  s.rec.Load.PcdBase = 4;
  const OpProcessList ops = Ops("-negate -yflip -blur 3");
  ScriptSettings multi = MultiScript({"/in/a.pcd", "/in/b.jpg"}, "/out", Fmt("png"), kBatchDeleteOriginal, ops, s.rec);
  const std::string line = SaveScriptLine(multi);
  EXPECT_EQ(line.rfind("tesconv -npcd 4 -out png -D -o /out/ -negate -yflip ", 0), 0u) << line;
  EXPECT_EQ(line.substr(line.size() - 20), "/in/a.pcd /in/b.jpg ");

  s.rec.Load.RawWidth = 64, s.rec.Load.RawHeight = 32, s.rec.Load.RawOffset = 16;
  s.rec.Load.ChannelOrder = TSL_ORDER_BGR, s.rec.Load.ChannelType = TSL_CHANNEL_PLANAR;
  SequenceSetup setup{"/in/f##.raw", "/out/g##.png", Fmt("raw"), Fmt("png"), 1, 9, 2};
  ScriptSettings seq = SequenceScript(setup, 0, {}, s.rec);
  EXPECT_EQ(SaveScriptLine(seq),
            "tesconv -size 64x32+16 -ctype bgr -corder seq -in raw -n 1 9 2 -out png -o /out/g##.png /in/f##.raw ");

  // "Set DPI" is written without values: numeric input names after it must
  // not be read back as resolutions.
  ScriptSettings dpi = MultiScript({"10", "2"}, "/out", Fmt("png"), 0, Ops("-dpi"), s.rec);
  EXPECT_NE(SaveScriptLine(dpi).find("-dpi ./10 2 "), std::string::npos) << SaveScriptLine(dpi);

  TempDir dir;
  for (const ScriptSettings &script : {multi, seq, dpi}) {
    ASSERT_TRUE(WriteScriptFile(dir.file("s.sh"), script));
    ScriptSettings back;
    std::string error;
    ASSERT_TRUE(ReadScriptFile(dir.file("s.sh"), &back, &error)) << error;
    EXPECT_EQ(SaveScriptLine(back), SaveScriptLine(script));
  }

  const char *bad[] = {"", "convert -out png a", "tesconv -out nosuchformat a", "tesconv -out png",
                       "tesconv a.png", "tesconv -out png -n 1 2 a", "tesconv -out png -size 3x a",
                       "tesconv -out png -blur x a", "tesconv -out png -bogus a", "tesconv -in png -out png a"};
  for (const char *text : bad) {
    ScriptSettings out;
    std::string error;
    EXPECT_FALSE(ReadScriptLine(text, &out, &error)) << text;
    EXPECT_FALSE(error.empty());
  }
}

// The script a user saves, run by the shell through the real converter,
// writes the same files as the dialog's own conversion.
TEST(Script, RunsThroughTheConverterToTheSameFiles) {
  const std::string tesconv = std::string(QUILLA_BINARY_DIR) + "/tools/tesconv/tesconv";
  ASSERT_TRUE(FileExists(tesconv));
  Settings s;
  // The converter's own defaults where they differ from the Save settings'
  // (the script line carries no compression).
  s.rec.Save.PngCompressionLevel = 6;
  s.rec.Save.TiffCompress = TSL_TIFF_LZW;
  TempDir in, by_model, by_script;
  std::vector<std::string> inputs;
  for (int k = 0; k < 3; ++k) {
    inputs.push_back(in.file("pic" + std::to_string(k) + (k == 1 ? ".bmp" : ".png")));
    WritePicture(inputs.back(), k == 1 ? "bmp" : "png", k + 5, k == 2 ? TSL_GREY : TSL_RGB);
  }
  const OpProcessList ops = Ops("-negate -xflip -rotate 90");
  for (const char *format : {"png", "bmp", "tiff"}) {
    ScriptedUi ui;
    BatchRun run = BatchRun::Multi(inputs, by_model.path(), Fmt(format));
    run.operations = ops;
    while (!run.Step(ui, s.rec)) {
    }
    EXPECT_TRUE(ui.messages.empty());
    const std::string script = by_script.file(std::string("multi-") + format + ".sh");
    ASSERT_TRUE(WriteScriptFile(script, MultiScript(inputs, by_script.file("out"), Fmt(format), 0, ops, s.rec)));
    ::mkdir(by_script.file("out").c_str(), 0777);
    ASSERT_EQ(testutil::Run("PATH='" + tesconv.substr(0, tesconv.rfind('/')) + "':$PATH sh '" + script + "'"), 0);
  }
  // A numbered sequence through both paths as well.
  SequenceSetup setup{in.file("pic#.png"), "", kDetectFormat, Fmt("png"), 0, 2, 2};
  setup.out_template = by_model.file("seq##.png");
  ScriptedUi ui;
  BatchRun seq = BatchRun::Sequence(setup);
  seq.operations = ops;
  while (!seq.Step(ui, s.rec)) {
  }
  setup.out_template = by_script.file("out/seq##.png");
  const std::string script = by_script.file("seq.sh");
  ASSERT_TRUE(WriteScriptFile(script, SequenceScript(setup, 0, ops, s.rec)));
  ASSERT_EQ(testutil::Run("PATH='" + tesconv.substr(0, tesconv.rfind('/')) + "':$PATH sh '" + script + "'"), 0);

  const std::vector<std::string> made = Names(by_model.path());
  EXPECT_EQ(made.size(), 11u);  // 3 inputs x 3 formats, and two numbers of the sequence
  EXPECT_EQ(made, Names(by_script.file("out")));
  for (const std::string &name : made)
    EXPECT_EQ(ReadFile(by_model.file(name)), ReadFile(by_script.file("out/" + name))) << name;
}

}  // namespace
}  // namespace quilla
