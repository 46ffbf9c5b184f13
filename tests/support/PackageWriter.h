#pragma once

#include "tests/support/FixtureKit.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace hushmeadows::testing {

// Writes world package folders for tests: a world.json and media files copied
// in from the fixture kit.
struct PackageWriter {
    using Media = std::vector<std::pair<std::string, std::filesystem::path>>; // name in package ← source file

    // formatVersion 1, the id, a name, and visual.file "loop.mp4".
    static nlohmann::json minimalManifest(const std::string& id)
    {
        return {{"formatVersion", 1}, {"id", id}, {"name", "World " + id}, {"visual", {{"file", "loop.mp4"}}}};
    }

    // Creates parent/folderName with world.json and the media; returns the folder.
    static std::filesystem::path write(const std::filesystem::path& parent, const std::string& folderName,
                                       const nlohmann::json& manifest, const Media& media)
    {
        auto folder = parent / folderName;
        std::filesystem::create_directories(folder);
        writeText(folder / "world.json", manifest.dump(2));
        for (const auto& [name, source] : media)
            copyFile(source, folder / name);
        return folder;
    }

    // A package that loads: minimal manifest plus a real video as loop.mp4.
    static std::filesystem::path writeValid(const std::filesystem::path& parent, const std::string& folderName, const std::string& id)
    {
        return write(parent, folderName, minimalManifest(id), {{"loop.mp4", video()}});
    }
};

} // namespace hushmeadows::testing
