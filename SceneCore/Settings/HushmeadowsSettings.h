#pragma once

#include "SceneCore/Runtime/Calendar.h"
#include "SceneCore/Runtime/EnumNames.h"
#include "SceneCore/Sound/MusicStyle.h"
#include "SceneCore/Worlds/DayPhase.h"

#include <nlohmann/json_fwd.hpp>

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// This header and its source stay within C++20 (no <expected>): the settings
// fuzzer builds them with a compiler that has nothing newer.

namespace hushmeadows {

struct WorldManifest;

// Fill the screen, or show the whole scene with margins.
enum class Framing { fill, wholeScene };

// What the companion application does when it is launched.
enum class LaunchBehavior { showWindow, enterAmbientMode };

// The companion application's sleep timer.
enum class SleepTimer { off, after15Minutes, after30Minutes, after60Minutes };

// The companion application's library tab, one per world kind.
enum class LibraryTab { pixel, voxel };

template <>
std::optional<Framing> fromRawValue<Framing>(std::string_view text);
template <>
std::optional<LaunchBehavior> fromRawValue<LaunchBehavior>(std::string_view text);
template <>
std::optional<SleepTimer> fromRawValue<SleepTimer>(std::string_view text);
template <>
std::optional<LibraryTab> fromRawValue<LibraryTab>(std::string_view text);
std::string_view rawValue(Framing value);
std::string_view rawValue(LaunchBehavior value);
std::string_view rawValue(SleepTimer value);
std::string_view rawValue(LibraryTab value);

// Which day phase the user wants to see: a fixed one, or the one the clock
// gives. A class rather than a plain enum because it carries phase(...).
class TimeOfDay {
public:
    enum Value : std::uint8_t { automatic, day, night };

    constexpr TimeOfDay(Value value) : value_(value) {}
    constexpr operator Value() const { return value_; }

    static constexpr std::array<Value, 3> allCases{automatic, day, night};

    // day and night give themselves; automatic gives night for an hour
    // (0 to 23, in the calendar) below 7 or from 19 on, else day.
    DayPhase phase(std::chrono::system_clock::time_point at, const Calendar& calendar) const;

    static std::optional<TimeOfDay> fromRawValue(std::string_view raw);
    std::string_view rawValue() const;

private:
    Value value_;
};

// The user's own levels for one world. Absent means "no level of its own for
// this world": the global volume (or the built-in level) applies.
struct WorldMix {
    std::optional<double> music;
    std::optional<double> ambience;

    bool operator==(const WorldMix&) const = default;
};

// The settings shared by the screen saver and the companion application,
// stored as Settings.json (see SettingsStore).
//
// A plain value with public fields in their file order. Every volume that is
// present lies in 0...1 and favouriteWorldIDs has no repeats; make(...),
// decode(...), normalized() and the mutators establish that. A field assigned
// directly is taken as it is until the record is next normalized (encoding
// normalizes what it writes).
//
// Effective levels. musicLevel(...) and ambienceLevel(...) give, for one
// world, the first of:
//   1. the world's own level from worldMixes (set with setMusicLevel(level, id));
//   2. the global musicVolume / ambienceVolume;
//   3. the built-in level: the world's track defaultVolume, or, for a world
//      without such a track (studio music only), the engine's resting level
//      (fallbackMusicLevel / fallbackAmbienceLevel).
// A world's level replaces the global one instead of scaling it: the slider
// the user moved for a world is then exactly the level heard, and a quiet
// world can be brought above the global level (a factor within 0...1 could
// only ever make it quieter). The global volume stays the level of every world
// the user has not tuned, and isMuted stays the master switch.
struct HushmeadowsSettings {
    std::optional<double> musicVolume;
    std::optional<double> ambienceVolume;
    bool isMuted = false;
    bool screenSaverAudioEnabled = false;
    bool screenSaverAllDisplays = false;
    std::optional<bool> screenSaverChosen;
    LaunchBehavior launchBehavior = LaunchBehavior::showWindow;
    bool pixelPerfectScaling = true;
    Framing framing = Framing::fill;
    bool showsMenuBarExtra = true;
    std::optional<std::string> selectedWorldID;
    std::map<std::string, WorldMix> worldMixes;
    std::vector<std::string> favouriteWorldIDs;
    TimeOfDay timeOfDay = TimeOfDay::automatic;
    SleepTimer sleepTimer = SleepTimer::off;
    bool welcomeSeen = false;
    std::int64_t longAmbientSessions = 0;
    bool reviewRequested = false;
    std::optional<LibraryTab> libraryTab;
    std::optional<MusicStyle> musicStyle;
    MusicStyle musicStyleDefault = MusicStyle::studio;

    bool operator==(const HushmeadowsSettings&) const = default;

    // The record with every default, built once and shared. (C++ reserves the
    // word `default`, hence the longer name.)
    static const HushmeadowsSettings& defaultSettings();

    // Every field in declaration order; applies the invariants.
    static HushmeadowsSettings make(std::optional<double> musicVolume,
                                    std::optional<double> ambienceVolume,
                                    bool isMuted,
                                    bool screenSaverAudioEnabled,
                                    bool screenSaverAllDisplays,
                                    std::optional<bool> screenSaverChosen,
                                    LaunchBehavior launchBehavior,
                                    bool pixelPerfectScaling,
                                    Framing framing,
                                    bool showsMenuBarExtra,
                                    std::optional<std::string> selectedWorldID,
                                    std::map<std::string, WorldMix> worldMixes,
                                    std::vector<std::string> favouriteWorldIDs,
                                    TimeOfDay timeOfDay,
                                    SleepTimer sleepTimer,
                                    bool welcomeSeen,
                                    std::int64_t longAmbientSessions,
                                    bool reviewRequested,
                                    std::optional<LibraryTab> libraryTab,
                                    std::optional<MusicStyle> musicStyle,
                                    MusicStyle musicStyleDefault);

    // This record with the invariants applied.
    HushmeadowsSettings normalized() const;

    // A volume kept within 0...1: at or below 0 (or not finite) gives 0,
    // above 1 gives 1.
    static double clampedVolume(double value);

    // Tolerant decoding. Throws DecodingError only when the text is not JSON
    // or its top level is not an object. Every key on its own: missing, null,
    // of the wrong type or naming no case → the key's default; unknown keys
    // are ignored. Inside worldMixes an entry that is not an object is
    // dropped, and inside favouriteWorldIDs an element that is not text is
    // dropped, so one bad item costs only itself.
    static HushmeadowsSettings decode(std::string_view json);
    static HushmeadowsSettings fromJson(const nlohmann::json& value);

    // The texts a key that holds an enumeration accepts, in case order; empty
    // for every other key.
    static std::vector<std::string_view> allowedNames(std::string_view key);

    // Encoding: every key, in declaration order, pretty printed; an absent
    // optional is written as null (decoding reads null as absent), so the
    // file always shows every setting. What is written is normalized().
    std::string encode() const;
    nlohmann::ordered_json toJson() const;

    // Effective levels for a world (see above); always within 0...1.
    static constexpr double fallbackMusicLevel = 0.5;
    static constexpr double fallbackAmbienceLevel = 0.7;
    double musicLevel(std::string_view worldID, double builtInLevel) const;
    double ambienceLevel(std::string_view worldID, double builtInLevel) const;
    // The manifest of the version that plays: its id and track volumes.
    double musicLevel(const WorldManifest& world) const;
    double ambienceLevel(const WorldManifest& world) const;

    bool isFavourite(std::string_view worldID) const;
    // Adds the world at the end of the favourites, or removes it when it is
    // one already. Returns whether it is a favourite afterwards.
    bool toggleFavourite(std::string_view worldID);

    // Without a world: the global volume. With a world: that world's own
    // level in worldMixes. The level is clamped like every volume; none clears
    // it (back to the built-in level, or for a world back to the global
    // volume), and a world left with no level of either kind loses its
    // worldMixes entry.
    void setMusicLevel(std::optional<double> level);
    void setMusicLevel(std::optional<double> level, std::string_view worldID);
    void setAmbienceLevel(std::optional<double> level);
    void setAmbienceLevel(std::optional<double> level, std::string_view worldID);
};

} // namespace hushmeadows
