#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace hushmeadows {

// `hushmeadows install-xscreensaver [--file PATH]`: lists this program as a
// hack in the programs: resource of ~/.xscreensaver (or PATH), keeping every
// other line as it was, and says what it did. Running it again changes
// nothing. Without a file, writes one that runs only this hack. Returns 0,
// 1 when the file cannot be read or written, 2 for a usage error.
int runInstallXScreenSaverCommand(const std::vector<std::string>& arguments, std::FILE* out, std::FILE* err);

// The text of an XScreenSaver preferences file with entry (one hack's command
// line) added at the end of its programs: list; the text itself when the
// list already holds a command line with the same program and arguments.
// A text with no programs: resource gets one.
std::string withHackListed(const std::string& text, const std::string& entry);

} // namespace hushmeadows
