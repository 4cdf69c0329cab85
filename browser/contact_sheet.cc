// Contact sheet pages: layout, the built-in bitmap font and the page builder.
#include "browser/contact_sheet.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "browser/thumb_queue.h"
#include "browser/webexport.h"
#include "imgproc/convert.h"
#include "imgproc/geometry.h"

namespace quilla {

namespace {

// Printable ASCII from ' ' to '~', five columns a glyph, the low bit the
// top row of seven.
const uint8_t kGlyphs[95][5] = {
    {0x00, 0x00, 0x00, 0x00, 0x00}, {0x00, 0x00, 0x5F, 0x00, 0x00}, {0x00, 0x07, 0x00, 0x07, 0x00},
    {0x14, 0x7F, 0x14, 0x7F, 0x14}, {0x24, 0x2A, 0x7F, 0x2A, 0x12}, {0x23, 0x13, 0x08, 0x64, 0x62},
    {0x36, 0x49, 0x55, 0x22, 0x50}, {0x00, 0x05, 0x03, 0x00, 0x00}, {0x00, 0x1C, 0x22, 0x41, 0x00},
    {0x00, 0x41, 0x22, 0x1C, 0x00}, {0x14, 0x08, 0x3E, 0x08, 0x14}, {0x08, 0x08, 0x3E, 0x08, 0x08},
    {0x00, 0x50, 0x30, 0x00, 0x00}, {0x08, 0x08, 0x08, 0x08, 0x08}, {0x00, 0x60, 0x60, 0x00, 0x00},
    {0x20, 0x10, 0x08, 0x04, 0x02}, {0x3E, 0x51, 0x49, 0x45, 0x3E}, {0x00, 0x42, 0x7F, 0x40, 0x00},
    {0x42, 0x61, 0x51, 0x49, 0x46}, {0x21, 0x41, 0x45, 0x4B, 0x31}, {0x18, 0x14, 0x12, 0x7F, 0x10},
    {0x27, 0x45, 0x45, 0x45, 0x39}, {0x3C, 0x4A, 0x49, 0x49, 0x30}, {0x01, 0x71, 0x09, 0x05, 0x03},
    {0x36, 0x49, 0x49, 0x49, 0x36}, {0x06, 0x49, 0x49, 0x29, 0x1E}, {0x00, 0x36, 0x36, 0x00, 0x00},
    {0x00, 0x56, 0x36, 0x00, 0x00}, {0x08, 0x14, 0x22, 0x41, 0x00}, {0x14, 0x14, 0x14, 0x14, 0x14},
    {0x00, 0x41, 0x22, 0x14, 0x08}, {0x02, 0x01, 0x51, 0x09, 0x06}, {0x32, 0x49, 0x79, 0x41, 0x3E},
    {0x7E, 0x11, 0x11, 0x11, 0x7E}, {0x7F, 0x49, 0x49, 0x49, 0x36}, {0x3E, 0x41, 0x41, 0x41, 0x22},
    {0x7F, 0x41, 0x41, 0x22, 0x1C}, {0x7F, 0x49, 0x49, 0x49, 0x41}, {0x7F, 0x09, 0x09, 0x09, 0x01},
    {0x3E, 0x41, 0x49, 0x49, 0x7A}, {0x7F, 0x08, 0x08, 0x08, 0x7F}, {0x00, 0x41, 0x7F, 0x41, 0x00},
    {0x20, 0x40, 0x41, 0x3F, 0x01}, {0x7F, 0x08, 0x14, 0x22, 0x41}, {0x7F, 0x40, 0x40, 0x40, 0x40},
    {0x7F, 0x02, 0x0C, 0x02, 0x7F}, {0x7F, 0x04, 0x08, 0x10, 0x7F}, {0x3E, 0x41, 0x41, 0x41, 0x3E},
    {0x7F, 0x09, 0x09, 0x09, 0x06}, {0x3E, 0x41, 0x51, 0x21, 0x5E}, {0x7F, 0x09, 0x19, 0x29, 0x46},
    {0x46, 0x49, 0x49, 0x49, 0x31}, {0x01, 0x01, 0x7F, 0x01, 0x01}, {0x3F, 0x40, 0x40, 0x40, 0x3F},
    {0x1F, 0x20, 0x40, 0x20, 0x1F}, {0x3F, 0x40, 0x38, 0x40, 0x3F}, {0x63, 0x14, 0x08, 0x14, 0x63},
    {0x07, 0x08, 0x70, 0x08, 0x07}, {0x61, 0x51, 0x49, 0x45, 0x43}, {0x00, 0x7F, 0x41, 0x41, 0x00},
    {0x02, 0x04, 0x08, 0x10, 0x20}, {0x00, 0x41, 0x41, 0x7F, 0x00}, {0x04, 0x02, 0x01, 0x02, 0x04},
    {0x40, 0x40, 0x40, 0x40, 0x40}, {0x00, 0x01, 0x02, 0x04, 0x00}, {0x20, 0x54, 0x54, 0x54, 0x78},
    {0x7F, 0x48, 0x44, 0x44, 0x38}, {0x38, 0x44, 0x44, 0x44, 0x20}, {0x38, 0x44, 0x44, 0x48, 0x7F},
    {0x38, 0x54, 0x54, 0x54, 0x18}, {0x08, 0x7E, 0x09, 0x01, 0x02}, {0x0C, 0x52, 0x52, 0x52, 0x3E},
    {0x7F, 0x08, 0x04, 0x04, 0x78}, {0x00, 0x44, 0x7D, 0x40, 0x00}, {0x20, 0x40, 0x44, 0x3D, 0x00},
    {0x7F, 0x10, 0x28, 0x44, 0x00}, {0x00, 0x41, 0x7F, 0x40, 0x00}, {0x7C, 0x04, 0x18, 0x04, 0x78},
    {0x7C, 0x08, 0x04, 0x04, 0x78}, {0x38, 0x44, 0x44, 0x44, 0x38}, {0x7C, 0x14, 0x14, 0x14, 0x08},
    {0x08, 0x14, 0x14, 0x18, 0x7C}, {0x7C, 0x08, 0x04, 0x04, 0x08}, {0x48, 0x54, 0x54, 0x54, 0x20},
    {0x04, 0x3F, 0x44, 0x40, 0x20}, {0x3C, 0x40, 0x40, 0x20, 0x7C}, {0x1C, 0x20, 0x40, 0x20, 0x1C},
    {0x3C, 0x40, 0x30, 0x40, 0x3C}, {0x44, 0x28, 0x10, 0x28, 0x44}, {0x0C, 0x50, 0x50, 0x50, 0x3C},
    {0x44, 0x64, 0x54, 0x4C, 0x44}, {0x00, 0x08, 0x36, 0x41, 0x00}, {0x00, 0x00, 0x7F, 0x00, 0x00},
    {0x00, 0x41, 0x36, 0x08, 0x00}, {0x02, 0x01, 0x02, 0x04, 0x02},
};

const uint8_t *GlyphOf(char c) {
  const unsigned char u = static_cast<unsigned char>(c);
  return kGlyphs[u >= 0x20 && u < 0x7f ? u - 0x20 : '?' - 0x20];
}

int AtLeast(int v, int low) { return v < low ? low : v; }

bool Empty(const SheetRect &r) { return r.width <= 0 || r.height <= 0; }

SheetRect Intersect(const SheetRect &a, const SheetRect &b) {
  const int x0 = std::max(a.x, b.x), y0 = std::max(a.y, b.y);
  const int x1 = std::min(a.x + a.width, b.x + b.width), y1 = std::min(a.y + a.height, b.y + b.height);
  return SheetRect{x0, y0, std::max(0, x1 - x0), std::max(0, y1 - y0)};
}

SheetRect Whole(const TslPicture &p) { return SheetRect{0, 0, static_cast<int>(p.width), static_cast<int>(p.height)}; }

void PutPixel(TslPicture *p, int x, int y, uint32_t rgb) {
  uint8_t *px = p->pixels + static_cast<size_t>(y) * p->bytes_per_line + static_cast<size_t>(x) * 3;
  px[0] = static_cast<uint8_t>(rgb >> 16), px[1] = static_cast<uint8_t>(rgb >> 8), px[2] = static_cast<uint8_t>(rgb);
}

// Copies a true-colour thumbnail to (x, y); alpha blends it over `under`.
void Blit(TslPicture *page, const TslPicture &thumb, int x, int y, uint32_t under) {
  const SheetRect r = Intersect(Whole(*page), SheetRect{x, y, static_cast<int>(thumb.width), static_cast<int>(thumb.height)});
  const int bpp = thumb.bytes_per_pixel;
  const int back[3] = {static_cast<int>(under >> 16 & 0xff), static_cast<int>(under >> 8 & 0xff),
                       static_cast<int>(under & 0xff)};
  for (int yy = r.y; yy < r.y + r.height; ++yy) {
    const uint8_t *src = thumb.pixels + static_cast<size_t>(yy - y) * thumb.bytes_per_line;
    uint8_t *dst = page->pixels + static_cast<size_t>(yy) * page->bytes_per_line;
    for (int xx = r.x; xx < r.x + r.width; ++xx) {
      const uint8_t *s = src + static_cast<size_t>(xx - x) * bpp;
      uint8_t *d = dst + static_cast<size_t>(xx) * 3;
      const int a = bpp == 4 ? s[3] : 255;
      for (int c = 0; c < 3; ++c) d[c] = static_cast<uint8_t>((s[c] * a + back[c] * (255 - a) + 127) / 255);
    }
  }
}

struct OwnedPicture {
  TslPicture p{};
  ~OwnedPicture() { tslFree(&p); }
};

}  // namespace

SheetOptions SheetOptionsFromSettings(const SettingsRecord &settings) {
  const auto &c = settings.ContactSheet;
  SheetOptions o;
  o.width = c.Width, o.height = c.Height;
  o.columns = c.Columns, o.rows = c.Rows;
  o.margin_width = c.MarginWidth, o.margin_height = c.MarginHeight;
  o.spacing_width = c.SpacingWidth, o.spacing_height = c.SpacingHeight;
  o.font_height = c.FontHeight;
  o.bold = c.FontBold != 0, o.italic = c.FontItalic != 0;
  o.flags = static_cast<unsigned>(c.Flags);
  o.head_note = c.HeadNote, o.foot_note = c.FootNote;
  o.background = static_cast<uint32_t>(c.BackgroundColor) & 0xffffff;
  o.text_background = static_cast<uint32_t>(c.TextBackgroundColor) & 0xffffff;
  o.text_color = static_cast<uint32_t>(c.TextColor) & 0xffffff;
  o.thumb_background = static_cast<uint32_t>(c.ThumbnailBackgroundColor) & 0xffffff;
  return o;
}

void StoreSheetOptions(const SheetOptions &o, SettingsRecord *settings) {
  auto &c = settings->ContactSheet;
  c.Width = o.width, c.Height = o.height;
  c.Columns = o.columns, c.Rows = o.rows;
  c.MarginWidth = o.margin_width, c.MarginHeight = o.margin_height;
  c.SpacingWidth = o.spacing_width, c.SpacingHeight = o.spacing_height;
  c.FontHeight = o.font_height;
  c.FontBold = o.bold, c.FontItalic = o.italic;
  c.Flags = static_cast<int32_t>(o.flags);
  std::snprintf(c.HeadNote, sizeof c.HeadNote, "%s", o.head_note.c_str());
  std::snprintf(c.FootNote, sizeof c.FootNote, "%s", o.foot_note.c_str());
  c.BackgroundColor = static_cast<int32_t>(o.background);
  c.TextBackgroundColor = static_cast<int32_t>(o.text_background);
  c.TextColor = static_cast<int32_t>(o.text_color);
  c.ThumbnailBackgroundColor = static_cast<int32_t>(o.thumb_background);
}

// ---- layout

SheetRect SheetLayout::cell(int index) const {
  return SheetRect{origin_x + index % columns * (cell_width + spacing_width),
                   origin_y + index / columns * (cell_height + spacing_height), cell_width, cell_height};
}

SheetRect SheetLayout::thumbBox(int index) const {
  SheetRect r = cell(index);
  r.height -= text_lines * line_height;
  return r;
}

SheetRect SheetLayout::textBox(int index) const {
  const SheetRect c = cell(index), t = thumbBox(index);
  return SheetRect{c.x, t.y + t.height, c.width, c.height - t.height};
}

SheetFont SheetFontOf(const SheetOptions &o) {
  SheetFont f;
  f.scale = AtLeast((o.font_height + 4) / 8, 1);
  f.bold = o.bold, f.italic = o.italic;
  return f;
}

SheetLayout LayoutSheet(const SheetOptions &o) {
  SheetLayout l;
  const SheetFont font = SheetFontOf(o);
  const int width = AtLeast(o.width, 1), height = AtLeast(o.height, 1);
  const int mw = AtLeast(o.margin_width, 0), mh = AtLeast(o.margin_height, 0);
  l.columns = AtLeast(o.columns, 1), l.rows = AtLeast(o.rows, 1);
  l.spacing_width = AtLeast(o.spacing_width, 0), l.spacing_height = AtLeast(o.spacing_height, 0);
  l.line_height = font.lineHeight();
  const int inner_width = AtLeast(width - 2 * mw, 1);
  int top = mh, bottom = height - mh;
  if (!o.head_note.empty()) {
    l.head = SheetRect{mw, top, inner_width, l.line_height};
    top += l.line_height + l.spacing_height;
  }
  if (!o.foot_note.empty() || (o.flags & kSheetPageNumbers)) {
    l.foot = SheetRect{mw, bottom - l.line_height, inner_width, l.line_height};
    bottom -= l.line_height + l.spacing_height;
  }
  l.origin_x = mw, l.origin_y = top;
  l.cell_width = AtLeast((inner_width - (l.columns - 1) * l.spacing_width) / l.columns, 1);
  l.cell_height = AtLeast((bottom - top - (l.rows - 1) * l.spacing_height) / l.rows, 1);
  l.text_lines = ((o.flags & kSheetShowNames) ? 1 : 0) + ((o.flags & kSheetShowDimensions) ? 1 : 0);
  // The thumbnail keeps at least a pixel row when the cells are too small for the text.
  while (l.text_lines > 0 && l.text_lines * l.line_height >= l.cell_height) --l.text_lines;
  return l;
}

int SheetPageCount(int pictures, const SheetOptions &o) {
  const int per_page = AtLeast(o.columns, 1) * AtLeast(o.rows, 1);
  return pictures <= 0 ? 0 : (pictures + per_page - 1) / per_page;
}

std::string SheetPageFileName(const std::string &path, int page) {
  if (page <= 1) return path;
  const size_t slash = path.rfind('/');
  const size_t name = slash == std::string::npos ? 0 : slash + 1;
  size_t dot = path.rfind('.');
  // A leading dot starts no extension.
  if (dot == std::string::npos || dot <= name) dot = path.size();
  return path.substr(0, dot) + "_" + std::to_string(page) + path.substr(dot);
}

// ---- text

int SheetFont::textWidth(const std::string &text) const {
  if (text.empty()) return 0;
  return static_cast<int>(text.size()) * 6 * scale - scale + (bold ? 1 : 0) + (italic ? 2 * scale : 0);
}

std::string SheetFont::fit(const std::string &text, int width) const {
  if (textWidth(text) <= width) return text;
  for (size_t n = text.size(); n-- > 0;) {
    const std::string cut = text.substr(0, n) + "...";
    if (textWidth(cut) <= width) return cut;
  }
  return std::string();
}

uint32_t SheetTextColor(const SheetOptions &o) {
  if (o.text_color != o.text_background) return o.text_color;
  const uint32_t b = o.text_background;
  const int luma = (299 * static_cast<int>(b >> 16 & 0xff) + 587 * static_cast<int>(b >> 8 & 0xff) +
                    114 * static_cast<int>(b & 0xff)) / 1000;
  return luma >= 128 ? 0x000000 : 0xffffff;
}

void FillSheetRect(TslPicture *page, const SheetRect &rect, uint32_t rgb) {
  const SheetRect r = Intersect(Whole(*page), rect);
  for (int y = r.y; y < r.y + r.height; ++y)
    for (int x = r.x; x < r.x + r.width; ++x) PutPixel(page, x, y, rgb);
}

void DrawSheetText(TslPicture *page, const SheetRect &clip, int x, int y, const std::string &text,
                   const SheetFont &font, uint32_t rgb) {
  const SheetRect r = Intersect(Whole(*page), clip);
  const int s = font.scale;
  for (size_t i = 0; i < text.size(); ++i) {
    const uint8_t *g = GlyphOf(text[i]);
    const int gx = x + static_cast<int>(i) * 6 * s;
    for (int row = 0; row < 7; ++row) {
      // Italic: the top row leans two font pixels to the right, the bottom one none.
      const int slant = font.italic ? (6 - row) * 2 * s / 6 : 0;
      for (int col = 0; col < 5; ++col) {
        if (!(g[col] >> row & 1)) continue;
        for (int dy = 0; dy < s; ++dy)
          for (int dx = 0; dx < s + (font.bold ? 1 : 0); ++dx) {
            const int px = gx + slant + col * s + dx, py = y + row * s + dy;
            if (px >= r.x && px < r.x + r.width && py >= r.y && py < r.y + r.height) PutPixel(page, px, py, rgb);
          }
      }
    }
  }
}

// ---- the builder

ContactSheet::ContactSheet(const SheetOptions &options, const std::vector<std::string> &paths)
    : options_(options), layout_(LayoutSheet(options)), font_(SheetFontOf(options)), paths_(paths) {}

ContactSheet::~ContactSheet() { tslFree(&page_); }

bool ContactSheet::startPage() {
  tslFree(&page_);
  page_ = TslPicture{};
  if (!tslAllock(&page_, TSL_RGB, 0, static_cast<uint32_t>(AtLeast(options_.width, 1)),
                 static_cast<uint32_t>(AtLeast(options_.height, 1)))) {
    page_ = TslPicture{};
    return false;
  }
  drawFrame(page_done_ + 1);
  return true;
}

// Background, head and foot lines, and the empty cells of the page.
void ContactSheet::drawFrame(int page) {
  FillSheetRect(&page_, Whole(page_), options_.background);
  const uint32_t ink = SheetTextColor(options_);
  auto line = [&](const SheetRect &box, const std::string &text) {
    if (Empty(box)) return;
    FillSheetRect(&page_, box, options_.text_background);
    const std::string t = font_.fit(text, box.width);
    DrawSheetText(&page_, box, box.x + (box.width - font_.textWidth(t)) / 2, box.y + 1, t, font_, ink);
  };
  line(layout_.head, options_.head_note);
  std::string foot = options_.foot_note;
  if (options_.flags & kSheetPageNumbers) {
    if (!foot.empty()) foot += "  ";
    foot += "Page " + std::to_string(page) + " of " + std::to_string(pages());
  }
  line(layout_.foot, foot);
}

int ContactSheet::step(TslPicture *finished, int *page_number) {
  *finished = TslPicture{};
  *page_number = 0;
  if (next_ >= paths_.size()) return TSL_OK;
  const int per_page = layout_.perPage();
  const int index = static_cast<int>(next_ % static_cast<size_t>(per_page));
  if (index == 0 && !startPage()) {
    // Without a page there is nothing to place the rest on.
    next_ = paths_.size();
    page_done_ = pages();
    return TSL_ERR_MEMORY;
  }
  const std::string &path = paths_[next_++];
  const SheetRect box = layout_.thumbBox(index), text = layout_.textBox(index);
  FillSheetRect(&page_, box, options_.thumb_background);
  FillSheetRect(&page_, text, options_.text_background);

  OwnedPicture loaded, fitted, rgb;
  TslFileInfo info{};
  int code = ThumbnailLoad(path.c_str(), &loaded.p, &info, box.width, box.height, false);
  const int width = static_cast<int>(info.width), height = static_cast<int>(info.height);
  tslFileInformationFree(&info);
  if (code == TSL_OK) {
    int w = 0, h = 0;
    WebThumbSize(static_cast<int>(loaded.p.width), static_cast<int>(loaded.p.height), box.width, box.height, &w, &h);
    const TslPicture *src = &loaded.p;
    if (w != static_cast<int>(loaded.p.width) || h != static_cast<int>(loaded.p.height)) {
      if (ResizePicture(&loaded.p, &fitted.p, static_cast<uint32_t>(w), static_cast<uint32_t>(h), kResampleLinear) !=
          kOpDone)
        code = TSL_ERR_MEMORY;
      src = &fitted.p;
    }
    if (code == TSL_OK && ConvertToTrueColor(src, &rgb.p) != kOpDone) code = TSL_ERR_MEMORY;
    if (code == TSL_OK)
      Blit(&page_, rgb.p, box.x + (box.width - w) / 2, box.y + (box.height - h) / 2, options_.thumb_background);
  }

  std::vector<std::string> lines;
  if (options_.flags & kSheetShowNames) {
    const size_t slash = path.rfind('/');
    lines.push_back(slash == std::string::npos ? path : path.substr(slash + 1));
  }
  if (options_.flags & kSheetShowDimensions)
    lines.push_back(code == TSL_OK ? std::to_string(width) + "x" + std::to_string(height) : std::string());
  const uint32_t ink = SheetTextColor(options_);
  for (int i = 0; i < layout_.text_lines && i < static_cast<int>(lines.size()); ++i) {
    const std::string t = font_.fit(lines[static_cast<size_t>(i)], text.width);
    DrawSheetText(&page_, text, text.x + (text.width - font_.textWidth(t)) / 2, text.y + i * layout_.line_height + 1,
                  t, font_, ink);
  }

  if (index == per_page - 1 || next_ == paths_.size()) {
    *finished = page_;
    page_ = TslPicture{};
    *page_number = ++page_done_;
  }
  return code;
}

}  // namespace quilla
