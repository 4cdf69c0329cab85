// Codec libraries opened on the first file that needs them.
//
// libheif (with its HEVC and AV1 codecs) and libjxl (with libhwy) are large
// and run static initialisers that cost several milliseconds; a program that
// reads a JPEG should not pay for them.  Their format modules call them
// through function pointers bound here on first use instead of linking them.
#ifndef TESSEL_SRC_LAZY_LIBRARY_H
#define TESSEL_SRC_LAZY_LIBRARY_H

#include <cstddef>
#include <mutex>

namespace tessel {

// One library, named by its soname (the name the build found).  open()
// loads it and binds every symbol once per process, whatever thread asks
// first; later calls return the same answer.
class LazyLibrary {
 public:
  // `bind` sets the module's pointers with bind(); it returns false
  // when one is missing.
  constexpr LazyLibrary(const char *soname, bool (*bind)(LazyLibrary &library)) : soname_(soname), bind_(bind) {}

  // True when the library is loaded and every pointer bound.
  bool open();
  // The address of `name` in the library being bound, nullptr when missing.
  void *symbol(const char *name);
  // open(), or false with "<files> need <library>, which could not be
  // loaded (<why>)" in message.
  bool openFor(const char *files, char *message, size_t message_size);

  // Sets `*slot` to the function `name`; false when the library lacks it.
  template <typename Function>
  bool bind(const char *name, Function *slot) {
    void *address = symbol(name);
    *slot = reinterpret_cast<Function>(address);
    return address != nullptr;
  }

 private:
  bool load();

  const char *soname_;
  bool (*bind_)(LazyLibrary &library);
  void *handle_ = nullptr;
  std::once_flag once_;
  bool loaded_ = false;
  char error_[160] = {0};
};

}  // namespace tessel

// A module lists the functions it calls as FUNCTIONS(X) { X(name) ... } and,
// inside its own unnamed namespace, declares them with
//   FUNCTIONS(TESSEL_LAZY_POINTER)
// (a pointer of the same name, which the module's calls then reach instead
// of the library's symbol) and binds them with
//   bool bindAll(LazyLibrary &library) { return true FUNCTIONS(TESSEL_LAZY_BIND); }
#define TESSEL_LAZY_POINTER(name) decltype(&::name) name = nullptr;
#define TESSEL_LAZY_BIND(name) &&library.bind(#name, &name)

#endif
