// Windows icons and cursors (.ico, .cur): a directory of pictures, each a
// page.  A picture is either a PNG file (decoded by the PNG reader) or a
// device-independent bitmap without its file header: the bitmap header with
// twice the height, the colour table, the colour rows (1, 4, 8, 24 or 32
// bits, bottom-up) and the 1-bit AND mask whose set bits are transparent.
// Pages come out as RGBA (PNG pages as the PNG reader gives them).
// Writer: one page per picture of at most 256 x 256, 32-bit with alpha and
// the matching AND mask; several pages through the multi-page calls.
#include <strings.h>

#include <cstring>
#include <utility>
#include <vector>

#include "../bytes.h"
#include "../format.h"

namespace tessel {

namespace {

constexpr size_t kDirHeader = 6;
constexpr size_t kDirEntry = 16;
constexpr uint32_t kMaxSide = 256;

struct IcoEntry {
  uint32_t width = 0, height = 0;  // from the directory (0 means 256)
  uint32_t size = 0, offset = 0;
  bool png = false;
  bool cut = false;  // the file ends before the page does
};

struct IcoDir {
  int type = 1;  // 1 icon, 2 cursor
  int count = 0;
};

int parseDir(const Source &src, IcoDir *dir, char *msg, size_t msg_size) {
  if (src.size < kDirHeader) return TSL_ERR_READ;
  const uint8_t *d = src.data;
  dir->type = le16(d + 2);
  dir->count = le16(d + 4);
  if (le16(d) != 0 || (dir->type != 1 && dir->type != 2) || dir->count == 0) {
    std::snprintf(msg, msg_size, "Not a Windows icon or cursor");
    return TSL_ERR_BAD_FILE;
  }
  if (kDirHeader + kDirEntry * static_cast<size_t>(dir->count) > src.size) return TSL_ERR_READ;
  return TSL_OK;
}

int entryAt(const Source &src, int index, IcoEntry *e, char *msg, size_t msg_size) {
  const uint8_t *p = src.data + kDirHeader + kDirEntry * static_cast<size_t>(index);
  e->width = p[0] ? p[0] : 256;
  e->height = p[1] ? p[1] : 256;
  e->size = le32(p + 8);
  e->offset = le32(p + 12);
  if (e->offset >= src.size) return TSL_ERR_READ;
  if (e->size > src.size - e->offset) {
    e->size = static_cast<uint32_t>(src.size - e->offset);
    e->cut = true;
  }
  e->png = e->size >= 8 && std::memcmp(src.data + e->offset, "\x89PNG\r\n\x1a\n", 8) == 0;
  if (!e->png && e->size < 40) {
    std::snprintf(msg, msg_size, "Icon %d: picture data is too short", index + 1);
    return TSL_ERR_BAD_FILE;
  }
  return TSL_OK;
}

const FormatDef *pngFormat() {
  for (int i = 0; i < formatCount(); ++i)
    if (strcasecmp(formatAt(i).name, "png") == 0) return &formatAt(i);
  return nullptr;
}

// The bitmap header of a DIB page.
struct Dib {
  uint32_t width = 0, height = 0;  // height of the colour part
  int bits = 0;
  uint32_t header = 0, colors = 0;
};

int parseDib(const uint8_t *d, size_t n, Dib *dib, char *msg, size_t msg_size) {
  dib->header = le32(d);
  const int32_t w = static_cast<int32_t>(le32(d + 4)), h2 = static_cast<int32_t>(le32(d + 8));
  dib->bits = le16(d + 14);
  const uint32_t compression = le32(d + 16);
  dib->colors = le32(d + 32);
  if (dib->header < 40 || dib->header > n || w <= 0 || h2 <= 0 || static_cast<uint32_t>(w) > 4096 ||
      static_cast<uint32_t>(h2) > 8192) {
    std::snprintf(msg, msg_size, "Icon: bad bitmap header");
    return TSL_ERR_BAD_FILE;
  }
  if (!(dib->bits == 1 || dib->bits == 4 || dib->bits == 8 || dib->bits == 24 || dib->bits == 32) ||
      (compression != 0 && !(compression == 3 && dib->bits == 32))) {
    std::snprintf(msg, msg_size, "Icon: %d-bit bitmaps with compression %u are not supported", dib->bits, compression);
    return TSL_ERR_BAD_FILE;
  }
  dib->width = static_cast<uint32_t>(w);
  dib->height = static_cast<uint32_t>(h2) / 2 ? static_cast<uint32_t>(h2) / 2 : 1;
  if (dib->bits <= 8 && (dib->colors == 0 || dib->colors > (1u << dib->bits))) dib->colors = 1u << dib->bits;
  if (dib->bits > 8) dib->colors = 0;
  return TSL_OK;
}

int loadDib(const uint8_t *d, size_t n, TslPicture *picture, LoadContext &ctx) {
  Dib dib;
  char msg[256] = {0};
  int code = parseDib(d, n, &dib, msg, sizeof msg);
  if (code != TSL_OK) {
    ctx.setMessage("%s", msg);
    return code;
  }
  if (!ctx.sizeAllowed(dib.width, dib.height)) return TSL_ERR_MEMORY;
  const size_t table = dib.header + 4 * static_cast<size_t>(dib.colors);
  const size_t line = (static_cast<size_t>(dib.width) * dib.bits + 31) / 32 * 4;
  const size_t mask_line = (static_cast<size_t>(dib.width) + 31) / 32 * 4;
  const size_t colour_bytes = line * dib.height;
  // Some writers leave out the mask of 32-bit pages.
  const bool has_mask = table + colour_bytes + mask_line * dib.height <= n;
  if (table + colour_bytes > n && !ctx.keepDamaged()) return TSL_ERR_READ;
  code = ctx.alloc(picture, TSL_RGBA, dib.width, dib.height);
  if (code != TSL_OK) return code;
  const uint8_t *pal = d + dib.header;
  bool any_alpha = false;
  for (uint32_t y = 0; y < dib.height; ++y) {
    const size_t at = table + static_cast<size_t>(dib.height - 1 - y) * line;  // bottom-up
    if (at + line > n) continue;
    const uint8_t *in = d + at;
    uint8_t *out = rowOf(picture, y);
    for (uint32_t x = 0; x < dib.width; ++x) {
      uint8_t *px = out + 4 * static_cast<size_t>(x);
      if (dib.bits <= 8) {
        const uint32_t bitpos = x * static_cast<uint32_t>(dib.bits);
        const uint32_t index = (in[bitpos / 8] >> (8 - dib.bits - bitpos % 8)) & ((1u << dib.bits) - 1);
        if (index < dib.colors && table <= n) {
          px[0] = pal[4 * index + 2];
          px[1] = pal[4 * index + 1];
          px[2] = pal[4 * index];
        }
        px[3] = 255;
      } else {
        const uint8_t *s = in + static_cast<size_t>(x) * (dib.bits / 8);
        px[0] = s[2];
        px[1] = s[1];
        px[2] = s[0];
        px[3] = dib.bits == 32 ? s[3] : 255;
        if (dib.bits == 32 && s[3]) any_alpha = true;
      }
    }
  }
  // A 32-bit page whose alpha is all zero is an old-style page: the mask decides.
  if (dib.bits == 32 && !any_alpha)
    for (uint32_t y = 0; y < dib.height; ++y)
      for (uint32_t x = 0; x < dib.width; ++x) rowOf(picture, y)[4 * x + 3] = 255;
  if (has_mask && (dib.bits < 32 || !any_alpha)) {
    const uint8_t *mask = d + table + colour_bytes;
    for (uint32_t y = 0; y < dib.height; ++y) {
      const uint8_t *m = mask + static_cast<size_t>(dib.height - 1 - y) * mask_line;
      uint8_t *out = rowOf(picture, y);
      for (uint32_t x = 0; x < dib.width; ++x)
        if (getBit(m, x)) out[4 * x + 3] = 0;
    }
  }
  ctx.progress(1, 1);
  return TSL_OK;
}

int icoInfo(const Source &src, int page, TslFileInfo *info) {
  IcoDir dir;
  int code = parseDir(src, &dir, info->message, sizeof info->message);
  if (code != TSL_OK) return code;
  if (page < 0 || page >= dir.count) return TSL_ERR_BAD_FILE;
  IcoEntry e;
  code = entryAt(src, page, &e, info->message, sizeof info->message);
  if (code != TSL_OK) return code;
  info->pages = dir.count;
  info->width = e.width;
  info->height = e.height;
  info->color_model = TSL_RGBA;
  info->has_alpha = 1;
  info->colors = 1L << 24;
  info->planes = 4;
  info->bits_per_plane = 8;
  if (e.png) {
    info->compression = TSL_COMP_DEFLATE;
    // The PNG's own header has the exact size.
    const uint8_t *p = src.data + e.offset;
    if (e.size >= 26) {
      info->width = be32(p + 16);
      info->height = be32(p + 20);
      info->bits_per_plane = p[24];
    }
  } else {
    Dib dib;
    code = parseDib(src.data + e.offset, e.size, &dib, info->message, sizeof info->message);
    if (code != TSL_OK) return code;
    info->width = dib.width;
    info->height = dib.height;
    if (dib.bits <= 8) {
      info->planes = 1;
      info->bits_per_plane = dib.bits;
    }
    info->compression = TSL_COMP_NONE;
  }
  return TSL_OK;
}

int icoLoad(const Source &src, TslPicture *picture, LoadContext &ctx) {
  IcoDir dir;
  char msg[256] = {0};
  int code = parseDir(src, &dir, msg, sizeof msg);
  IcoEntry e;
  if (code == TSL_OK && (ctx.page() < 0 || ctx.page() >= dir.count)) {
    std::snprintf(msg, sizeof msg, "The icon file has no page %d", ctx.page() + 1);
    code = TSL_ERR_BAD_FILE;
  }
  if (code == TSL_OK) code = entryAt(src, ctx.page(), &e, msg, sizeof msg);
  if (code != TSL_OK) return ctx.fail(code, msg);
  if (e.cut && !ctx.keepDamaged()) return TSL_ERR_READ;
  if (!e.png) return loadDib(src.data + e.offset, e.size, picture, ctx);
  const FormatDef *png = pngFormat();
  if (!png || !png->load) return TSL_ERR_FORMAT;
  TslParams params = ctx.params();
  params.page = 0;
  LoadContext sub(params);
  Source part{src.data + e.offset, e.size, src.path};
  code = png->load(part, picture, sub);
  if (code != TSL_OK && sub.message()[0]) ctx.setMessage("%s", sub.message());
  return code;
}

bool icoSniff(const uint8_t *d, size_t size) {
  if (size < kDirHeader + kDirEntry || le16(d) != 0 || (le16(d + 2) != 1 && le16(d + 2) != 2) || le16(d + 4) == 0)
    return false;
  // The first entry's data must lie after the directory.
  const uint32_t offset = le32(d + kDirHeader + 12);
  return d[kDirHeader + 3] == 0 && offset >= kDirHeader + kDirEntry * le16(d + 4);
}

// Encodes one page: 32-bit BGRA rows bottom-up, then the AND mask.
bool encodePage(const TslPicture *pic, std::vector<uint8_t> &out) {
  const uint32_t w = pic->width, h = pic->height;
  if (w > kMaxSide || h > kMaxSide) return false;
  const size_t mask_line = (static_cast<size_t>(w) + 31) / 32 * 4;
  out.assign(40, 0);
  uint8_t *hd = out.data();
  auto put32 = [](uint8_t *p, uint32_t v) {
    for (int k = 0; k < 4; ++k) p[k] = static_cast<uint8_t>(v >> (8 * k));
  };
  put32(hd, 40);
  put32(hd + 4, w);
  put32(hd + 8, 2 * h);
  hd[12] = 1;   // planes
  hd[14] = 32;  // bits
  put32(hd + 20, static_cast<uint32_t>(4 * w * h + mask_line * h));
  std::vector<uint8_t> rgba(static_cast<size_t>(w) * 4), mask(mask_line * h, 0);
  for (uint32_t row = 0; row < h; ++row) {
    const uint32_t y = h - 1 - row;
    tslGetRowRGBA(pic, y, rgba.data());
    for (uint32_t x = 0; x < w; ++x) {
      const uint8_t *p = &rgba[4 * x];
      out.insert(out.end(), {p[2], p[1], p[0], p[3]});
      if (p[3] == 0) setBit(mask.data() + row * mask_line, x, 1);
    }
  }
  out.insert(out.end(), mask.begin(), mask.end());
  return true;
}

// Collects the pages and writes the directory and the pages at the end.
class IcoWriter : public PageWriter {
 public:
  explicit IcoWriter(FILE *file) : file_(file) {}
  int add(const TslPicture *picture, SaveContext &ctx) override {
    if (pages_.size() >= 0xffff) return TSL_ERR_CANT_SAVE;
    std::vector<uint8_t> page;
    if (!encodePage(picture, page)) return TSL_ERR_CANT_SAVE;
    pages_.push_back(std::move(page));
    sizes_.push_back({picture->width, picture->height});
    ctx.progress(1, 1);
    return TSL_OK;
  }
  int finish() override {
    if (pages_.empty()) return TSL_ERR_CANT_SAVE;
    bool ok = put16le(file_, 0) && put16le(file_, 1) && put16le(file_, static_cast<unsigned>(pages_.size()));
    uint32_t offset = static_cast<uint32_t>(kDirHeader + kDirEntry * pages_.size());
    for (size_t i = 0; ok && i < pages_.size(); ++i) {
      ok = put8(file_, sizes_[i].first % 256) && put8(file_, sizes_[i].second % 256) && put8(file_, 0) &&
           put8(file_, 0) && put16le(file_, 1) && put16le(file_, 32) &&
           put32le(file_, static_cast<uint32_t>(pages_[i].size())) && put32le(file_, offset);
      offset += static_cast<uint32_t>(pages_[i].size());
    }
    for (size_t i = 0; ok && i < pages_.size(); ++i) ok = putBytes(file_, pages_[i].data(), pages_[i].size());
    return ok ? TSL_OK : TSL_ERR_WRITE;
  }

 private:
  FILE *file_;
  std::vector<std::vector<uint8_t>> pages_;
  std::vector<std::pair<uint32_t, uint32_t>> sizes_;
};

PageWriter *icoCreate(FILE *file, int, SaveContext &, int *error) {
  *error = TSL_OK;
  return new IcoWriter(file);
}

int icoSave(FILE *file, const TslPicture *picture, SaveContext &ctx) {
  IcoWriter writer(file);
  int code = writer.add(picture, ctx);
  return code == TSL_OK ? writer.finish() : code;
}

}  // namespace

extern const FormatDef kIcoFormat = {
    "ico", "Windows Icon and Cursor", "ico;cur",
    {{1, 2, -1, -1}, {2, 256, -1, -1}, {4, 256, -1, -1}, {1008, -1, -1, -1}, {-1, 0, 0, 0}},
    kMagicWeak, true, icoSniff, icoInfo, icoLoad, icoSave, icoCreate};

}  // namespace tessel
