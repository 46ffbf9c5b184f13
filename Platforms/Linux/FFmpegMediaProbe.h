#pragma once

#include "SceneCore/Runtime/MediaProbe.h"

namespace hushmeadows {

// Media checks through libavformat and libavcodec. Every file is opened with
// the "file" protocol alone, through demuxers that read only that one file:
// playlists and concatenation (hls, concat, …) are refused, and no nested
// open of another file or URL is ever allowed.
class FFmpegMediaProbe final : public MediaProbe {
public:
    std::optional<PixelSize> imagePixelSize(const std::filesystem::path& file) const override;
    std::expected<AudioFileInfo, std::string> audioFileInfo(const std::filesystem::path& file) const override;
    std::optional<VideoProbeResult> probeVideo(const std::filesystem::path& file) const override;
};

} // namespace hushmeadows
