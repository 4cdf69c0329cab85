// Per-directory description files (".description"): one line per file of
// the directory, the file's name (in double quotes when written by us),
// one separator character, then the text to the end of the line.
// Toolkit-free.
#ifndef QUILLA_BROWSER_DESCRIPTIONS_H
#define QUILLA_BROWSER_DESCRIPTIONS_H

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace quilla {

// Longest file name kept in a record; longer names are cut.
constexpr size_t kDescriptionNameMax = 255;

struct DescriptionRecord {
  std::string name;                 // at most kDescriptionNameMax characters
  std::optional<std::string> text;  // none: the record writes no line
};

struct DescriptionTable {
  std::vector<DescriptionRecord> records;
};

// The description file of `dir`: dir, "/" unless dir ends with one, then
// ".description".
std::string DescriptionPath(const std::string &dir);

// Parses the content of a description file.  Lines are taken as a reader of
// at most 1023 characters a line takes them (longer lines go on as further
// lines).  A quoted name without its closing quote, or an unquoted name not
// followed by a blank or tab (an empty line, a bare name), ends the reading;
// the records before it are kept.
DescriptionTable ParseDescriptions(const std::string &content);
// Reads dir's description file; a missing file gives an empty table.
DescriptionTable LoadDescriptions(const std::string &dir);

// The text of the first record named `name` byte for byte, or nullptr.
const std::string *FindDescription(const DescriptionTable &table, const std::string &name);
// Replaces the text of the first record named `name` (none clears it), else
// appends a record.
void SetDescription(DescriptionTable *table, const std::string &name, std::optional<std::string> text);

// The file's content: one line per record with a text, "\"%s\" %s\n" when
// quoted, else "%s %s\n".
std::string FormatDescriptions(const DescriptionTable &table, bool quoted);
// Writes the table as dir's description file (through a temporary file in
// the directory, flushed and renamed into place).  False when it cannot be
// written; the old file is then untouched.
bool SaveDescriptions(const DescriptionTable &table, const std::string &dir, bool quoted);

// Carries the description of `name` from from_dir's file into to_dir's
// (copy or move of the file).  Nothing happens when it has none.  False
// only when to_dir's file could not be written.
bool CopyDescription(const std::string &from_dir, const std::string &to_dir, const std::string &name);

// The browser's save of a listed directory: every entry (name, text) that
// has a text, quoted.  When the file cannot be written, prints
// "WARNING: Can't save description..." on standard error and returns false.
bool SaveListedDescriptions(const std::string &dir,
                            const std::vector<std::pair<std::string, std::optional<std::string>>> &entries);

}  // namespace quilla

#endif
