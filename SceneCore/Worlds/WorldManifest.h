#pragma once

#include "SceneCore/Runtime/EnumNames.h"
#include "SceneCore/Sound/MusicStyle.h"
#include "SceneCore/Worlds/DayPhase.h"
#include "SceneCore/Worlds/WorldTheme.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace hushmeadows {

// A point of the picture in fractions of its size; y counts from the top.
struct UnitPoint {
    double x = 0.5;
    double y = 0.5;
    bool operator==(const UnitPoint&) const = default;
    static const UnitPoint center;
};

// A size in fractions of the picture's width and height.
struct UnitSize {
    double width = 0;
    double height = 0;
    bool operator==(const UnitSize&) const = default;
};

enum class WorldKind { pixel, voxel };

// The decoded world.json of a package. Keys that identify a world decode
// strictly; later additions decode tolerantly (a malformed value counts as
// absent). Validation against the package folder is WorldPackage's work.
struct WorldManifest {
    enum class Scaling { aspectFill, aspectFit };

    struct Visual {
        std::string file;
        std::optional<std::string> poster;
        bool pixelArt = true;
        Scaling scaling = Scaling::aspectFill;
        UnitPoint focus = UnitPoint::center;
        UnitSize safeArea{0.8, 0.8};
        std::vector<std::string> variations;
        bool protectsSafeArea = false;
        std::optional<std::string> matte;

        struct RGB {
            double red = 0;
            double green = 0;
            double blue = 0;
            bool operator==(const RGB&) const = default;
        };

        bool operator==(const Visual&) const = default;

        // matte is exactly "auto".
        bool matteIsAuto() const;
        // matte is "#" and six hexadecimal digits: each channel over 255.
        std::optional<RGB> matteComponents() const;
        bool hasMatte() const { return matteIsAuto() || matteComponents().has_value(); }
    };

    struct Track {
        std::string file;
        double defaultVolume = 0;
        std::optional<MusicStyle> style;
        bool operator==(const Track&) const = default;
    };

    struct Audio {
        std::optional<Track> music;
        std::optional<Track> ambience;
        bool operator==(const Audio&) const = default;
    };

    // Another day phase's description. Absent fields inherit the base's.
    struct Version {
        Visual visual;
        std::optional<Audio> audio;
        std::optional<WorldTheme> theme;
        std::optional<std::string> subtitle;
        std::optional<std::vector<std::string>> tags;
        bool operator==(const Version&) const = default;
    };

    std::int64_t formatVersion = 1;
    std::string id;
    std::string name;
    std::optional<std::string> subtitle;
    std::vector<std::string> tags;
    Visual visual;
    Audio audio;
    std::optional<WorldTheme> theme;
    std::optional<DayPhase> timeOfDay;
    std::map<DayPhase, Version> versions;
    WorldKind kind = WorldKind::pixel;

    bool operator==(const WorldManifest&) const = default;

    struct FormatVersionRange {
        std::int64_t lowerBound;
        std::int64_t upperBound;
        constexpr bool contains(std::int64_t v) const { return v >= lowerBound && v <= upperBound; }
    };
    static constexpr FormatVersionRange supportedFormatVersions{1, 1};

    // Decodes world.json text; throws DecodingError.
    static WorldManifest decode(std::string_view data);
    static WorldManifest fromJson(const nlohmann::json& value);
    nlohmann::json toJson() const;
    std::string encode() const;

    // The description for a phase: the base unless a version stands in for it.
    WorldManifest applyingVersion(DayPhase phase) const;
};

template <>
std::optional<WorldManifest::Scaling> fromRawValue<WorldManifest::Scaling>(std::string_view text);
template <>
std::optional<WorldKind> fromRawValue<WorldKind>(std::string_view text);
std::string_view rawValue(WorldManifest::Scaling scaling);
std::string_view rawValue(WorldKind kind);

// Encoders and decoders of the nested records, for other readers of the same
// shapes (settings, tests).
namespace manifest_json {
WorldManifest::Visual decodeVisual(const nlohmann::json& value, const std::vector<std::string>& path);
WorldManifest::Audio decodeAudio(const nlohmann::json& value, const std::vector<std::string>& path);
WorldManifest::Track decodeTrack(const nlohmann::json& value, const std::vector<std::string>& path);
WorldManifest::Version decodeVersion(const nlohmann::json& value, const std::vector<std::string>& path);
nlohmann::json encode(const WorldManifest::Visual& visual);
nlohmann::json encode(const WorldManifest::Audio& audio);
nlohmann::json encode(const WorldManifest::Track& track);
nlohmann::json encode(const WorldManifest::Version& version);
} // namespace manifest_json

} // namespace hushmeadows
