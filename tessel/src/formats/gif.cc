// gif: CompuServe GIF through giflib.  Every frame is a page: page i is the
// canvas after frame i was drawn over what the frames before it left behind
// (their disposal methods applied), as an animation viewer shows it.
#include <gif_lib.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "../bytes.h"
#include "../format.h"
#include "gif_scan.h"

namespace tessel {
namespace {

// ---- Reading ---------------------------------------------------------------

struct MemInput {
  const uint8_t *data;
  size_t size;
  size_t pos;
};

int readMem(GifFileType *gif, GifByteType *buf, int n) {
  auto *in = static_cast<MemInput *>(gif->UserData);
  if (n <= 0 || in->pos >= in->size) return 0;
  size_t k = std::min(static_cast<size_t>(n), in->size - in->pos);
  std::memcpy(buf, in->data + in->pos, k);
  in->pos += k;
  return static_cast<int>(k);
}

int giflibError(int code) {
  switch (code) {
    case D_GIF_ERR_READ_FAILED:
    case D_GIF_ERR_EOF_TOO_SOON:
      return TSL_ERR_READ;
    case D_GIF_ERR_NOT_ENOUGH_MEM:
      return TSL_ERR_MEMORY;
    default:
      return TSL_ERR_CORRUPT;
  }
}

class GifHandle {
 public:
  GifHandle(const Source &src) : in_{src.data, src.size, 0} {
    int err = 0;
    gif_ = DGifOpen(&in_, readMem, &err);
    error_ = gif_ ? TSL_OK : giflibError(err);
  }
  ~GifHandle() {
    if (gif_) DGifCloseFile(gif_, nullptr);
  }
  GifFileType *gif() { return gif_; }
  MemInput &input() { return in_; }
  int error() const { return error_; }

 private:
  MemInput in_;
  GifFileType *gif_ = nullptr;
  int error_;
};

// Row order of an interlaced image: rows 0, 8, 16..., then 4, 12..., 2, 6..., 1, 3...
void interlaceOrder(uint32_t height, std::vector<uint32_t> *rows) {
  rows->clear();
  static const uint32_t kStart[4] = {0, 4, 2, 1}, kStep[4] = {8, 8, 4, 2};
  for (int pass = 0; pass < 4; ++pass)
    for (uint32_t y = kStart[pass]; y < height; y += kStep[pass]) rows->push_back(y);
}

// Fast 64-bit hash of the file, to recognise the same file between loads.
uint64_t hashBytes(const uint8_t *p, size_t n) {
  uint64_t h = 0x9E3779B97F4A7C15ull ^ n;
  size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    uint64_t v;
    std::memcpy(&v, p + i, 8);
    h = (h ^ v) * 0xff51afd7ed558ccdull;
    h ^= h >> 32;
  }
  for (; i < n; ++i) h = (h ^ p[i]) * 0x100000001b3ull;
  return h;
}

// Compositing state between pages: the canvas of the page last shown and
// what its frame's disposal needs (the area under it, for "previous").
struct Composite {
  std::vector<uint8_t> saved;
  int frame = -1;  // last frame drawn
};

// The state after the last page loaded, so that stepping through an
// animation page by page draws each frame once.  Per thread, and taken out
// while a load runs, so a load started from the progress callback is safe.
struct GifCache {
  std::string path;
  size_t size = 0;
  uint64_t hash = 0;
  uint32_t width = 0, height = 0;
  int model = 0;
  std::vector<uint8_t> canvas;
  Composite state;
};
thread_local GifCache g_cache;
constexpr size_t kMaxCachedBytes = size_t(64) << 20;

class GifLoader {
 public:
  GifLoader(const Source &src, const GifScan &scan, TslPicture *pic, LoadContext &ctx)
      : scan_(scan), pic_(pic), ctx_(ctx), handle_(src) {}

  int bpp() const { return pic_->color_model == TSL_INDEXED ? 1 : 4; }

  // Draws frames first..last onto the picture; returns a TSL_ code.
  int run(int first, int last, Composite *state) {
    if (handle_.error() != TSL_OK) return handle_.error();
    uint64_t total = 0, done = 0;
    for (int i = first; i <= last; ++i) total += scan_.frames[static_cast<size_t>(i)].height;
    for (int i = first; i <= last; ++i) {
      if (i > 0) dispose(*state);
      const GifFrameInfo &f = scan_.frames[static_cast<size_t>(i)];
      if (f.disposal == 3) saveArea(f, &state->saved);
      state->frame = i;
      int code = drawFrame(f, &done, total);
      if (code != TSL_OK) return code;
    }
    return TSL_OK;
  }

  void fillCanvas(uint8_t index) {
    for (uint32_t y = 0; y < pic_->height; ++y) std::memset(rowOf(pic_, y), index, pic_->bytes_per_line);
  }

 private:
  // Clipped rectangle of a frame on the canvas.
  bool clip(const GifFrameInfo &f, uint32_t *x0, uint32_t *y0, uint32_t *x1, uint32_t *y1) const {
    *x0 = std::min(f.left, pic_->width);
    *y0 = std::min(f.top, pic_->height);
    *x1 = static_cast<uint32_t>(std::min<uint64_t>(uint64_t(f.left) + f.width, pic_->width));
    *y1 = static_cast<uint32_t>(std::min<uint64_t>(uint64_t(f.top) + f.height, pic_->height));
    return *x0 < *x1 && *y0 < *y1;
  }

  void saveArea(const GifFrameInfo &f, std::vector<uint8_t> *saved) {
    saved->clear();
    uint32_t x0, y0, x1, y1;
    if (!clip(f, &x0, &y0, &x1, &y1)) return;
    const size_t n = static_cast<size_t>(x1 - x0) * bpp();
    saved->resize(n * (y1 - y0));
    for (uint32_t y = y0; y < y1; ++y) std::memcpy(&(*saved)[n * (y - y0)], rowOf(pic_, y) + x0 * bpp(), n);
  }

  void dispose(Composite &state) {
    if (state.frame < 0) return;
    const GifFrameInfo &f = scan_.frames[static_cast<size_t>(state.frame)];
    uint32_t x0, y0, x1, y1;
    if (!clip(f, &x0, &y0, &x1, &y1)) return;
    const size_t n = static_cast<size_t>(x1 - x0) * bpp();
    if (f.disposal == 2) {
      // Cleared to transparent; an indexed canvas only clears areas the next
      // frame paints over, so the background index is as good as any.
      const uint8_t v = bpp() == 1 ? static_cast<uint8_t>(scan_.background) : 0;
      for (uint32_t y = y0; y < y1; ++y) std::memset(rowOf(pic_, y) + x0 * bpp(), v, n);
    } else if (f.disposal == 3 && state.saved.size() == n * (y1 - y0)) {
      for (uint32_t y = y0; y < y1; ++y) std::memcpy(rowOf(pic_, y) + x0 * bpp(), &state.saved[n * (y - y0)], n);
    }
  }

  int drawFrame(const GifFrameInfo &f, uint64_t *done, uint64_t total) {
    if (f.width == 0 || f.height == 0) return TSL_OK;
    GifFileType *gif = handle_.gif();
    handle_.input().pos = f.offset;
    GifRecordType type;
    if (DGifGetRecordType(gif, &type) == GIF_ERROR || type != IMAGE_DESC_RECORD_TYPE)
      return giflibError(gif->Error);
    if (DGifGetImageDesc(gif) == GIF_ERROR) return giflibError(gif->Error);

    // Frame colours padded to 256 entries: indices beyond the table are black.
    uint8_t rgb[768] = {0};
    int count = 0;
    const uint8_t *map = scan_.mapOf(static_cast<size_t>(&f - scan_.frames.data()), &count);
    if (map) std::memcpy(rgb, map, static_cast<size_t>(std::min(count, 256)) * 3);
    else for (int k = 0; k < 256; ++k) rgb[3 * k] = rgb[3 * k + 1] = rgb[3 * k + 2] = static_cast<uint8_t>(k);

    std::vector<uint32_t> order;
    if (f.interlaced) interlaceOrder(f.height, &order);
    std::vector<GifPixelType> line(f.width);
    uint32_t x0, y0, x1, y1;
    const bool visible = clip(f, &x0, &y0, &x1, &y1);
    const int trans = f.transparent;
    for (uint32_t i = 0; i < f.height; ++i) {
      if (DGifGetLine(gif, line.data(), static_cast<int>(f.width)) == GIF_ERROR) return giflibError(gif->Error);
      const uint32_t y = f.top + (f.interlaced ? order[i] : i);
      if (visible && y >= y0 && y < y1) {
        uint8_t *row = rowOf(pic_, y);
        const GifPixelType *s = line.data() + (x0 - f.left);
        if (bpp() == 1) {
          // Indexed canvases hold no transparency except a single frame's
          // own index, which is kept as it is.
          std::memcpy(row + x0, s, x1 - x0);
        } else {
          uint8_t *d = row + static_cast<size_t>(x0) * 4;
          for (uint32_t x = x0; x < x1; ++x, ++s, d += 4) {
            if (*s == trans) continue;
            const uint8_t *c = rgb + 3 * *s;
            d[0] = c[0];
            d[1] = c[1];
            d[2] = c[2];
            d[3] = 255;
          }
        }
      }
      if (ctx_.progress(++*done, total)) return TSL_STOPPED;
    }
    return TSL_OK;
  }

  const GifScan &scan_;
  TslPicture *pic_;
  LoadContext &ctx_;
  GifHandle handle_;
};

int outputModel(const GifScan &s) {
  if (s.frames.size() <= 1) return TSL_INDEXED;
  return s.onePalette() && !s.needsAlpha() ? TSL_INDEXED : TSL_RGBA;
}

int gifLoad(const Source &src, TslPicture *pic, LoadContext &ctx) {
  GifScan scan;
  int code = scanGif(src.data, src.size, &scan);
  if (code != TSL_OK) return code;
  if (scan.frames.empty()) {
    if (scan.truncated) return TSL_ERR_READ;
    ctx.setMessage("GIF file without any image");
    return TSL_ERR_BAD_FILE;
  }
  const int page = ctx.page();
  if (page < 0 || static_cast<size_t>(page) >= scan.frames.size()) {
    if (scan.truncated && !ctx.keepDamaged()) return TSL_ERR_READ;
    if (!scan.truncated || page < 0) {
      ctx.setMessage("GIF file has no frame %d", page + 1);
      return TSL_ERR_BAD_FILE;
    }
  }
  const int last = std::min(page, static_cast<int>(scan.frames.size()) - 1);
  const int model = outputModel(scan);
  if (!ctx.sizeAllowed(scan.width, scan.height)) return TSL_ERR_MEMORY;
  code = ctx.alloc(pic, model, scan.width, scan.height);
  if (code != TSL_OK) return code;

  int count = 0;
  const uint8_t *map = scan.mapOf(0, &count);
  if (model == TSL_INDEXED) {
    if (map) {
      for (int k = 0; k < count && k < 256; ++k) {
        pic->palette[k] = map[3 * k];
        pic->palette[256 + k] = map[3 * k + 1];
        pic->palette[512 + k] = map[3 * k + 2];
      }
      pic->colors = static_cast<int16_t>(std::min(count, 256));
    } else {
      greyPalette(pic->palette, 256);
      pic->colors = 256;
    }
    const int trans = scan.frames.size() == 1 ? scan.frames[0].transparent : -1;
    pic->transparent_index = static_cast<int16_t>(trans);
  }

  GifLoader loader(src, scan, pic, ctx);
  const size_t canvas_bytes = static_cast<size_t>(pic->bytes_per_line) * pic->height;
  const bool cacheable = scan.frames.size() > 1 && canvas_bytes <= kMaxCachedBytes;
  uint64_t hash = cacheable ? hashBytes(src.data, src.size) : 0;

  // Resume from the page held in the cache when it comes before this one.
  Composite state;
  int first = 0;
  if (cacheable && g_cache.hash == hash && g_cache.size == src.size && g_cache.path == src.path &&
      g_cache.model == model && g_cache.width == pic->width && g_cache.height == pic->height &&
      g_cache.state.frame >= 0 && g_cache.state.frame <= last && g_cache.canvas.size() == canvas_bytes) {
    std::memcpy(pic->pixels, g_cache.canvas.data(), canvas_bytes);
    state = std::move(g_cache.state);
    first = state.frame + 1;
    g_cache = GifCache();
  } else if (model == TSL_INDEXED) {
    const int trans = pic->transparent_index;
    loader.fillCanvas(static_cast<uint8_t>(trans >= 0 ? trans : scan.background));
  }

  try {
    code = loader.run(first, last, &state);
  } catch (const std::bad_alloc &) {
    code = TSL_ERR_MEMORY;
  }
  if (code == TSL_STOPPED || code == TSL_ERR_MEMORY) return code;
  if (code != TSL_OK) return ctx.keepDamaged() ? TSL_OK : code;
  if (page > last) return TSL_OK;  // damaged file kept: its last frame

  if (cacheable) {
    try {
      GifCache c;
      c.canvas.assign(pic->pixels, pic->pixels + canvas_bytes);
      c.path = src.path;
      c.size = src.size;
      c.hash = hash;
      c.width = pic->width;
      c.height = pic->height;
      c.model = model;
      c.state = std::move(state);
      g_cache = std::move(c);
    } catch (const std::bad_alloc &) {
      g_cache = GifCache();
    }
  }
  return TSL_OK;
}

int gifInfo(const Source &src, int /*page*/, TslFileInfo *info) {
  GifScan scan;
  int code = scanGif(src.data, src.size, &scan);
  if (code != TSL_OK) return code;
  if (scan.frames.empty()) {
    if (scan.truncated) return TSL_ERR_READ;
    std::snprintf(info->message, sizeof info->message, "GIF file without any image");
    return TSL_ERR_BAD_FILE;
  }
  info->width = scan.width;
  info->height = scan.height;
  int count = 0;
  scan.mapOf(0, &count);
  if (count == 0) count = 256;
  int bits = 1;
  while ((1 << bits) < count) ++bits;
  info->bits_per_plane = bits;
  info->planes = 1;
  info->colors = count;
  info->color_model = outputModel(scan);
  info->compression = TSL_COMP_LZW;
  info->pages = static_cast<int>(scan.frames.size());
  info->has_alpha = info->color_model == TSL_RGBA || scan.frames[0].transparent >= 0;
  // Times the animation plays, 0 = forever: the NETSCAPE2.0 value counts the
  // repetitions after the first play; without it the animation plays once.
  info->loop_count = scan.loop_count > 0 ? scan.loop_count + 1 : scan.loop_count == 0 ? 0 : 1;
  if (scan.frames.size() > 1) {
    info->delays = static_cast<int *>(std::malloc(scan.frames.size() * sizeof(int)));
    if (info->delays)
      for (size_t i = 0; i < scan.frames.size(); ++i) info->delays[i] = scan.frames[i].delay * 10;
  }
  if (scan.has_comment) {
    info->comment = static_cast<char *>(std::malloc(scan.comment.size() + 1));
    if (info->comment) std::memcpy(info->comment, scan.comment.c_str(), scan.comment.size() + 1);
  }
  return TSL_OK;
}

bool gifSniff(const uint8_t *d, size_t n) {
  return n >= 6 && (std::memcmp(d, "GIF87a", 6) == 0 || std::memcmp(d, "GIF89a", 6) == 0);
}

// ---- Writing ---------------------------------------------------------------

int writeFile(GifFileType *gif, const GifByteType *buf, int n) {
  FILE *f = static_cast<FILE *>(gif->UserData);
  return static_cast<int>(std::fwrite(buf, 1, static_cast<size_t>(n), f));
}

// The colours a picture is written with: bilevel as black and white, grey
// as a 256-level ramp, indexed as its palette (at least as many entries as
// the largest index used).
struct GifColors {
  uint8_t rgb[768] = {0};
  int count = 0;
  int bits = 1;
};

void colorsOf(const TslPicture *p, GifColors *c) {
  if (p->color_model == TSL_BINARY) {
    c->count = 2;
    c->rgb[3] = c->rgb[4] = c->rgb[5] = 255;
  } else if (p->color_model == TSL_GREY) {
    c->count = 256;
    for (int k = 0; k < 256; ++k) c->rgb[3 * k] = c->rgb[3 * k + 1] = c->rgb[3 * k + 2] = static_cast<uint8_t>(k);
  } else {
    int used = 0;
    for (uint32_t y = 0; y < p->height; ++y) {
      const uint8_t *row = rowOf(p, y);
      for (uint32_t x = 0; x < p->width; ++x) used = std::max(used, static_cast<int>(row[x]));
    }
    c->count = std::max(std::min(static_cast<int>(p->colors), 256), used + 1);
    for (int k = 0; k < c->count; ++k) {
      c->rgb[3 * k] = p->palette[k];
      c->rgb[3 * k + 1] = p->palette[256 + k];
      c->rgb[3 * k + 2] = p->palette[512 + k];
    }
  }
  c->bits = 1;
  while ((1 << c->bits) < c->count) ++c->bits;
}

bool sameColors(const GifColors &a, const GifColors &b) {
  return a.bits == b.bits && std::memcmp(a.rgb, b.rgb, sizeof a.rgb) == 0;
}

ColorMapObject *makeMap(const GifColors &c) {
  // Entries past the colours in use are black (c.rgb is zero there).
  return GifMakeMapObject(1 << c.bits, reinterpret_cast<const GifColorType *>(c.rgb));
}

class GifWriter : public PageWriter {
 public:
  GifWriter(FILE *file, int pages) : file_(file), pages_(pages) {}
  ~GifWriter() override {
    if (gif_) EGifCloseFile(gif_, nullptr);
  }

  int add(const TslPicture *pic, SaveContext &ctx) override {
    const TslParams &params = ctx.params();
    if (pic->color_model != TSL_BINARY && pic->color_model != TSL_GREY && pic->color_model != TSL_INDEXED)
      return TSL_ERR_CANT_SAVE;
    if (pic->width > 65535 || pic->height > 65535) return TSL_ERR_CANT_SAVE;
    GifColors colors;
    colorsOf(pic, &colors);
    if (!gif_) {
      int code = begin(pic, colors, params);
      if (code != TSL_OK) return code;
    }
    const bool gif89 = !params.gif87a_header;
    int trans = params.transparent_index >= 0 ? params.transparent_index : pic->transparent_index;
    if (trans >= (1 << colors.bits)) trans = -1;
    if (gif89 && (trans >= 0 || pages_ > 1)) {
      // Frames of a multi-page file stay on the canvas (disposal 1) and are
      // shown for a tenth of a second each when played as an animation.
      GraphicsControlBlock gcb;
      gcb.DisposalMode = pages_ > 1 ? DISPOSE_DO_NOT : DISPOSAL_UNSPECIFIED;
      gcb.UserInputFlag = false;
      gcb.DelayTime = pages_ > 1 ? 10 : 0;
      gcb.TransparentColor = trans >= 0 ? trans : NO_TRANSPARENT_COLOR;
      GifByteType ext[4];
      EGifGCBToExtension(&gcb, ext);
      if (EGifPutExtension(gif_, GRAPHICS_EXT_FUNC_CODE, 4, ext) == GIF_ERROR) return TSL_ERR_WRITE;
    }
    ColorMapObject *local = sameColors(colors, first_colors_) ? nullptr : makeMap(colors);
    const bool interlace = params.progressive != 0;
    int rc = EGifPutImageDesc(gif_, 0, 0, static_cast<int>(pic->width), static_cast<int>(pic->height), interlace,
                              local);
    if (local) GifFreeMapObject(local);
    if (rc == GIF_ERROR) return TSL_ERR_WRITE;
    width_ = std::max(width_, pic->width);
    height_ = std::max(height_, pic->height);

    std::vector<uint32_t> order;
    if (interlace) interlaceOrder(pic->height, &order);
    std::vector<GifPixelType> line(pic->width);
    for (uint32_t i = 0; i < pic->height; ++i) {
      const uint8_t *row = rowOf(pic, interlace ? order[i] : i);
      if (pic->color_model == TSL_BINARY) {
        for (uint32_t x = 0; x < pic->width; ++x) line[x] = static_cast<GifPixelType>(getBit(row, x));
      } else {
        std::memcpy(line.data(), row, pic->width);
      }
      if (EGifPutLine(gif_, line.data(), static_cast<int>(pic->width)) == GIF_ERROR) return TSL_ERR_WRITE;
      ctx.progress(i + 1, pic->height);
    }
    return TSL_OK;
  }

  int finish() override {
    if (!gif_) return TSL_ERR_WRITE;  // no picture was added
    int err = 0;
    int rc = EGifCloseFile(gif_, &err);
    gif_ = nullptr;
    if (rc == GIF_ERROR) return TSL_ERR_WRITE;
    // Later frames larger than the first widen the logical screen.
    if (width_ != screen_width_ || height_ != screen_height_) {
      if (std::fflush(file_) != 0 || std::fseek(file_, start_ + 6, SEEK_SET) != 0) return TSL_ERR_WRITE;
      if (!put16le(file_, width_) || !put16le(file_, height_)) return TSL_ERR_WRITE;
      if (std::fseek(file_, 0, SEEK_END) != 0) return TSL_ERR_WRITE;
    }
    return TSL_OK;
  }

 private:
  int begin(const TslPicture *pic, const GifColors &colors, const TslParams &params) {
    start_ = std::ftell(file_);
    if (start_ < 0) start_ = 0;
    int err = 0;
    gif_ = EGifOpen(file_, writeFile, &err);
    if (!gif_) return err == E_GIF_ERR_NOT_ENOUGH_MEM ? TSL_ERR_MEMORY : TSL_ERR_WRITE;
    const bool gif89 = !params.gif87a_header;
    EGifSetGifVersion(gif_, gif89);
    first_colors_ = colors;
    screen_width_ = width_ = pic->width;
    screen_height_ = height_ = pic->height;
    ColorMapObject *global = makeMap(colors);
    if (!global) return TSL_ERR_MEMORY;
    int rc = EGifPutScreenDesc(gif_, static_cast<int>(pic->width), static_cast<int>(pic->height), colors.bits, 0,
                               global);
    GifFreeMapObject(global);
    if (rc == GIF_ERROR) return TSL_ERR_WRITE;
    if (gif89 && pages_ > 1) {
      static const GifByteType kLoop[3] = {1, 0, 0};  // repeat forever
      if (EGifPutExtensionLeader(gif_, APPLICATION_EXT_FUNC_CODE) == GIF_ERROR ||
          EGifPutExtensionBlock(gif_, 11, "NETSCAPE2.0") == GIF_ERROR ||
          EGifPutExtensionBlock(gif_, 3, kLoop) == GIF_ERROR || EGifPutExtensionTrailer(gif_) == GIF_ERROR)
        return TSL_ERR_WRITE;
    }
    if (gif89 && params.comment && *params.comment) {
      if (EGifPutComment(gif_, params.comment) == GIF_ERROR) return TSL_ERR_WRITE;
    }
    return TSL_OK;
  }

  FILE *file_;
  int pages_;
  GifFileType *gif_ = nullptr;
  GifColors first_colors_;
  long start_ = 0;
  uint32_t width_ = 0, height_ = 0, screen_width_ = 0, screen_height_ = 0;
};

int gifSave(FILE *file, const TslPicture *pic, SaveContext &ctx) {
  GifWriter writer(file, 1);
  int code = writer.add(pic, ctx);
  if (code != TSL_OK) return code;
  return writer.finish();
}

PageWriter *gifCreate(FILE *file, int pages, SaveContext &, int *error) {
  auto *w = new (std::nothrow) GifWriter(file, pages < 1 ? 2 : pages);
  if (!w) *error = TSL_ERR_MEMORY;
  return w;
}

}  // namespace

extern const FormatDef kGifFormat = {
    "gif", "CompuServe GIF", "gif",
    {{1, 2, -1, -1}, {2, 256, -1, -1}, {4, 256, -1, -1}, {-1, 0, 0, 0}},
    kMagicStrong, true, gifSniff, gifInfo, gifLoad, gifSave, gifCreate};

}  // namespace tessel
