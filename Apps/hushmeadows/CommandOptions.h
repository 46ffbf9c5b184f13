#pragma once

#include <string_view>

namespace hushmeadows {

// Whether a command-line word is an option rather than a name or value: it
// starts with "-" and is not "-" alone nor a negative number. So "-s" is an
// unknown option, never a world called "-s".
bool isOptionWord(std::string_view word);

} // namespace hushmeadows
