#pragma once

#include "SceneCore/Settings/HushmeadowsSettings.h"
#include "SceneCore/Sound/MusicStyle.h"
#include "SceneCore/Sound/StudioMusic.h"
#include "SceneCore/Worlds/WorldPackage.h"

#include <filesystem>
#include <functional>
#include <optional>

namespace hushmeadows {

// Which music file plays for a world, and of which style. The choice falls
// back to whatever music exists, so a world is never silent because the
// preferred kind is missing.
struct MusicSelection {
    MusicSelection() = delete;

    struct Choice {
        std::filesystem::path url;
        MusicStyle style;
        bool operator==(const Choice&) const = default;
    };

    using OverlayLoader = std::function<std::optional<StudioMusic>(const WorldPackage&)>;

    // The screen saver's entry point. `phase` is the day phase shown; the
    // world's own timeOfDay wins when the package depicts one. The overlay is
    // loaded only when it can matter: the studio style is preferred, or the
    // world has no music of its own.
    static std::optional<Choice> choose(const WorldPackage& world, const HushmeadowsSettings& settings, DayPhase phase, const OverlayLoader& loadOverlay);

    // The decision itself, over an already loaded overlay (or none).
    static std::optional<Choice> choose(const WorldPackage& world, MusicStyle preferred, const std::optional<StudioMusic>& studio, DayPhase phase);
};

} // namespace hushmeadows
