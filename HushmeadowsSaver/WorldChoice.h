#pragma once

#include "SceneCore/Runtime/MediaProbe.h"
#include "SceneCore/Settings/Environment.h"
#include "SceneCore/Settings/HushmeadowsSettings.h"
#include "SceneCore/Worlds/WorldCatalog.h"
#include "SceneCore/Worlds/WorldLibrary.h"
#include "SceneCore/Worlds/WorldPackage.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace hushmeadows {

// The result of choosing what to show: the library, the catalogue found
// beside the worlds, the world (if any) and where it came from: "direct",
// "appStore", "fallback" or "none".
struct WorldChoice {
    WorldLibrary library;
    std::optional<WorldCatalog> catalog;
    std::optional<WorldPackage> world;
    std::string source = "none";
};

// Worlds folders in precedence order, each with the source word of the worlds
// it holds. The first folder that has a catalog.json gives the catalogue.
struct WorldsFolder {
    std::filesystem::path path;
    std::string source;
};

// The worlds folders of a Linux installation, in precedence order: the user's
// $XDG_DATA_HOME/hushmeadows/Worlds, each $XDG_DATA_DIRS entry's
// hushmeadows/Worlds (by default /usr/local/share and /usr/share), all with the
// source "direct", then the program's own bundled folder, "fallback".
std::vector<WorldsFolder> linuxWorldsFolders(const Environment& environment, const std::optional<std::filesystem::path>& bundledWorlds);

// Builds the library from the folders in order and picks the settings'
// selectedWorldID when that world is found, else the first world.
WorldChoice chooseWorld(const HushmeadowsSettings& settings, const std::vector<WorldsFolder>& folders, const MediaProbe& media);

} // namespace hushmeadows
