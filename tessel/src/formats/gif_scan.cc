// Walks the blocks of a GIF file without decoding the LZW data.
#include "gif_scan.h"

#include <algorithm>
#include <cstring>

#include "../bytes.h"
#include "tessel.h"

namespace tessel {

const uint8_t *GifScan::mapOf(size_t i, int *count) const {
  const GifFrameInfo &f = frames[i];
  if (f.local_map) {
    *count = f.local_count;
    return f.local_map;
  }
  *count = global_count;
  return global_map;
}

bool GifScan::onePalette() const {
  int n0 = 0;
  const uint8_t *m0 = frames.empty() ? nullptr : mapOf(0, &n0);
  for (size_t i = 1; i < frames.size(); ++i) {
    int n = 0;
    const uint8_t *m = mapOf(i, &n);
    if (m == m0) continue;
    if (n != n0 || !m || !m0 || std::memcmp(m, m0, static_cast<size_t>(n) * 3) != 0) return false;
  }
  return true;
}

namespace {
bool covers(const GifFrameInfo &outer, uint32_t left, uint32_t top, uint32_t right, uint32_t bottom) {
  return outer.left <= left && outer.top <= top && uint64_t(outer.left) + outer.width >= right &&
         uint64_t(outer.top) + outer.height >= bottom;
}
}  // namespace

bool GifScan::needsAlpha() const {
  if (frames.empty()) return false;
  for (const GifFrameInfo &f : frames)
    if (f.transparent >= 0) return true;
  if (!covers(frames[0], 0, 0, width, height)) return true;
  // A frame cleared to the background shows through unless the next frame
  // paints over all of it.
  for (size_t i = 0; i + 1 < frames.size(); ++i) {
    const GifFrameInfo &f = frames[i];
    if (f.disposal != 2) continue;
    uint32_t right = static_cast<uint32_t>(std::min<uint64_t>(uint64_t(f.left) + f.width, width));
    uint32_t bottom = static_cast<uint32_t>(std::min<uint64_t>(uint64_t(f.top) + f.height, height));
    if (f.left >= right || f.top >= bottom) continue;
    if (!covers(frames[i + 1], f.left, f.top, right, bottom)) return true;
  }
  return false;
}

int scanGif(const uint8_t *data, size_t size, GifScan *s) {
  ByteReader r(data, size);
  uint8_t sig[6];
  r.bytes(sig, 6);
  if (!r.ok() || std::memcmp(sig, "GIF", 3) != 0) return TSL_ERR_FORMAT;
  s->version89 = std::memcmp(sig + 3, "89a", 3) == 0;
  s->screen_width = r.u16le();
  s->screen_height = r.u16le();
  const uint8_t flags = r.u8();
  s->background = r.u8();
  r.u8();
  if (!r.ok()) return TSL_ERR_READ;
  if (flags & 0x80) {
    s->global_count = 2 << (flags & 7);
    s->global_map = r.here();
    if (!r.skip(static_cast<size_t>(s->global_count) * 3)) return TSL_ERR_READ;
  }

  GifFrameInfo pending;  // graphic control settings for the next frame
  for (;;) {
    if (r.remaining() == 0) {
      s->truncated = true;
      break;
    }
    const uint8_t kind = r.u8();
    if (kind == 0x3B) break;
    if (kind == 0x21) {
      const uint8_t label = r.u8();
      int index = 0;
      bool netscape = false;
      if (label == 0xFE && s->has_comment) s->comment += '\n';
      if (label == 0xFE) s->has_comment = true;
      for (;; ++index) {
        const size_t n = r.u8();
        if (!r.ok()) break;
        if (n == 0) break;
        const uint8_t *p = r.here();
        if (!r.skip(n)) break;
        if (label == 0xF9 && index == 0 && n >= 4) {
          pending.disposal = (p[0] >> 2) & 7;
          pending.delay = le16(p + 1);
          pending.transparent = (p[0] & 1) ? p[3] : -1;
        } else if (label == 0xFE) {
          if (s->comment.size() < 65536) s->comment.append(reinterpret_cast<const char *>(p), n);
        } else if (label == 0xFF && index == 0) {
          netscape = n == 11 && (std::memcmp(p, "NETSCAPE2.0", 11) == 0 || std::memcmp(p, "ANIMEXTS1.0", 11) == 0);
        } else if (label == 0xFF && index == 1 && netscape && n >= 3 && p[0] == 1) {
          s->loop_count = le16(p + 1);
        }
      }
      if (!r.ok()) {
        s->truncated = true;
        break;
      }
    } else if (kind == 0x2C) {
      GifFrameInfo f = pending;
      pending = GifFrameInfo();
      f.offset = r.pos() - 1;
      f.left = r.u16le();
      f.top = r.u16le();
      f.width = r.u16le();
      f.height = r.u16le();
      const uint8_t fl = r.u8();
      if (!r.ok()) {
        s->truncated = true;
        break;
      }
      f.interlaced = (fl & 0x40) != 0;
      if (fl & 0x80) {
        f.local_count = 2 << (fl & 7);
        f.local_map = r.here();
        if (!r.skip(static_cast<size_t>(f.local_count) * 3)) {
          f.local_map = nullptr;
          f.local_count = 0;
          f.complete = false;
        }
      }
      if (f.complete) {
        r.u8();  // LZW minimum code size
        for (;;) {
          const size_t n = r.u8();
          if (!r.ok() || n == 0) break;
          if (!r.skip(n)) break;
        }
        f.complete = r.ok();
      }
      s->frames.push_back(f);
      if (!f.complete) {
        s->truncated = true;
        break;
      }
    } else {
      break;  // garbage after the last frame: stop as at a trailer
    }
  }

  // The canvas is the logical screen; a screen of no size or one smaller
  // than the first frame grows to hold that frame.
  s->width = s->screen_width;
  s->height = s->screen_height;
  if (!s->frames.empty()) {
    const GifFrameInfo &f = s->frames[0];
    const uint32_t right = f.left + f.width, bottom = f.top + f.height;
    if (s->width == 0 || s->height == 0 || right > s->width || bottom > s->height) {
      s->width = std::max(s->width, right);
      s->height = std::max(s->height, bottom);
    }
  }
  return TSL_OK;
}

}  // namespace tessel
