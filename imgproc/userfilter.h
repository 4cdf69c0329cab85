// User-defined square convolution filters: the record, the list kept in
// ~/.quilla/udf.dat, its text format, the list operations and the filter
// itself.
#ifndef QUILLA_IMGPROC_USERFILTER_H
#define QUILLA_IMGPROC_USERFILTER_H

#include <cstdint>
#include <string>
#include <vector>

#include "imgproc/op.h"

namespace quilla {

constexpr int kUserFilterMaxSize = 7;

struct UserFilter {
  char name[32];   // at most 31 characters
  int16_t size;    // side of the matrix, 3..7
  int16_t bias;    // added after the division
  int16_t divisor; // never 0
  int16_t values[kUserFilterMaxSize * kUserFilterMaxSize];  // row by row; only size x size used
};

struct UserFilterList {
  std::string path;                // file the list is saved to
  std::vector<UserFilter> filters; // kept sorted by name when read and saved
  bool modified = false;
  int count() const { return static_cast<int>(filters.size()); }
};

// The header line the writer puts first.
extern const char kUserFilterHeader[];

// One filter line: false when the line is a comment or holds no "|".
bool ParseUserFilterLine(const char *line, UserFilter *out);
// One filter line as written, "\n" included.
std::string FormatUserFilterLine(const UserFilter &filter);

// Reads a list file (the first line is skipped, lines are read 127
// characters at a time); the filters are appended and the list sorted.
// Returns 1 when the file could be opened, else 0.
int ReadUserFilterFile(const char *path, UserFilterList *list);
// Writes the whole list to path (through a temporary file); 1 on success.
int WriteUserFilterFile(const char *path, const UserFilterList &list);

// Byte-wise order of names.
void SortUserFilters(UserFilterList *list);

// The default list: "/usr/share/Quilla/Filters/udf-def.dat", then the
// same file beside the running program (<bin>/../share/Quilla/...), so an
// installation moved elsewhere still finds it, then under the data
// directory the build was configured for.
std::vector<std::string> DefaultUserFilterPaths();

// Reads <home>/.quilla/udf.dat, else the first default list that opens; the
// user's path is kept in the list for saving.  1 when a file was read, 0 when
// none could be opened (the list is then empty).
int LoadUserFilters(const char *home, UserFilterList *list);
int LoadUserFilters(const char *home, UserFilterList *list, const std::vector<std::string> &default_paths);

// Appends a copy of `filter` named `name` (cut at 31 characters, divisor 0
// made 1); 1, or 0 when memory runs out.
int AddUserFilter(UserFilterList *list, const char *name, const UserFilter &filter);
// Overwrites the record at index (nothing happens for an index out of range).
void ReplaceUserFilter(UserFilterList *list, int index, const char *name, const UserFilter &filter);
// 1, or 0 for an index out of range.
int DeleteUserFilter(UserFilterList *list, int index);
// When modified: sorts, prints "Saving : <path>" and writes the file.  Then
// releases the records.  Returns 0 only when a write failed.
int SaveUserFilters(UserFilterList *list);

// Applies the filter with the operation conventions; status 16 as well for a
// size outside 3..7.
int ApplyUserFilter(TslPicture *src, TslPicture *dst, const OpRect *rect, const UserFilter &filter);

}  // namespace quilla

#endif
