// Fuzz target for the thumbnail cache's reader.
//
// Every input is tried three ways: as a slot database (the cache configured
// with the mode and size its header names, so the entries are read), as the
// index file, and as a compressed payload of each mode.  Each cached entry
// is looked up, a thumbnail is stored, the cache is closed, opened again,
// compacted and listed.  Nothing may crash, hang or leak.
//
// Built with -fsanitize=fuzzer it is fuzz_cache_db; with FUZZ_REPLAY it is
// the plain program fuzz_cache_replay, which runs every file of the given
// directories (and, with -make DIR, writes a seed corpus there first).
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "browser/cache_db.h"
#include "tessel.h"

using quilla::ThumbCache;

namespace {

std::string g_root;  // a private cache directory for this process
long g_hits = 0;     // thumbnails read back whole

uint32_t be16(const uint8_t *p) { return static_cast<uint32_t>(p[0]) << 8 | p[1]; }

void writeFile(const std::string &path, const uint8_t *data, size_t size) {
  FILE *f = std::fopen(path.c_str(), "wb");
  if (!f) return;
  if (size) std::fwrite(data, 1, size, f);
  std::fclose(f);
}

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
    if (cache.lookup(k.name.c_str(), k.mtime, k.size, &pic, &info) && pic.pixels) {
      (void)pic.pixels[static_cast<size_t>(pic.height - 1) * pic.bytes_per_line];
      ++g_hits;
    }
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
  writeFile(g_root + "cache.db", reinterpret_cast<const uint8_t *>(index.data()), index.size());
  writeFile(g_root + "0.db", data, size);
  exerciseCache(mode, width, height);
  // As the index.
  writeFile(g_root + "cache.db", data, size);
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

void setUp() {
  char templ[] = "/tmp/fuzzcacheXXXXXX";
  const char *dir = ::mkdtemp(templ);
  g_root = std::string(dir ? dir : "/tmp") + "/cache/";
  tslInitLibrary();
  tslSetMaxPixels(1u << 22);
}

void tearDown() {
  const std::string dir = g_root.substr(0, g_root.size() - 7);
  if (DIR *d = ::opendir(g_root.c_str())) {
    while (const dirent *e = ::readdir(d))
      if (e->d_name[0] != '.') ::unlink((g_root + e->d_name).c_str());
    ::closedir(d);
  }
  ::rmdir(g_root.c_str());
  ::rmdir(dir.c_str());
}

}  // namespace

#ifndef FUZZ_REPLAY

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  setUp();
  std::atexit(tearDown);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  exercise(data, size);
  return 0;
}

#else

namespace {

bool readAll(const std::string &path, std::vector<uint8_t> *data) {
  FILE *f = std::fopen(path.c_str(), "rb");
  if (!f) return false;
  data->clear();
  uint8_t buf[65536];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) data->insert(data->end(), buf, buf + n);
  std::fclose(f);
  return true;
}

// Seeds: databases of every mode written by the cache itself, the index
// that names them, and damaged copies (cuts and flipped bytes).
int makeCorpus(const std::string &out) {
  ::mkdir(out.c_str(), 0777);
  int written = 0;
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
    std::vector<uint8_t> db, index;
    readAll(cache.databasePath(0), &db);
    readAll(cache.indexPath(), &index);
    const std::string stem = out + "/mode" + std::to_string(mode);
    writeFile(stem + ".db", db.data(), db.size());
    writeFile(stem + ".index", index.data(), index.size());
    written += 2;
    for (int v = 0; v < 6 && !db.empty(); ++v) {
      std::vector<uint8_t> d = db;
      if (v < 3) d.resize(d.size() * (v + 1) / 4);
      else
        for (int f = 0; f < 4 * v; ++f) d[(f * 131 + v * 17) % d.size()] ^= static_cast<uint8_t>(1u << (f % 8));
      writeFile(stem + ".v" + std::to_string(v) + ".db", d.data(), d.size());
      ++written;
    }
    ::unlink(cache.databasePath(0).c_str());
    ::unlink(cache.indexPath().c_str());
  }
  std::printf("fuzz_cache_replay: %d seed files in %s\n", written, out.c_str());
  return written > 0 ? 0 : 1;
}

void collect(const std::string &path, std::vector<std::string> *files) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) return;
  if (!S_ISDIR(st.st_mode)) {
    files->push_back(path);
    return;
  }
  DIR *dir = ::opendir(path.c_str());
  if (!dir) return;
  while (dirent *e = ::readdir(dir))
    if (e->d_name[0] != '.') collect(path + "/" + e->d_name, files);
  ::closedir(dir);
}

}  // namespace

int main(int argc, char **argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: fuzz_cache_replay [-make DIR] DIR_OR_FILE...\n");
    return 2;
  }
  setUp();
  int first = 1, status = 0;
  if (std::strcmp(argv[1], "-make") == 0 && argc >= 3) {
    status = makeCorpus(argv[2]);
    first = 3;
  }
  std::vector<std::string> files;
  for (int k = first; k < argc; ++k) collect(argv[k], &files);
  std::vector<uint8_t> data;
  for (const std::string &path : files)
    if (readAll(path, &data)) exercise(data.data(), data.size());
  std::printf("fuzz_cache_replay: %zu files, %ld thumbnails read back\n", files.size(), g_hits);
  tearDown();
  return status;
}

#endif
