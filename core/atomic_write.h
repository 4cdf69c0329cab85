// Whole-file writes that never leave a half-written file behind.
#ifndef QUILLA_CORE_ATOMIC_WRITE_H
#define QUILLA_CORE_ATOMIC_WRITE_H

#include <string>

namespace quilla {

// Writes `data` to a temporary file beside `path`, flushes it to disk and
// renames it over `path`.  On failure the temporary is removed, `path` is
// left as it was and false is returned.
bool WriteFileAtomically(const std::string &path, const std::string &data);

}  // namespace quilla

#endif
