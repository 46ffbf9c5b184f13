#pragma once

#include "SceneCore/Runtime/DecodingError.h"
#include "SceneCore/Runtime/FileAccess.h"
#include "SceneCore/Runtime/MediaProbe.h"
#include "SceneCore/Worlds/DayPhase.h"
#include "SceneCore/Worlds/WorldManifest.h"
#include "SceneCore/Worlds/WorldPackageError.h"

#include <cstdint>
#include <expected>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace hushmeadows {

// One loaded, validated world package folder. A value: every media location
// is derived from rootURL on demand. A loaded package (and each copy of it)
// keeps its folder held (FileAccess::hold), so that the media opened later by
// those locations resolve inside the folder that was loaded, or not at all.
class WorldPackage {
public:
    static constexpr std::string_view fileExtension = "hushmeadow";
    // Whether the path's name ends in "." + fileExtension (case as written).
    static bool hasPackageExtension(const std::filesystem::path& path);
    static constexpr std::string_view manifestFileName = "world.json";
    static constexpr std::uintmax_t manifestSizeLimit = 1'048'576;

    // Loads and validates one folder. Versions and variations that fail are
    // dropped with a log line; anything else that fails fails the package.
    static std::expected<WorldPackage, WorldPackageError> contentsOf(const std::filesystem::path& url, const MediaProbe& media);

    // Checks a manifest against its folder, first failure wins.
    static std::expected<void, WorldPackageError> validate(const WorldManifest& manifest, const std::filesystem::path& root, const MediaProbe& media);

    // Resolves a relative path inside the package to an existing, non-empty
    // file that really lies inside it (links included), by the same rule that
    // every later open of it follows when the folder is held.
    static std::expected<std::filesystem::path, WorldPackageError> requireResource(std::string_view field, std::string_view path, const std::filesystem::path& root);

    // The variations that resolve, in manifest order, without the main video.
    static std::vector<std::string> validVariations(const WorldManifest::Visual& visual, const std::filesystem::path& root);

    // The reason text for a decoding failure of world.json.
    static std::string describe(const DecodingError& error);

    const std::filesystem::path& rootURL() const { return rootURL_; }
    const WorldManifest& manifest() const { return manifest_; }
    const std::vector<std::string>& variationFiles() const { return variationFiles_; }

    const std::string& id() const { return manifest_.id; }
    const std::string& name() const { return manifest_.name; }
    std::filesystem::path visualURL() const;
    std::vector<std::filesystem::path> videoURLs() const;
    std::optional<std::filesystem::path> posterURL() const;
    std::optional<std::filesystem::path> musicURL() const;
    std::optional<std::filesystem::path> ambienceURL() const;
    std::set<DayPhase> phases() const;
    bool hasAnySound() const;

    // The package as it looks in the given phase.
    WorldPackage version(DayPhase phase) const;

    // Decodes the start of the main video to prove that it plays here.
    // Blocking; run it off the main thread where that matters.
    std::expected<void, WorldPackageError> verifyMedia(const MediaProbe& media) const;

    // Compares the folder's path, the manifest and the variations.
    bool operator==(const WorldPackage& other) const;

    WorldPackage(std::filesystem::path rootURL, WorldManifest manifest, std::vector<std::string> variationFiles,
                 std::shared_ptr<const FileAccess::HeldFolder> folder = nullptr);

private:
    std::filesystem::path rootURL_;
    WorldManifest manifest_;
    std::vector<std::string> variationFiles_;
    std::shared_ptr<const FileAccess::HeldFolder> folder_;
};

// The description text of a failure reason for a video probe.
std::string videoProbeReason(const VideoProbeResult& result);

} // namespace hushmeadows
