// A settings record with every default, as a missing settings file gives,
// for the tests of the code that reads the settings.
#ifndef QUILLA_TESTS_DEFAULT_SETTINGS_H
#define QUILLA_TESTS_DEFAULT_SETTINGS_H

#include "core/settings.h"

namespace testutil {

struct DefaultSettings {
  quilla::SettingsRecord rec{};
  DefaultSettings() { quilla::ReadSettingsFile(&rec, "/nonexistent/.quillarc"); }
  ~DefaultSettings() { quilla::FreeFileTypes(&rec); }
  DefaultSettings(const DefaultSettings &) = delete;
  DefaultSettings &operator=(const DefaultSettings &) = delete;
};

}  // namespace testutil

#endif
