#include "browser/icon_layout.h"

#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace quilla {

namespace {

struct ColumnDef {
  int bit;
  const char *title;
  int chars;
};
const ColumnDef kColumnDefs[] = {
    {0, "Name", 28},         {kColumnSize, "Size", 10},        {kColumnProp, "Properties", 14},
    {kColumnType, "Type", 10}, {kColumnDate, "Date", 17},      {kColumnPerm, "Permissions", 12},
    {kColumnDesc, "Description", 30},
};

constexpr int kIconSpace = 20;  // the 16x16 icon before a name, and its gap
constexpr int kPad = 4;

}  // namespace

void IconLayout::set(int mode, int count, int area_width, int thumb_width, int thumb_height, int line_height,
                     int char_width, int column_bits) {
  mode_ = mode;
  count_ = std::max(0, count);
  line_height = std::max(1, line_height);
  char_width = std::max(1, char_width);
  columns_.clear();
  title_h_ = 0;
  switch (mode) {
    case kViewSmallIcons:
    case kViewList: {
      int x = 0;
      for (const ColumnDef &d : kColumnDefs) {
        if (d.bit && !(column_bits & d.bit)) continue;
        const int w = d.chars * char_width + 2 * kPad + (d.bit == 0 ? kIconSpace : 0);
        columns_.push_back({d.bit, d.title, x, w});
        x += w;
      }
      cell_w_ = x;
      cell_h_ = std::max(line_height, 16) + 4;
      per_row_ = 1;
      title_h_ = line_height + 6;
      break;
    }
    case kViewColumns:
      cell_w_ = 24 * char_width + kIconSpace + 2 * kPad;
      cell_h_ = std::max(line_height, 16) + 4;
      per_row_ = std::max(1, area_width / cell_w_);
      break;
    default:
      // A thumbnail frame, then two lines: the name and the dimensions.
      cell_w_ = std::max(thumb_width, 12 * char_width) + 16;
      cell_h_ = thumb_height + 12 + 2 * line_height + 6;
      per_row_ = std::max(1, area_width / cell_w_);
      break;
  }
}

int IconLayout::contentHeight() const { return (count_ + per_row_ - 1) / per_row_ * cell_h_; }

void IconLayout::cell(int pos, int *x, int *y) const {
  *x = pos % per_row_ * cell_w_;
  *y = pos / per_row_ * cell_h_;
}

int IconLayout::hit(int x, int y) const {
  if (x < 0 || y < 0 || x >= contentWidth()) return -1;
  const int pos = y / cell_h_ * per_row_ + x / cell_w_;
  return pos < count_ ? pos : -1;
}

int IconLayout::pageRows(int view_height) const { return std::max(1, view_height / cell_h_); }

int IconLayout::move(int current, int direction, int page_rows) const {
  if (count_ == 0) return -1;
  if (current < 0 || current >= count_) return direction == kMoveEnd ? count_ - 1 : 0;
  const int step = per_row_ * std::max(1, page_rows);
  int pos = current;
  switch (direction) {
    case kMoveRight: pos = current + 1; break;
    case kMoveLeft: pos = current - 1; break;
    case kMoveUp: pos = current >= per_row_ ? current - per_row_ : current; break;
    case kMoveDown: pos = current + per_row_ < count_ ? current + per_row_ : current; break;
    case kMovePageUp: pos = current - step; break;
    case kMovePageDown: pos = current + step; break;
    case kMoveHome: pos = 0; break;
    case kMoveEnd: pos = count_ - 1; break;
    default: break;
  }
  return std::clamp(pos, 0, count_ - 1);
}

int IconLayout::scrollToShow(int pos, int scroll, int view_height) const {
  if (pos < 0 || pos >= count_) return scroll;
  int x, y;
  cell(pos, &x, &y);
  if (y < scroll) return y;
  if (y + cell_h_ > scroll + view_height) return std::max(0, y + cell_h_ - view_height);
  return scroll;
}

std::string PermissionText(unsigned mode) {
  std::string s = S_ISDIR(mode) ? "d" : S_ISLNK(mode) ? "l" : "-";
  const char *rwx = "rwxrwxrwx";
  for (int i = 0; i < 9; ++i) s += (mode & (0400u >> i)) ? rwx[i] : '-';
  return s;
}

std::string ColumnText(const FileEntry &e, int bit) {
  char buf[64];
  switch (bit) {
    case 0:
      return e.name;
    case kColumnSize:
      if (e.isDirectory()) return "";
      std::snprintf(buf, sizeof buf, "%d", static_cast<int>(e.size));
      return buf;
    case kColumnProp:
      return PropertiesText(e);
    case kColumnType:
      if (!e.isDirectory() && !(e.kind & kEntryLink) && !(e.state & (kStateKnown | kStateUnreadable))) return "";
      return TypeText(e);
    case kColumnDate: {
      const time_t t = e.mtime;
      struct tm tm;
      if (!localtime_r(&t, &tm)) return "";
      std::strftime(buf, sizeof buf, "%Y/%m/%d %H:%M", &tm);
      return buf;
    }
    case kColumnPerm:
      return PermissionText(e.mode);
    case kColumnDesc:
      return e.has_description ? e.description : "";
    default:
      return "";
  }
}

int FindByPrefix(const FileList &list, const std::string &prefix, int from) {
  const int n = list.count();
  if (n == 0 || prefix.empty()) return -1;
  from = std::clamp(from, 0, n - 1);
  for (int i = 0; i < n; ++i) {
    const int pos = (from + i) % n;
    if (strncasecmp(list.at(pos).name, prefix.c_str(), prefix.size()) == 0) return pos;
  }
  return -1;
}

}  // namespace quilla
