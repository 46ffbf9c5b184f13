#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace hushmeadows {

// `hushmeadows settings [--file PATH]` prints the effective settings after a
// real load of the shared file (or PATH), which sets an unreadable file aside
// exactly as the saver would. `hushmeadows settings set KEY VALUE [--file
// PATH]` changes one field and saves; an unknown key or a value the field
// cannot hold is an error and changes nothing. VALUE is JSON (true, 0.4,
// "text", null, [...]) or, failing that, plain text.
int runSettingsCommand(const std::vector<std::string>& arguments, std::FILE* out, std::FILE* err);

} // namespace hushmeadows
