#include "lazy_library.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstring>

namespace tessel {

bool LazyLibrary::open() {
  // One attempt per library and process; other threads wait for it.
  std::call_once(once_, [this] { loaded_ = load(); });
  return loaded_;
}

bool LazyLibrary::openFor(const char *files, char *message, size_t message_size) {
  if (open()) return true;
  const char *suffix = std::strstr(soname_, ".so");  // "libheif.so.1": libheif
  const int name_length = static_cast<int>(suffix ? suffix - soname_ : std::strlen(soname_));
  std::snprintf(message, message_size, "%s need %.*s, which could not be loaded (%s)", files, name_length, soname_,
                error_);
  return false;
}

bool LazyLibrary::load() {
  handle_ = dlopen(soname_, RTLD_NOW | RTLD_LOCAL);
  if (!handle_) {
    const char *why = dlerror();
    std::snprintf(error_, sizeof error_, "%s", why ? why : soname_);
    return false;
  }
  return bind_(*this);  // symbol() writes the message of a missing function
}

void *LazyLibrary::symbol(const char *name) {
  void *address = handle_ ? dlsym(handle_, name) : nullptr;
  if (!address) std::snprintf(error_, sizeof error_, "%s has no %s", soname_, name);
  return address;
}

}  // namespace tessel
