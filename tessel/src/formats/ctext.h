// Helpers for the picture formats written as C source (XBM, XPM).
#ifndef TESSEL_SRC_FORMATS_CTEXT_H
#define TESSEL_SRC_FORMATS_CTEXT_H

#include <cstdio>
#include <string>

namespace tessel {

// A C identifier made from the base name of the file being written (without
// its extension, other characters turned into '_'), or `fallback` when the
// name cannot be found.
std::string identifierForFile(FILE *file, const char *fallback);

// Turns any text into a C identifier.
std::string sanitizeIdentifier(const std::string &text, const char *fallback);

}  // namespace tessel

#endif
