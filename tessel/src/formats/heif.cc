// HEIF through libheif: HEVC-coded files (the phones' HEIC) and AV1-coded
// ones (AVIF).  Each top-level image is a page, the primary image first.
// The container's crop, rotation and mirroring are applied while decoding,
// so a page comes out as the file says it is shown.  The writer makes a
// file with one image, lossy at params.quality or (compression 1) lossless.
#include <libheif/heif.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "../bytes.h"
#include "../format.h"
#include "../lazy_library.h"

namespace tessel {
namespace {

// libheif is opened on the first HEIF or AVIF file (it brings the HEVC and
// AV1 codecs, whose start-up costs every other file's reading time).
#define TESSEL_HEIF_FUNCTIONS(X) \
  X(heif_context_alloc) X(heif_context_free) X(heif_context_read_from_memory_without_copy) \
  X(heif_context_get_number_of_top_level_images) X(heif_context_get_list_of_top_level_image_IDs) \
  X(heif_context_get_primary_image_ID) X(heif_context_get_image_handle) \
  X(heif_context_get_encoder_for_format) X(heif_context_encode_image) X(heif_context_write) \
  X(heif_image_handle_release) X(heif_image_handle_has_alpha_channel) X(heif_image_handle_get_width) \
  X(heif_image_handle_get_height) X(heif_image_handle_get_luma_bits_per_pixel) X(heif_decoding_options_alloc) \
  X(heif_decoding_options_free) X(heif_decode_image) X(heif_image_release) X(heif_image_get_plane_readonly) \
  X(heif_image_get_plane) X(heif_image_get_width) X(heif_image_get_height) X(heif_image_create) \
  X(heif_image_add_plane) X(heif_image_set_nclx_color_profile) X(heif_encoder_release) \
  X(heif_encoder_set_lossy_quality) X(heif_encoder_set_lossless) X(heif_encoder_set_parameter_string) \
  X(heif_encoding_options_alloc) X(heif_encoding_options_free) X(heif_nclx_color_profile_alloc) \
  X(heif_nclx_color_profile_free)
TESSEL_HEIF_FUNCTIONS(TESSEL_LAZY_POINTER)
bool bindHeif(LazyLibrary &library) { return true TESSEL_HEIF_FUNCTIONS(TESSEL_LAZY_BIND); }
LazyLibrary libheif(TESSEL_LIBHEIF_SONAME, bindHeif);

enum class Family { kNone, kHeic, kAvif };

bool brandIs(const uint8_t *b, const char *name) { return std::memcmp(b, name, 4) == 0; }

Family brandFamily(const uint8_t *b) {
  if (brandIs(b, "avif") || brandIs(b, "avis")) return Family::kAvif;
  static const char *const kHevc[] = {"heic", "heix", "hevc", "hevx", "heim", "heis", "hevm", "hevs"};
  for (const char *name : kHevc)
    if (brandIs(b, name)) return Family::kHeic;
  return Family::kNone;
}

// The family of a file from its 'ftyp' box: the major brand, else the first
// compatible brand that names a codec.  A generic 'mif1'/'msf1' file without
// such a brand is taken as HEIF.
Family fileFamily(const uint8_t *d, size_t n) {
  if (n < 16 || std::memcmp(d + 4, "ftyp", 4) != 0) return Family::kNone;
  const size_t box = be32(d);
  if (box < 16 || box > 4096) return Family::kNone;
  Family f = brandFamily(d + 8);
  if (f != Family::kNone) return f;
  const size_t end = box < n ? box : n;
  for (size_t at = 16; at + 4 <= end; at += 4) {
    f = brandFamily(d + at);
    if (f != Family::kNone) return f;
  }
  return brandIs(d + 8, "mif1") || brandIs(d + 8, "msf1") ? Family::kHeic : Family::kNone;
}

bool heicSniff(const uint8_t *d, size_t n) { return fileFamily(d, n) == Family::kHeic; }
bool avifSniff(const uint8_t *d, size_t n) { return fileFamily(d, n) == Family::kAvif; }

int errorCode(const heif_error &e) {
  switch (e.code) {
    case heif_error_Ok: return TSL_OK;
    case heif_error_Memory_allocation_error: return TSL_ERR_MEMORY;
    case heif_error_Unsupported_filetype: return TSL_ERR_FORMAT;
    case heif_error_Invalid_input:
      if (e.subcode == heif_suberror_End_of_data) return TSL_ERR_READ;
      if (e.subcode == heif_suberror_Security_limit_exceeded) return TSL_ERR_MEMORY;
      return TSL_ERR_CORRUPT;
    default: return TSL_ERR_CORRUPT;
  }
}

struct ContextDeleter {
  void operator()(heif_context *c) const { heif_context_free(c); }
};
struct HandleDeleter {
  void operator()(heif_image_handle *h) const { heif_image_handle_release(h); }
};
struct ImageDeleter {
  void operator()(heif_image *i) const { heif_image_release(i); }
};
struct EncoderDeleter {
  void operator()(heif_encoder *e) const { heif_encoder_release(e); }
};
using ContextPtr = std::unique_ptr<heif_context, ContextDeleter>;
using HandlePtr = std::unique_ptr<heif_image_handle, HandleDeleter>;
using ImagePtr = std::unique_ptr<heif_image, ImageDeleter>;

// Opens the file and the image handle of `page` (0 = the primary image, then
// the other top-level images in file order).  *pages gets their number.
int openPage(const Source &src, int page, ContextPtr *ctx, HandlePtr *handle, int *pages, char *message,
             size_t message_size) {
  if (!libheif.openFor("HEIF and AVIF files", message, message_size)) return TSL_ERR_BAD_FILE;
  ctx->reset(heif_context_alloc());
  if (!*ctx) return TSL_ERR_MEMORY;
  int code = errorCode(heif_context_read_from_memory_without_copy(ctx->get(), src.data, src.size, nullptr));
  if (code != TSL_OK) return code;
  const int count = heif_context_get_number_of_top_level_images(ctx->get());
  if (count < 1) return TSL_ERR_CORRUPT;
  *pages = count;
  if (page < 0 || page >= count) {
    std::snprintf(message, message_size, "Page %d does not exist (%d pages)", page + 1, count);
    return TSL_ERR_BAD_FILE;
  }
  heif_item_id primary;
  code = errorCode(heif_context_get_primary_image_ID(ctx->get(), &primary));
  if (code != TSL_OK) return code;
  heif_item_id id = primary;
  if (page > 0) {
    std::vector<heif_item_id> ids(static_cast<size_t>(count));
    const int n = heif_context_get_list_of_top_level_image_IDs(ctx->get(), ids.data(), count);
    int seen = 0;
    for (int i = 0; i < n; ++i) {
      if (ids[static_cast<size_t>(i)] == primary) continue;
      if (++seen == page) id = ids[static_cast<size_t>(i)];
    }
    if (id == primary) return TSL_ERR_CORRUPT;
  }
  heif_image_handle *h = nullptr;
  code = errorCode(heif_context_get_image_handle(ctx->get(), id, &h));
  handle->reset(h);
  return code;
}

int compressionOf(Family f) { return f == Family::kAvif ? TSL_COMP_AV1 : TSL_COMP_HEVC; }

int heifInfo(const Source &src, int page, TslFileInfo *info) {
  ContextPtr ctx;
  HandlePtr handle;
  int pages = 1;
  int code = openPage(src, page, &ctx, &handle, &pages, info->message, sizeof info->message);
  if (code != TSL_OK) return code;
  const bool alpha = heif_image_handle_has_alpha_channel(handle.get()) != 0;
  info->width = static_cast<uint32_t>(heif_image_handle_get_width(handle.get()));
  info->height = static_cast<uint32_t>(heif_image_handle_get_height(handle.get()));
  const int bits = heif_image_handle_get_luma_bits_per_pixel(handle.get());
  info->bits_per_plane = bits > 0 ? bits : 8;
  info->planes = alpha ? 4 : 3;
  info->colors = 1L << 24;
  info->color_model = alpha ? TSL_RGBA : TSL_RGB;
  info->has_alpha = alpha;
  info->pages = pages;
  info->compression = compressionOf(fileFamily(src.data, src.size));
  // Rotation and mirroring live in the container and are applied by the
  // decoder: what a load gives is already upright.
  info->orientation = 1;
  return TSL_OK;
}

int heifLoad(const Source &src, TslPicture *picture, LoadContext &ctx) {
  ContextPtr hctx;
  HandlePtr handle;
  int pages = 1;
  char message[256] = {0};
  int code = openPage(src, ctx.page(), &hctx, &handle, &pages, message, sizeof message);
  if (code == TSL_ERR_BAD_FILE) ctx.setMessage("%s", message);
  if (code != TSL_OK) return code;
  // The size check comes before the decoder allocates anything.
  const uint64_t w = static_cast<uint64_t>(heif_image_handle_get_width(handle.get()));
  const uint64_t h = static_cast<uint64_t>(heif_image_handle_get_height(handle.get()));
  if (!ctx.sizeAllowed(w, h)) return TSL_ERR_MEMORY;
  const bool alpha = heif_image_handle_has_alpha_channel(handle.get()) != 0;
  if (ctx.progress(1, 10)) return TSL_STOPPED;

  std::unique_ptr<heif_decoding_options, void (*)(heif_decoding_options *)> options(
      heif_decoding_options_alloc(), heif_decoding_options_free);
  if (!options) return TSL_ERR_MEMORY;
  options->convert_hdr_to_8bit = 1;
  heif_image *decoded = nullptr;
  code = errorCode(heif_decode_image(handle.get(), &decoded, heif_colorspace_RGB,
                                     alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB,
                                     options.get()));
  ImagePtr image(decoded);
  if (code != TSL_OK) return code;
  if (!image) return TSL_ERR_CORRUPT;
  int stride = 0;
  const uint8_t *plane = heif_image_get_plane_readonly(image.get(), heif_channel_interleaved, &stride);
  const int iw = heif_image_get_width(image.get(), heif_channel_interleaved);
  const int ih = heif_image_get_height(image.get(), heif_channel_interleaved);
  if (!plane || iw <= 0 || ih <= 0 || stride <= 0) return TSL_ERR_CORRUPT;
  code = ctx.alloc(picture, alpha ? TSL_RGBA : TSL_RGB, static_cast<uint32_t>(iw), static_cast<uint32_t>(ih));
  if (code != TSL_OK) return code;
  const size_t line = static_cast<size_t>(iw) * (alpha ? 4 : 3);
  if (line > static_cast<size_t>(stride)) return TSL_ERR_CORRUPT;
  for (uint32_t y = 0; y < picture->height; ++y)
    std::memcpy(rowOf(picture, y), plane + static_cast<size_t>(y) * static_cast<size_t>(stride), line);
  ctx.progress(1, 1);
  return TSL_OK;
}

// ---- Writing ---------------------------------------------------------------

heif_error writeChunk(heif_context *, const void *data, size_t size, void *user) {
  FILE *file = static_cast<FILE *>(user);
  if (std::fwrite(data, 1, size, file) != size) return {heif_error_Encoding_error, heif_suberror_Cannot_write_output_data, "write"};
  return {heif_error_Ok, heif_suberror_Unspecified, "ok"};
}

bool hasAlpha(int model) { return model == TSL_RGBA || model == TSL_BGRA || model == TSL_ARGB || model == TSL_ABGR; }

int saveAs(FILE *file, const TslPicture *picture, SaveContext &ctx, heif_compression_format format) {
  const TslParams &params = ctx.params();
  if (picture->width > 65535 || picture->height > 65535) return TSL_ERR_CANT_SAVE;
  const bool alpha = hasAlpha(picture->color_model);
  const bool lossless = params.compression == 1;
  char message[256];
  if (!libheif.openFor("HEIF and AVIF files", message, sizeof message)) return TSL_ERR_CANT_SAVE;
  ContextPtr hctx(heif_context_alloc());
  if (!hctx) return TSL_ERR_MEMORY;
  heif_encoder *enc = nullptr;
  if (heif_context_get_encoder_for_format(hctx.get(), format, &enc).code != heif_error_Ok || !enc)
    return TSL_ERR_CANT_SAVE;
  std::unique_ptr<heif_encoder, EncoderDeleter> encoder(enc);
  const int quality = params.quality < 0 ? 0 : params.quality > 100 ? 100 : params.quality;
  heif_encoder_set_lossy_quality(encoder.get(), quality);
  heif_encoder_set_lossless(encoder.get(), lossless ? 1 : 0);
  if (lossless) heif_encoder_set_parameter_string(encoder.get(), "chroma", "444");

  // Planar 4:4:4 RGB: the one input libheif turns into YCbCr or, for
  // lossless files, into the identity-matrix planes without rounding.
  heif_image *made = nullptr;
  int code = errorCode(heif_image_create(static_cast<int>(picture->width), static_cast<int>(picture->height),
                                         heif_colorspace_RGB, heif_chroma_444, &made));
  ImagePtr image(made);
  if (code != TSL_OK) return code;
  const heif_channel channels[] = {heif_channel_R, heif_channel_G, heif_channel_B, heif_channel_Alpha};
  const int count = alpha ? 4 : 3;
  uint8_t *planes[4] = {nullptr, nullptr, nullptr, nullptr};
  int strides[4] = {0, 0, 0, 0};
  for (int c = 0; c < count; ++c) {
    if (heif_image_add_plane(image.get(), channels[c], static_cast<int>(picture->width),
                             static_cast<int>(picture->height), 8).code != heif_error_Ok)
      return TSL_ERR_MEMORY;
    planes[c] = heif_image_get_plane(image.get(), channels[c], &strides[c]);
    if (!planes[c]) return TSL_ERR_MEMORY;
  }
  std::vector<uint8_t> rgba(static_cast<size_t>(picture->width) * 4);
  for (uint32_t y = 0; y < picture->height; ++y) {
    tslGetRowRGBA(picture, y, rgba.data());
    for (int c = 0; c < count; ++c) {
      uint8_t *out = planes[c] + static_cast<size_t>(y) * static_cast<size_t>(strides[c]);
      for (uint32_t x = 0; x < picture->width; ++x) out[x] = rgba[4 * x + static_cast<size_t>(c)];
    }
    ctx.progress(y + 1, static_cast<uint64_t>(picture->height) * 5);
  }

  std::unique_ptr<heif_encoding_options, void (*)(heif_encoding_options *)> options(
      heif_encoding_options_alloc(), heif_encoding_options_free);
  if (!options) return TSL_ERR_MEMORY;
  // Lossless keeps the RGB samples as they are: no colour matrix, full
  // range, said on the image (which the conversion follows) and in the file.
  heif_color_profile_nclx *nclx = nullptr;
  if (lossless) {
    nclx = heif_nclx_color_profile_alloc();
    if (!nclx) return TSL_ERR_MEMORY;
    nclx->matrix_coefficients = heif_matrix_coefficients_RGB_GBR;
    nclx->full_range_flag = 1;
    options->output_nclx_profile = nclx;
    heif_image_set_nclx_color_profile(image.get(), nclx);
  }
  const heif_error e = heif_context_encode_image(hctx.get(), image.get(), encoder.get(), options.get(), nullptr);
  if (nclx) heif_nclx_color_profile_free(nclx);
  if (e.code != heif_error_Ok) return e.code == heif_error_Memory_allocation_error ? TSL_ERR_MEMORY : TSL_ERR_INTERNAL;
  ctx.progress(9, 10);
  heif_writer writer{1, writeChunk};
  if (heif_context_write(hctx.get(), &writer, file).code != heif_error_Ok) return TSL_ERR_WRITE;
  ctx.progress(1, 1);
  return TSL_OK;
}

int heicSave(FILE *file, const TslPicture *picture, SaveContext &ctx) {
  return saveAs(file, picture, ctx, heif_compression_HEVC);
}
int avifSave(FILE *file, const TslPicture *picture, SaveContext &ctx) {
  return saveAs(file, picture, ctx, heif_compression_AV1);
}

}  // namespace

extern const FormatDef kHeifFormat = {
    "heif", "HEIF / HEIC (HEVC)", "heic;heif;hif",
    {{1, -1, -1, -1}, {2, 256, -1, -1}, {4, 256, -1, -1}, {TSL_KIND_TRUECOLOR, -1, -1, -1}, {-1, 0, 0, 0}},
    kMagicStrong, true, heicSniff, heifInfo, heifLoad, heicSave, nullptr};

extern const FormatDef kAvifFormat = {
    "avif", "AV1 Image File Format", "avif;avifs",
    {{1, -1, -1, -1}, {2, 256, -1, -1}, {4, 256, -1, -1}, {TSL_KIND_TRUECOLOR, -1, -1, -1}, {-1, 0, 0, 0}},
    kMagicStrong, true, avifSniff, heifInfo, heifLoad, avifSave, nullptr};

}  // namespace tessel
