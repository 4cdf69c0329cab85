// The save flow without a display: conversion codes, capability match,
// preselection, the extension rule, the parameters from the Save settings,
// and whole saves to real files with a scripted stand-in for the dialogs.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/resource.h>

#include <dirent.h>

#include <random>
#include <set>
#include <string>
#include <vector>

#include "files/save_model.h"
#include "default_settings.h"
#include "test_util.h"

namespace quilla {
namespace {

using DefaultSettings = testutil::DefaultSettings;

// A format description with the given capability entries.
TslFormatInfo Caps(std::initializer_list<TslCapability> caps) {
  TslFormatInfo info{};
  int i = 0;
  for (const TslCapability &c : caps) info.caps[i++] = c;
  info.caps[i].kind = -1;
  return info;
}

TslFormatInfo FormatNamed(const char *name) {
  TslFormatInfo info{};
  EXPECT_EQ(tslFormatGetInfo(tslFormatGetIndex(name), &info), 0) << name;
  return info;
}

TslPicture Shape(int model, int colors, uint32_t w = 8, uint32_t h = 8) {
  TslPicture p{};
  p.color_model = static_cast<int16_t>(model);
  p.colors = static_cast<int16_t>(colors);
  p.width = w, p.height = h;
  return p;
}

TEST(ConversionCodes, TogglesAndDitherSwitches) {
  EXPECT_EQ(ConversionCode(2, true, true), 2);  // the switches do not touch black and white
  EXPECT_EQ(ConversionCode(5, false, true), 5);
  EXPECT_EQ(ConversionCode(5, true, false), 12);
  EXPECT_EQ(ConversionCode(10, true, false), 17);
  EXPECT_EQ(ConversionCode(11, true, false), 11);  // 256 grey levels have no dithered form
  EXPECT_EQ(ConversionCode(12, true, false), 18);
  EXPECT_EQ(ConversionCode(12, false, true), 25);
  EXPECT_EQ(ConversionCode(18, false, true), 31);
  EXPECT_EQ(ConversionCode(19, true, true), 32);
  EXPECT_EQ(ConversionCode(0, false, false), 0);
  EXPECT_EQ(ConversionCode(20, false, false), 0);

  // Every code 1..32 is reachable and ChoiceOfCode finds its way back.
  std::set<int> reached;
  for (int code = 1; code <= 32; ++code) {
    ConversionChoice c;
    ASSERT_TRUE(ChoiceOfCode(code, &c)) << code;
    EXPECT_EQ(ConversionCode(c.toggle, c.grey_dither, c.color_dither), code);
    reached.insert(code);
  }
  EXPECT_EQ(reached.size(), 32u);
  ConversionChoice c;
  EXPECT_FALSE(ChoiceOfCode(0, &c));
  EXPECT_FALSE(ChoiceOfCode(33, &c));
  EXPECT_FALSE(ChoiceOfCode(255, &c));
}

TEST(Capabilities, FirstAcceptingEntryAndColourCounts) {
  TslFormatInfo f = Caps({{4, 16, -1, -1}, {2, 256, -1, -1}, {4, 256, 32, 32}});
  EXPECT_EQ(AcceptingCapability(f, Shape(TSL_INDEXED, 16)), 0);
  EXPECT_EQ(AcceptingCapability(f, Shape(TSL_INDEXED, 17)), 2);  // the fixed-size entry
  EXPECT_EQ(AcceptingCapability(f, Shape(TSL_GREY, 256)), 1);
  EXPECT_EQ(AcceptingCapability(f, Shape(TSL_BINARY, 2)), -1);
  EXPECT_EQ(AcceptingCapability(f, Shape(TSL_RGBA, 0)), -1);
  EXPECT_EQ(AcceptingCapability(Caps({{4, -1, -1, -1}}), Shape(TSL_INDEXED, 256)), 0);  // no limit
  EXPECT_EQ(AcceptingCapability(Caps({{1008, -1, -1, -1}}), Shape(TSL_BGRA, 0)), 0);  // any true colour
  EXPECT_EQ(AcceptingCapability(Caps({}), Shape(TSL_RGB, 0)), -1);

  FixedSize fs = ResizeFor(f.caps[2], Shape(TSL_INDEXED, 100, 64, 32));
  EXPECT_TRUE(fs.needed);
  EXPECT_EQ(fs.width, 32u);
  EXPECT_EQ(fs.height, 32u);
  EXPECT_FALSE(ResizeFor(f.caps[2], Shape(TSL_INDEXED, 100, 32, 32)).needed);
  EXPECT_FALSE(ResizeFor(f.caps[0], Shape(TSL_INDEXED, 100, 64, 32)).needed);
}

TEST(Capabilities, WhichEntryAConversionFits) {
  TslFormatInfo grey16 = Caps({{2, 16, -1, -1}});
  for (int code : {5, 6, 7, 12, 13, 14}) EXPECT_EQ(CapabilityForCode(grey16, code), 0) << code;
  for (int code : {8, 10, 11, 15, 17, 18, 1, 32}) EXPECT_EQ(CapabilityForCode(grey16, code), -1) << code;
  EXPECT_EQ(CapabilityForCode(Caps({{2, 255, -1, -1}}), 10), 0);  // 128 levels
  EXPECT_EQ(CapabilityForCode(Caps({{2, 255, -1, -1}}), 11), -1);  // 256 needs exactly 256
  EXPECT_EQ(CapabilityForCode(Caps({{2, 256, -1, -1}}), 11), 0);

  TslFormatInfo pal8 = Caps({{4, 8, -1, -1}});
  EXPECT_EQ(CapabilityForCode(pal8, 18), 0);  // 8 colours: the maximum is above 7
  EXPECT_EQ(CapabilityForCode(pal8, 25), 0);
  EXPECT_EQ(CapabilityForCode(pal8, 19), -1);
  TslFormatInfo pal216 = Caps({{4, 216, -1, -1}});
  EXPECT_EQ(CapabilityForCode(pal216, 23), 0);
  EXPECT_EQ(CapabilityForCode(pal216, 24), -1);
  EXPECT_EQ(CapabilityForCode(Caps({{4, 300, -1, -1}}), 24), -1);  // 256 colours: exactly 256
  EXPECT_EQ(CapabilityForCode(Caps({{4, 256, -1, -1}}), 31), 0);

  TslFormatInfo mixed = Caps({{1, 2, -1, -1}, {4, 256, 16, 16}, {1008, -1, -1, -1}});
  for (int code = 1; code <= 4; ++code) EXPECT_EQ(CapabilityForCode(mixed, code), 0);
  EXPECT_EQ(CapabilityForCode(mixed, 20), 1);
  EXPECT_EQ(CapabilityForCode(mixed, 32), 2);
  EXPECT_EQ(CapabilityForCode(mixed, 0), -1);
  EXPECT_EQ(CapabilityForCode(mixed, 33), -1);
}

TEST(Capabilities, DialogChoicesAndPreselection) {
  TslFormatInfo gif = FormatNamed("gif"), jpeg = FormatNamed("jpeg"), xpm = FormatNamed("xpm");
  for (int t = 1; t <= 18; ++t) EXPECT_TRUE(FormatStoresToggle(gif, t)) << t;
  EXPECT_FALSE(FormatStoresToggle(gif, 19));
  for (int t : {1, 4, 12, 18}) EXPECT_FALSE(FormatStoresToggle(jpeg, t)) << t;
  for (int t : {5, 11, 19}) EXPECT_TRUE(FormatStoresToggle(jpeg, t)) << t;

  TslPicture rgb = Shape(TSL_RGB, 0), grey = Shape(TSL_GREY, 256), bw = Shape(TSL_BINARY, 2);
  EXPECT_EQ(PreselectedConversion(gif, rgb, 0), 24);   // the richest palette
  EXPECT_EQ(PreselectedConversion(gif, rgb, 27), 27);  // the last choice, when the format takes it
  EXPECT_EQ(PreselectedConversion(gif, rgb, 32), 24);  // ...and not when it does not
  EXPECT_EQ(PreselectedConversion(jpeg, Shape(TSL_INDEXED, 256), 0), 32);
  EXPECT_EQ(PreselectedConversion(jpeg, bw, 0), 11);  // grey before true colour for a grey picture
  EXPECT_EQ(PreselectedConversion(xpm, grey, 0), 24);
  EXPECT_EQ(PreselectedConversion(Caps({{4, 16, -1, -1}}), rgb, 0), 26);  // 16 colours, dithered
  EXPECT_EQ(PreselectedConversion(Caps({{2, 16, -1, -1}, {4, 8, -1, -1}}), grey, 0), 14);
  EXPECT_EQ(PreselectedConversion(Caps({{1, 2, -1, -1}}), rgb, 0), 2);
  EXPECT_EQ(PreselectedConversion(Caps({}), rgb, 5), 0);
}

TEST(SavePaths, DefaultExtensionAndFormatChoice) {
  EXPECT_EQ(WithDefaultExtension("/home/u/photo", "gif", true), "/home/u/photo.gif");
  EXPECT_EQ(WithDefaultExtension("photo", "gif", false), "photo");
  EXPECT_EQ(WithDefaultExtension("/home/u.v/photo", "gif", true), "/home/u.v/photo");  // a dot anywhere
  EXPECT_EQ(WithDefaultExtension("photo.", "gif", true), "photo.");
  EXPECT_EQ(WithDefaultExtension("photo", "", true), "photo");

  const int png = tslFormatGetIndex("png"), jpeg = tslFormatGetIndex("jpeg");
  EXPECT_EQ(ChooseSaveFormat("/x/y.png", "jpeg"), png);
  EXPECT_EQ(ChooseSaveFormat("/x/y.PNG", "jpeg"), png);
  EXPECT_EQ(ChooseSaveFormat("/x/y.txt", "jpeg"), jpeg);
  EXPECT_EQ(ChooseSaveFormat("/x/y", "png"), png);
  EXPECT_EQ(ChooseSaveFormat("/x/y", "nosuchformat"), -1);

  EXPECT_EQ(ResizingText(32, 16), "Resizing in 32x16");
  EXPECT_EQ(SaveErrorText("/a/b.gif", 5), "Can't create file \n</a/b.gif>");
  EXPECT_EQ(SaveErrorText("/a/b.gif", 9), "Bad picture file");  // never the library's message
}

TEST(SaveParameters, FromTheSaveSettings) {
  DefaultSettings s;
  auto &save = s.rec.Save;
  TslPicture rgb = Shape(TSL_RGB, 0), bw = Shape(TSL_BINARY, 2);
  const int gif = tslFormatGetIndex("gif"), tiff = tslFormatGetIndex("tiff"), png = tslFormatGetIndex("png");
  SaveRequest req;
  FillSaveRequest(s.rec, gif, rgb, false, false, &req);
  EXPECT_EQ(req.params.format, gif);
  EXPECT_EQ(req.params.flags, 4u);
  EXPECT_EQ(req.params.quality, 100);
  EXPECT_EQ(req.params.compression, 0);
  EXPECT_EQ(req.params.transparent_index, -1);
  EXPECT_EQ(req.params.channel_type, 1);

  save.Offset = 128, save.ChannelOrder = 3, save.ChannelType = 2, save.Gif87aHeader = true, save.PpmAscii = true;
  save.Os2Header = save.Hp49Header = save.OptimizeHuffmanTable = save.DpxIn10Bits = true;
  save.GifInterlaced = true, save.GifUseTransparentIndex = true, save.GifTransparentIndex = 7;
  save.PngInterlaced = false;  // png's own switch, not gif's
  FillSaveRequest(s.rec, gif, rgb, true, true, &req);
  const TslParams &p = req.params;
  EXPECT_EQ(p.flags, 0xC5u);
  EXPECT_EQ(p.offset, 128);
  EXPECT_EQ(p.channel_order, 3);
  EXPECT_EQ(p.channel_type, 2);
  EXPECT_TRUE(p.gif87a_header && p.ppm_ascii && p.os2_header && p.hp49_header && p.optimize_huffman && p.dpx_10bits);
  EXPECT_EQ(p.progressive, 1);
  EXPECT_EQ(p.transparent_index, 7);
  FillSaveRequest(s.rec, png, rgb, false, false, &req);
  EXPECT_EQ(req.params.progressive, 0);
  EXPECT_EQ(req.params.transparent_index, -1);  // PngUseTransparentIndex is off
  EXPECT_EQ(req.params.compression, 9);         // PngCompressionLevel's default

  save.TiffCompress = 6;
  for (int setting : {0, 1, 2, 3, 4}) {
    save.TiffBinaryCompress = static_cast<uint8_t>(setting);
    FillSaveRequest(s.rec, tiff, bw, false, false, &req);
    EXPECT_EQ(req.params.compression, setting > 2 ? setting + 1 : setting) << setting;
    FillSaveRequest(s.rec, tiff, rgb, false, false, &req);
    EXPECT_EQ(req.params.compression, 6);
  }
  save.JpegQuality = 42, save.JpegProgressive = true;
  FillSaveRequest(s.rec, tslFormatGetIndex("jpeg"), rgb, false, false, &req);
  EXPECT_EQ(req.params.quality, 42);
  EXPECT_EQ(req.params.progressive, 1);
  FillSaveRequest(s.rec, tslFormatGetIndex("bmp"), rgb, false, false, &req);
  EXPECT_EQ(req.params.quality, 100);  // JPEG's quality stays with JPEG

  // Cineon and DPX read the 8-to-10-bit table, 256 entries, only with UseLut.
  testutil::TempDir dir;
  std::string lut = dir.file("ten.lut");
  testutil::WriteFile(lut, "LUT: 3 1024\n4\n1023\n");
  std::snprintf(save.Lut8to10Name, sizeof save.Lut8to10Name, "%s", lut.c_str());
  ApplyFormatSettings(s.rec, "dpx", false, &req);
  EXPECT_EQ(req.params.lut[0], nullptr);
  save.UseLut = true;
  for (const char *name : {"dpx", "cin"}) {
    SaveRequest r;
    ApplyFormatSettings(s.rec, name, false, &r);
    ASSERT_EQ(r.params.lut_size, 256) << name;
    EXPECT_EQ(r.params.lut[2][1], 1023);
  }
}

// Answers the save's questions from a script and keeps what it was shown.
struct ScriptedUi : SaveUi {
  int answer = 0, asked = 0, preselected = -1, busy = 0, pumps = 0;
  std::vector<std::string> messages, progress_labels;
  int AskConversion(const std::string &, const TslFormatInfo &, const TslPicture &, int pre) override {
    ++asked;
    preselected = pre;
    return answer;
  }
  void Message(const std::string &text) override { messages.push_back(text); }
  void Busy(bool on) override { busy += on ? 1 : -1; }
  void OpenProgress(const std::string &label) override { progress_labels.push_back(label); }
  void Progress(int, int) override { ++pumps; }
};

class SaveFlow : public ::testing::Test {
 protected:
  void SetUp() override {
    rgb_ = testutil::Pic(testutil::MakePicture(TSL_RGB, 64, 48));
    SetRememberedConversion(kNoConversion);
  }
  int Save(std::string *path, const char *format, const TslPicture &pic, SaveOptions o = SaveOptions()) {
    return SavePicture(ui_, s_.rec, path, tslFormatGetIndex(format), pic, o);
  }
  std::vector<std::string> Listing() {
    std::vector<std::string> names;
    if (DIR *d = opendir(dir_.path().c_str())) {
      while (dirent *e = readdir(d))
        if (e->d_name[0] != '.') names.push_back(e->d_name);
      closedir(d);
    }
    return names;
  }
  DefaultSettings s_;
  ScriptedUi ui_;
  testutil::TempDir dir_;
  testutil::Pic rgb_;
};

TEST_F(SaveFlow, ConversionAskedOnceThenRemembered) {
  ui_.answer = 24;
  std::string path = dir_.file("one");
  ASSERT_EQ(Save(&path, "gif", rgb_), 0);
  EXPECT_EQ(path, dir_.file("one.gif"));  // the default extension
  EXPECT_EQ(ui_.asked, 1);
  EXPECT_EQ(ui_.preselected, 24);
  EXPECT_EQ(RememberedConversion(), 24);
  EXPECT_EQ(ui_.busy, 0);  // every busy cursor taken back
  EXPECT_EQ(ui_.progress_labels, std::vector<std::string>{"Saving one.gif"});
  EXPECT_GT(ui_.pumps, 0);
  testutil::Pic back;
  ASSERT_EQ(tslLoad(path.c_str(), &back, nullptr), 0);
  EXPECT_EQ(back->color_model, TSL_INDEXED);
  EXPECT_LT(testutil::MeanAbsDiff(back, rgb_), 6.0);

  // A batch's next file takes the remembered answer without asking.
  SaveOptions again;
  again.remember = true;
  path = dir_.file("two.gif");
  ASSERT_EQ(Save(&path, "gif", rgb_, again), 0);
  EXPECT_EQ(ui_.asked, 1);
  // An interactive save forgets it, and preselects the last answer.
  ui_.answer = 27;
  path = dir_.file("three.gif");
  ASSERT_EQ(Save(&path, "gif", rgb_), 0);
  EXPECT_EQ(ui_.asked, 2);
  EXPECT_EQ(ui_.preselected, 24);
  // A preset conversion needs no question either.
  SaveOptions preset;
  preset.conversion = 2;
  preset.progress = false;
  path = dir_.file("four.gif");
  ASSERT_EQ(Save(&path, "gif", rgb_, preset), 0);
  EXPECT_EQ(ui_.asked, 2);
  back = testutil::Pic();
  ASSERT_EQ(tslLoad(path.c_str(), &back, nullptr), 0);
  EXPECT_LE(back->colors, 2);
  EXPECT_EQ(ui_.progress_labels.size(), 3u);  // none for the save without progress
  EXPECT_TRUE(ui_.messages.empty());
}

TEST_F(SaveFlow, RunKeepsItsOwnConversion) {
  uint16_t run = kNoConversion;
  SaveOptions batch;
  batch.memory = &run;
  batch.unattended = true;
  ui_.answer = 30;
  std::string path = dir_.file("b1.gif");
  ASSERT_EQ(Save(&path, "gif", rgb_, batch), 0);
  EXPECT_EQ(run, 30);
  EXPECT_EQ(RememberedConversion(), kNoConversion);
  // An interactive save in between asks and forgets for itself only.
  ui_.answer = 18;
  path = dir_.file("single.gif");
  ASSERT_EQ(Save(&path, "gif", rgb_), 0);
  EXPECT_EQ(ui_.asked, 2);
  batch.remember = true;
  path = dir_.file("b2.gif");
  ASSERT_EQ(Save(&path, "gif", rgb_, batch), 0);
  EXPECT_EQ(ui_.asked, 2);
  EXPECT_EQ(run, 30);
}

TEST_F(SaveFlow, FixedSizeResizesWithANote) {
  // PNG's writer under a capability list that demands 32x32 palettes.
  const int png = tslFormatGetIndex("png");
  TslFormatInfo info = FormatNamed("png");
  info.caps[0] = {4, 256, 32, 32};
  info.caps[1].kind = -1;
  testutil::Pic pal(testutil::MakePicture(TSL_INDEXED, 64, 48, 5, 100));
  SaveOptions remember;
  remember.remember = true;
  std::string path = dir_.file("icon.png");
  ASSERT_EQ(SavePicture(ui_, s_.rec, &path, png, info, pal, remember), 0);
  EXPECT_EQ(ui_.asked, 0);
  EXPECT_EQ(ui_.messages, std::vector<std::string>{"Resizing in 32x32"});
  EXPECT_EQ(ui_.busy, 0);
  testutil::Pic back;
  ASSERT_EQ(tslLoad(path.c_str(), &back, nullptr), 0);
  EXPECT_EQ(back->width, 32u);
  EXPECT_EQ(back->color_model, TSL_INDEXED);  // resized without leaving the palette
  EXPECT_EQ(pal->width, 64u);

  // A conversion to that entry resizes first; the note only with `remember`.
  ui_.answer = 31;
  path = dir_.file("icon2.png");
  ASSERT_EQ(SavePicture(ui_, s_.rec, &path, png, info, rgb_, SaveOptions()), 0);
  EXPECT_EQ(ui_.asked, 1);
  EXPECT_EQ(ui_.messages.size(), 1u);
  back = testutil::Pic();
  ASSERT_EQ(tslLoad(path.c_str(), &back, nullptr), 0);
  EXPECT_EQ(back->width * 1000 + back->height, 32032u);
  EXPECT_EQ(back->color_model, TSL_INDEXED);
}

TEST_F(SaveFlow, CancelledOrFailedConversionWritesNothing) {
  for (int answer : {255, 0, 33}) {
    ui_.answer = answer;
    std::string path = dir_.file("cancel.gif");
    EXPECT_EQ(Save(&path, "gif", rgb_), 255) << answer;
  }
  EXPECT_TRUE(Listing().empty());
  EXPECT_TRUE(ui_.messages.empty());  // cancelling is not an error
  EXPECT_EQ(RememberedConversion(), kNoConversion);

  // No room for the converted picture.
  ui_.answer = 24;
  const uint64_t limit = tslGetMaxPixels();
  tslSetMaxPixels(100);
  std::string path = dir_.file("big.gif");
  EXPECT_EQ(Save(&path, "gif", rgb_), 255);
  tslSetMaxPixels(limit);
  EXPECT_EQ(ui_.messages, std::vector<std::string>{"Error converting picture !!"});
  EXPECT_EQ(ui_.busy, 0);
  EXPECT_TRUE(Listing().empty());
}

TEST_F(SaveFlow, TransparentIndexWrittenButCallerUntouched) {
  s_.rec.Save.GifUseTransparentIndex = true;
  s_.rec.Save.GifTransparentIndex = 3;
  testutil::Pic pal(testutil::MakePicture(TSL_INDEXED, 20, 10, 5, 16));
  pal->transparent_index = 9;
  std::string path = dir_.file("t.gif");
  ASSERT_EQ(Save(&path, "gif", pal), 0);
  EXPECT_EQ(ui_.asked, 0);  // a 16-colour palette needs no conversion
  EXPECT_EQ(pal->transparent_index, 9);
  testutil::Pic back;
  ASSERT_EQ(tslLoad(path.c_str(), &back, nullptr), 0);
  EXPECT_EQ(back->transparent_index, 3);

  // The true-colour picture goes through a conversion and still keeps its -1.
  rgb_->transparent_index = -1;
  ui_.answer = 24;
  path = dir_.file("t2.gif");
  ASSERT_EQ(Save(&path, "gif", rgb_), 0);
  EXPECT_EQ(rgb_->transparent_index, -1);
}

TEST_F(SaveFlow, ErrorsKeepThePreviousFile) {
  // An unwritable place: a directory that is a file.
  testutil::WriteFile(dir_.file("plain"), "x");
  std::string path = dir_.file("plain/out.png");
  EXPECT_EQ(Save(&path, "png", rgb_), 5);
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_EQ(ui_.messages[0], "Can't create file \n<" + path + ">");

  // A write that fails halfway (the file-size limit stands for a full disk)
  // leaves the old file and no temporary behind.
  std::string target = dir_.file("keep.png");
  testutil::WriteFile(target, "the previous contents");
  testutil::Pic noise(testutil::MakePicture(TSL_RGB, 300, 300, 11));
  std::mt19937 rng(3);  // incompressible: the file must outgrow the limit
  for (uint32_t i = 0; i < noise->bytes_per_line * noise->height; ++i) noise->pixels[i] = static_cast<uint8_t>(rng());
  struct rlimit old_limit;
  getrlimit(RLIMIT_FSIZE, &old_limit);
  struct rlimit small = old_limit;
  small.rlim_cur = 4096;
  auto old_handler = signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &small);
  int code = Save(&target, "png", noise);
  setrlimit(RLIMIT_FSIZE, &old_limit);
  signal(SIGXFSZ, old_handler);
  EXPECT_EQ(code, 6);
  EXPECT_EQ(ui_.messages.back(), "Can't write file \n<" + target + ">");
  EXPECT_TRUE(testutil::ReadFile(target) == "the previous contents");
  EXPECT_EQ(Listing(), (std::vector<std::string>{"keep.png", "plain"})) << "a temporary was left";

  // Replacing works and keeps the file's permissions.
  chmod(target.c_str(), 0640);
  ASSERT_EQ(Save(&target, "png", rgb_), 0);
  struct stat st;
  ASSERT_EQ(stat(target.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
  testutil::Pic back;
  ASSERT_EQ(tslLoad(target.c_str(), &back, nullptr), 0);
  EXPECT_TRUE(testutil::SamePixels(back, rgb_));

  // A format that cannot write and a picture without pixels.
  ui_.messages.clear();
  path = dir_.file("x.png");
  EXPECT_EQ(SavePicture(ui_, s_.rec, &path, -1, rgb_, SaveOptions()), 8);
  TslPicture empty{};
  EXPECT_NE(Save(&path, "png", empty), 0);
  EXPECT_EQ(ui_.messages[0], "Can't save in this format !!");
  SaveOptions quiet;
  quiet.report_errors = false;
  path = dir_.file("plain/again.png");
  EXPECT_EQ(Save(&path, "png", rgb_, quiet), 5);
  EXPECT_EQ(ui_.messages.size(), 2u);
}

}  // namespace
}  // namespace quilla
