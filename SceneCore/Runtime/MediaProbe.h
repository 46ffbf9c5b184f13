#pragma once

#include "SceneCore/Runtime/AudioFileInfo.h"
#include "SceneCore/Runtime/Image.h"

#include <cstdint>
#include <expected>
#include <filesystem>
#include <optional>
#include <string>

namespace hushmeadows {

// Why a video cannot be shown, in the order the probe finds out.
enum class VideoProbeFailure {
    notReadable,          // cannot be opened or its tracks cannot be read
    noVideoTrack,
    notPlayable,          // no decoder on this machine for its codec
    zeroDuration,
    cannotBeRead,         // a reader cannot be made for it
    unsupportedFormat,    // its frames cannot be converted to BGRA, or are too large; detail may say why
    decoderCouldNotStart,
    noDecodableFrames,    // the reader delivered nothing; detail may say why
};

struct VideoProbeResult {
    VideoProbeFailure failure;
    std::optional<std::string> detail; // the reader's own error text, or the frame size refused
};

// The media checks that package validation needs, each reading one local file
// only as far as it must. Implementations must never open any file other than
// the one given, nor any network location.
class MediaProbe {
public:
    virtual ~MediaProbe() = default;

    // The pixel size of the first image in the file, read from its header;
    // nothing when it is not a readable image.
    virtual std::optional<PixelSize> imagePixelSize(const std::filesystem::path& file) const = 0;

    // Opens the file as audio: its format and true length. The error is a
    // readable text when the file is not an audio file.
    virtual std::expected<AudioFileInfo, std::string> audioFileInfo(const std::filesystem::path& file) const = 0;

    // Decodes the start of the first video track; nothing when a frame came out.
    virtual std::optional<VideoProbeResult> probeVideo(const std::filesystem::path& file) const = 0;
};

} // namespace hushmeadows
