// The window icons and the shared cursor shapes, as data, with the parser of
// the compact icon form and the choice of icon size.
#include "core/icon.h"

#include <cstring>

namespace quilla {

namespace {

// The icons: 7 colours each -- '+' light grey (background), '#' white
// (feather), '&' orange (sun), '.' black (outlines and quill shaft), 'o'
// brown (frame), '~' sky blue, '%' green (hill).  Blank pixels take the
// background colour.
// 32x32: a quill over a framed landscape.
const char kIcon32[] =
    "\x20\0\0\0" "\x20\0\0\0"  // width, height
    " \0\0\0"                // blank code
    "\x07\0\0\0"            // colour count
    "+\xdf\xdf\xe0" "#\xff\xff\xff" "&\xff\xa5\x00" ".\x00\x00\x00"
    "o\x8b\x5a\x2b" "~\x6f\xa8\xdc" "%\x3c\x8d\x3c"
    "                                "
    "                             .. "
    "                          ..#.. "
    "                        ..##... "
    "                       .###.... "
    "                     ..###....  "
    "                    ..####..#.  "
    " ....................####..#..  "
    " .ooooooooooooooooo.####..##.   "
    " .oooooooooooooooo..###..##..   "
    " .oo...............###...##.    "
    " .oo.~~~~~~~~~~~~..##...##.     "
    " .oo.~&&&&~~~~~~~.###..##.      "
    " .oo.~&&&&&~~~~~~.##..##..      "
    " .oo.~&&&&&~~~~~~.#..##.o.      "
    " .oo.~&&&&&~~~~~.#..##.oo.      "
    " .oo.~~&&&~~~~~~.......oo.      "
    " .oo.~~~~~~~~~~~....~~.oo.      "
    " .oo.~~~~~~~~~~~..~~~~.oo.      "
    " .oo.~~~~~~~~~~..~~~~~.oo.      "
    " .oo.~~~~~~~~%..~~~~~~.oo.      "
    " .oo.~~~%%%%%..%%%%%%~.oo.      "
    " .oo.%%%%%%%...%%%%%%%.oo.      "
    " .oo.%%%%%%...%%%%%%%%.oo.      "
    " .oo.%%%%%%..%%%%%%%%%.oo.      "
    " .oo.%%%%%..%%%%%%%%%%.oo.      "
    " .oo.%%%%%%%%%%%%%%%%%.oo.      "
    " .oo...................oo.      "
    " .ooooooooooooooooooooooo.      "
    " .ooooooooooooooooooooooo.      "
    " .........................      "
    "                                ";

// 64x64: a quill over a framed landscape.
const char kIcon64[] =
    "\x40\0\0\0" "\x40\0\0\0"  // width, height
    " \0\0\0"                // blank code
    "\x07\0\0\0"            // colour count
    "+\xdf\xdf\xe0" "#\xff\xff\xff" "&\xff\xa5\x00" ".\x00\x00\x00"
    "o\x8b\x5a\x2b" "~\x6f\xa8\xdc" "%\x3c\x8d\x3c"
    "                                                                "
    "                                                                "
    "                                                           ...  "
    "                                                        ...##.  "
    "                                                     ...####..  "
    "                                                   ..######...  "
    "                                                 ..#######..#.  "
    "                                               ..########..##.  "
    "                                              ..########..##..  "
    "                                             .#########..###.   "
    "                                            .##########.####.   "
    "                                          ..##########..###..   "
    "                                         ..##########..####.    "
    "                                         .##########..#####.    "
    "  .......................................##########..#####.     "
    "  .oooooooooooooooooooooooooooooooooooo.##########..######.     "
    "  .ooooooooooooooooooooooooooooooooooo..##########.######.      "
    "  .ooooooooooooooooooooooooooooooooooo.##########..######.      "
    "  .oooooooooooooooooooooooooooooooooo.##########..######.       "
    "  .ooooooooooooooooooooooooooooooooo..#########..######..       "
    "  .ooooo.............................#########..#######.        "
    "  .ooooo.~~~~~~~~~~~~~~~~~~~~~~~~~~~.#########.#######.         "
    "  .ooooo.~~~~~~~~~~~~~~~~~~~~~~~~~~.#########.#######..         "
    "  .ooooo.~~~~~~&&&~~~~~~~~~~~~~~~~~.########..#######.          "
    "  .ooooo.~~~~&&&&&&&~~~~~~~~~~~~~~.########..#######.           "
    "  .ooooo.~~~&&&&&&&&&~~~~~~~~~~~~~.#######..#######.            "
    "  .ooooo.~~~&&&&&&&&&&~~~~~~~~~~~~.######..#######.             "
    "  .ooooo.~~&&&&&&&&&&&~~~~~~~~~~~.#######.#######..             "
    "  .ooooo.~~&&&&&&&&&&&~~~~~~~~~~~.######.#######.o.             "
    "  .ooooo.~~&&&&&&&&&&&~~~~~~~~~~~.#####..######.oo.             "
    "  .ooooo.~~&&&&&&&&&&&~~~~~~~~~~~.####..#####..ooo.             "
    "  .ooooo.~~~&&&&&&&&&~~~~~~~~~~~~.###..#####..oooo.             "
    "  .ooooo.~~~~&&&&&&&&~~~~~~~~~~~~###..#####..ooooo.             "
    "  .ooooo.~~~~~&&&&&~~~~~~~~~~~~~~###.####..~.ooooo.             "
    "  .ooooo.~~~~~~~~~~~~~~~~~~~~~~~.##.###..~~~.ooooo.             "
    "  .ooooo.~~~~~~~~~~~~~~~~~~~~~~~~#..#...~~~~.ooooo.             "
    "  .ooooo.~~~~~~~~~~~~~~~~~~~~~~~~....~~~~~~~.ooooo.             "
    "  .ooooo.~~~~~~~~~~~~~~~~~~~~~~~...~~~~~~~~~.ooooo.             "
    "  .ooooo.~~~~~~~~~~~~~~~~~~~~~~..~~~~~~~~~~~.ooooo.             "
    "  .ooooo.~~~~~~~~~~~~~~~~~~~~~~.~~~~~~~~~~~~.ooooo.             "
    "  .ooooo.~~~~~~~~~~~~~~~~~~~~~.~~~~~~~~~~~~~.ooooo.             "
    "  .ooooo.~~~~~~~~~~~~~%%%%%%%..%%%%~~~~~~~~~.ooooo.             "
    "  .ooooo.~~~~~~~~%%%%%%%%%%%..%%%%%%%%%%~~~~.ooooo.             "
    "  .ooooo.~~~~~%%%%%%%%%%%%%..%%%%%%%%%%%%%%~.ooooo.             "
    "  .ooooo.~~%%%%%%%%%%%%%%%..%%%%%%%%%%%%%%%%.ooooo.             "
    "  .ooooo.%%%%%%%%%%%%%%%%%.%%%%%%%%%%%%%%%%%.ooooo.             "
    "  .ooooo.%%%%%%%%%%%%%%%%..%%%%%%%%%%%%%%%%%.ooooo.             "
    "  .ooooo.%%%%%%%%%%%%%%%..%%%%%%%%%%%%%%%%%%.ooooo.             "
    "  .ooooo.%%%%%%%%%%%%%%..%%%%%%%%%%%%%%%%%%%.ooooo.             "
    "  .ooooo.%%%%%%%%%%%%%..%%%%%%%%%%%%%%%%%%%%.ooooo.             "
    "  .ooooo.%%%%%%%%%%%%..%%%%%%%%%%%%%%%%%%%%%.ooooo.             "
    "  .ooooo.%%%%%%%%%%%%.%%%%%%%%%%%%%%%%%%%%%%.ooooo.             "
    "  .ooooo.%%%%%%%%%%%%%%%%%%%%%%%%%%%%%%%%%%%.ooooo.             "
    "  .ooooo.%%%%%%%%%%%%%%%%%%%%%%%%%%%%%%%%%%%.ooooo.             "
    "  .ooooo.%%%%%%%%%%%%%%%%%%%%%%%%%%%%%%%%%%%.ooooo.             "
    "  .ooooo.....................................ooooo.             "
    "  .ooooooooooooooooooooooooooooooooooooooooooooooo.             "
    "  .ooooooooooooooooooooooooooooooooooooooooooooooo.             "
    "  .ooooooooooooooooooooooooooooooooooooooooooooooo.             "
    "  .ooooooooooooooooooooooooooooooooooooooooooooooo.             "
    "  .ooooooooooooooooooooooooooooooooooooooooooooooo.             "
    "  .................................................             "
    "                                                                "
    "                                                                ";


// Cursor shapes: 'X' foreground, '.' background, blank transparent.  The
// hourglass's hot spot is its centre, the crosshair's the crossing point.
const char *const kHourglass[32] = {
    "                                ",
    "                                ",
    "      ....................      ",
    "      .XXXXXXXXXXXXXXXXXX.      ",
    "      .XXXXXXXXXXXXXXXXXX.      ",
    "      .X................X.      ",
    "       .X..............X.       ",
    "        .X............X.        ",
    "         .X..........X.         ",
    "          .XXXXXXXXXX.          ",
    "          .XXXXXXXXXX.          ",
    "           .XXXXXXXX.           ",
    "            .XXXXXX.            ",
    "             .XXXX.             ",
    "             .XXXX.             ",
    "              .XX.              ",
    "              .XX.              ",
    "             .XXXX.             ",
    "             .XXXX.             ",
    "            .X.XX.X.            ",
    "           .X..XX..X.           ",
    "          .XXXXXXXXXX.          ",
    "          .XXXXXXXXXX.          ",
    "         .XXXXXXXXXXXX.         ",
    "        .XXXXXXXXXXXXXX.        ",
    "       .XXXXXXXXXXXXXXXX.       ",
    "      .XXXXXXXXXXXXXXXXXX.      ",
    "      .XXXXXXXXXXXXXXXXXX.      ",
    "      .XXXXXXXXXXXXXXXXXX.      ",
    "      ....................      ",
    "                                ",
    "                                ",
};
const char *const kCrosshair[32] = {
    "              ....              ",
    "              .XX.              ",
    "              .XX.              ",
    "              .XX.              ",
    "              .XX.              ",
    "              .XX.              ",
    "              .XX.              ",
    "              .XX.              ",
    "              .XX.              ",
    "              .XX.              ",
    "              .XX.              ",
    "              .XX.              ",
    "              .XX.              ",
    "                                ",
    ".............      .............",
    ".XXXXXXXXXXXX      XXXXXXXXXXXX.",
    ".XXXXXXXXXXXX      XXXXXXXXXXXX.",
    ".............      .............",
    "                                ",
    "              .XX.              ",
    "              .XX.              ",
    "              .XX.              ",
    "              .XX.              ",
    "              .XX.              ",
    "              .XX.              ",
    "              .XX.              ",
    "              .XX.              ",
    "              .XX.              ",
    "              .XX.              ",
    "              .XX.              ",
    "              .XX.              ",
    "              ....              ",
};

uint32_t ReadWord(const unsigned char *p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
         static_cast<uint32_t>(p[3]) << 24;
}

bool Fail(std::string *error, const char *why) {
  if (error) *error = why;
  return false;
}

CursorBitmap MakeCursor(const char *const rows[32], int hot_x, int hot_y) {
  CursorBitmap c;
  std::memset(c.source, 0, sizeof c.source);
  std::memset(c.mask, 0, sizeof c.mask);
  for (int y = 0; y < 32; ++y)
    for (int x = 0; x < 32; ++x) {
      const unsigned char bit = static_cast<unsigned char>(1u << (x & 7));
      const int at = y * 4 + x / 8;
      if (rows[y][x] == 'X') c.source[at] |= bit;
      if (rows[y][x] != ' ') c.mask[at] |= bit;
    }
  c.hot_x = hot_x;
  c.hot_y = hot_y;
  return c;
}

}  // namespace

bool ParseIcon(const unsigned char *data, size_t size, IconImage *out, std::string *error) {
  const size_t kHeader = 16;
  if (!data || size < kHeader) return Fail(error, "icon header is short");
  const uint32_t width = ReadWord(data), height = ReadWord(data + 4), count = ReadWord(data + 12);
  const char blank = static_cast<char>(data[8]);
  if (width < 1 || width > 256 || height < 1 || height > 256) return Fail(error, "icon size out of range");
  if (count < 1 || count > 64) return Fail(error, "icon colour count out of range");
  const size_t expected = kHeader + 4 * static_cast<size_t>(count) + static_cast<size_t>(width) * height;
  if (size != expected) return Fail(error, size < expected ? "icon data is short" : "icon data is too long");

  IconImage img;
  img.width = static_cast<int>(width);
  img.height = static_cast<int>(height);
  img.blank = blank;
  int index_of[256];
  for (int &i : index_of) i = -1;
  const unsigned char *p = data + kHeader;
  for (uint32_t i = 0; i < count; ++i, p += 4) {
    if (static_cast<char>(p[0]) == blank) return Fail(error, "icon colour uses the blank code");
    if (index_of[p[0]] >= 0) return Fail(error, "icon colour code repeated");
    index_of[p[0]] = static_cast<int>(i);
    IconColour c;
    c.code = static_cast<char>(p[0]);
    c.red = p[1];
    c.green = p[2];
    c.blue = p[3];
    img.colours.push_back(c);
  }
  for (int y = 0; y < img.height; ++y)
    for (int x = 0; x < img.width; ++x, ++p) {
      if (static_cast<char>(*p) == blank) continue;
      const int idx = index_of[*p];
      if (idx < 0) return Fail(error, "icon pixel has an unknown code");
      img.colours[idx].points.push_back({static_cast<int16_t>(x), static_cast<int16_t>(y)});
    }
  *out = std::move(img);
  return true;
}

const unsigned char *Icon32Data(size_t *size) {
  *size = sizeof kIcon32 - 1;
  return reinterpret_cast<const unsigned char *>(kIcon32);
}

const unsigned char *Icon64Data(size_t *size) {
  *size = sizeof kIcon64 - 1;
  return reinterpret_cast<const unsigned char *>(kIcon64);
}

int ChooseIconSize(const std::vector<IconSizeRange> &sizes) {
  for (const IconSizeRange &s : sizes)
    if (s.min_width <= 64 && s.min_height <= 64 && s.max_width >= 64 && s.max_height >= 64) return 64;
  return 32;
}

const CursorBitmap &SharedCursorBitmap(int which) {
  static const CursorBitmap shapes[2] = {MakeCursor(kHourglass, 15, 15), MakeCursor(kCrosshair, 15, 15)};
  return shapes[which == 1 ? 1 : 0];
}

}  // namespace quilla
