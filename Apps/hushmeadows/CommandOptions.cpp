#include "Apps/hushmeadows/CommandOptions.h"

namespace hushmeadows {

bool isOptionWord(std::string_view word)
{
    if (word.size() < 2 || word.front() != '-')
        return false;
    char next = word[1];
    return !(next == '.' || (next >= '0' && next <= '9'));
}

} // namespace hushmeadows
