#pragma once

#include "SceneCore/Runtime/AudioFileInfo.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace hushmeadows {

// Format and length as a FLAC file's STREAMINFO block states them: a scan
// learns them from the file's first bytes without opening a decoder.
struct FlacStreamInfo {
    // Nothing when the bytes do not start a native FLAC stream or it does not
    // state its length; callers then ask FFmpeg.
    static std::optional<AudioFileInfo> parse(std::string_view head);
};

} // namespace hushmeadows
