// Slide files (the writer's layout, the reader's deliberate asymmetries and
// tolerance) and the order of a show with loop and random order.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "files/slide_model.h"
#include "test_util.h"

namespace quilla {
namespace {

TEST(SlideFile, WriterLayout) {
  SlideList list;
  list.switches = kSlideTimer | kSlideLoop | kSlideView2 | kSlideNoErrors | kSlideRandom;
  list.timer = 7;
  list.show_filename = true;
  list.background = 0xff00a0;
  list.entries = {"/p/a b.jpg", "/p/\"odd\".png"};
  EXPECT_EQ(SlideFileText(list),
            "# Slide Show Sequence\nTimer = 7\nLoop = 1\nFullScreen = 0\nTitleBar = 1\nView = 2\n"
            "CenterWindow = 0\nReadErrors = 0\nHideMouse = 0\nRandomOrder = 1\nShowFilename = 1\n"
            "BackgroundColor = ff00a0\n\"/p/a b.jpg\"\n\"/p/\"odd\".png\"\n");
  list.switches = kSlideNoTitle;  // no timer: no Timer line
  EXPECT_EQ(SlideFileText(list).find("Timer"), std::string::npos);
  EXPECT_NE(SlideFileText(list).find("TitleBar = 0\n"), std::string::npos);
}

TEST(SlideFile, ReaderAsymmetriesAndTolerance) {
  // Missing lines leave the "off" switches at their reader defaults (no
  // title bar, no read errors); ShowFilename and BackgroundColor are not read.
  SlideList a = ParseSlideText("xx # Slide Show Sequence yy\r\nLoop = 1\nShowFilename = 1\nBackgroundColor = 12\n"
                               "\"/a.jpg\"\n");
  EXPECT_EQ(a.switches, kSlideNoTitle | kSlideNoErrors | kSlideLoop);
  EXPECT_FALSE(a.show_filename);
  EXPECT_EQ(a.background, 0u);
  EXPECT_EQ(a.timer, 1);
  ASSERT_EQ(a.entries.size(), 1u);

  SlideList b = ParseSlideText("# Slide Show Sequence\nTimer = 0\nTitleBar = 1\nReadErrors = 5\nView = 1\n"
                               "View = 3\nloop = 1\nLoop=1\nNoSuch = 1\nHideMouse = 0\nRandomOrder = 2\n"
                               "\"a\"b\"\n\"unclosed\n\"\"\n\"x\" trailing\n");
  EXPECT_EQ(b.switches, kSlideTimer | kSlideView1 | kSlideRandom);
  EXPECT_EQ(b.timer, 1);  // 0 becomes one second
  EXPECT_EQ(b.IntervalMs(), 1000);
  EXPECT_EQ(b.entries, (std::vector<std::string>{"a\"b", "unclosed", "", "x"}));

  SlideList c = ParseSlideText("Slide Show\nLoop = 1\n\"/a.jpg\"\n");  // not a slide file: silently empty
  EXPECT_TRUE(c.entries.empty());
  EXPECT_EQ(c.switches, kSlideNoTitle | kSlideNoErrors);
  // The header is looked for in the first 511 characters only.
  EXPECT_TRUE(ParseSlideText(std::string(600, ' ') + "# Slide Show Sequence\n\"/a\"\n").entries.empty());
}

TEST(SlideFile, FilesOnDisk) {
  testutil::TempDir dir;
  SlideList list;
  EXPECT_TRUE(WriteSlideFile(dir.file("empty.sld"), list));  // an empty list writes nothing
  EXPECT_FALSE(testutil::FileExists(dir.file("empty.sld")));
  list.switches = kSlideTimer | kSlideFull | kSlideCenter | kSlideHideMouse;
  list.timer = 3;
  list.entries = {"/x/1.png", std::string(5000, 'p')};
  ASSERT_TRUE(WriteSlideFile(dir.file("s.sld"), list));
  SlideList back;
  ASSERT_TRUE(ReadSlideFile(dir.file("s.sld"), &back));
  EXPECT_EQ(back.switches, list.switches);
  EXPECT_EQ(back.timer, 3);
  EXPECT_EQ(back.entries[0], "/x/1.png");
  EXPECT_EQ(back.entries[1].size(), 4095u);  // paths are cut to 4095 characters
  EXPECT_FALSE(WriteSlideFile(dir.file("no/such/dir.sld"), list));
  EXPECT_FALSE(ReadSlideFile(dir.file("missing.sld"), &back));
  EXPECT_EQ(CantOpenSlideText("/m.sld"), "Can't open file : /m.sld");
  EXPECT_EQ(WithSlideExtension("show"), "show.sld");
  EXPECT_EQ(WithSlideExtension("show.sld"), "show.sld");
}

TEST(SlideOrder, ListOrderLoopAndEnd) {
  SlideOrder once(3, 0);
  EXPECT_EQ(once.Step(1), 0);
  EXPECT_EQ(once.Step(0), 1);  // direction 0 advances
  EXPECT_EQ(once.Step(-1), 0);
  EXPECT_EQ(once.Step(-1), -1);  // before the first without loop: the end

  SlideOrder loop(3, kSlideLoop);
  EXPECT_EQ(loop.Step(-1), 2);  // wraps backwards from the start
  EXPECT_EQ(loop.Step(1), 0);
  EXPECT_EQ(SlideOrder(0, kSlideLoop).Step(1), -1);
}

TEST(SlideOrder, RandomShowsEveryEntryOnceBeforeARepeat) {
  for (int seed = 0; seed < 20; ++seed) {
    unsigned x = static_cast<unsigned>(seed) * 2654435761u + 1;
    SlideOrder order(3, kSlideLoop | kSlideRandom, [&x] { return static_cast<int>((x = x * 1103515245u + 12345u) >> 8); });
    for (int round = 0; round < 4; ++round) {
      std::set<int> shown;
      for (int k = 0; k < 3; ++k) shown.insert(order.Step(1));
      EXPECT_EQ(shown.size(), 3u) << "seed " << seed << " round " << round;
    }
  }
  // A generator stuck on one value still goes through every entry.
  SlideOrder stuck(4, kSlideRandom, [] { return 2; });
  EXPECT_EQ(stuck.Step(1), 2);
  EXPECT_EQ(stuck.Step(1), 3);
  EXPECT_EQ(stuck.Step(1), 0);
  EXPECT_EQ(stuck.Step(1), 1);
  EXPECT_EQ(stuck.Step(1), -1);  // no loop: the stepped index ends the show
}

TEST(SlideView, PlacementAndInput) {
  SlidePlacement p = PlaceSlide(kSlideCenter, 300, 200, 1024, 768);
  EXPECT_TRUE(p.resize && p.move);
  EXPECT_EQ(p.x, 362);
  EXPECT_EQ(p.y, 284);
  EXPECT_FALSE(PlaceSlide(kSlideCenter, 1024, 200, 1024, 768).resize);  // not smaller both ways
  EXPECT_FALSE(PlaceSlide(kSlideFull | kSlideCenter, 10, 10, 1024, 768).resize);
  EXPECT_FALSE(PlaceSlide(0, 10, 10, 1024, 768).move);

  int d;
  EXPECT_EQ(ActionForInput(SlideInput::kButton1, 0, &d), SlideAction::kStep);
  EXPECT_EQ(d, -1);  // button 1 steps back
  EXPECT_EQ(ActionForInput(SlideInput::kSpace, 0, &d), SlideAction::kNone);  // no timer to pause
}

}  // namespace
}  // namespace quilla
