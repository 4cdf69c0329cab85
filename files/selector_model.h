// The toolkit-free half of the file selector and the format list: list
// lines, directory reading, the path rules, the recent-directory list, path
// completion, the file-type choices and the format table's lines.
#ifndef QUILLA_FILES_SELECTOR_MODEL_H
#define QUILLA_FILES_SELECTOR_MODEL_H

#include <ctime>
#include <cstdint>
#include <string>
#include <vector>

#include "core/settings.h"

namespace quilla {

// Selector mode bits.
constexpr int kSelectorNoOverwriteQuestion = 1;
constexpr int kSelectorSave = 4;
constexpr int kSelectorDirectory = 16;

// Only save mode without bit 1 asks before replacing a file.
inline bool SelectorAsksOverwrite(int mode) {
  return (mode & kSelectorSave) != 0 && (mode & kSelectorNoOverwriteQuestion) == 0;
}

// Kinds of directory entries.  Character and block devices (kinds 2 and 3)
// carry three numbers: the major and minor device numbers and the link count.
enum SelectorEntryKind { kEntryFile = 0, kEntryDirectory = 1, kEntryCharDevice = 2, kEntryBlockDevice = 3,
                         kEntryLink = 4 };

struct SelectorEntry {
  std::string name;
  int kind = kEntryFile;
  int64_t size = 0;
  bool has_time = false;
  time_t mtime = 0;
  bool has_numbers = false;
  int numbers[3] = {0, 0, 0};
};

// One line of the file list, the time as day/month/two-digit year and
// hours:minutes in local time.
std::string SelectorListLine(const SelectorEntry &entry);

// A directory's entries split into sub-directories (".." first unless at
// "/", then by name; links to directories count as directories) and the
// other entries by name.  Names starting with "." are left out, except "..".
// False when the directory cannot be read.
bool ReadSelectorDirectory(const std::string &dir, std::vector<SelectorEntry> *dirs,
                           std::vector<SelectorEntry> *files);

// The automounter prefix: a path starting with "/tmp_mnt/" loses its first
// eight characters.
std::string StripAutomountPrefix(const std::string &path);

// `path` made absolute against `current` ("~" and "~/..." use HOME), with
// "." and ".." steps and repeated "/" removed.  "/" stays "/".
std::string AbsoluteSelectorPath(const std::string &path, const std::string &current);

// Where a path leads the selector: its directory and the file name for the
// path field.
struct SelectorPlace {
  std::string dir;
  std::string file;
};
// The rules for setting the directory from a path: empty means `last`
// (else `start`); the automounter prefix goes; a path that does not exist
// falls back to `start`; a path that is not a directory is split at its
// last "/" into the directory and the file name.  Relative paths are taken
// against `current`.
SelectorPlace ResolveSelectorPlace(const std::string &path, const std::string &current, const std::string &last,
                                   const std::string &start);

// The ancestors of an absolute directory, itself first and "/" last.
std::vector<std::string> AncestorDirectories(const std::string &dir);

// The recent-directory list kept in the File.DirName_* settings: `dir`
// moves to the front, a copy further down goes, the oldest falls off the
// tenth place.  Empty entries are skipped when read.
void RememberDirectory(SettingsRecord *settings, const std::string &dir);
std::vector<std::string> RecentDirectories(const SettingsRecord &settings);

// Completes `typed` as a shell does: the last path component against the
// names of its directory (taken against `current`).  One match gives the
// name, with "/" after a directory; several give their longest common
// prefix; none leave the text as it was.  Names starting with "." match only
// a prefix that starts with ".".  Returns the completed text; *matches gets
// how many names matched.
std::string CompleteSelectorPath(const std::string &typed, const std::string &current, int *matches);

// The file types of the selector's combo box: "All files" and then one
// entry per library format that reads (open) or writes (save), by short name.
struct FileTypeChoice {
  int format = -1;  // -1: every file
  std::string label;
};
// For opening, `recognised` (the settings' file-type table) leaves out the
// formats switched off there.
std::vector<FileTypeChoice> SelectorFileTypes(bool for_save, const SettingsRecord *recognised = nullptr);
// The choice of the combo box to preselect for a format short name
// (Convert.DefaultFormat); 0 when it is not among them.
int FileTypeChoiceFor(const std::vector<FileTypeChoice> &choices, const char *short_name);
// Whether a file name belongs to a format by its extension (always for -1).
bool NameMatchesFormat(const std::string &name, int format);
// The format a save writes: the one the typed name's extension names when it
// is writable, else the combo box's.
int SaveFormatFor(const std::string &typed, int combo_format);

// The format list: its header and one line per library format, sorted by
// full name unless by_id (the library's order).
std::string FormatListHeader();
std::vector<std::string> FormatListLines(bool by_id);

}  // namespace quilla

#endif
