// Contact sheets: the cell geometry, page count and page file names, and
// whole sheets built from real files, checked pixel by pixel where the
// thumbnails and the captions must land.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "browser/contact_sheet.h"
#include "test_util.h"

namespace quilla {
namespace {

using testutil::Px;

SheetOptions Small() {
  SheetOptions o;
  o.width = 300, o.height = 200;
  o.columns = 3, o.rows = 2;
  o.margin_width = o.margin_height = 10;
  o.spacing_width = o.spacing_height = 5;
  o.head_note = "Head";
  o.background = 0x808080;
  o.thumb_background = 0x00ff00;
  o.text_background = 0xffffff;
  o.text_color = 0x0000ff;
  return o;
}

uint32_t Rgb(const TslPicture &p, int x, int y) {
  return static_cast<uint32_t>(Px(p, x, y, 0) << 16 | Px(p, x, y, 1) << 8 | Px(p, x, y, 2));
}

// How many pixels of a rectangle have the colour.
int Count(const TslPicture &p, const SheetRect &r, uint32_t rgb) {
  int n = 0;
  for (int y = r.y; y < r.y + r.height; ++y)
    for (int x = r.x; x < r.x + r.width; ++x) n += Rgb(p, x, y) == rgb;
  return n;
}

void SaveSolid(const std::string &path, int w, int h, uint32_t rgb) {
  testutil::Pic p;
  ASSERT_TRUE(tslAllock(&p, TSL_RGB, 0, static_cast<uint32_t>(w), static_cast<uint32_t>(h)));
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      uint8_t *px = p->pixels + static_cast<size_t>(y) * p->bytes_per_line + static_cast<size_t>(x) * 3;
      px[0] = static_cast<uint8_t>(rgb >> 16), px[1] = static_cast<uint8_t>(rgb >> 8), px[2] = static_cast<uint8_t>(rgb);
    }
  TslParams params;
  tslDefaultParams(&params);
  params.format = tslFormatGetIndex("png");
  ASSERT_EQ(tslSave(path.c_str(), &p, &params), TSL_OK);
}

TEST(ContactSheetLayout, CellsPagesAndNames) {
  const SheetLayout l = LayoutSheet(Small());
  // Head line 10 high, then the spacing; 280 wide inside the margins.
  EXPECT_EQ(l.head.y * 1000 + l.head.height, 10010);
  EXPECT_EQ(l.foot.height, 0);
  EXPECT_EQ(l.cell_width, 90);   // (280 - 2 x 5) / 3
  EXPECT_EQ(l.cell_height, 80);  // (190 - 25 - 5) / 2
  const SheetRect c = l.cell(4), t = l.thumbBox(4), x = l.textBox(4);
  EXPECT_EQ(c.x * 1000 + c.y, 105110);
  EXPECT_EQ(t.height + x.height, 80);
  EXPECT_EQ(x.y, t.y + t.height);
  EXPECT_EQ(x.height, l.line_height);

  SheetOptions o = Small();
  o.flags = kSheetShowNames | kSheetShowDimensions | kSheetPageNumbers;
  o.rows = 40;  // cells too low for two lines of text keep their thumbnail
  const SheetLayout tight = LayoutSheet(o);
  EXPECT_GT(tight.foot.height, 0);
  EXPECT_GT(tight.thumbBox(0).height, 0);
  EXPECT_LT(tight.text_lines, 2);

  EXPECT_EQ(SheetPageCount(0, Small()), 0);
  EXPECT_EQ(SheetPageCount(6, Small()), 1);
  EXPECT_EQ(SheetPageCount(7, Small()), 2);
  EXPECT_EQ(SheetPageFileName("/a.b/sheet.png", 1), "/a.b/sheet.png");
  EXPECT_EQ(SheetPageFileName("/a.b/sheet.png", 2), "/a.b/sheet_2.png");
  EXPECT_EQ(SheetPageFileName("/a.b/sheet", 3), "/a.b/sheet_3");
  EXPECT_EQ(SheetPageFileName("/d/.sheet", 2), "/d/.sheet_2");

  SheetFont f;
  EXPECT_EQ(f.textWidth("ab"), 11);
  EXPECT_EQ(f.fit("abcdefgh", 40), "abc...");
  // White text on the default white background is drawn black.
  EXPECT_EQ(SheetTextColor(SheetOptions{}), 0x000000u);
}

TEST(ContactSheetBuild, ThumbnailsAndCaptionsLandInTheirCells) {
  testutil::TempDir dir;
  const uint32_t colours[7] = {0xff0000, 0x0000ff, 0xffff00, 0x00ffff, 0xff00ff, 0x800000, 0x000080};
  std::vector<std::string> paths;
  for (int i = 0; i < 7; ++i) {
    paths.push_back(dir.file("p" + std::to_string(i) + ".png"));
    // Wide pictures, larger than the box, and one smaller than it.
    SaveSolid(paths.back(), i == 1 ? 40 : 180, i == 1 ? 20 : 60, colours[i]);
  }
  testutil::WriteFile(dir.file("broken.png"), "not a picture");
  paths.insert(paths.begin() + 2, dir.file("broken.png"));

  ContactSheet sheet(Small(), paths);
  const SheetLayout &l = sheet.layout();
  ASSERT_EQ(sheet.pages(), 2);
  std::vector<testutil::Pic> pages;
  std::vector<int> codes;
  while (!sheet.done()) {
    TslPicture page;
    int number = 0;
    codes.push_back(sheet.step(&page, &number));
    if (page.pixels) {
      EXPECT_EQ(number, static_cast<int>(pages.size()) + 1);
      pages.emplace_back(page);
    }
  }
  ASSERT_EQ(pages.size(), 2u);
  EXPECT_EQ(codes.size(), 8u);
  EXPECT_NE(codes[2], TSL_OK);
  const TslPicture &p1 = pages[0];
  ASSERT_EQ(p1.width * 1000 + p1.height, 300200u);

  // A wide picture fills the box's width, centred, with the box colour above and below.
  const SheetRect b0 = l.thumbBox(0);
  EXPECT_EQ(Rgb(p1, b0.x + b0.width / 2, b0.y + b0.height / 2), 0xff0000u);
  EXPECT_EQ(Rgb(p1, b0.x + 1, b0.y + b0.height / 2), 0xff0000u);
  EXPECT_EQ(Rgb(p1, b0.x + b0.width / 2, b0.y + 1), 0x00ff00u);
  // A small one is not enlarged: 40 x 20 in the middle of its box.
  const SheetRect b1 = l.thumbBox(1);
  const int cx = b1.x + b1.width / 2, cy = b1.y + b1.height / 2;
  EXPECT_EQ(Rgb(p1, cx - 19, cy), 0x0000ffu);
  EXPECT_EQ(Rgb(p1, cx - 22, cy), 0x00ff00u);
  EXPECT_EQ(Count(p1, b1, 0x0000ff), 40 * 20);
  // The unreadable file keeps an empty box and its name.
  EXPECT_EQ(Count(p1, l.thumbBox(2), 0x00ff00), b0.width * b0.height);
  EXPECT_GT(Count(p1, l.textBox(2), 0x0000ff), 20);
  // Cell 4 holds the fourth good picture.
  EXPECT_EQ(Rgb(p1, l.thumbBox(4).x + 45, l.thumbBox(4).y + 35), colours[3]);

  // Names are drawn inside their text box only: around the boxes the page
  // is background, the head line holds text too.
  for (int i = 0; i < 6; ++i) {
    const SheetRect t = l.textBox(i);
    EXPECT_GT(Count(p1, t, 0x0000ff), 20) << i;
    EXPECT_EQ(Count(p1, t, 0x0000ff) + Count(p1, t, 0xffffff), t.width * t.height) << i;
  }
  EXPECT_GT(Count(p1, l.head, 0x0000ff), 20);
  const SheetRect gap{l.cell(0).x + l.cell_width, l.cell(0).y, l.spacing_width, l.cell_height};
  EXPECT_EQ(Count(p1, gap, 0x808080), gap.width * gap.height);

  // Page 2: the last two pictures, then background.
  const TslPicture &p2 = pages[1];
  EXPECT_EQ(Rgb(p2, l.thumbBox(1).x + 45, l.thumbBox(1).y + 35), colours[6]);
  EXPECT_EQ(Count(p2, l.cell(2), 0x808080), l.cell_width * l.cell_height);
}

}  // namespace
}  // namespace quilla
