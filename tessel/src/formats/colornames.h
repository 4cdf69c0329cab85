// X11 colour-name lookup for the text picture formats.
#ifndef TESSEL_SRC_FORMATS_COLORNAMES_H
#define TESSEL_SRC_FORMATS_COLORNAMES_H

#include <cstddef>
#include <cstdint>

namespace tessel {

// Looks up an X11 colour name (case-insensitive, blanks ignored); false when unknown.
bool lookupColorName(const char *name, size_t length, uint8_t *r, uint8_t *g, uint8_t *b);

}  // namespace tessel

#endif
