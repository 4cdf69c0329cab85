// Fuzz target for the thumbnail cache's reader.
//
// Every input is tried three ways: as a slot database (the cache configured
// with the mode and size its header names, so the entries are read), as the
// index file, and as a compressed payload of each mode.  Each cached entry
// is looked up, a thumbnail is stored, the cache is closed, opened again,
// compacted and listed.  Nothing may crash, hang or leak.  The seeds are
// databases of every mode written by the cache itself.
#include <dirent.h>

#include <vector>

#include "browser/cache_db.h"
#include "fuzz/side_fuzz.h"
#include "tessel.h"

using quilla::ThumbCache;

namespace {

std::string g_root;  // a private cache directory for this process

uint32_t be16(const uint8_t *p) { return static_cast<uint32_t>(p[0]) << 8 | p[1]; }

std::string indexFor(const std::string &dir) {
  std::string s(quilla::kCacheMagic, 16);
  s += std::string("\0\0\0\x01", 4);
  std::string slot = dir;
  slot.resize(quilla::kCacheSlotPath, '\0');
  s += slot;
  s.push_back(1);
  return s;
}

void exerciseCache(int mode, int width, int height) {
  ThumbCache cache(g_root);
  cache.configure(true, mode);
  cache.setThumbnailSize(width, height);
  cache.open(false);
  cache.setDirectory("/fuzz/");
  for (const ThumbCache::Key &k : cache.keys()) {
    TslPicture pic{};
    TslFileInfo info;
    // Touch the last row so that a short buffer shows under ASan.
    if (cache.lookup(k.name.c_str(), k.mtime, k.size, &pic, &info) && pic.pixels)
      (void)pic.pixels[static_cast<size_t>(pic.height - 1) * pic.bytes_per_line];
    tslFree(&pic);
  }
  TslPicture small{};
  if (tslAllock(&small, TSL_RGB, 0, 3, 2)) {
    TslFileInfo info{};
    info.format = -1;
    cache.store("stored", 1, 2, small, info);
    tslFree(&small);
  }
  cache.close();
  cache.open(false);
  cache.setDirectory("/fuzz/");
  cache.compactAll();
  cache.listRows();
  cache.close();
}

void exercise(const uint8_t *data, size_t size) {
  // As a database: the header's own mode and size, so its entries are read.
  int mode = 1, width = 92, height = 69;
  if (size >= 26) {
    mode = static_cast<int>(be16(data + 20)) & 3;
    width = static_cast<int>(be16(data + 22));
    height = static_cast<int>(be16(data + 24));
  }
  const std::string index = indexFor("/fuzz/");
  sidefuzz::WriteFile(g_root + "cache.db", index);
  sidefuzz::WriteFile(g_root + "0.db", data, size);
  exerciseCache(mode, width, height);
  // As the index.
  sidefuzz::WriteFile(g_root + "cache.db", data, size);
  ::unlink((g_root + "0.db").c_str());
  exerciseCache(1, 92, 69);
  // As a payload of each mode, for a small picture.
  if (size >= 2) {
    quilla::CacheRows rows;
    rows.width = 1 + data[0] % 64;
    rows.height = 1 + data[1] % 64;
    rows.samples = data[0] & 0x80 ? 1 : 3;
    rows.stride = rows.width * rows.samples + (data[1] & 3);
    std::vector<uint8_t> pixels(static_cast<size_t>(rows.height) * rows.stride);
    for (int m = 0; m < 4; ++m) quilla::DecodeCachePayload(m, rows, data + 2, size - 2, pixels.data());
  }
}

void tearDown() {
  if (DIR *d = ::opendir(g_root.c_str())) {
    while (const dirent *e = ::readdir(d))
      if (e->d_name[0] != '.') ::unlink((g_root + e->d_name).c_str());
    ::closedir(d);
  }
  ::rmdir(g_root.c_str());
}

// A private cache directory for the process, emptied at exit.
void setUp() {
  static bool done = false;
  if (done) return;
  done = true;
  g_root = sidefuzz::ScratchDir() + "/cache/";
  tslInitLibrary();
  tslSetMaxPixels(1u << 22);
  std::atexit(tearDown);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  setUp();
  exercise(data, size);
  return 0;
}

// Seeds: databases of every mode written by the cache itself, the index
// that names them, and damaged copies (cuts and flipped bytes).
void WriteSeeds(const std::string &out) {
  setUp();
  for (int mode = 0; mode < 4; ++mode) {
    ThumbCache cache(g_root);
    cache.configure(true, mode);
    cache.setThumbnailSize(24, 18);
    cache.open(false);
    cache.setDirectory("/fuzz/");
    for (int k = 0; k < 3; ++k) {
      TslPicture pic{};
      if (!tslAllock(&pic, k == 1 ? TSL_GREY : TSL_RGB, 0, 24 - k * 5, 18 - k * 3)) continue;
      for (size_t b = 0; b < static_cast<size_t>(pic.bytes_per_line) * pic.height; ++b)
        pic.pixels[b] = static_cast<uint8_t>(b * 7 + k * 40);
      TslFileInfo info{};
      info.format = tslFormatGetIndex(k ? "png" : "jpeg");
      info.width = 800;
      info.height = 600;
      const std::string name = "picture" + std::to_string(k) + ".jpg";
      cache.store(name.c_str(), 1000 + k, 5000 + k, pic, info);
      tslFree(&pic);
    }
    cache.close();
    const std::string db = sidefuzz::ReadFile(cache.databasePath(0));
    const std::string stem = out + "/mode" + std::to_string(mode);
    sidefuzz::WriteFile(stem + ".index", sidefuzz::ReadFile(cache.indexPath()));
    sidefuzz::WriteWithDamage(out, "mode" + std::to_string(mode) + ".db", db);
    for (int v = 0; v < 3 && !db.empty(); ++v) {
      std::string d = db;
      for (int f = 0; f < 12 + 4 * v; ++f) d[(f * 131 + v * 17) % d.size()] ^= static_cast<char>(1u << (f % 8));
      sidefuzz::WriteFile(stem + ".flip" + std::to_string(v) + ".db", d);
    }
    ::unlink(cache.databasePath(0).c_str());
    ::unlink(cache.indexPath().c_str());
  }
}
