#pragma once

#include "SceneCore/Runtime/MediaProbe.h"

#include <map>

namespace hushmeadows {

// A MediaProbe that asks the one it wraps at most once per file: a package's
// versions name the same poster and sounds again, and counting the length of
// a long sound can mean decoding all of it. Lives for one scan; one thread.
class MediaProbeCache final : public MediaProbe {
public:
    explicit MediaProbeCache(const MediaProbe& probe)
        : probe_(probe)
    {
    }

    std::optional<PixelSize> imagePixelSize(const std::filesystem::path& file) const override;
    std::expected<AudioFileInfo, std::string> audioFileInfo(const std::filesystem::path& file) const override;
    std::optional<VideoProbeResult> probeVideo(const std::filesystem::path& file) const override;

private:
    const MediaProbe& probe_;
    mutable std::map<std::filesystem::path, std::optional<PixelSize>> images_;
    mutable std::map<std::filesystem::path, std::expected<AudioFileInfo, std::string>> sounds_;
};

} // namespace hushmeadows
