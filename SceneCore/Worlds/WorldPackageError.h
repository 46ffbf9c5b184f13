#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace hushmeadows {

// Why a world package cannot be used. Each case describes itself with a fixed
// English sentence that world authors and logs see.
class WorldPackageError {
public:
    enum class Kind {
        notADirectory,
        manifestMissing,
        manifestUnreadable,
        unsupportedFormatVersion,
        invalidValue,
        missingResource,
        resourceOutsidePackage,
        emptyResource,
        undecodableResource,
    };

    // Reason texts that validation and loading use.
    static constexpr std::string_view idReason = "use lowercase letters, digits and hyphens";
    static constexpr std::string_view nameReason = "must not be empty";
    static constexpr std::string_view focusReason = "coordinates must be within 0...1";
    static constexpr std::string_view safeAreaReason = "fractions must be within 0.1...1";
    static constexpr std::string_view volumeReason = "must be within 0...1";
    static constexpr std::string_view relativePathReason = "must be a relative path inside the package";
    static constexpr std::string_view unreadableImageReason = "not a readable image";
    static constexpr std::string_view unreadableAudioReason = "not a readable audio file";
    static constexpr std::string_view noAudioReason = "contains no audio";
    static constexpr std::string_view manifestSizeReason = "world.json is missing, unreadable or larger than 1 MB";

    static WorldPackageError notADirectory(std::filesystem::path folder);
    static WorldPackageError manifestMissing(std::filesystem::path folder);
    static WorldPackageError manifestUnreadable(std::filesystem::path folder, std::string reason);
    static WorldPackageError unsupportedFormatVersion(std::int64_t version);
    static WorldPackageError invalidValue(std::string field, std::string reason);
    static WorldPackageError missingResource(std::string field, std::string path);
    static WorldPackageError resourceOutsidePackage(std::string field, std::string path);
    static WorldPackageError emptyResource(std::string field, std::string path);
    static WorldPackageError undecodableResource(std::string field, std::string path, std::string reason);

    Kind kind() const { return kind_; }
    const std::filesystem::path& folder() const { return folder_; }
    const std::string& field() const { return field_; }
    const std::string& path() const { return path_; }
    const std::string& reason() const { return reason_; }
    std::int64_t formatVersion() const { return formatVersion_; }

    std::string description() const;

    bool operator==(const WorldPackageError&) const = default;

private:
    explicit WorldPackageError(Kind kind) : kind_(kind) {}

    Kind kind_;
    std::filesystem::path folder_;
    std::string field_;
    std::string path_;
    std::string reason_;
    std::int64_t formatVersion_ = 0;
};

// The folder's own name (its last path component), as messages show it.
std::string folderDisplayName(const std::filesystem::path& folder);

} // namespace hushmeadows
