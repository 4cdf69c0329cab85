// Load and save contexts: pixel limit, progress and messages.
#include <cstdarg>
#include <cstdio>

#include "format.h"

namespace tessel {

LoadContext::LoadContext(const TslParams &params)
    : params_(params), max_pixels_(params.max_pixels ? params.max_pixels : tslGetMaxPixels()) {}

bool LoadContext::sizeAllowed(uint64_t width, uint64_t height) const {
  if (width == 0 || height == 0 || width > 0xffffffffu || height > 0xffffffffu) return false;
  return width * height <= max_pixels_ && width * height <= tslGetMaxPixels();
}

int LoadContext::alloc(TslPicture *picture, int color_model, uint32_t width, uint32_t height) {
  if (!sizeAllowed(width, height)) return TSL_ERR_MEMORY;
  return tslAllock(picture, color_model, 0, width, height) ? TSL_OK : TSL_ERR_MEMORY;
}

bool LoadContext::progress(uint64_t done, uint64_t total) {
  if (stopped_) return true;
  if (!params_.progress || total == 0) return false;
  int percent = static_cast<int>(done >= total ? 100 : done * 100 / total);
  if (percent == last_percent_) return false;
  last_percent_ = percent;
  if (params_.progress(0, percent, params_.progress_data)) stopped_ = true;
  return stopped_;
}

void LoadContext::setMessage(const char *format, ...) {
  va_list ap;
  va_start(ap, format);
  std::vsnprintf(message_, sizeof message_, format, ap);
  va_end(ap);
}

int LoadContext::fail(int code, const char *message) {
  if (message && message[0]) setMessage("%s", message);
  return code;
}

void SaveContext::progress(uint64_t done, uint64_t total) {
  if (!params_.progress || total == 0) return;
  int percent = static_cast<int>(done >= total ? 100 : done * 100 / total);
  if (percent == last_percent_) return;
  last_percent_ = percent;
  params_.progress(0, percent, params_.progress_data);
}

}  // namespace tessel
