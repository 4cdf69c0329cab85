// thumbloop: the browser's thumbnail loop without a window, for timing.
//
//   thumbloop [-threads N] [-cache DIR] [-mode M] [-size WxH] [-zip|-raw|-jpeg50|-jpeg75] DIRECTORY
//
// Lists and sorts the directory by name, then runs the loop to its end as
// the browser's idle procedure would (one entry per call), through the
// cache when one is given.  Prints the entries handled, the thumbnails made
// and read from the cache, and the seconds taken.  -threads -1 (the
// default) uses one decoding worker per processor, 0 none.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "browser/cache_db.h"
#include "browser/filelist.h"
#include "browser/thumb_queue.h"

using namespace quilla;

int main(int argc, char **argv) {
  int threads = -1, mode = kViewIcons, cache_mode = kCacheZip;
  int width = 92, height = 69;
  std::string cache_dir, dir;
  for (int k = 1; k < argc; ++k) {
    const std::string a = argv[k];
    if (a == "-threads" && k + 1 < argc) threads = std::atoi(argv[++k]);
    else if (a == "-cache" && k + 1 < argc) cache_dir = argv[++k];
    else if (a == "-mode" && k + 1 < argc) mode = std::atoi(argv[++k]);
    else if (a == "-size" && k + 1 < argc) std::sscanf(argv[++k], "%dx%d", &width, &height);
    else if (a == "-raw") cache_mode = kCacheRaw;
    else if (a == "-zip") cache_mode = kCacheZip;
    else if (a == "-jpeg50") cache_mode = kCacheJpegLow;
    else if (a == "-jpeg75") cache_mode = kCacheJpegHigh;
    else dir = a;
  }
  if (dir.empty()) {
    std::fprintf(stderr, "usage: thumbloop [-threads N] [-cache DIR] [-mode M] [-size WxH] [-zip|-raw|-jpeg50|-jpeg75] DIRECTORY\n");
    return 2;
  }
  tslInitLibrary();
  const auto start = std::chrono::steady_clock::now();
  FileList list;
  if (!list.read(dir)) {
    std::fprintf(stderr, "thumbloop: cannot read %s\n", dir.c_str());
    return 1;
  }
  list.sort(kSortName);
  std::unique_ptr<ThumbCache> cache;
  if (!cache_dir.empty()) {
    cache.reset(new ThumbCache(cache_dir));
    cache->configure(true, cache_mode);
    cache->setThumbnailSize(width, height);
    cache->open(false);
    cache->setDirectory(list.directory());
  }
  ThumbLoop loop(&list, cache.get(), threads);
  ThumbSettings settings;
  settings.view_mode = mode;
  settings.width = width;
  settings.height = height;
  loop.start(settings);
  int handled = 0, made = 0, cached = 0;
  for (;;) {
    ThumbStep step = loop.step();
    if (step.finished) break;
    ++handled;
    if (step.hasPicture()) ++(step.from_cache ? cached : made);
  }
  if (cache) cache->close();  // as quitting would: the header counts are written
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf("entries %d made %d cached %d workers %d seconds %.3f\n", handled, made, cached, loop.threads(), seconds);
  tslExitLibrary();
  return 0;
}
