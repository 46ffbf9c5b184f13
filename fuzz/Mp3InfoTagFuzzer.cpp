// The Xing header and LAME tag of untrusted MP3 files, and the ID3v2 size
// before them.
// fuzz-sources: Platforms/Linux/Mp3InfoTag.cpp
#include "Platforms/Linux/Mp3InfoTag.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string_view bytes(reinterpret_cast<const char*>(data), size);
    if (hushmeadows::Mp3InfoTag::audioStart(bytes.substr(0, 10)) > (1u << 28) + 20)
        __builtin_trap();
    auto tag = hushmeadows::Mp3InfoTag::parse(bytes);
    if (tag && (tag->sampleRate < 8000 || tag->sampleRate > 48000 || tag->channelCount < 1 || tag->channelCount > 2 || tag->lengthFrames < 1))
        __builtin_trap();
    return 0;
}
