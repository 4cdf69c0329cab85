// Portable Network Graphics through libpng.  Every bit depth and colour type
// is read (16-bit samples scaled to 8); the writer stores bilevel pictures as
// 1-bit grey, grey as 8-bit grey, palettes with the smallest bit depth that
// holds them (and an optional transparent entry), true colour as RGB or RGBA.
//
// libpng reports errors by longjmp: the calls are kept in small shim
// functions whose frames hold only plain data.
#include <png.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "../exif.h"
#include "../format.h"

namespace tessel {
namespace {

// ---- Reading ---------------------------------------------------------------

struct Reader {
  png_structp png;
  png_infop info;
  const uint8_t *data;
  size_t size;
  size_t pos;
  bool eof;           // the data ended before libpng was done
  bool signature_ok;  // the first eight bytes are a PNG signature
};

void readFn(png_structp png, png_bytep out, png_size_t length) {
  auto *r = static_cast<Reader *>(png_get_io_ptr(png));
  if (r->size - r->pos < length) {
    r->eof = true;
    png_error(png, "file ends early");
  }
  std::memcpy(out, r->data + r->pos, length);
  r->pos += length;
}

void errorFn(png_structp png, png_const_charp) { png_longjmp(png, 1); }
void warningFn(png_structp, png_const_charp) {}

int readErrorCode(const Reader *r) {
  if (!r->signature_ok) return TSL_ERR_FORMAT;
  return r->eof ? TSL_ERR_READ : TSL_ERR_CORRUPT;
}

// Shim: reader creation and everything up to the first IDAT.
int shimOpen(Reader *r) {
  r->png = png_create_read_struct(PNG_LIBPNG_VER_STRING, r, errorFn, warningFn);
  if (!r->png) return TSL_ERR_MEMORY;
  r->info = png_create_info_struct(r->png);
  if (!r->info) return TSL_ERR_MEMORY;
  if (setjmp(png_jmpbuf(r->png))) return readErrorCode(r);
  r->signature_ok = r->size >= 8 && png_sig_cmp(r->data, 0, 8) == 0;
  if (!r->signature_ok) return TSL_ERR_FORMAT;
  png_set_read_fn(r->png, r, readFn);
  // The pixel limit of the load decides what is too big, not libpng's
  // default of a million pixels per side.
  png_set_user_limits(r->png, 0x7fffffff, 0x7fffffff);
  png_read_info(r->png, r->info);
  return TSL_OK;
}

void destroyReader(Reader *r) {
  if (r->png) png_destroy_read_struct(&r->png, r->info ? &r->info : nullptr, nullptr);
  r->png = nullptr;
  r->info = nullptr;
}

// What the file becomes in memory.
struct Plan {
  int model;
  int transparent_index;  // indexed pictures with one fully transparent entry
  bool expand_palette;    // palette with partial alpha: decoded to RGBA
};

Plan planFor(png_structp png, png_infop info) {
  const int type = png_get_color_type(png, info);
  const int depth = png_get_bit_depth(png, info);
  const bool trns = png_get_valid(png, info, PNG_INFO_tRNS) != 0;
  Plan plan{TSL_RGB, -1, false};
  switch (type) {
    case PNG_COLOR_TYPE_GRAY:
      plan.model = trns ? TSL_RGBA : depth == 1 ? TSL_BINARY : TSL_GREY;
      break;
    case PNG_COLOR_TYPE_GRAY_ALPHA:
    case PNG_COLOR_TYPE_RGB_ALPHA:
      plan.model = TSL_RGBA;
      break;
    case PNG_COLOR_TYPE_RGB:
      plan.model = trns ? TSL_RGBA : TSL_RGB;
      break;
    case PNG_COLOR_TYPE_PALETTE: {
      plan.model = TSL_INDEXED;
      png_bytep alpha = nullptr;
      int count = 0;
      png_colorp palette = nullptr;
      int entries = 0;
      png_get_PLTE(png, info, &palette, &entries);
      if (trns && png_get_tRNS(png, info, &alpha, &count, nullptr) && alpha) {
        int clear = 0, partial = 0, clear_at = -1;
        for (int i = 0; i < count && i < entries; ++i) {
          if (alpha[i] == 0) {
            ++clear;
            clear_at = i;
          } else if (alpha[i] != 255) {
            ++partial;
          }
        }
        if (partial == 0 && clear <= 1) {
          plan.transparent_index = clear_at;
        } else {
          plan.model = TSL_RGBA;
          plan.expand_palette = true;
        }
      }
      break;
    }
    default:
      break;
  }
  return plan;
}

// Shim: sets the transformations for the plan; returns the number of passes.
int shimTransform(Reader *r, const Plan &plan, int *passes) {
  if (setjmp(png_jmpbuf(r->png))) return readErrorCode(r);
  png_structp png = r->png;
  const int type = png_get_color_type(png, r->info);
  png_set_scale_16(png);
  if (plan.model == TSL_INDEXED) {
    png_set_packing(png);
  } else if (plan.model == TSL_GREY) {
    png_set_expand_gray_1_2_4_to_8(png);
  } else if (plan.model != TSL_BINARY) {
    png_set_expand(png);  // palette to RGB, grey to 8 bits, tRNS to alpha
    if (type == PNG_COLOR_TYPE_GRAY || type == PNG_COLOR_TYPE_GRAY_ALPHA) png_set_gray_to_rgb(png);
  }
  *passes = png_set_interlace_handling(png);
  png_read_update_info(png, r->info);
  return TSL_OK;
}

// Shim: decodes the rows (all passes) into the picture.
int shimRows(Reader *r, TslPicture *pic, int passes, LoadContext *ctx, uint32_t *rows_done) {
  if (setjmp(png_jmpbuf(r->png))) return readErrorCode(r);
  const uint64_t total = static_cast<uint64_t>(passes) * pic->height;
  for (int pass = 0; pass < passes; ++pass) {
    for (uint32_t y = 0; y < pic->height; ++y) {
      png_read_row(r->png, rowOf(pic, y), nullptr);
      *rows_done = *rows_done + 1;
      if (ctx->progress(static_cast<uint64_t>(pass) * pic->height + y + 1, total)) return TSL_STOPPED;
    }
  }
  return TSL_OK;
}

int dpiOf(png_uint_32 ppm) { return static_cast<int>(ppm * 0.0254 + 0.5); }

void readDpi(png_structp png, png_infop info, int *dx, int *dy) {
  png_uint_32 x = 0, y = 0;
  int unit = 0;
  *dx = *dy = 0;
  if (png_get_pHYs(png, info, &x, &y, &unit) && unit == PNG_RESOLUTION_METER) {
    *dx = dpiOf(x);
    *dy = dpiOf(y);
  }
}

struct ReaderGuard {
  Reader *r;
  ~ReaderGuard() { destroyReader(r); }
};

bool pngSniff(const uint8_t *d, size_t n) { return n >= 8 && png_sig_cmp(d, 0, 8) == 0; }

int pngInfo(const Source &src, int, TslFileInfo *out) {
  Reader r{};
  r.data = src.data;
  r.size = src.size;
  ReaderGuard guard{&r};
  int code = shimOpen(&r);
  if (code != TSL_OK) return code;
  png_structp png = r.png;
  png_infop info = r.info;
  const Plan plan = planFor(png, info);
  const int depth = png_get_bit_depth(png, info);
  const int type = png_get_color_type(png, info);
  out->width = png_get_image_width(png, info);
  out->height = png_get_image_height(png, info);
  out->bits_per_plane = depth;
  out->planes = png_get_channels(png, info);
  out->color_model = plan.model;
  if (type == PNG_COLOR_TYPE_PALETTE) {
    png_colorp palette = nullptr;
    int entries = 0;
    png_get_PLTE(png, info, &palette, &entries);
    out->colors = entries;
  } else if (type == PNG_COLOR_TYPE_GRAY) {
    out->colors = 1L << std::min(depth, 8);
  } else {
    out->colors = 1L << 24;
  }
  out->compression = TSL_COMP_DEFLATE;
  out->has_alpha = plan.model == TSL_RGBA || plan.transparent_index >= 0;
  out->pages = 1;
  out->orientation = pngExifOrientation(src.data, src.size);
  readDpi(png, info, &out->dpi_x, &out->dpi_y);
  png_textp text = nullptr;
  int count = 0;
  if (png_get_text(png, info, &text, &count) > 0) {
    for (int i = 0; i < count; ++i) {
      if (text[i].key && std::strcmp(text[i].key, "Comment") == 0 && text[i].text) {
        out->comment = strdup(text[i].text);
        break;
      }
    }
  }
  return TSL_OK;
}

int pngLoad(const Source &src, TslPicture *picture, LoadContext &ctx) {
  Reader r{};
  r.data = src.data;
  r.size = src.size;
  ReaderGuard guard{&r};
  int code = shimOpen(&r);
  if (code != TSL_OK) return code;
  const uint32_t width = png_get_image_width(r.png, r.info);
  const uint32_t height = png_get_image_height(r.png, r.info);
  if (!ctx.sizeAllowed(width, height)) return TSL_ERR_MEMORY;
  const Plan plan = planFor(r.png, r.info);
  int passes = 1;
  code = shimTransform(&r, plan, &passes);
  if (code != TSL_OK) return code;
  code = ctx.alloc(picture, plan.model, width, height);
  if (code != TSL_OK) return code;
  // libpng's row must be exactly what the picture holds per row.
  if (png_get_rowbytes(r.png, r.info) != picture->bytes_per_line) return TSL_ERR_INTERNAL;
  if (plan.model == TSL_INDEXED) {
    png_colorp palette = nullptr;
    int entries = 0;
    png_get_PLTE(r.png, r.info, &palette, &entries);
    for (int i = 0; i < entries && i < 256; ++i) {
      picture->palette[i] = palette[i].red;
      picture->palette[256 + i] = palette[i].green;
      picture->palette[512 + i] = palette[i].blue;
    }
    picture->colors = static_cast<int16_t>(entries > 0 ? entries : 1);
    picture->transparent_index = static_cast<int16_t>(plan.transparent_index);
  } else if (plan.model == TSL_GREY) {
    picture->colors = 256;
  }
  int dx, dy;
  readDpi(r.png, r.info, &dx, &dy);
  picture->attr_pair[0] = static_cast<uint32_t>(dx);
  picture->attr_pair[1] = static_cast<uint32_t>(dy);
  uint32_t rows_done = 0;
  code = shimRows(&r, picture, passes, &ctx, &rows_done);
  if (code != TSL_OK && code != TSL_STOPPED && code != TSL_ERR_MEMORY && ctx.keepDamaged() && rows_done > 0)
    code = TSL_OK;
  return code;
}

// ---- Writing ---------------------------------------------------------------

struct WriteJob {
  FILE *file;
  bool write_failed;
  const TslPicture *picture;
  int color_type;
  int depth;
  int palette_size;
  int transparent;       // palette index written as transparent, -1 = none
  int level;
  bool interlace;
  unsigned dpi_x, dpi_y;
  const char *comment;
  uint8_t *row;          // conversion buffer for true colour
  SaveContext *ctx;
};

void writeFn(png_structp png, png_bytep data, png_size_t length) {
  auto *job = static_cast<WriteJob *>(png_get_io_ptr(png));
  if (std::fwrite(data, 1, length, job->file) != length) {
    job->write_failed = true;
    png_error(png, "write error");
  }
}
void flushFn(png_structp) {}

// Shim: the whole write; *png_out is kept for destruction by the caller.
int shimWrite(WriteJob *job, png_structp *png_out, png_infop *info_out) {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, job, errorFn, warningFn);
  *png_out = png;
  if (!png) return TSL_ERR_MEMORY;
  png_infop info = png_create_info_struct(png);
  *info_out = info;
  if (!info) return TSL_ERR_MEMORY;
  if (setjmp(png_jmpbuf(png))) return job->write_failed ? TSL_ERR_WRITE : TSL_ERR_INTERNAL;
  const TslPicture *p = job->picture;
  png_set_write_fn(png, job, writeFn, flushFn);
  png_set_compression_level(png, job->level);
  png_set_IHDR(png, info, p->width, p->height, job->depth, job->color_type,
               job->interlace ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  if (job->color_type == PNG_COLOR_TYPE_PALETTE) {
    png_color palette[256];
    for (int i = 0; i < job->palette_size; ++i) {
      palette[i].red = p->palette[i];
      palette[i].green = p->palette[256 + i];
      palette[i].blue = p->palette[512 + i];
    }
    png_set_PLTE(png, info, palette, job->palette_size);
    if (job->transparent >= 0) {
      png_byte alpha[256];
      std::memset(alpha, 255, sizeof alpha);
      alpha[job->transparent] = 0;
      png_set_tRNS(png, info, alpha, job->transparent + 1, nullptr);
    }
  }
  if (job->dpi_x && job->dpi_y)
    png_set_pHYs(png, info, static_cast<png_uint_32>(job->dpi_x / 0.0254 + 0.5),
                 static_cast<png_uint_32>(job->dpi_y / 0.0254 + 0.5), PNG_RESOLUTION_METER);
  if (job->comment && *job->comment) {
    png_text text;
    std::memset(&text, 0, sizeof text);
    text.compression = PNG_TEXT_COMPRESSION_NONE;
    text.key = const_cast<char *>("Comment");
    text.text = const_cast<char *>(job->comment);
    text.text_length = std::strlen(job->comment);
    png_set_text(png, info, &text, 1);
  }
  png_write_info(png, info);
  if (job->color_type == PNG_COLOR_TYPE_PALETTE && job->depth < 8) png_set_packing(png);
  const int passes = png_set_interlace_handling(png);
  const uint64_t total = static_cast<uint64_t>(passes) * p->height;
  for (int pass = 0; pass < passes; ++pass) {
    for (uint32_t y = 0; y < p->height; ++y) {
      png_const_bytep row;
      if (job->color_type == PNG_COLOR_TYPE_RGB && p->color_model != TSL_RGB) {
        tslGetRowRGB(p, y, job->row);
        row = job->row;
      } else if (job->color_type == PNG_COLOR_TYPE_RGB_ALPHA && p->color_model != TSL_RGBA) {
        tslGetRowRGBA(p, y, job->row);
        row = job->row;
      } else {
        row = rowOf(p, y);
      }
      png_write_row(png, row);
      job->ctx->progress(static_cast<uint64_t>(pass) * p->height + y + 1, total);
    }
  }
  png_write_end(png, info);
  return TSL_OK;
}

int pngSave(FILE *file, const TslPicture *picture, SaveContext &ctx) {
  const TslParams &params = ctx.params();
  WriteJob job{};
  job.file = file;
  job.picture = picture;
  job.transparent = -1;
  job.level = params.compression >= 0 && params.compression <= 9 ? params.compression : 6;
  job.interlace = params.progressive != 0;
  job.comment = params.comment;
  job.ctx = &ctx;
  if (params.dpi_x > 0) {
    job.dpi_x = static_cast<unsigned>(params.dpi_x);
    job.dpi_y = static_cast<unsigned>(params.dpi_y > 0 ? params.dpi_y : params.dpi_x);
  } else {
    job.dpi_x = picture->attr_pair[0];
    job.dpi_y = picture->attr_pair[1] ? picture->attr_pair[1] : picture->attr_pair[0];
  }
  std::vector<uint8_t> row;
  const int model = picture->color_model;
  if (model == TSL_BINARY) {
    job.color_type = PNG_COLOR_TYPE_GRAY;
    job.depth = 1;
  } else if (model == TSL_GREY) {
    job.color_type = PNG_COLOR_TYPE_GRAY;
    job.depth = 8;
  } else if (model == TSL_INDEXED) {
    if (!picture->palette) return TSL_ERR_INTERNAL;
    job.color_type = PNG_COLOR_TYPE_PALETTE;
    // Enough entries for the colour count and for every index in use.
    int size = picture->colors >= 1 && picture->colors <= 256 ? picture->colors : 256;
    for (uint32_t y = 0; y < picture->height && size < 256; ++y) {
      const uint8_t *r = rowOf(picture, y);
      for (uint32_t x = 0; x < picture->width; ++x) size = std::max(size, r[x] + 1);
    }
    int ti = params.transparent_index >= 0 ? params.transparent_index : picture->transparent_index;
    if (ti >= 0 && ti < 256) {
      job.transparent = ti;
      size = std::max(size, ti + 1);
    }
    job.palette_size = size;
    job.depth = size <= 2 ? 1 : size <= 4 ? 2 : size <= 16 ? 4 : 8;
  } else if (TSL_IS_TRUECOLOR(model)) {
    const bool alpha = channelLayout(model).a >= 0;
    job.color_type = alpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB;
    job.depth = 8;
    row.resize(static_cast<size_t>(picture->width) * 4);
    job.row = row.data();
  } else {
    return TSL_ERR_CANT_SAVE;
  }
  png_structp png = nullptr;
  png_infop info = nullptr;
  int code = shimWrite(&job, &png, &info);
  if (png) png_destroy_write_struct(&png, info ? &info : nullptr);
  return code;
}

}  // namespace

extern const FormatDef kPngFormat = {
    "png", "Portable Network Graphics", "png",
    {{1, 2, -1, -1}, {2, 256, -1, -1}, {4, 256, -1, -1}, {TSL_KIND_TRUECOLOR, -1, -1, -1}, {-1, 0, 0, 0}},
    kMagicStrong, false, pngSniff, pngInfo, pngLoad, pngSave, nullptr};

}  // namespace tessel
