#pragma once

#include "SceneCore/Runtime/MediaProbe.h"
#include "SceneCore/Sound/StudioMusicManifest.h"
#include "SceneCore/Worlds/DayPhase.h"
#include "SceneCore/Worlds/WorldPackage.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace hushmeadows {

// A world's studio recordings, installed beside the worlds folder in
// StudioMusic/<world id>/ with a studio.json that names them. Every check that
// fails makes the world fall back to its own music, with one log line saying
// why.
struct StudioMusic {
    static constexpr std::string_view folderName = "StudioMusic";
    static constexpr std::string_view manifestFileName = "studio.json";
    static constexpr std::uintmax_t manifestSizeLimit = 1'048'576;

    using Manifest = StudioMusicManifest;

    std::string worldID;
    std::filesystem::path folderURL;
    std::map<std::string, std::filesystem::path> tracks;
    // Per track file, the frames at which its music may begin; frames outside
    // the file are dropped.
    std::map<std::filesystem::path, std::vector<std::int64_t>> entryPoints;

    // The worlds directory's parent with "StudioMusic" appended.
    static std::filesystem::path overlayRoot(const std::filesystem::path& worldsDirectory);

    // Reads and checks one world's overlay; nothing (with a log line, unless
    // there simply is none) when it cannot be used.
    static std::optional<StudioMusic> load(const std::string& worldID, const std::filesystem::path& worldsDirectory, const MediaProbe& media);

    // The same for a loaded package, from the folder that holds it; kept in a
    // process-wide cache by world id for the life of the process (an overlay
    // changes only with an installation, which restarts the saver).
    static std::optional<StudioMusic> load(const WorldPackage& world, const MediaProbe& media);
    static void clearCache();

    // The track for the phase: "night" or "day", else "main"; none without a
    // phase falls to "main" directly.
    std::optional<std::filesystem::path> url(std::optional<DayPhase> phase) const;
};

} // namespace hushmeadows
