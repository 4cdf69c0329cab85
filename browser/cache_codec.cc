// Payload codecs of the thumbnail cache.
//
// libjpeg reports errors by longjmp: every call that can fail sits in a
// small shim whose frame holds no C++ object with a destructor, and the
// callbacks gather output with malloc, never with a throwing allocation.
#include "browser/cache_codec.h"

#include <zlib.h>

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <jpeglib.h>
#include <jerror.h>

namespace quilla {

namespace {

constexpr size_t kChunk = 4096;

struct JpegError {
  jpeg_error_mgr pub;
  jmp_buf jump;
};

void onJpegError(j_common_ptr cinfo) { std::longjmp(reinterpret_cast<JpegError *>(cinfo->err)->jump, 1); }
void onJpegMessage(j_common_ptr, int) {}

void setupJpegErrors(JpegError *err) {
  jpeg_std_error(&err->pub);
  err->pub.error_exit = onJpegError;
  err->pub.emit_message = onJpegMessage;
}

// Compressed output gathered in memory, 4096 bytes at a time.
struct MemoryDest {
  jpeg_destination_mgr pub;
  uint8_t chunk[kChunk];
  uint8_t *data;
  size_t size, capacity;
};

bool appendBytes(MemoryDest *d, const uint8_t *bytes, size_t n) {
  if (d->size + n > d->capacity) {
    size_t cap = d->capacity ? d->capacity : 4 * kChunk;
    while (cap < d->size + n) cap *= 2;
    auto *grown = static_cast<uint8_t *>(std::realloc(d->data, cap));
    if (!grown) return false;
    d->data = grown;
    d->capacity = cap;
  }
  std::memcpy(d->data + d->size, bytes, n);
  d->size += n;
  return true;
}

void destInit(j_compress_ptr cinfo) {
  auto *d = reinterpret_cast<MemoryDest *>(cinfo->dest);
  d->pub.next_output_byte = d->chunk;
  d->pub.free_in_buffer = kChunk;
}

boolean destEmpty(j_compress_ptr cinfo) {
  auto *d = reinterpret_cast<MemoryDest *>(cinfo->dest);
  if (!appendBytes(d, d->chunk, kChunk)) ERREXIT1(cinfo, JERR_OUT_OF_MEMORY, 0);
  d->pub.next_output_byte = d->chunk;
  d->pub.free_in_buffer = kChunk;
  return TRUE;
}

void destTerm(j_compress_ptr cinfo) {
  auto *d = reinterpret_cast<MemoryDest *>(cinfo->dest);
  if (!appendBytes(d, d->chunk, kChunk - d->pub.free_in_buffer)) ERREXIT1(cinfo, JERR_OUT_OF_MEMORY, 0);
}

struct Encoder {
  jpeg_compress_struct cinfo;
  JpegError err;
  MemoryDest dest;
};

// Shim: the whole compression.  True on success.
bool shimCompress(Encoder *e, const CacheRows &rows, const uint8_t *pixels, int quality) {
  e->cinfo.err = &e->err.pub;
  setupJpegErrors(&e->err);
  if (setjmp(e->err.jump)) {
    jpeg_destroy_compress(&e->cinfo);
    return false;
  }
  jpeg_create_compress(&e->cinfo);
  e->dest.pub.init_destination = destInit;
  e->dest.pub.empty_output_buffer = destEmpty;
  e->dest.pub.term_destination = destTerm;
  e->cinfo.dest = &e->dest.pub;
  e->cinfo.image_width = rows.width;
  e->cinfo.image_height = rows.height;
  e->cinfo.input_components = rows.samples == 1 ? 1 : 3;
  e->cinfo.in_color_space = rows.samples == 1 ? JCS_GRAYSCALE : JCS_RGB;
  jpeg_set_defaults(&e->cinfo);
  jpeg_set_quality(&e->cinfo, quality, TRUE);
  jpeg_start_compress(&e->cinfo, TRUE);
  while (e->cinfo.next_scanline < e->cinfo.image_height) {
    JSAMPROW row = const_cast<JSAMPROW>(pixels + static_cast<size_t>(e->cinfo.next_scanline) * rows.stride);
    jpeg_write_scanlines(&e->cinfo, &row, 1);
  }
  jpeg_finish_compress(&e->cinfo);
  jpeg_destroy_compress(&e->cinfo);
  return true;
}

// Compressed input read from memory in chunks of up to 4096 bytes; a
// stream that ends early gets an end-of-image marker after a warning.
struct MemorySource {
  jpeg_source_mgr pub;
  const uint8_t *data;
  size_t size, pos;
};

const JOCTET kEndOfImage[2] = {0xFF, JPEG_EOI};

void sourceInit(j_decompress_ptr) {}

boolean sourceFill(j_decompress_ptr cinfo) {
  auto *s = reinterpret_cast<MemorySource *>(cinfo->src);
  if (s->pos >= s->size) {
    WARNMS(cinfo, JWRN_JPEG_EOF);
    s->pub.next_input_byte = kEndOfImage;
    s->pub.bytes_in_buffer = 2;
    return TRUE;
  }
  const size_t n = s->size - s->pos < kChunk ? s->size - s->pos : kChunk;
  s->pub.next_input_byte = s->data + s->pos;
  s->pub.bytes_in_buffer = n;
  s->pos += n;
  return TRUE;
}

void sourceSkip(j_decompress_ptr cinfo, long count) {
  auto *s = reinterpret_cast<MemorySource *>(cinfo->src);
  while (count > 0) {
    if (static_cast<size_t>(count) <= s->pub.bytes_in_buffer) {
      s->pub.next_input_byte += count;
      s->pub.bytes_in_buffer -= static_cast<size_t>(count);
      return;
    }
    count -= static_cast<long>(s->pub.bytes_in_buffer);
    sourceFill(cinfo);
  }
}

void sourceTerm(j_decompress_ptr) {}

struct Decoder {
  jpeg_decompress_struct cinfo;
  JpegError err;
  MemorySource src;
};

// Shim: the whole decompression into height x stride bytes.  True when the
// stream holds exactly the expected picture.
bool shimDecompress(Decoder *d, const CacheRows &rows, uint8_t *pixels) {
  d->cinfo.err = &d->err.pub;
  setupJpegErrors(&d->err);
  if (setjmp(d->err.jump)) {
    jpeg_destroy_decompress(&d->cinfo);
    return false;
  }
  jpeg_create_decompress(&d->cinfo);
  d->src.pub.init_source = sourceInit;
  d->src.pub.fill_input_buffer = sourceFill;
  d->src.pub.skip_input_data = sourceSkip;
  d->src.pub.resync_to_restart = jpeg_resync_to_restart;
  d->src.pub.term_source = sourceTerm;
  d->src.pub.bytes_in_buffer = 0;
  d->src.pub.next_input_byte = nullptr;
  d->cinfo.src = &d->src.pub;
  jpeg_read_header(&d->cinfo, TRUE);
  // A damaged payload must not make libjpeg allocate for some other size.
  if (d->cinfo.image_width != rows.width || d->cinfo.image_height != rows.height) {
    jpeg_destroy_decompress(&d->cinfo);
    return false;
  }
  const int components = rows.samples == 1 ? 1 : 3;
  d->cinfo.out_color_space = components == 1 ? JCS_GRAYSCALE : JCS_RGB;
  jpeg_start_decompress(&d->cinfo);
  if (d->cinfo.output_width != rows.width || d->cinfo.output_height != rows.height ||
      d->cinfo.output_components != components) {
    jpeg_destroy_decompress(&d->cinfo);
    return false;
  }
  while (d->cinfo.output_scanline < d->cinfo.output_height) {
    JSAMPROW row = pixels + static_cast<size_t>(d->cinfo.output_scanline) * rows.stride;
    jpeg_read_scanlines(&d->cinfo, &row, 1);
  }
  jpeg_finish_decompress(&d->cinfo);
  jpeg_destroy_decompress(&d->cinfo);
  return true;
}

bool rowsUsable(const CacheRows &rows) {
  return rows.width > 0 && rows.height > 0 && (rows.samples == 1 || rows.samples == 3) &&
         static_cast<uint64_t>(rows.width) * rows.samples <= rows.stride;
}

}  // namespace

bool EncodeCachePayload(int mode, const CacheRows &rows, const uint8_t *pixels, std::vector<uint8_t> *out) {
  if (!rowsUsable(rows)) return false;
  const size_t raw = static_cast<size_t>(rows.height) * rows.stride;
  switch (mode) {
    case kCacheZip: {
      uLongf len = static_cast<uLongf>(raw + kChunk);
      if (len < compressBound(static_cast<uLong>(raw))) len = compressBound(static_cast<uLong>(raw));
      out->resize(len);
      if (compress2(out->data(), &len, pixels, static_cast<uLong>(raw), Z_DEFAULT_COMPRESSION) != Z_OK) return false;
      out->resize(len);
      return true;
    }
    case kCacheJpegLow:
    case kCacheJpegHigh: {
      if (rows.width > JPEG_MAX_DIMENSION || rows.height > JPEG_MAX_DIMENSION) return false;
      auto *e = static_cast<Encoder *>(std::calloc(1, sizeof(Encoder)));
      if (!e) return false;
      const bool ok = shimCompress(e, rows, pixels, mode == kCacheJpegLow ? 50 : 75);
      if (ok) out->assign(e->dest.data, e->dest.data + e->dest.size);
      std::free(e->dest.data);
      std::free(e);
      return ok;
    }
    default:
      out->assign(pixels, pixels + raw);
      return true;
  }
}

bool DecodeCachePayload(int mode, const CacheRows &rows, const uint8_t *data, size_t size, uint8_t *pixels) {
  if (!rowsUsable(rows)) return false;
  const size_t raw = static_cast<size_t>(rows.height) * rows.stride;
  switch (mode) {
    case kCacheZip: {
      uLongf len = static_cast<uLongf>(raw);
      return uncompress(pixels, &len, data, static_cast<uLong>(size)) == Z_OK && len == raw;
    }
    case kCacheJpegLow:
    case kCacheJpegHigh: {
      auto *d = static_cast<Decoder *>(std::calloc(1, sizeof(Decoder)));
      if (!d) return false;
      d->src.data = data;
      d->src.size = size;
      const bool ok = shimDecompress(d, rows, pixels);
      std::free(d);
      return ok;
    }
    default:
      if (size != raw) return false;
      std::memcpy(pixels, data, raw);
      return true;
  }
}

}  // namespace quilla
