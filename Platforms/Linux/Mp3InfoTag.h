#pragma once

#include "SceneCore/Runtime/AudioFileInfo.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace hushmeadows {

// The length an MP3 file states in the Xing (or Info) header of its first
// frame, trimmed by the encoder's delay and padding from the LAME tag that
// follows it: what decoding the whole file gives, learnt from its first bytes.
struct Mp3InfoTag {
    // Where the audio begins: past an ID3v2 tag when the file starts with
    // one (its first 10 bytes say how long it is), else 0.
    static std::size_t audioStart(std::string_view first10);

    // The tag of the frame at the start of `frame`: `headBytes` more than
    // enough. Nothing when there is no layer III frame with a Xing or Info
    // header stating its frame count, or no LAME tag to trim by (a file
    // without one, or another encoder's, is counted by decoding instead).
    static std::optional<AudioFileInfo> parse(std::string_view frame);
    static constexpr std::size_t headBytes = 512;
};

} // namespace hushmeadows
