// A user's ~/.xscreensaver, any bytes: adding the hack lists it, and adding
// it again changes nothing.
//
// fuzz-sources: Apps/hushmeadows/XScreenSaverPrograms.cpp

#include "Apps/hushmeadows/XScreenSaverPrograms.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::string entry = "\"Hushmeadows\" /usr/bin/hushmeadows saver --root";
    const std::string once = hushmeadows::withHackListed(text, entry);
    if (once.find(entry) == std::string::npos)
        std::abort();
    if (hushmeadows::withHackListed(once, entry) != once)
        std::abort();
    return 0;
}
