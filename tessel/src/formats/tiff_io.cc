// Client procedures and message handlers for libtiff.
#include "tiff_io.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace tessel {
namespace {

int keepFirstError(TIFF *, void *user, const char *module, const char *fmt, va_list ap) {
  auto *m = static_cast<TiffMessages *>(user);
  if (m && !m->has) {
    char text[200];
    std::vsnprintf(text, sizeof text, fmt, ap);
    if (module && *module) std::snprintf(m->text, sizeof m->text, "%s: %s", module, text);
    else std::snprintf(m->text, sizeof m->text, "%s", text);
    m->has = true;
  }
  return 1;  // handled: libtiff's global handler stays silent
}

int dropWarning(TIFF *, void *, const char *, const char *, va_list) { return 1; }

tmsize_t memRead(thandle_t h, void *buf, tmsize_t n) {
  auto *m = static_cast<TiffMemory *>(h);
  if (n <= 0 || m->pos >= m->size) return 0;
  uint64_t k = std::min<uint64_t>(static_cast<uint64_t>(n), m->size - m->pos);
  std::memcpy(buf, m->data + m->pos, static_cast<size_t>(k));
  m->pos += k;
  return static_cast<tmsize_t>(k);
}

tmsize_t memWrite(thandle_t, void *, tmsize_t) { return -1; }

toff_t memSeek(thandle_t h, toff_t off, int whence) {
  auto *m = static_cast<TiffMemory *>(h);
  uint64_t base = whence == SEEK_CUR ? m->pos : whence == SEEK_END ? m->size : 0;
  if (off > UINT64_MAX - base) return static_cast<toff_t>(-1);
  m->pos = base + off;
  return m->pos;
}

int memClose(thandle_t) { return 0; }
toff_t memSize(thandle_t h) { return static_cast<TiffMemory *>(h)->size; }

int memMap(thandle_t h, void **base, toff_t *size) {
  auto *m = static_cast<TiffMemory *>(h);
  *base = const_cast<uint8_t *>(m->data);
  *size = m->size;
  return 1;
}

void memUnmap(thandle_t, void *, toff_t) {}

tmsize_t fdRead(thandle_t h, void *buf, tmsize_t n) {
  int fd = *static_cast<int *>(h);
  tmsize_t done = 0;
  while (done < n) {
    ssize_t k = ::read(fd, static_cast<char *>(buf) + done, static_cast<size_t>(n - done));
    if (k < 0 && errno == EINTR) continue;
    if (k <= 0) break;
    done += k;
  }
  return done;
}

tmsize_t fdWrite(thandle_t h, void *buf, tmsize_t n) {
  int fd = *static_cast<int *>(h);
  tmsize_t done = 0;
  while (done < n) {
    ssize_t k = ::write(fd, static_cast<const char *>(buf) + done, static_cast<size_t>(n - done));
    if (k < 0 && errno == EINTR) continue;
    if (k <= 0) return -1;
    done += k;
  }
  return done;
}

toff_t fdSeek(thandle_t h, toff_t off, int whence) {
  off_t r = ::lseek(*static_cast<int *>(h), static_cast<off_t>(off), whence);
  return r < 0 ? static_cast<toff_t>(-1) : static_cast<toff_t>(r);
}

toff_t fdSize(thandle_t h) {
  struct stat st;
  return ::fstat(*static_cast<int *>(h), &st) == 0 ? static_cast<toff_t>(st.st_size) : 0;
}

int noMap(thandle_t, void **, toff_t *) { return 0; }

TIFFOpenOptions *options(TiffMessages *messages, uint64_t max_alloc) {
  TIFFOpenOptions *o = TIFFOpenOptionsAlloc();
  if (!o) return nullptr;
  TIFFOpenOptionsSetErrorHandlerExtR(o, keepFirstError, messages);
  TIFFOpenOptionsSetWarningHandlerExtR(o, dropWarning, nullptr);
  if (max_alloc) TIFFOpenOptionsSetMaxSingleMemAlloc(o, static_cast<tmsize_t>(max_alloc));
  return o;
}

}  // namespace

TIFF *tiffOpenMemory(TiffMemory *mem, TiffMessages *messages, uint64_t max_alloc) {
  TIFFOpenOptions *o = options(messages, max_alloc);
  if (!o) return nullptr;
  TIFF *tif = TIFFClientOpenExt("tiff", "r", mem, memRead, memWrite, memSeek, memClose, memSize, memMap, memUnmap, o);
  TIFFOpenOptionsFree(o);
  return tif;
}

TIFF *tiffOpenWrite(int *fd, TiffMessages *messages) {
  TIFFOpenOptions *o = options(messages, 0);
  if (!o) return nullptr;
  TIFF *tif = TIFFClientOpenExt("tiff", "w", fd, fdRead, fdWrite, fdSeek, memClose, fdSize, noMap, memUnmap, o);
  TIFFOpenOptionsFree(o);
  return tif;
}

}  // namespace tessel
