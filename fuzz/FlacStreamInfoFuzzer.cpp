// The STREAMINFO header of untrusted FLAC files.
// fuzz-sources: Platforms/Linux/FlacStreamInfo.cpp
#include "Platforms/Linux/FlacStreamInfo.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    auto info = hushmeadows::FlacStreamInfo::parse(std::string_view(reinterpret_cast<const char*>(data), size));
    if (info && (info->sampleRate <= 0 || info->channelCount < 1 || info->channelCount > 8 || info->lengthFrames <= 0))
        __builtin_trap();
    return 0;
}
