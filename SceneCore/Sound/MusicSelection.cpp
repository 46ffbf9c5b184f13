#include "SceneCore/Sound/MusicSelection.h"

#include <map>

namespace hushmeadows {

std::optional<MusicSelection::Choice> MusicSelection::choose(const WorldPackage& world, const HushmeadowsSettings& settings, DayPhase phase,
                                                             const OverlayLoader& loadOverlay)
{
    MusicStyle preferred = settings.musicStyle.value_or(settings.musicStyleDefault);
    std::optional<StudioMusic> overlay;
    if (preferred == MusicStyle::studio || !world.manifest().audio.music)
        overlay = loadOverlay(world);
    return choose(world, preferred, overlay, phase);
}

std::optional<MusicSelection::Choice> MusicSelection::choose(const WorldPackage& world, MusicStyle preferred, const std::optional<StudioMusic>& studio,
                                                             DayPhase phase)
{
    std::map<MusicStyle::Value, std::filesystem::path> table;
    if (const auto& music = world.manifest().audio.music)
        table[music->style.value_or(MusicStyle::classic)] = world.rootURL() / music->file;
    if (!table.contains(MusicStyle::studio) && studio) {
        if (auto url = studio->url(world.manifest().timeOfDay.value_or(phase)))
            table[MusicStyle::studio] = *url;
    }
    if (auto it = table.find(preferred); it != table.end())
        return Choice{it->second, preferred};
    if (auto it = table.find(preferred.other()); it != table.end())
        return Choice{it->second, preferred.other()};
    return std::nullopt;
}

} // namespace hushmeadows
