// Batch runs with worker threads against the same runs in one thread: the
// same files byte for byte, the same questions and messages in the same
// order, the conversion question answered before anything is put in place,
// and nothing left behind by a stopped run.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "files/batch_model.h"
#include "files/batch_pipeline.h"
#include "imgproc/op_args.h"
#include "default_settings.h"
#include "test_util.h"

namespace quilla {
namespace {

using testutil::ReadFile;
using testutil::TempDir;

int Fmt(const char *name) { return tslFormatGetIndex(name); }


// Writes down everything the run shows or asks, in order (the folders'
// names left out); says yes to every other overwrite question.
class LogUi : public BatchUi {
 public:
  LogUi(std::string in_dir, std::string out_dir) : in_dir_(std::move(in_dir)), out_dir_(std::move(out_dir)) {}
  std::vector<std::string> log;
  std::vector<std::string> files_when_asked;

  int AskConversion(const std::string &path, const TslFormatInfo &, const TslPicture &, int) override {
    Log("convert " + path);
    files_when_asked = testutil::DirNames(out_dir_, false);
    return 24;  // 256 colours
  }
  void Message(const std::string &text) override { Log("message " + text); }
  bool Confirm(const std::string &q) override {
    Log("confirm " + q);
    return (++confirms_ % 2) == 1;
  }
  void ShowConverting(const std::string &text) override { Log(text); }

 private:
  void Log(std::string text) {
    for (const std::string *dir : {&in_dir_, &out_dir_})
      for (size_t at; (at = text.find(*dir)) != std::string::npos;) text.replace(at, dir->size(), "DIR");
    log.push_back(text);
  }
  std::string in_dir_, out_dir_;
  int confirms_ = 0;
};

struct Outcome {
  std::vector<std::string> log;
  std::map<std::string, std::string> files;  // name -> bytes
  std::vector<std::string> asked_with;
};

// The input folder: pictures of several kinds, a broken file, and a
// picture whose output an earlier file of the list writes.
std::vector<std::string> MakeInputs(const TempDir &dir) {
  std::vector<std::string> inputs;
  for (int k = 0; k < 7; ++k) {
    testutil::Pic pic(testutil::MakePicture(k % 3 == 2 ? TSL_GREY : TSL_RGB, 41 + k, 29, k + 1));
    TslParams p;
    tslDefaultParams(&p);
    const char *format = k % 2 ? "bmp" : "png";
    p.format = Fmt(format);
    p.flags = TSL_FLAG_SAVE;
    inputs.push_back(dir.file("in" + std::to_string(k) + "." + format));
    EXPECT_EQ(tslSave(inputs.back().c_str(), &pic, &p), TSL_OK);
  }
  testutil::WriteFile(dir.file("broken.png"), "\x89PNG\r\n\x1a\n not really");
  inputs.insert(inputs.begin() + 3, dir.file("broken.png"));
  return inputs;
}

Outcome RunOnce(unsigned threads, const char *format, OverwritePolicy policy, unsigned flags) {
  testutil::DefaultSettings s;
  TempDir in, out;
  std::vector<std::string> inputs = MakeInputs(in);
  // An output there already, for the overwrite policy; and the output of
  // in1.bmp converted again right after it.
  testutil::WriteFile(out.file(std::string("in2.") + format), "old");
  inputs.insert(inputs.begin() + 2, out.file(std::string("in1.") + format));
  LogUi ui(in.path(), out.path());
  BatchRun run = BatchRun::Multi(inputs, out.path(), Fmt(format));
  std::vector<std::string> words = SplitWords("-negate -rotate 90");
  std::string error;
  for (size_t i = 0; i < words.size();) EXPECT_EQ(ParseOperation(words, &i, &run.operations, &error), 1);
  run.overwrite = policy;
  run.flags = flags;
  run.SetThreads(threads);
  while (!run.Ready(s.rec, std::chrono::milliseconds(50)) || !run.Step(ui, s.rec)) {
  }
  Outcome o;
  o.log = ui.log;
  o.asked_with = ui.files_when_asked;
  for (const std::string &name : testutil::DirNames(out.path(), true)) o.files[name] = ReadFile(out.file(name));
  return o;
}

TEST(BatchPipeline, SameFilesQuestionsAndOrderAsOneThread) {
  struct Case {
    const char *format;
    OverwritePolicy policy;
    unsigned flags;
  } cases[] = {{"png", OverwritePolicy::kAsk, kBatchSuppressErrors},
               {"gif", OverwritePolicy::kRename, kBatchSuppressErrors},
               {"png", OverwritePolicy::kReplace, 0}};
  for (const Case &c : cases) {
    SCOPED_TRACE(std::string(c.format) + " policy " + std::to_string(static_cast<int>(c.policy)));
    const Outcome one = RunOnce(1, c.format, c.policy, c.flags);
    const Outcome four = RunOnce(4, c.format, c.policy, c.flags);
    EXPECT_EQ(four.log, one.log);
    ASSERT_EQ(four.files.size(), one.files.size());
    for (const auto &f : one.files) EXPECT_EQ(four.files.at(f.first), f.second) << f.first;
    EXPECT_EQ(four.asked_with, one.asked_with);
  }
  // The GIF run asks its conversion once, at the first file, when only the
  // file that was there before exists; the run without "Suppress read
  // errors" ends at the broken file.
  const Outcome gif = RunOnce(3, "gif", OverwritePolicy::kRename, kBatchSuppressErrors);
  EXPECT_EQ(std::count_if(gif.log.begin(), gif.log.end(), [](const std::string &l) { return l[0] == 'c'; }), 1);
  EXPECT_EQ(gif.asked_with, std::vector<std::string>{"in2.gif"});
  const Outcome stops = RunOnce(2, "png", OverwritePolicy::kReplace, 0);
  EXPECT_EQ(stops.files.size(), 3u);  // in0, in1 (twice), in2
  ASSERT_GE(stops.log.size(), 2u);
  EXPECT_EQ(stops.log[stops.log.size() - 2], "Converting \n    broken.png");
  EXPECT_EQ(stops.log.back().rfind("message ", 0), 0u);
}

TEST(BatchPipeline, StopLeavesNoTemporariesBehind) {
  testutil::DefaultSettings s;
  TempDir in, out;
  const std::vector<std::string> inputs = MakeInputs(in);
  LogUi ui(in.path(), out.path());
  BatchRun run = BatchRun::Multi(inputs, out.path(), Fmt("png"));
  run.SetThreads(3);
  ASSERT_TRUE(run.Ready(s.rec, std::chrono::seconds(10)));
  EXPECT_FALSE(run.Step(ui, s.rec));
  run.Stop();
  EXPECT_TRUE(run.Step(ui, s.rec));
  EXPECT_EQ(testutil::DirNames(out.path(), true), std::vector<std::string>{"in0.png"});
}

}  // namespace
}  // namespace quilla
