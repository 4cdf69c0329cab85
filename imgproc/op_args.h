// Catalogue operations read back from command-line words: the inverse of
// OpProcessCommandLine, shared by the converter and the batch-script reader.
#ifndef QUILLA_IMGPROC_OP_ARGS_H
#define QUILLA_IMGPROC_OP_ARGS_H

#include <string>
#include <vector>

#include "imgproc/catalogue.h"

namespace quilla {

// Parses one catalogue operation starting at args[*pos] (the option word,
// possibly preceded by its modifiers -ratio, -rtype, -dither).  Returns 1 and
// advances *pos past it, 0 when args[*pos] is no operation, -1 on a bad value
// (*error says why).
int ParseOperation(const std::vector<std::string> &args, size_t *pos, OpProcessList *list, std::string *error);

// Whether the reader takes `text` as an integer value (the optional values
// after "-dpi" are two such words).
bool IsIntegerWord(const std::string &text);

// Splits a command-line text at blanks (no quoting: the writers never quote).
std::vector<std::string> SplitWords(const std::string &text);

}  // namespace quilla

#endif
