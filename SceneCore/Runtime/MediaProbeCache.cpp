#include "SceneCore/Runtime/MediaProbeCache.h"

namespace hushmeadows {

std::optional<PixelSize> MediaProbeCache::imagePixelSize(const std::filesystem::path& file) const
{
    auto found = images_.find(file);
    if (found == images_.end())
        found = images_.emplace(file, probe_.imagePixelSize(file)).first;
    return found->second;
}

std::expected<AudioFileInfo, std::string> MediaProbeCache::audioFileInfo(const std::filesystem::path& file) const
{
    auto found = sounds_.find(file);
    if (found == sounds_.end())
        found = sounds_.emplace(file, probe_.audioFileInfo(file)).first;
    return found->second;
}

// Only checked on request, never during a scan: passed through.
std::optional<VideoProbeResult> MediaProbeCache::probeVideo(const std::filesystem::path& file) const { return probe_.probeVideo(file); }

} // namespace hushmeadows
