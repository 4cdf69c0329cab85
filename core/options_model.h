// The Options dialog as data: one row per key of the settings, saying on
// which page it is edited, by which widget, under which label, and how its
// value goes to and from the settings record as text.  Toolkit-free; the
// dialog (options_x.cc) builds its pages from this table.
#ifndef QUILLA_CORE_OPTIONS_MODEL_H
#define QUILLA_CORE_OPTIONS_MODEL_H

#include <cstdint>
#include <string>
#include <vector>

#include "core/settings.h"

namespace quilla {

enum class OptionPage {
  kStart, kView, kBrowser, kLoad, kSave, kSlide, kHtml, kContactSheet, kCache, kFile, kConvert, kProcess,
  kFileTypes,  // the library's formats, not keys of this table
  kCount
};

// The page's widget name ("PStart" ... "PCache", "PFileTypes") and title.
const char *OptionPageName(OptionPage page);
const char *OptionPageTitle(OptionPage page);

enum class OptionKind {
  kToggle,  // text "True" / "False"
  kNumber,  // decimal integer within [lo, hi]
  kReal,    // decimal number within [lo, hi] (the gamma)
  kColor,   // "#RRGGBB"
  kText,    // free text of at most max_length bytes
  kChoice,  // one of `choices`, text = the value in decimal
  kFormat,  // short name of a format the library can write
};

struct OptionChoice {
  int value;
  const char *label;
  std::string widget;  // the option menu button's name
};

struct OptionEntry {
  OptionPage page;
  std::string key;     // "Section.Key", or "Key" for the keys without a section
  std::string widget;  // the control's widget name
  std::string label;
  OptionKind kind;
  int64_t lo = 0, hi = 0;  // kNumber, kReal
  size_t max_length = 0;   // kText: the field's size less its terminator
  std::vector<OptionChoice> choices;
};

// Every key of the settings file but the file types, each once, grouped by
// page in the order the pages show them.
const std::vector<OptionEntry> &OptionTable();
// The row of `key`, or nullptr.
const OptionEntry *FindOption(const std::string &key);

// The value of the row's key in `record` as the dialog shows it.
std::string OptionValueText(SettingsRecord &record, const OptionEntry &entry);
// Parses `text` (blanks around it ignored) and stores it.  False, leaving
// the record as it was, when the text is not a value of the row's kind or
// is out of its bounds; over-long text is cut at the field's size.
bool SetOptionValue(SettingsRecord *record, const OptionEntry &entry, const std::string &text);

// The line of the file-type page for format `index`: short name and
// description.
std::string FileTypeLine(int index);

}  // namespace quilla

#endif
