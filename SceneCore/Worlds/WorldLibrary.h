#pragma once

#include "SceneCore/Runtime/Bundle.h"
#include "SceneCore/Runtime/MediaProbe.h"
#include "SceneCore/Worlds/WorldPackage.h"
#include "SceneCore/Worlds/WorldPackageError.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace hushmeadows {

// The world packages found in a list of folders, in scan order with unique
// ids, and the packages that failed. Built once; to see changes, build anew.
class WorldLibrary {
public:
    struct Failure {
        std::filesystem::path url;
        WorldPackageError error;
        // "FOLDER: DESCRIPTION"
        std::string description() const;
        bool operator==(const Failure&) const = default;
    };

    WorldLibrary() = default;

    // Scans the folders in order; within a folder, entries sort by name with
    // plain byte ordering. The first package with an id wins.
    static WorldLibrary searching(const std::vector<std::filesystem::path>& folders, const MediaProbe& media);

    // Scans the bundle's own worlds folder, if it has one.
    static WorldLibrary bundle(const Bundle& bundle, const MediaProbe& media);

    // The bundle's resources folder with "Worlds" appended.
    static std::optional<std::filesystem::path> worldsDirectory(const Bundle& bundle);

    // The entries of one folder that are package folders by name, sorted as a
    // scan visits them. Empty when the folder cannot be listed.
    static std::vector<std::filesystem::path> packageEntries(const std::filesystem::path& folder);

    const std::vector<WorldPackage>& worlds() const { return worlds_; }
    const std::vector<Failure>& failures() const { return failures_; }

    // The world with that id; the first world when the id is absent or
    // unknown; nothing when the library is empty.
    const WorldPackage* world(std::optional<std::string_view> id) const;

private:
    std::vector<WorldPackage> worlds_;
    std::vector<Failure> failures_;
};

} // namespace hushmeadows
