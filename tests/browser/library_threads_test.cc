// The image library called from several threads at once, as the thumbnail
// workers do: every format's reader (full and reduced loads, information)
// and writer must give, on any thread, the bytes of the one-thread run.
// Built with -DQUILLA_TSAN=ON this is also the data-race check.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "test_util.h"
#include "tessel.h"

using testutil::Pic;

namespace {

struct Sample {
  std::string path;
  int format;
  uint32_t width, height;  // headerless formats need them to load
  int pages;
};

// The result of the calls a worker makes on one file.
struct Outcome {
  int code_full = -1, code_small = -1, code_info = -1, code_page = -1;
  std::string full, small, page;
  uint32_t info_w = 0, info_h = 0;
  int info_pages = 0;
};

std::string Bytes(const TslPicture &p) {
  if (!p.pixels) return "";
  std::string s(reinterpret_cast<const char *>(p.pixels), static_cast<size_t>(p.bytes_per_line) * p.height);
  s += std::to_string(p.width) + "x" + std::to_string(p.height) + "/" + std::to_string(p.color_model);
  if (p.palette) s.append(reinterpret_cast<const char *>(p.palette), 768);
  return s;
}

Outcome Exercise(const Sample &s) {
  Outcome o;
  TslParams params;
  tslDefaultParams(&params);
  params.width = static_cast<int>(s.width);
  params.height = static_cast<int>(s.height);
  params.format = s.format;
  Pic pic;
  o.code_full = tslLoad(s.path.c_str(), &pic, &params);
  o.full = Bytes(pic);
  tslFree(&pic);
  params.target_width = 24;
  params.target_height = 18;
  o.code_small = tslLoad(s.path.c_str(), &pic, &params);
  o.small = Bytes(pic);
  tslFree(&pic);
  if (s.pages > 1) {
    params.target_width = params.target_height = 0;
    params.page = s.pages - 1;
    o.code_page = tslLoad(s.path.c_str(), &pic, &params);
    o.page = Bytes(pic);
  }
  TslFileInfo info;
  o.code_info = tslFileInformation(s.path.c_str(), s.format, 0, &info);
  o.info_w = info.width;
  o.info_h = info.height;
  o.info_pages = info.pages;
  tslFileInformationFree(&info);
  return o;
}

bool Same(const Outcome &a, const Outcome &b) {
  return a.code_full == b.code_full && a.code_small == b.code_small && a.code_info == b.code_info &&
         a.code_page == b.code_page && a.full == b.full && a.small == b.small && a.page == b.page &&
         a.info_w == b.info_w && a.info_h == b.info_h && a.info_pages == b.info_pages;
}

// Pictures of every kind each writer accepts, some multi-page.
std::vector<Sample> MakeSamples(const std::string &dir) {
  std::vector<Sample> out;
  int seed = 1;
  for (int f = 0; f < tslCount(); ++f) {
    if (!tslFormatIsWritable(f) || !tslFormatIsSupported(f)) continue;
    TslFormatInfo fi;
    tslFormatGetInfo(f, &fi);
    for (const TslCapability &cap : fi.caps) {
      if (cap.kind == -1) break;
      std::vector<int> models;
      switch (cap.kind) {
        case 1: models = {TSL_BINARY}; break;
        case 2: models = {TSL_GREY}; break;
        case 4: models = {TSL_INDEXED}; break;
        default: models = {TSL_RGB, TSL_RGBA}; break;
      }
      for (int model : models) {
        const uint32_t w = cap.width > 0 ? cap.width : 97 + seed % 5, h = cap.height > 0 ? cap.height : 61 + seed % 3;
        const int colors = cap.max_colors > 0 ? std::min(cap.max_colors, 256) : 256;
        Pic pic(testutil::MakePicture(model, w, h, seed, model == TSL_INDEXED ? std::min(colors, 64) : 256));
        if (model == TSL_GREY && cap.max_colors > 0 && cap.max_colors < 256)
          for (size_t k = 0; k < static_cast<size_t>(pic->bytes_per_line) * h; ++k)
            pic->pixels[k] = pic->pixels[k] & 0x80 ? 255 : 0;
        const std::string path = dir + "/s" + std::to_string(seed++) + "." + fi.suffix;
        TslParams params;
        tslDefaultParams(&params);
        params.format = f;
        const int pages = tslFormatIsMultiPage(f) ? 3 : 1;
        if (pages > 1) {
          TslFile *file = nullptr;
          if (tslFileCreate(&file, path.c_str(), f, pages, &params) != TSL_OK) continue;
          bool ok = true;
          for (int p = 0; p < pages; ++p) {
            Pic page(testutil::MakePicture(model, w, h, seed * 10 + p, model == TSL_INDEXED ? 64 : 256));
            ok = tslFileAddPicture(file, &page, &params) == TSL_OK && ok;
          }
          if (tslFileClose(file) != TSL_OK || !ok) continue;
        } else if (tslSave(path.c_str(), &pic, &params) != TSL_OK) {
          continue;
        }
        out.push_back(Sample{path, f, w, h, pages});
      }
    }
  }
  return out;
}

}  // namespace

TEST(LibraryThreads, EveryFormatLoadsAndSavesTheSameOnManyThreads) {
  testutil::TempDir dir;
  const std::vector<Sample> samples = MakeSamples(dir.path());
  // Every writable format is represented.
  std::vector<bool> seen(tslCount(), false);
  for (const Sample &s : samples) seen[s.format] = true;
  for (int f = 0; f < tslCount(); ++f)
    EXPECT_TRUE(seen[f] || !tslFormatIsWritable(f) || !tslFormatIsSupported(f)) << tslFormatGetName(f);
  ASSERT_GT(samples.size(), 30u);

  std::vector<Outcome> reference;
  for (const Sample &s : samples) {
    reference.push_back(Exercise(s));
    ASSERT_EQ(reference.back().code_full, TSL_OK) << s.path;
  }

  // The writers too: a one-thread save of each loaded sample, which every
  // thread's save must equal byte for byte.
  auto save_copy = [&](const Sample &s, const std::string &out) {
    TslParams params;
    tslDefaultParams(&params);
    params.format = s.format;
    params.width = static_cast<int>(s.width);
    params.height = static_cast<int>(s.height);
    Pic pic;
    if (tslLoad(s.path.c_str(), &pic, &params) != TSL_OK || tslSave(out.c_str(), &pic, &params) != TSL_OK) return false;
    return true;
  };
  // (A picture its format cannot write back, such as a composited GIF
  // frame in true colour, is left out of this part.)
  std::vector<std::string> saved;
  int writable = 0;
  for (const Sample &s : samples) {
    const bool ok = save_copy(s, s.path + ".ref");
    saved.push_back(ok ? testutil::ReadFile(s.path + ".ref") : "");
    writable += ok;
  }
  EXPECT_GT(writable, static_cast<int>(samples.size()) / 2);

  constexpr int kThreads = 6;
  std::atomic<int> load_mismatches{0}, save_mismatches{0};
  std::vector<std::string> first_bad(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 3; ++round) {
        for (size_t k = 0; k < samples.size(); ++k) {
          // Each thread walks the samples from another starting point.
          const size_t i = (k * 7 + static_cast<size_t>(t) * 11 + round) % samples.size();
          if (!Same(Exercise(samples[i]), reference[i])) {
            ++load_mismatches;
            first_bad[t] = samples[i].path;
          }
          if (round != t % 3 || saved[i].empty()) continue;
          const std::string out = samples[i].path + ".t" + std::to_string(t);
          if (!save_copy(samples[i], out) || testutil::ReadFile(out) != saved[i]) {
            ++save_mismatches;
            first_bad[t] = out;
          }
        }
      }
    });
  }
  for (std::thread &th : threads) th.join();
  EXPECT_EQ(load_mismatches.load(), 0);
  EXPECT_EQ(save_mismatches.load(), 0);
  for (const std::string &bad : first_bad) EXPECT_EQ(bad, "");
}
