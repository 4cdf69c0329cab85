// JPEG XL through libjxl: bare codestreams and the box container, grey or
// colour, with or without alpha; the frames of an animation are pages
// (composited as shown, with their delays).  Pixels
// come as stored and the codestream's orientation is reported, like the
// EXIF orientation of other formats.  The writer makes lossy files at
// params.quality, or lossless ones with compression 1.
#include <jxl/decode.h>
#include <jxl/encode.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "../format.h"
#include "../lazy_library.h"

namespace tessel {
namespace {

// libjxl is opened on the first JPEG XL file (with libhwy, whose start-up
// calibrates a timer: milliseconds that every other file's reading would pay).
#define TESSEL_JXL_FUNCTIONS(X) \
  X(JxlColorEncodingSetToSRGB) X(JxlDecoderCloseInput) X(JxlDecoderCreate) X(JxlDecoderDestroy) \
  X(JxlDecoderGetBasicInfo) X(JxlDecoderGetFrameHeader) X(JxlDecoderImageOutBufferSize) X(JxlDecoderSkipFrames) X(JxlDecoderProcessInput) \
  X(JxlDecoderSetImageOutBuffer) X(JxlDecoderSetInput) X(JxlDecoderSetKeepOrientation) \
  X(JxlDecoderSubscribeEvents) X(JxlEncoderAddImageFrame) X(JxlEncoderCloseInput) X(JxlEncoderCreate) \
  X(JxlEncoderDestroy) X(JxlEncoderFrameSettingsCreate) X(JxlEncoderInitBasicInfo) X(JxlEncoderProcessOutput) \
  X(JxlEncoderSetBasicInfo) X(JxlEncoderSetColorEncoding) X(JxlEncoderSetFrameDistance) \
  X(JxlEncoderSetFrameLossless)
TESSEL_JXL_FUNCTIONS(TESSEL_LAZY_POINTER)
bool bindJxl(LazyLibrary &library) { return true TESSEL_JXL_FUNCTIONS(TESSEL_LAZY_BIND); }
LazyLibrary libjxl(TESSEL_LIBJXL_SONAME, bindJxl);

// A bare codestream starts FF 0A; the box container with its signature box.
bool jxlSniff(const uint8_t *d, size_t n) {
  static const uint8_t kContainer[12] = {0, 0, 0, 12, 'J', 'X', 'L', ' ', 0x0D, 0x0A, 0x87, 0x0A};
  if (n >= 2 && d[0] == 0xFF && d[1] == 0x0A) return true;
  return n >= sizeof kContainer && std::memcmp(d, kContainer, sizeof kContainer) == 0;
}

struct DecoderDeleter {
  void operator()(JxlDecoder *d) const { JxlDecoderDestroy(d); }
};
using DecoderPtr = std::unique_ptr<JxlDecoder, DecoderDeleter>;

// A decoder over the whole file, reporting `events`, pixels as stored.
DecoderPtr openDecoder(const Source &src, int events) {
  DecoderPtr dec(JxlDecoderCreate(nullptr));
  if (!dec) return dec;
  if (JxlDecoderSubscribeEvents(dec.get(), events) != JXL_DEC_SUCCESS ||
      JxlDecoderSetKeepOrientation(dec.get(), JXL_TRUE) != JXL_DEC_SUCCESS ||
      JxlDecoderSetInput(dec.get(), src.data, src.size) != JXL_DEC_SUCCESS) {
    dec.reset();
    return dec;
  }
  JxlDecoderCloseInput(dec.get());
  return dec;
}

// The picture model of a file: grey without alpha stays grey; everything
// else comes as RGB or RGBA.
int modelOf(const JxlBasicInfo &b) {
  if (b.alpha_bits > 0) return TSL_RGBA;
  return b.num_color_channels == 1 ? TSL_GREY : TSL_RGB;
}

// The frames of an animation from their headers (the pixels are skipped):
// their count, delays in milliseconds and the loop count.
int countFrames(const Source &src, const JxlBasicInfo &b, TslFileInfo *info) {
  DecoderPtr dec = openDecoder(src, JXL_DEC_FRAME);
  if (!dec) return TSL_ERR_MEMORY;
  std::vector<int> delays;
  for (;;) {
    const JxlDecoderStatus status = JxlDecoderProcessInput(dec.get());
    if (status == JXL_DEC_SUCCESS) break;
    if (status != JXL_DEC_FRAME) return delays.empty() ? TSL_ERR_CORRUPT : TSL_OK;  // damaged after a frame: what was read
    JxlFrameHeader header;
    if (JxlDecoderGetFrameHeader(dec.get(), &header) != JXL_DEC_SUCCESS) return TSL_ERR_CORRUPT;
    const uint64_t ticks_ms = b.animation.tps_numerator
                                  ? uint64_t{header.duration} * 1000 * b.animation.tps_denominator /
                                        b.animation.tps_numerator
                                  : 0;
    delays.push_back(static_cast<int>(ticks_ms > 3600000 ? 3600000 : ticks_ms));
    if (delays.size() > 100000) return TSL_ERR_CORRUPT;
  }
  if (delays.empty()) return TSL_ERR_CORRUPT;
  info->pages = static_cast<int>(delays.size());
  info->loop_count = static_cast<int>(b.animation.num_loops);
  info->delays = static_cast<int *>(std::calloc(delays.size(), sizeof(int)));
  if (info->delays) std::memcpy(info->delays, delays.data(), delays.size() * sizeof(int));
  return TSL_OK;
}

int jxlInfo(const Source &src, int, TslFileInfo *info) {
  if (!libjxl.openFor("JPEG XL files", info->message, sizeof info->message)) return TSL_ERR_BAD_FILE;
  DecoderPtr dec = openDecoder(src, JXL_DEC_BASIC_INFO);
  if (!dec) return TSL_ERR_MEMORY;
  const JxlDecoderStatus status = JxlDecoderProcessInput(dec.get());
  if (status == JXL_DEC_NEED_MORE_INPUT) return TSL_ERR_READ;
  if (status != JXL_DEC_BASIC_INFO) return TSL_ERR_CORRUPT;
  JxlBasicInfo b;
  if (JxlDecoderGetBasicInfo(dec.get(), &b) != JXL_DEC_SUCCESS) return TSL_ERR_CORRUPT;
  info->width = b.xsize;
  info->height = b.ysize;
  info->bits_per_plane = static_cast<int>(b.bits_per_sample);
  info->planes = static_cast<int>(b.num_color_channels) + (b.alpha_bits > 0 ? 1 : 0);
  info->color_model = modelOf(b);
  info->colors = info->color_model == TSL_GREY ? 256 : 1L << 24;
  info->has_alpha = b.alpha_bits > 0;
  info->compression = TSL_COMP_JPEGXL;
  info->orientation = b.orientation >= 1 && b.orientation <= 8 ? static_cast<int>(b.orientation) : 1;
  info->pages = 1;
  if (!b.have_animation) return TSL_OK;
  return countFrames(src, b, info);
}

int jxlLoad(const Source &src, TslPicture *picture, LoadContext &ctx) {
  const int page = ctx.page();
  if (page < 0) return TSL_ERR_BAD_FILE;
  char message[256];
  if (!libjxl.openFor("JPEG XL files", message, sizeof message)) return ctx.fail(TSL_ERR_BAD_FILE, message);
  DecoderPtr dec = openDecoder(src, JXL_DEC_BASIC_INFO | JXL_DEC_FULL_IMAGE);
  if (!dec) return TSL_ERR_MEMORY;
  JxlPixelFormat format{3, JXL_TYPE_UINT8, JXL_NATIVE_ENDIAN, 0};
  // The decoder writes packed rows here; they are copied into the picture
  // when its rows are padded.
  std::vector<uint8_t> packed;
  for (;;) {
    const JxlDecoderStatus status = JxlDecoderProcessInput(dec.get());
    switch (status) {
      case JXL_DEC_BASIC_INFO: {
        JxlBasicInfo b;
        if (JxlDecoderGetBasicInfo(dec.get(), &b) != JXL_DEC_SUCCESS) return TSL_ERR_CORRUPT;
        if (!ctx.sizeAllowed(b.xsize, b.ysize)) return TSL_ERR_MEMORY;
        if (page > 0) {
          if (!b.have_animation) {
            ctx.setMessage("Page %d does not exist (1 page)", page + 1);
            return TSL_ERR_BAD_FILE;
          }
          JxlDecoderSkipFrames(dec.get(), static_cast<size_t>(page));
        }
        const int model = modelOf(b);
        format.num_channels = model == TSL_GREY ? 1 : model == TSL_RGBA ? 4 : 3;
        int code = ctx.alloc(picture, model, b.xsize, b.ysize);
        if (code != TSL_OK) return code;
        if (ctx.progress(1, 10)) return TSL_STOPPED;
        break;
      }
      case JXL_DEC_NEED_IMAGE_OUT_BUFFER: {
        if (!picture->pixels) return TSL_ERR_CORRUPT;
        size_t need = 0;
        if (JxlDecoderImageOutBufferSize(dec.get(), &format, &need) != JXL_DEC_SUCCESS) return TSL_ERR_CORRUPT;
        const size_t line = static_cast<size_t>(picture->width) * format.num_channels;
        if (need != line * picture->height) return TSL_ERR_CORRUPT;
        void *out = picture->pixels;
        if (line != picture->bytes_per_line) {
          packed.resize(need);
          out = packed.data();
        }
        if (JxlDecoderSetImageOutBuffer(dec.get(), &format, out, need) != JXL_DEC_SUCCESS) return TSL_ERR_CORRUPT;
        break;
      }
      case JXL_DEC_FULL_IMAGE: {
        // The first frame not skipped is the picture.
        if (!packed.empty()) {
          const size_t line = static_cast<size_t>(picture->width) * format.num_channels;
          for (uint32_t y = 0; y < picture->height; ++y) std::memcpy(rowOf(picture, y), &packed[line * y], line);
        }
        if (picture->color_model == TSL_GREY) picture->colors = 256;
        ctx.progress(1, 1);
        return TSL_OK;
      }
      case JXL_DEC_NEED_MORE_INPUT:
        return TSL_ERR_READ;
      case JXL_DEC_SUCCESS:
        // Ended before the frame: past the last frame, or no frame at all.
        if (page > 0) {
          ctx.setMessage("Frame %d does not exist", page + 1);
          return TSL_ERR_BAD_FILE;
        }
        return TSL_ERR_CORRUPT;
      default:
        return TSL_ERR_CORRUPT;
    }
  }
}

// ---- Writing ---------------------------------------------------------------

struct EncoderDeleter {
  void operator()(JxlEncoder *e) const { JxlEncoderDestroy(e); }
};

// The usual quality scale mapped to the encoder's Butteraugli distance:
// 90 gives 1.0 ("visually lossless"), 100 almost 0, low qualities grow fast.
float distanceFor(int quality) {
  const int q = quality < 1 ? 1 : quality > 100 ? 100 : quality;
  if (q >= 30) return 0.1f + static_cast<float>(100 - q) * 0.09f;
  return static_cast<float>(6.4 + std::pow(2.5, (30 - q) / 5.0) / 6.25);
}

int jxlSave(FILE *file, const TslPicture *picture, SaveContext &ctx) {
  const TslParams &params = ctx.params();
  const bool lossless = params.compression == 1;
  const bool grey = picture->color_model == TSL_GREY ||
                    (picture->color_model == TSL_INDEXED && paletteIsGrey(picture)) ||
                    picture->color_model == TSL_BINARY;
  const ChannelLayout layout = TSL_IS_TRUECOLOR(picture->color_model) ? channelLayout(picture->color_model)
                                                                       : ChannelLayout{0, 0, 0, -1};
  const bool alpha = layout.a >= 0;
  const uint32_t channels = grey && !alpha ? 1 : alpha ? 4 : 3;
  char message[256];
  if (!libjxl.openFor("JPEG XL files", message, sizeof message)) return TSL_ERR_CANT_SAVE;

  std::unique_ptr<JxlEncoder, EncoderDeleter> enc(JxlEncoderCreate(nullptr));
  if (!enc) return TSL_ERR_MEMORY;
  JxlBasicInfo b;
  JxlEncoderInitBasicInfo(&b);
  b.xsize = picture->width;
  b.ysize = picture->height;
  b.bits_per_sample = 8;
  b.num_color_channels = channels == 1 ? 1 : 3;
  b.num_extra_channels = alpha ? 1 : 0;
  b.alpha_bits = alpha ? 8 : 0;
  b.uses_original_profile = lossless ? JXL_TRUE : JXL_FALSE;
  if (JxlEncoderSetBasicInfo(enc.get(), &b) != JXL_ENC_SUCCESS) return TSL_ERR_CANT_SAVE;
  JxlColorEncoding colour;
  JxlColorEncodingSetToSRGB(&colour, channels == 1 ? JXL_TRUE : JXL_FALSE);
  if (JxlEncoderSetColorEncoding(enc.get(), &colour) != JXL_ENC_SUCCESS) return TSL_ERR_INTERNAL;
  JxlEncoderFrameSettings *settings = JxlEncoderFrameSettingsCreate(enc.get(), nullptr);
  if (!settings) return TSL_ERR_MEMORY;
  if (lossless) {
    if (JxlEncoderSetFrameLossless(settings, JXL_TRUE) != JXL_ENC_SUCCESS) return TSL_ERR_INTERNAL;
  } else if (JxlEncoderSetFrameDistance(settings, distanceFor(params.quality)) != JXL_ENC_SUCCESS) {
    return TSL_ERR_INTERNAL;
  }

  // Any colour model in, packed 8-bit grey, RGB or RGBA rows to the encoder.
  const size_t line = static_cast<size_t>(picture->width) * channels;
  std::vector<uint8_t> pixels, rgb;
  pixels.resize(line * picture->height);
  if (channels == 1) rgb.resize(static_cast<size_t>(picture->width) * 3);
  for (uint32_t y = 0; y < picture->height; ++y) {
    uint8_t *row = &pixels[line * y];
    if (channels == 4) {
      tslGetRowRGBA(picture, y, row);
    } else if (channels == 3) {
      tslGetRowRGB(picture, y, row);
    } else {
      tslGetRowRGB(picture, y, rgb.data());
      for (uint32_t x = 0; x < picture->width; ++x) row[x] = rgb[3 * x];
    }
  }
  ctx.progress(1, 10);
  const JxlPixelFormat format{channels, JXL_TYPE_UINT8, JXL_NATIVE_ENDIAN, 0};
  if (JxlEncoderAddImageFrame(settings, &format, pixels.data(), pixels.size()) != JXL_ENC_SUCCESS)
    return TSL_ERR_CANT_SAVE;
  JxlEncoderCloseInput(enc.get());

  std::vector<uint8_t> out(64 * 1024);
  for (;;) {
    uint8_t *next = out.data();
    size_t avail = out.size();
    const JxlEncoderStatus status = JxlEncoderProcessOutput(enc.get(), &next, &avail);
    const size_t n = out.size() - avail;
    if (n > 0 && std::fwrite(out.data(), 1, n, file) != n) return TSL_ERR_WRITE;
    if (status == JXL_ENC_SUCCESS) break;
    if (status != JXL_ENC_NEED_MORE_OUTPUT) return TSL_ERR_INTERNAL;
  }
  ctx.progress(1, 1);
  return TSL_OK;
}

}  // namespace

extern const FormatDef kJxlFormat = {
    "jxl", "JPEG XL", "jxl",
    {{1, -1, -1, -1}, {2, 256, -1, -1}, {4, 256, -1, -1}, {TSL_KIND_TRUECOLOR, -1, -1, -1}, {-1, 0, 0, 0}},
    kMagicStrong, true, jxlSniff, jxlInfo, jxlLoad, jxlSave, nullptr};

}  // namespace tessel
