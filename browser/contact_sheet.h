// Contact sheets without the toolkit: pages of Columns x Rows thumbnails
// drawn into true-colour pictures of Width x Height pixels, with margins,
// spacing, an optional head and foot line and the file names (and sizes)
// under the thumbnails, in the ContactSheet.* settings' colours.  Text is
// drawn with a small built-in bitmap font, so sheets can be made without a
// display.
#ifndef QUILLA_BROWSER_CONTACT_SHEET_H
#define QUILLA_BROWSER_CONTACT_SHEET_H

#include <cstdint>
#include <string>
#include <vector>

#include "core/settings.h"
#include "tessel.h"

namespace quilla {

// ContactSheet.Flags bits.
constexpr unsigned kSheetShowNames = 1, kSheetShowDimensions = 2, kSheetPageNumbers = 4;

struct SheetOptions {
  int width = 1000, height = 1000;  // the page, in pixels
  int columns = 4, rows = 4;
  int margin_width = 16, margin_height = 16;
  int spacing_width = 8, spacing_height = 8;
  int font_height = 10;
  bool bold = false, italic = false;
  unsigned flags = kSheetShowNames;
  std::string head_note, foot_note;
  // 0xRRGGBB
  uint32_t background = 0xffffff, text_background = 0xffffff, text_color = 0xffffff,
           thumb_background = 0xffffff;
};

SheetOptions SheetOptionsFromSettings(const SettingsRecord &settings);
void StoreSheetOptions(const SheetOptions &options, SettingsRecord *settings);

struct SheetRect {
  int x = 0, y = 0, width = 0, height = 0;
};

// Where everything goes on a page.
struct SheetLayout {
  SheetRect head, foot;  // empty (0 x 0) when the page has no such line
  int origin_x = 0, origin_y = 0;  // top left of the first cell
  int cell_width = 1, cell_height = 1, spacing_width = 0, spacing_height = 0;
  int columns = 1, rows = 1;
  int text_lines = 0, line_height = 0;

  int perPage() const { return columns * rows; }
  // The cell of the index-th picture of a page, row by row.
  SheetRect cell(int index) const;
  // The thumbnail's box (top of the cell) and the text below it.
  SheetRect thumbBox(int index) const;
  SheetRect textBox(int index) const;
};
SheetLayout LayoutSheet(const SheetOptions &options);

int SheetPageCount(int pictures, const SheetOptions &options);
// The file of page n: the chosen name for page 1, "_<n>" before the
// extension of its file name after that ("sheet.png" -> "sheet_2.png").
std::string SheetPageFileName(const std::string &path, int page);

// The built-in font: 5 x 7 glyphs in 6 x 8 cells, enlarged by a whole
// factor for the font height; bold doubles each stroke one pixel to the
// right and italic slants the rows.
struct SheetFont {
  int scale = 1;
  bool bold = false, italic = false;
  int lineHeight() const { return 8 * scale + 2; }
  int textWidth(const std::string &text) const;
  // The longest head of `text` that fits into `width`, cut ones ending in "...".
  std::string fit(const std::string &text, int width) const;
};
SheetFont SheetFontOf(const SheetOptions &options);

// The colour text is drawn in: the text colour, or black or white when it
// equals the text background (the defaults are white on white).
uint32_t SheetTextColor(const SheetOptions &options);

// Filling and drawing on a TSL_RGB picture, clipped to the picture and to `clip`.
void FillSheetRect(TslPicture *page, const SheetRect &rect, uint32_t rgb);
void DrawSheetText(TslPicture *page, const SheetRect &clip, int x, int y, const std::string &text,
                   const SheetFont &font, uint32_t rgb);

// Builds the pages one picture per step, so that a work procedure can run it.
class ContactSheet {
 public:
  ContactSheet(const SheetOptions &options, const std::vector<std::string> &paths);
  ~ContactSheet();
  ContactSheet(const ContactSheet &) = delete;
  ContactSheet &operator=(const ContactSheet &) = delete;

  int pages() const { return SheetPageCount(static_cast<int>(paths_.size()), options_); }
  const SheetLayout &layout() const { return layout_; }
  // The picture the next step places ("" when all are placed).
  std::string nextPath() const { return next_ < paths_.size() ? paths_[next_] : std::string(); }
  size_t count() const { return paths_.size(); }
  // How many pictures are placed.
  size_t placed() const { return next_; }
  bool done() const { return next_ >= paths_.size() && page_done_ >= pages(); }

  // Places the next picture on the page being made.  Returns its load's
  // result code (an unreadable picture leaves its box empty but keeps its
  // name) or TSL_ERR_MEMORY when the page itself cannot be made.  When the
  // step completes a page, *finished receives it (the caller frees it with
  // tslFree) and *page_number its number from 1.
  int step(TslPicture *finished, int *page_number);

 private:
  bool startPage();
  void drawFrame(int page);

  SheetOptions options_;
  SheetLayout layout_;
  SheetFont font_;
  std::vector<std::string> paths_;
  size_t next_ = 0;
  int page_done_ = 0;  // pages handed out
  TslPicture page_{};
};

}  // namespace quilla

#endif
