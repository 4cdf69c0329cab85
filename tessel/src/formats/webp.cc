// Google WebP through libwebp: lossy and lossless stills with or without
// alpha, and animations, whose frames are pages composited onto the canvas
// the way a viewer shows them.  The writer makes one still picture.
#include <webp/decode.h>
#include <webp/demux.h>
#include <webp/encode.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "../exif.h"
#include "../format.h"

namespace tessel {
namespace {

// Bytes handed to the incremental decoder per step: a step ends with a
// progress report and a chance to stop.
constexpr size_t kChunk = 256 * 1024;

bool webpSniff(const uint8_t *d, size_t n) {
  return n >= 12 && std::memcmp(d, "RIFF", 4) == 0 && std::memcmp(d + 8, "WEBP", 4) == 0;
}

int statusCode(VP8StatusCode status) {
  switch (status) {
    case VP8_STATUS_OK: return TSL_OK;
    case VP8_STATUS_OUT_OF_MEMORY: return TSL_ERR_MEMORY;
    case VP8_STATUS_NOT_ENOUGH_DATA: return TSL_ERR_READ;
    case VP8_STATUS_UNSUPPORTED_FEATURE: return TSL_ERR_FORMAT;
    default: return TSL_ERR_CORRUPT;
  }
}

struct DemuxDeleter {
  void operator()(WebPDemuxer *d) const { WebPDemuxDelete(d); }
};
struct AnimDeleter {
  void operator()(WebPAnimDecoder *d) const { WebPAnimDecoderDelete(d); }
};
struct IDecDeleter {
  void operator()(WebPIDecoder *d) const { WebPIDelete(d); }
};

int webpInfo(const Source &src, int page, TslFileInfo *info) {
  WebPBitstreamFeatures f;
  int code = statusCode(WebPGetFeatures(src.data, src.size, &f));
  if (code != TSL_OK) return code;
  info->width = static_cast<uint32_t>(f.width);
  info->height = static_cast<uint32_t>(f.height);
  info->bits_per_plane = 8;
  info->planes = f.has_alpha ? 4 : 3;
  info->colors = 1L << 24;
  info->color_model = f.has_alpha ? TSL_RGBA : TSL_RGB;
  info->has_alpha = f.has_alpha;
  info->pages = 1;
  info->compression = f.format == 2 ? TSL_COMP_WEBP_LOSSLESS : TSL_COMP_WEBP_LOSSY;
  info->orientation = webpExifOrientation(src.data, src.size);
  if (!f.has_animation) return TSL_OK;

  WebPData data{src.data, src.size};
  std::unique_ptr<WebPDemuxer, DemuxDeleter> demux(WebPDemux(&data));
  if (!demux) return TSL_ERR_CORRUPT;
  const int frames = static_cast<int>(WebPDemuxGetI(demux.get(), WEBP_FF_FRAME_COUNT));
  if (frames < 1) return TSL_ERR_CORRUPT;
  info->pages = frames;
  info->loop_count = static_cast<int>(WebPDemuxGetI(demux.get(), WEBP_FF_LOOP_COUNT));
  info->delays = static_cast<int *>(std::calloc(static_cast<size_t>(frames), sizeof(int)));
  WebPIterator it;
  for (int i = 0; i < frames; ++i) {
    if (!WebPDemuxGetFrame(demux.get(), i + 1, &it)) continue;
    if (info->delays) info->delays[i] = it.duration;
    if (i == page) {
      WebPBitstreamFeatures ff;
      if (WebPGetFeatures(it.fragment.bytes, it.fragment.size, &ff) == VP8_STATUS_OK)
        info->compression = ff.format == 2 ? TSL_COMP_WEBP_LOSSLESS : TSL_COMP_WEBP_LOSSY;
    }
    WebPDemuxReleaseIterator(&it);
  }
  return TSL_OK;
}

// Copies an RGBA canvas into the picture (RGB pictures drop the alpha).
void copyCanvas(const uint8_t *canvas, TslPicture *picture) {
  const size_t line = static_cast<size_t>(picture->width) * 4;
  for (uint32_t y = 0; y < picture->height; ++y) {
    const uint8_t *s = canvas + line * y;
    uint8_t *d = rowOf(picture, y);
    if (picture->color_model == TSL_RGBA) {
      std::memcpy(d, s, line);
    } else {
      for (uint32_t x = 0; x < picture->width; ++x, s += 4, d += 3) {
        d[0] = s[0];
        d[1] = s[1];
        d[2] = s[2];
      }
    }
  }
}

int loadAnimated(const Source &src, const WebPBitstreamFeatures &f, TslPicture *picture, LoadContext &ctx) {
  if (!ctx.sizeAllowed(static_cast<uint64_t>(f.width), static_cast<uint64_t>(f.height))) return TSL_ERR_MEMORY;
  WebPAnimDecoderOptions options;
  if (!WebPAnimDecoderOptionsInit(&options)) return TSL_ERR_INTERNAL;
  options.color_mode = MODE_RGBA;
  options.use_threads = 0;
  WebPData data{src.data, src.size};
  std::unique_ptr<WebPAnimDecoder, AnimDeleter> dec(WebPAnimDecoderNew(&data, &options));
  if (!dec) return TSL_ERR_CORRUPT;
  WebPAnimInfo anim;
  if (!WebPAnimDecoderGetInfo(dec.get(), &anim)) return TSL_ERR_CORRUPT;
  const int page = ctx.page();
  if (page < 0 || static_cast<uint32_t>(page) >= anim.frame_count) {
    ctx.setMessage("Frame %d does not exist (%u frames)", page + 1, anim.frame_count);
    return TSL_ERR_BAD_FILE;
  }
  // Frames are composited in order, so page n needs the n frames before it.
  uint8_t *canvas = nullptr;
  for (int i = 0; i <= page; ++i) {
    int timestamp = 0;
    if (!WebPAnimDecoderGetNext(dec.get(), &canvas, &timestamp)) return TSL_ERR_CORRUPT;
    if (ctx.progress(static_cast<uint64_t>(i) + 1, static_cast<uint64_t>(page) + 2)) return TSL_STOPPED;
  }
  int code = ctx.alloc(picture, f.has_alpha ? TSL_RGBA : TSL_RGB, anim.canvas_width, anim.canvas_height);
  if (code != TSL_OK) return code;
  copyCanvas(canvas, picture);
  ctx.progress(1, 1);
  return TSL_OK;
}

int webpLoad(const Source &src, TslPicture *picture, LoadContext &ctx) {
  WebPDecoderConfig config;
  if (!WebPInitDecoderConfig(&config)) return TSL_ERR_INTERNAL;
  int code = statusCode(WebPGetFeatures(src.data, src.size, &config.input));
  if (code != TSL_OK) return code;
  const WebPBitstreamFeatures &f = config.input;
  if (f.has_animation) return loadAnimated(src, f, picture, ctx);
  if (ctx.page() != 0) {
    ctx.setMessage("Frame %d does not exist (1 frame)", ctx.page() + 1);
    return TSL_ERR_BAD_FILE;
  }
  if (!ctx.sizeAllowed(static_cast<uint64_t>(f.width), static_cast<uint64_t>(f.height))) return TSL_ERR_MEMORY;
  code = ctx.alloc(picture, f.has_alpha ? TSL_RGBA : TSL_RGB, static_cast<uint32_t>(f.width),
                   static_cast<uint32_t>(f.height));
  if (code != TSL_OK) return code;

  // Decode straight into the picture, a chunk of input at a time.
  config.output.colorspace = f.has_alpha ? MODE_RGBA : MODE_RGB;
  config.output.is_external_memory = 1;
  config.output.width = f.width;
  config.output.height = f.height;
  config.output.u.RGBA.rgba = picture->pixels;
  config.output.u.RGBA.stride = static_cast<int>(picture->bytes_per_line);
  config.output.u.RGBA.size = static_cast<size_t>(picture->bytes_per_line) * picture->height;
  std::unique_ptr<WebPIDecoder, IDecDeleter> idec(WebPIDecode(nullptr, 0, &config));
  if (!idec) return TSL_ERR_MEMORY;
  size_t fed = 0;
  VP8StatusCode status = VP8_STATUS_SUSPENDED;
  int last_y = 0;
  while (status == VP8_STATUS_SUSPENDED && fed < src.size) {
    fed = src.size - fed > kChunk ? fed + kChunk : src.size;
    status = WebPIUpdate(idec.get(), src.data, fed);
    if (!WebPIDecGetRGB(idec.get(), &last_y, nullptr, nullptr, nullptr)) last_y = 0;
    if (ctx.progress(static_cast<uint64_t>(last_y > 0 ? last_y : 0), picture->height)) return TSL_STOPPED;
  }
  if (status == VP8_STATUS_OK) return TSL_OK;
  code = status == VP8_STATUS_SUSPENDED ? TSL_ERR_READ : statusCode(status);
  if (ctx.keepDamaged() && last_y > 0 && code != TSL_ERR_MEMORY) return TSL_OK;
  return code;
}

// ---- Writing ---------------------------------------------------------------

struct EncodeJob {
  FILE *file;
  bool write_failed;
  SaveContext *ctx;
};

int writeFn(const uint8_t *data, size_t size, const WebPPicture *pic) {
  auto *job = static_cast<EncodeJob *>(pic->custom_ptr);
  if (std::fwrite(data, 1, size, job->file) != size) {
    job->write_failed = true;
    return 0;
  }
  return 1;
}

int progressHook(int percent, const WebPPicture *pic) {
  auto *job = static_cast<EncodeJob *>(pic->custom_ptr);
  // Filling the encoder's picture was the first tenth of the work.
  job->ctx->progress(10 + static_cast<uint64_t>(percent) * 90 / 100, 100);
  return 1;
}

struct PictureGuard {
  WebPPicture *pic;
  ~PictureGuard() { WebPPictureFree(pic); }
};

// params.compression selects the method: 1 = lossless (exact colours, also
// under fully transparent pixels), anything else = lossy at params.quality.
int webpSave(FILE *file, const TslPicture *picture, SaveContext &ctx) {
  const TslParams &params = ctx.params();
  if (picture->width > WEBP_MAX_DIMENSION || picture->height > WEBP_MAX_DIMENSION) return TSL_ERR_CANT_SAVE;
  const bool lossless = params.compression == 1;
  const float quality = static_cast<float>(params.quality < 0 ? 0 : params.quality > 100 ? 100 : params.quality);
  WebPConfig config;
  if (!WebPConfigPreset(&config, WEBP_PRESET_DEFAULT, quality)) return TSL_ERR_INTERNAL;
  if (lossless) {
    config.lossless = 1;
    config.exact = 1;
  }
  if (!WebPValidateConfig(&config)) return TSL_ERR_INTERNAL;

  WebPPicture pic;
  if (!WebPPictureInit(&pic)) return TSL_ERR_INTERNAL;
  PictureGuard guard{&pic};
  pic.use_argb = 1;
  pic.width = static_cast<int>(picture->width);
  pic.height = static_cast<int>(picture->height);
  if (!WebPPictureAlloc(&pic)) return TSL_ERR_MEMORY;
  // Any colour model goes through 8-bit RGBA rows into the encoder's ARGB words.
  auto *rgba = static_cast<uint8_t *>(std::malloc(static_cast<size_t>(picture->width) * 4));
  if (!rgba) return TSL_ERR_MEMORY;
  for (uint32_t y = 0; y < picture->height; ++y) {
    tslGetRowRGBA(picture, y, rgba);
    uint32_t *argb = pic.argb + static_cast<size_t>(y) * static_cast<size_t>(pic.argb_stride);
    for (uint32_t x = 0; x < picture->width; ++x) {
      const uint8_t *s = rgba + 4 * x;
      argb[x] = static_cast<uint32_t>(s[3]) << 24 | static_cast<uint32_t>(s[0]) << 16 |
                static_cast<uint32_t>(s[1]) << 8 | s[2];
    }
    ctx.progress(y + 1, static_cast<uint64_t>(picture->height) * 10);
  }
  std::free(rgba);

  EncodeJob job{file, false, &ctx};
  pic.writer = writeFn;
  pic.custom_ptr = &job;
  pic.progress_hook = progressHook;
  if (!WebPEncode(&config, &pic)) {
    if (job.write_failed || pic.error_code == VP8_ENC_ERROR_BAD_WRITE) return TSL_ERR_WRITE;
    if (pic.error_code == VP8_ENC_ERROR_OUT_OF_MEMORY || pic.error_code == VP8_ENC_ERROR_BITSTREAM_OUT_OF_MEMORY)
      return TSL_ERR_MEMORY;
    if (pic.error_code == VP8_ENC_ERROR_BAD_DIMENSION) return TSL_ERR_CANT_SAVE;
    return TSL_ERR_INTERNAL;
  }
  ctx.progress(1, 1);
  return TSL_OK;
}

}  // namespace

extern const FormatDef kWebpFormat = {
    "webp", "Google WebP", "webp",
    {{TSL_KIND_TRUECOLOR, -1, -1, -1}, {-1, 0, 0, 0}},
    kMagicStrong, true, webpSniff, webpInfo, webpLoad, webpSave, nullptr};

}  // namespace tessel
