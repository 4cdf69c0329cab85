// Geometry of the browser's icon view, without the toolkit: the cell of
// each entry in the four view modes, the columns of the detailed views and
// their texts, hit testing, the moves of the current entry by key, and the
// type-ahead search by name.
#ifndef QUILLA_BROWSER_ICON_LAYOUT_H
#define QUILLA_BROWSER_ICON_LAYOUT_H

#include <string>
#include <vector>

#include "browser/filelist.h"

namespace quilla {

// Column bits of the detailed views (the name column is always shown).
enum : int {
  kColumnSize = 1,
  kColumnProp = 2,
  kColumnType = 4,
  kColumnDate = 8,
  kColumnPerm = 16,
  kColumnDesc = 32,
};
constexpr int kColumnKinds = 6;

// Moves of the current entry, in the order of the item commands.
enum ItemMove {
  kMoveRight = 1,
  kMoveLeft,
  kMoveUp,
  kMoveDown,
  kMovePageUp,
  kMovePageDown,
  kMoveHome,
  kMoveEnd,
};

struct LayoutColumn {
  int bit;  // 0 for the name column
  std::string title;
  int x, width;
};

class IconLayout {
 public:
  // Lays out `count` entries in `mode` for a view `area_width` pixels wide;
  // the font is `line_height` pixels high and about `char_width` wide.
  void set(int mode, int count, int area_width, int thumb_width, int thumb_height, int line_height,
           int char_width, int column_bits);

  int mode() const { return mode_; }
  int count() const { return count_; }
  int perRow() const { return per_row_; }
  int cellWidth() const { return cell_w_; }
  int cellHeight() const { return cell_h_; }
  // Height of the column title bar at the top of the view (0 when hidden).
  int titleHeight() const { return title_h_; }
  // The whole content, title bar excluded.
  int contentWidth() const { return cell_w_ * per_row_; }
  int contentHeight() const;
  const std::vector<LayoutColumn> &columns() const { return columns_; }

  // Cell of a display position, in content coordinates (title bar excluded).
  void cell(int pos, int *x, int *y) const;
  // The entry under a content point, -1 when none.
  int hit(int x, int y) const;
  // The position after a move from `current` (-1: none yet) with
  // `page_rows` rows to a page; -1 when the list is empty.
  int move(int current, int direction, int page_rows) const;
  // Rows that fit in a view `view_height` pixels high (at least 1).
  int pageRows(int view_height) const;
  // The vertical scroll offset that shows `pos` whole, starting from
  // `scroll` in a view `view_height` high.
  int scrollToShow(int pos, int scroll, int view_height) const;

 private:
  int mode_ = kViewIcons, count_ = 0, per_row_ = 1, cell_w_ = 1, cell_h_ = 1, title_h_ = 0;
  std::vector<LayoutColumn> columns_;
};

// The text of a detailed-view column for an entry ("" for a column the
// entry has nothing for).
std::string ColumnText(const FileEntry &e, int bit);
// "drwxr-xr-x" of a mode.
std::string PermissionText(unsigned mode);

// The first display position from `from` on (wrapping around) whose name
// starts with `prefix`, letter case ignored; -1 when none does.
int FindByPrefix(const FileList &list, const std::string &prefix, int from);

}  // namespace quilla

#endif
