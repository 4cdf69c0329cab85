// Command lines handed to /bin/sh.  The user's own commands (the web
// browser from WEBBROWSER) are used as written; every name the program puts
// after them is quoted, so that no file name, title or address can end the
// command or start another.  Toolkit-free.
#ifndef QUILLA_CORE_SHELL_COMMAND_H
#define QUILLA_CORE_SHELL_COMMAND_H

#include <string>

namespace quilla {

// `text` as one shell word: in single quotes, each quote written '\''.
std::string ShellQuote(const std::string &text);

// The web browser's command: the value of WEBBROWSER when set and not
// empty, else "netscape".
std::string WebBrowserCommand();

// "<browser> '<address>' &", or with `mail`
// "<browser> -remote 'mailto(<address>)' &": run in the background.
std::string BrowserLaunchLine(const std::string &browser, const std::string &address, bool mail);

}  // namespace quilla

#endif
