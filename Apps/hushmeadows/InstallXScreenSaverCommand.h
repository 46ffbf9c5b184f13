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

} // namespace hushmeadows
