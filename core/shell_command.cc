// Command lines handed to /bin/sh.
#include "core/shell_command.h"

#include <cstdlib>

namespace quilla {

std::string ShellQuote(const std::string &text) {
  std::string out = "'";
  for (char c : text) {
    if (c == '\'')
      out += "'\\''";
    else
      out += c;
  }
  return out + "'";
}

std::string WebBrowserCommand() {
  const char *browser = std::getenv("WEBBROWSER");
  return browser && *browser ? browser : "netscape";
}

std::string BrowserLaunchLine(const std::string &browser, const std::string &address, bool mail) {
  if (mail) return browser + " -remote " + ShellQuote("mailto(" + address + ")") + " &";
  return browser + " " + ShellQuote(address) + " &";
}

}  // namespace quilla
