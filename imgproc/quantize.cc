// Reduction to a palette of 2..256 colours: exact palettes for pictures with
// few colours, the 6x6x6 cube, and Wu's variance-minimising box cut refined
// by k-means, mapped to the nearest entry or by Floyd-Steinberg diffusion.
#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "imgproc/convert.h"
#include "imgproc/convert_rows.h"

namespace quilla {

namespace {

constexpr uint32_t kTransparentKey = 0x1000000;  // key of every pixel with alpha < 128

struct Rgb {
  int r, g, b;
};

// The key of an RGBA pixel: its 24-bit colour, or kTransparentKey.
inline uint32_t keyOf(const uint8_t *px, bool alpha) {
  if (alpha && px[3] < 128) return kTransparentKey;
  return static_cast<uint32_t>(px[0]) << 16 | static_cast<uint32_t>(px[1]) << 8 | px[2];
}

inline uint32_t hashKey(uint32_t key, int bits) { return (key * 2654435761u) >> (32 - bits); }

// A small open-addressing set of keys that remembers the order in which
// they were first seen; gives up when more than `limit` keys arrive.
class KeySet {
 public:
  explicit KeySet(int limit) : limit_(limit), slots_(4096, kEmpty), index_(4096, 0) {}
  // Index of key, adding it when new; -1 once the set overflowed.
  int add(uint32_t key) {
    uint32_t h = hashKey(key, 12);
    while (slots_[h] != kEmpty) {
      if (slots_[h] == key) return index_[h];
      h = (h + 1) & 4095;
    }
    if (static_cast<int>(keys_.size()) >= limit_) return -1;
    slots_[h] = key;
    index_[h] = static_cast<int>(keys_.size());
    keys_.push_back(key);
    return index_[h];
  }
  const std::vector<uint32_t> &keys() const { return keys_; }

 private:
  static constexpr uint32_t kEmpty = 0xffffffffu;
  int limit_;
  std::vector<uint32_t> slots_;
  std::vector<int> index_;
  std::vector<uint32_t> keys_;
};

// Nearest palette entry by squared RGB distance: entries sorted on green,
// searched outwards from the query's green until the green distance alone
// exceeds the best match, with a direct-mapped cache of recent answers.
class Nearest {
 public:
  explicit Nearest(const std::vector<Rgb> &pal) : cache_key_(1 << 16, 0xffffffffu), cache_val_(1 << 16, 0) {
    for (size_t i = 0; i < pal.size(); ++i) sorted_.push_back({pal[i].r, pal[i].g, pal[i].b, static_cast<int>(i)});
    std::stable_sort(sorted_.begin(), sorted_.end(), [](const Entry &a, const Entry &b) { return a.g < b.g; });
  }
  int find(int r, int g, int b) {
    const uint32_t key = static_cast<uint32_t>(r) << 16 | static_cast<uint32_t>(g) << 8 | static_cast<uint32_t>(b);
    const uint32_t h = hashKey(key, 16);
    if (cache_key_[h] == key) return cache_val_[h];
    const int n = static_cast<int>(sorted_.size());
    int lo = static_cast<int>(std::lower_bound(sorted_.begin(), sorted_.end(), g,
                                               [](const Entry &e, int v) { return e.g < v; }) -
                              sorted_.begin());
    int hi = lo;
    --lo;
    int best = 1 << 30, best_index = sorted_[0].index, best_pos = n;
    while (lo >= 0 || hi < n) {
      if (hi < n) {
        const Entry &e = sorted_[hi];
        const int dg = e.g - g;
        if (dg * dg > best) {
          hi = n;
        } else {
          const int d = (e.r - r) * (e.r - r) + dg * dg + (e.b - b) * (e.b - b);
          if (d < best || (d == best && hi < best_pos)) best = d, best_index = e.index, best_pos = hi;
          ++hi;
        }
      }
      if (lo >= 0) {
        const Entry &e = sorted_[lo];
        const int dg = e.g - g;
        if (dg * dg > best) {
          lo = -1;
        } else {
          const int d = (e.r - r) * (e.r - r) + dg * dg + (e.b - b) * (e.b - b);
          if (d < best || (d == best && lo < best_pos)) best = d, best_index = e.index, best_pos = lo;
          --lo;
        }
      }
    }
    cache_key_[h] = key;
    cache_val_[h] = static_cast<uint8_t>(best_index);
    return best_index;
  }

 private:
  struct Entry {
    int r, g, b, index;
  };
  std::vector<Entry> sorted_;
  std::vector<uint32_t> cache_key_;
  std::vector<uint8_t> cache_val_;
};

// ---- Wu's colour quantiser ---------------------------------------------------
// Moments of a 32x32x32 histogram (5 bits per channel, index 0 is the zero
// plane of the cumulative sums), boxes cut along the axis that most reduces
// the summed variance, the box of largest variance cut next.
class WuQuantizer {
 public:
  static constexpr int kSide = 33;
  WuQuantizer()
      : wt_(kCells, 0), mr_(kCells, 0), mg_(kCells, 0), mb_(kCells, 0), m2_(kCells, 0) {}

  void add(int r, int g, int b) {
    const int i = at((r >> 3) + 1, (g >> 3) + 1, (b >> 3) + 1);
    wt_[i] += 1;
    mr_[i] += r;
    mg_[i] += g;
    mb_[i] += b;
    m2_[i] += r * r + g * g + b * b;
  }

  // Up to `count` colours; then refines them with k-means over the cells.
  std::vector<Rgb> palette(int count) {
    // Keep the cells for the refinement before the moments become cumulative.
    for (int i = 0; i < kCells; ++i)
      if (wt_[i]) cells_.push_back({wt_[i], mr_[i], mg_[i], mb_[i]});
    cumulate();
    std::vector<Box> boxes(1, Box{0, 32, 0, 32, 0, 32});
    std::vector<double> var(1, 0.0);
    var[0] = variance(boxes[0]);
    while (static_cast<int>(boxes.size()) < count) {
      int next = -1;
      double best = 0;
      for (size_t k = 0; k < boxes.size(); ++k)
        if (var[k] > best) best = var[k], next = static_cast<int>(k);
      if (next < 0) break;
      Box second;
      if (!cut(&boxes[static_cast<size_t>(next)], &second)) {
        var[static_cast<size_t>(next)] = 0;
        continue;
      }
      boxes.push_back(second);
      var[static_cast<size_t>(next)] = volume(boxes[static_cast<size_t>(next)]) > 1 ? variance(boxes[static_cast<size_t>(next)]) : 0;
      var.push_back(volume(second) > 1 ? variance(second) : 0);
    }
    std::vector<Rgb> pal;
    for (const Box &b : boxes) {
      const int64_t w = vol(b, wt_);
      if (w <= 0) continue;
      pal.push_back({static_cast<int>((vol(b, mr_) + w / 2) / w), static_cast<int>((vol(b, mg_) + w / 2) / w),
                     static_cast<int>((vol(b, mb_) + w / 2) / w)});
    }
    refine(&pal);
    return pal;
  }

 private:
  static constexpr int kCells = kSide * kSide * kSide;
  enum Axis { kRed, kGreen, kBlue };
  struct Box {
    int r0, r1, g0, g1, b0, b1;  // lower bounds exclusive
  };
  struct Cell {
    int64_t w, r, g, b;
  };

  static int at(int r, int g, int b) { return (r * kSide + g) * kSide + b; }
  static int volume(const Box &b) { return (b.r1 - b.r0) * (b.g1 - b.g0) * (b.b1 - b.b0); }

  void cumulate() {
    for (int r = 1; r < kSide; ++r) {
      int64_t area[kSide] = {}, area_r[kSide] = {}, area_g[kSide] = {}, area_b[kSide] = {}, area2[kSide] = {};
      for (int g = 1; g < kSide; ++g) {
        int64_t line = 0, line_r = 0, line_g = 0, line_b = 0, line2 = 0;
        for (int b = 1; b < kSide; ++b) {
          const int i = at(r, g, b), j = at(r - 1, g, b);
          line += wt_[i];
          line_r += mr_[i];
          line_g += mg_[i];
          line_b += mb_[i];
          line2 += m2_[i];
          area[b] += line;
          area_r[b] += line_r;
          area_g[b] += line_g;
          area_b[b] += line_b;
          area2[b] += line2;
          wt_[i] = wt_[j] + area[b];
          mr_[i] = mr_[j] + area_r[b];
          mg_[i] = mg_[j] + area_g[b];
          mb_[i] = mb_[j] + area_b[b];
          m2_[i] = m2_[j] + area2[b];
        }
      }
    }
  }

  static int64_t vol(const Box &c, const std::vector<int64_t> &m) {
    return m[at(c.r1, c.g1, c.b1)] - m[at(c.r1, c.g1, c.b0)] - m[at(c.r1, c.g0, c.b1)] + m[at(c.r1, c.g0, c.b0)] -
           m[at(c.r0, c.g1, c.b1)] + m[at(c.r0, c.g1, c.b0)] + m[at(c.r0, c.g0, c.b1)] - m[at(c.r0, c.g0, c.b0)];
  }
  static int64_t bottom(const Box &c, Axis d, const std::vector<int64_t> &m) {
    switch (d) {
      case kRed:
        return -m[at(c.r0, c.g1, c.b1)] + m[at(c.r0, c.g1, c.b0)] + m[at(c.r0, c.g0, c.b1)] - m[at(c.r0, c.g0, c.b0)];
      case kGreen:
        return -m[at(c.r1, c.g0, c.b1)] + m[at(c.r1, c.g0, c.b0)] + m[at(c.r0, c.g0, c.b1)] - m[at(c.r0, c.g0, c.b0)];
      default:
        return -m[at(c.r1, c.g1, c.b0)] + m[at(c.r1, c.g0, c.b0)] + m[at(c.r0, c.g1, c.b0)] - m[at(c.r0, c.g0, c.b0)];
    }
  }
  static int64_t top(const Box &c, Axis d, int pos, const std::vector<int64_t> &m) {
    switch (d) {
      case kRed:
        return m[at(pos, c.g1, c.b1)] - m[at(pos, c.g1, c.b0)] - m[at(pos, c.g0, c.b1)] + m[at(pos, c.g0, c.b0)];
      case kGreen:
        return m[at(c.r1, pos, c.b1)] - m[at(c.r1, pos, c.b0)] - m[at(c.r0, pos, c.b1)] + m[at(c.r0, pos, c.b0)];
      default:
        return m[at(c.r1, c.g1, pos)] - m[at(c.r1, c.g0, pos)] - m[at(c.r0, c.g1, pos)] + m[at(c.r0, c.g0, pos)];
    }
  }
  double variance(const Box &c) const {
    const double dr = static_cast<double>(vol(c, mr_)), dg = static_cast<double>(vol(c, mg_)),
                 db = static_cast<double>(vol(c, mb_)), w = static_cast<double>(vol(c, wt_));
    if (w <= 0) return 0;
    return static_cast<double>(vol(c, m2_)) - (dr * dr + dg * dg + db * db) / w;
  }
  double maximize(const Box &c, Axis d, int first, int last, int *cut_at, int64_t wr, int64_t wg, int64_t wb,
                  int64_t ww) const {
    const int64_t br = bottom(c, d, mr_), bg = bottom(c, d, mg_), bb = bottom(c, d, mb_), bw = bottom(c, d, wt_);
    double best = 0;
    *cut_at = -1;
    for (int i = first; i < last; ++i) {
      int64_t hr = br + top(c, d, i, mr_), hg = bg + top(c, d, i, mg_), hb = bb + top(c, d, i, mb_),
              hw = bw + top(c, d, i, wt_);
      if (hw == 0) continue;
      double t = (static_cast<double>(hr) * hr + static_cast<double>(hg) * hg + static_cast<double>(hb) * hb) / hw;
      hr = wr - hr, hg = wg - hg, hb = wb - hb, hw = ww - hw;
      if (hw == 0) continue;
      t += (static_cast<double>(hr) * hr + static_cast<double>(hg) * hg + static_cast<double>(hb) * hb) / hw;
      if (t > best) best = t, *cut_at = i;
    }
    return best;
  }
  bool cut(Box *a, Box *b) const {
    const int64_t wr = vol(*a, mr_), wg = vol(*a, mg_), wb = vol(*a, mb_), ww = vol(*a, wt_);
    int cr, cg, cb;
    const double maxr = maximize(*a, kRed, a->r0 + 1, a->r1, &cr, wr, wg, wb, ww);
    const double maxg = maximize(*a, kGreen, a->g0 + 1, a->g1, &cg, wr, wg, wb, ww);
    const double maxb = maximize(*a, kBlue, a->b0 + 1, a->b1, &cb, wr, wg, wb, ww);
    *b = *a;
    if (maxr >= maxg && maxr >= maxb) {
      if (cr < 0) return false;
      b->r0 = a->r1 = cr;
    } else if (maxg >= maxr && maxg >= maxb) {
      if (cg < 0) return false;
      b->g0 = a->g1 = cg;
    } else {
      if (cb < 0) return false;
      b->b0 = a->b1 = cb;
    }
    return true;
  }

  // Lloyd iterations over the histogram cells, each cell standing at the
  // exact mean of its pixels with its pixel count as weight.
  void refine(std::vector<Rgb> *pal) const {
    const size_t n = pal->size();
    if (n < 2) return;
    for (int pass = 0; pass < 4; ++pass) {
      std::vector<int64_t> sw(n, 0), sr(n, 0), sg(n, 0), sb(n, 0);
      for (const Cell &c : cells_) {
        const int r = static_cast<int>(c.r / c.w), g = static_cast<int>(c.g / c.w), b = static_cast<int>(c.b / c.w);
        int best = 1 << 30;
        size_t bi = 0;
        for (size_t k = 0; k < n; ++k) {
          const Rgb &p = (*pal)[k];
          const int d = (p.r - r) * (p.r - r) + (p.g - g) * (p.g - g) + (p.b - b) * (p.b - b);
          if (d < best) best = d, bi = k;
        }
        sw[bi] += c.w, sr[bi] += c.r, sg[bi] += c.g, sb[bi] += c.b;
      }
      bool moved = false;
      for (size_t k = 0; k < n; ++k) {
        if (!sw[k]) continue;
        const Rgb m{static_cast<int>((sr[k] + sw[k] / 2) / sw[k]), static_cast<int>((sg[k] + sw[k] / 2) / sw[k]),
                    static_cast<int>((sb[k] + sw[k] / 2) / sw[k])};
        if (m.r != (*pal)[k].r || m.g != (*pal)[k].g || m.b != (*pal)[k].b) moved = true;
        (*pal)[k] = m;
      }
      if (!moved) break;
    }
  }

  std::vector<int64_t> wt_, mr_, mg_, mb_, m2_;
  std::vector<Cell> cells_;
};

// The cube entry of a channel value (0..5) and back.
inline int cubeStep(int v) { return (v * 5 + 127) / 255; }

bool allocIndexed(const TslPicture *src, TslPicture *out) {
  std::memset(out, 0, sizeof *out);
  if (!tslAllock(out, TSL_INDEXED, src->alloc_param, src->width, src->height)) return false;
  rows::CopyAttributes(src, out);
  return true;
}

void setPalette(TslPicture *out, const std::vector<Rgb> &pal) {
  for (size_t k = 0; k < pal.size() && k < 256; ++k) {
    out->palette[k] = static_cast<uint8_t>(pal[k].r);
    out->palette[256 + k] = static_cast<uint8_t>(pal[k].g);
    out->palette[512 + k] = static_cast<uint8_t>(pal[k].b);
  }
  out->colors = static_cast<int16_t>(pal.size());
}

}  // namespace

int ConvertToColors(const TslPicture *src, TslPicture *dst, int count, bool dither) {
  if (!rows::Usable(src) || !dst || count < 2 || count > 256) return kOpEmptyRect;
  const uint32_t w = src->width, h = src->height;
  const bool alpha = rows::HasAlpha(src->color_model) ||
                     (src->color_model == TSL_INDEXED && src->transparent_index >= 0 && src->transparent_index < 256);
  std::vector<uint8_t> rgba(static_cast<size_t>(w) * 4);
  TslPicture out;

  // Few colours: the picture's own, exactly.
  {
    KeySet set(count);
    bool fits = true;
    for (uint32_t y = 0; y < h && fits; ++y) {
      tslGetRowRGBA(src, y, rgba.data());
      for (uint32_t x = 0; x < w; ++x)
        if (set.add(keyOf(&rgba[4 * x], alpha)) < 0) {
          fits = false;
          break;
        }
    }
    if (fits) {
      if (!allocIndexed(src, &out)) return kOpNoMemory;
      std::vector<Rgb> pal;
      for (uint32_t key : set.keys()) {
        if (key == kTransparentKey) {
          out.transparent_index = static_cast<int16_t>(pal.size());
          pal.push_back({0, 0, 0});
        } else {
          pal.push_back({static_cast<int>(key >> 16), static_cast<int>(key >> 8 & 255), static_cast<int>(key & 255)});
        }
      }
      setPalette(&out, pal);
      for (uint32_t y = 0; y < h; ++y) {
        tslGetRowRGBA(src, y, rgba.data());
        uint8_t *o = RowOf(&out, y);
        for (uint32_t x = 0; x < w; ++x) o[x] = static_cast<uint8_t>(set.add(keyOf(&rgba[4 * x], alpha)));
      }
      *dst = out;
      return kOpDone;
    }
  }

  // Palette of the opaque colours, one entry kept for transparency.
  bool transparent = false;
  std::vector<Rgb> pal;
  if (alpha) {
    for (uint32_t y = 0; y < h && !transparent; ++y) {
      tslGetRowRGBA(src, y, rgba.data());
      for (uint32_t x = 0; x < w; ++x)
        if (rgba[4 * x + 3] < 128) {
          transparent = true;
          break;
        }
    }
  }
  const int opaque_count = count - (transparent ? 1 : 0);
  const bool cube = opaque_count == 216;
  if (cube) {
    for (int r = 0; r < 6; ++r)
      for (int g = 0; g < 6; ++g)
        for (int b = 0; b < 6; ++b) pal.push_back({r * 51, g * 51, b * 51});
  } else {
    std::unique_ptr<WuQuantizer> wu(new (std::nothrow) WuQuantizer());
    if (!wu) return kOpNoMemory;
    for (uint32_t y = 0; y < h; ++y) {
      tslGetRowRGBA(src, y, rgba.data());
      for (uint32_t x = 0; x < w; ++x)
        if (!transparent || rgba[4 * x + 3] >= 128) wu->add(rgba[4 * x], rgba[4 * x + 1], rgba[4 * x + 2]);
    }
    pal = wu->palette(opaque_count);
    if (pal.empty()) pal.push_back({0, 0, 0});
  }
  const int transparent_index = transparent ? static_cast<int>(pal.size()) : -1;
  if (!allocIndexed(src, &out)) return kOpNoMemory;
  std::vector<Rgb> full = pal;
  if (transparent) full.push_back({0, 0, 0});
  setPalette(&out, full);
  out.transparent_index = static_cast<int16_t>(transparent_index);

  Nearest nearest(pal);
  auto lookup = [&](int r, int g, int b) -> int {
    if (cube) return cubeStep(r) * 36 + cubeStep(g) * 6 + cubeStep(b);
    return nearest.find(r, g, b);
  };
  const int iw = static_cast<int>(w);
  std::vector<int> e0, e1;
  if (dither) {
    e0.assign((static_cast<size_t>(iw) + 2) * 3, 0);
    e1.assign((static_cast<size_t>(iw) + 2) * 3, 0);
  }
  for (uint32_t y = 0; y < h; ++y) {
    tslGetRowRGBA(src, y, rgba.data());
    uint8_t *o = RowOf(&out, y);
    if (!dither) {
      for (int x = 0; x < iw; ++x) {
        const uint8_t *px = &rgba[4 * static_cast<size_t>(x)];
        o[x] = static_cast<uint8_t>(transparent && px[3] < 128 ? transparent_index : lookup(px[0], px[1], px[2]));
      }
      continue;
    }
    // Serpentine Floyd-Steinberg: errors x16 per channel, arrays offset by one pixel.
    std::fill(e1.begin(), e1.end(), 0);
    const bool reverse = y & 1;
    const int step = reverse ? -1 : 1;
    int x = reverse ? iw - 1 : 0;
    for (int i = 0; i < iw; ++i, x += step) {
      const uint8_t *px = &rgba[4 * static_cast<size_t>(x)];
      if (transparent && px[3] < 128) {
        o[x] = static_cast<uint8_t>(transparent_index);
        continue;
      }
      int v[3];
      for (int c = 0; c < 3; ++c) {
        const int e = e0[static_cast<size_t>(x + 1) * 3 + c];
        v[c] = std::clamp(px[c] + (e + (e >= 0 ? 8 : -8)) / 16, 0, 255);
      }
      const int k = lookup(v[0], v[1], v[2]);
      o[x] = static_cast<uint8_t>(k);
      const int q[3] = {full[static_cast<size_t>(k)].r, full[static_cast<size_t>(k)].g, full[static_cast<size_t>(k)].b};
      for (int c = 0; c < 3; ++c) {
        const int e = v[c] - q[c];
        e0[static_cast<size_t>(x + 1 + step) * 3 + c] += e * 7;
        e1[static_cast<size_t>(x + 1 - step) * 3 + c] += e * 3;
        e1[static_cast<size_t>(x + 1) * 3 + c] += e * 5;
        e1[static_cast<size_t>(x + 1 + step) * 3 + c] += e;
      }
    }
    std::swap(e0, e1);
  }
  *dst = out;
  return kOpDone;
}

}  // namespace quilla
