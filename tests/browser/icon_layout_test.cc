// The icon view's geometry: moves of the current entry at the edges of the
// grid, hit testing outside the cells, scrolling to show an entry, the
// columns of the detailed views, and the type-ahead search.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstring>

#include "browser/icon_layout.h"
#include "test_util.h"

namespace {

using namespace quilla;

IconLayout Grid(int count, int per_row) {
  IconLayout l;
  // Large icons 92x69 with a 6x12 font: cells 108 wide.
  l.set(kViewIcons, count, 108 * per_row + 50, 92, 69, 12, 6, 0);
  return l;
}

TEST(IconLayout, MovesStopAtTheEdgesOfTheGrid) {
  const IconLayout l = Grid(10, 4);  // rows of 4, 4, 2
  ASSERT_EQ(l.perRow(), 4);
  EXPECT_EQ(l.move(-1, kMoveDown, 3), 0);  // nothing current yet
  EXPECT_EQ(l.move(-1, kMoveEnd, 3), 9);
  EXPECT_EQ(l.move(0, kMoveLeft, 3), 0);
  EXPECT_EQ(l.move(9, kMoveRight, 3), 9);
  EXPECT_EQ(l.move(3, kMoveRight, 3), 4);  // wraps to the next row
  EXPECT_EQ(l.move(1, kMoveUp, 3), 1);     // top row stays
  EXPECT_EQ(l.move(6, kMoveDown, 3), 6);   // no entry below: stays
  EXPECT_EQ(l.move(5, kMoveDown, 3), 9);
  EXPECT_EQ(l.move(9, kMoveUp, 3), 5);
  EXPECT_EQ(l.move(1, kMovePageDown, 2), 9);  // 8 further, clamped to the end
  EXPECT_EQ(l.move(9, kMovePageUp, 2), 1);
  EXPECT_EQ(l.move(7, kMoveHome, 2), 0);
  IconLayout empty = Grid(0, 4);
  EXPECT_EQ(empty.move(-1, kMoveDown, 1), -1);
}

TEST(IconLayout, HitTestingAndScrolling) {
  const IconLayout l = Grid(10, 4);
  const int cw = l.cellWidth(), ch = l.cellHeight();
  EXPECT_EQ(l.hit(0, 0), 0);
  EXPECT_EQ(l.hit(cw * 3 + 1, ch + 1), 7);
  EXPECT_EQ(l.hit(cw * 2 + 1, ch * 2 + 1), -1);  // past the last entry of a short row
  EXPECT_EQ(l.hit(cw * 4 + 1, 1), -1);           // right of the grid
  EXPECT_EQ(l.hit(-1, 5), -1);
  EXPECT_EQ(l.contentHeight(), 3 * ch);
  // An entry below the view scrolls it into sight at the bottom edge; one
  // above, at the top; one in sight keeps the offset.
  EXPECT_EQ(l.scrollToShow(9, 0, ch + 10), 3 * ch - (ch + 10));
  EXPECT_EQ(l.scrollToShow(0, 2 * ch, ch), 0);
  EXPECT_EQ(l.scrollToShow(5, ch, 2 * ch), ch);
  EXPECT_EQ(l.pageRows(ch / 2), 1);
}

TEST(IconLayout, DetailedViewsHaveTitlesAndChosenColumns) {
  IconLayout l;
  l.set(kViewList, 3, 300, 92, 69, 12, 6, kColumnSize | kColumnDesc);
  ASSERT_EQ(l.columns().size(), 3u);
  EXPECT_EQ(l.columns()[0].title, "Name");
  EXPECT_EQ(l.columns()[1].title, "Size");
  EXPECT_EQ(l.columns()[2].title, "Description");
  EXPECT_EQ(l.columns()[1].x, l.columns()[0].width);
  EXPECT_GT(l.titleHeight(), 0);
  EXPECT_EQ(l.perRow(), 1);  // one entry a row, however narrow the view
  l.set(kViewColumns, 3, 10, 92, 69, 12, 6, 255);
  EXPECT_EQ(l.titleHeight(), 0);
  EXPECT_EQ(l.perRow(), 1);
  l.set(kViewIcons, 3, 10, 92, 69, 12, 6, 255);
  EXPECT_EQ(l.titleHeight(), 0);
}

TEST(IconLayout, ColumnTexts) {
  FileEntry e;
  std::strcpy(e.name, "x.png");
  e.size = 1234;
  e.mode = S_IFREG | 0640;
  EXPECT_EQ(ColumnText(e, kColumnSize), "1234");
  EXPECT_EQ(ColumnText(e, kColumnPerm), "-rw-r-----");
  EXPECT_EQ(ColumnText(e, kColumnType), "");  // not read yet
  EXPECT_EQ(ColumnText(e, kColumnDesc), "");
  e.state = kStateUnreadable;
  EXPECT_EQ(ColumnText(e, kColumnType), "Unknown");
  e.has_description = true;
  e.description = "holiday";
  EXPECT_EQ(ColumnText(e, kColumnDesc), "holiday");
  FileEntry d;
  std::strcpy(d.name, "sub");
  d.kind = kEntryDirectory;
  d.mode = S_IFDIR | 0755;
  EXPECT_EQ(ColumnText(d, kColumnSize), "");
  EXPECT_EQ(ColumnText(d, kColumnType), "Directory");
  EXPECT_EQ(PermissionText(S_IFDIR | 0755), "drwxr-xr-x");
}

TEST(IconLayout, TypeAheadWrapsAndIgnoresCase) {
  testutil::TempDir dir;
  for (const char *n : {"Apple.png", "apricot.jpg", "banana.gif"}) testutil::WriteFile(dir.file(n), "x");
  FileList list;
  ASSERT_TRUE(list.read(dir.path()));
  list.sort(kSortName);  // .., Apple.png, apricot.jpg, banana.gif
  EXPECT_EQ(FindByPrefix(list, "ap", 0), 1);
  EXPECT_EQ(FindByPrefix(list, "ap", 2), 2);
  EXPECT_EQ(FindByPrefix(list, "AP", 3), 1);  // wraps around
  EXPECT_EQ(FindByPrefix(list, "apr", 0), 2);
  EXPECT_EQ(FindByPrefix(list, "cherry", 0), -1);
  EXPECT_EQ(FindByPrefix(list, "", 0), -1);
  EXPECT_EQ(FindByPrefix(list, "b", 99), 3);  // a start past the end is clamped
}

}  // namespace
