#pragma once

#include <string>
#include <string_view>

namespace hushmeadows {

// Text as it may reach a terminal: control characters (C0, DEL and the C1
// range) become visible escapes such as "\n" or "\x1b", so a folder name or a
// manifest text can neither forge a line nor drive the terminal.
std::string printable(std::string_view text);

// printable(text), cut to at most `limit` bytes with "…" when longer: a
// refused value is shown on one short line, never in full.
std::string printableExcerpt(std::string_view text, std::size_t limit = 60);

} // namespace hushmeadows
