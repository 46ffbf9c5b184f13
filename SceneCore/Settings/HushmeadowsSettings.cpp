#include "SceneCore/Settings/HushmeadowsSettings.h"

#include "SceneCore/Runtime/JsonReader.h"
#include "SceneCore/Worlds/WorldManifest.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <utility>

namespace hushmeadows {

namespace {

using Path = std::vector<std::string>;
using OrderedJson = nlohmann::ordered_json;

constexpr EnumNames<Framing, 2> framingNames{{{
    {Framing::fill, "fill"},
    {Framing::wholeScene, "wholeScene"},
}}};
constexpr EnumNames<LaunchBehavior, 2> launchBehaviorNames{{{
    {LaunchBehavior::showWindow, "showWindow"},
    {LaunchBehavior::enterAmbientMode, "enterAmbientMode"},
}}};
constexpr EnumNames<SleepTimer, 4> sleepTimerNames{{{
    {SleepTimer::off, "off"},
    {SleepTimer::after15Minutes, "after15Minutes"},
    {SleepTimer::after30Minutes, "after30Minutes"},
    {SleepTimer::after60Minutes, "after60Minutes"},
}}};
constexpr EnumNames<LibraryTab, 2> libraryTabNames{{{
    {LibraryTab::pixel, "pixel"},
    {LibraryTab::voxel, "voxel"},
}}};
constexpr EnumNames<TimeOfDay::Value, 3> timeOfDayNames{{{
    {TimeOfDay::automatic, "automatic"},
    {TimeOfDay::day, "day"},
    {TimeOfDay::night, "night"},
}}};

double decodeVolume(const Json& value, const Path& path)
{
    return HushmeadowsSettings::clampedVolume(json::number(value, path));
}

WorldMix decodeWorldMix(const Json& value, const Path& path)
{
    JsonReader reader(value, path);
    return WorldMix{reader.tolerant<double>("music", decodeVolume), reader.tolerant<double>("ambience", decodeVolume)};
}

// An entry that is not an object is dropped; the others stay.
std::map<std::string, WorldMix> decodeWorldMixes(const Json& value, const Path& path)
{
    if (!value.is_object())
        json::typeMismatch(path, "dictionary");
    std::map<std::string, WorldMix> mixes;
    for (auto it = value.begin(); it != value.end(); ++it) {
        if (!it.value().is_object())
            continue;
        auto childPath = path;
        childPath.push_back(it.key());
        mixes.emplace(it.key(), decodeWorldMix(it.value(), childPath));
    }
    return mixes;
}

// An element that is not text is dropped; repeats go in normalized().
std::vector<std::string> decodeIdentifiers(const Json& value, const Path& path)
{
    if (!value.is_array())
        json::typeMismatch(path, "array");
    std::vector<std::string> identifiers;
    for (const auto& element : value)
        if (element.is_string())
            identifiers.push_back(element.get<std::string>());
    return identifiers;
}

std::optional<double> clamped(std::optional<double> volume)
{
    if (!volume)
        return std::nullopt;
    return HushmeadowsSettings::clampedVolume(*volume);
}

std::vector<std::string> withoutRepeats(const std::vector<std::string>& identifiers)
{
    std::vector<std::string> kept;
    std::set<std::string_view> seen;
    kept.reserve(identifiers.size());
    for (const auto& identifier : identifiers)
        if (seen.insert(identifier).second)
            kept.push_back(identifier);
    return kept;
}

template <typename T, typename Encode>
OrderedJson orNull(const std::optional<T>& value, Encode encode)
{
    return value ? encode(*value) : OrderedJson(nullptr);
}

OrderedJson plain(double value) { return value; }
OrderedJson text(std::string_view value) { return std::string(value); }

// The effective level: the world's own, else the global one, else built in.
double effectiveLevel(const std::map<std::string, WorldMix>& mixes,
                      std::optional<double> WorldMix::*member,
                      std::optional<double> global,
                      std::string_view worldID,
                      double builtInLevel)
{
    auto mix = mixes.find(std::string(worldID));
    if (mix != mixes.end() && (mix->second.*member))
        return HushmeadowsSettings::clampedVolume(*(mix->second.*member));
    if (global)
        return HushmeadowsSettings::clampedVolume(*global);
    return HushmeadowsSettings::clampedVolume(builtInLevel);
}

void setWorldLevel(std::map<std::string, WorldMix>& mixes,
                   std::optional<double> WorldMix::*member,
                   std::optional<double> level,
                   std::string_view worldID)
{
    auto key = std::string(worldID);
    auto found = mixes.find(key);
    if (!level) {
        if (found == mixes.end())
            return;
        found->second.*member = std::nullopt;
        if (!found->second.music && !found->second.ambience)
            mixes.erase(found);
        return;
    }
    mixes[key].*member = HushmeadowsSettings::clampedVolume(*level);
}

} // namespace

template <>
std::optional<Framing> fromRawValue<Framing>(std::string_view text) { return framingNames.value(text); }
template <>
std::optional<LaunchBehavior> fromRawValue<LaunchBehavior>(std::string_view text) { return launchBehaviorNames.value(text); }
template <>
std::optional<SleepTimer> fromRawValue<SleepTimer>(std::string_view text) { return sleepTimerNames.value(text); }
template <>
std::optional<LibraryTab> fromRawValue<LibraryTab>(std::string_view text) { return libraryTabNames.value(text); }

std::string_view rawValue(Framing value) { return framingNames.name(value); }
std::string_view rawValue(LaunchBehavior value) { return launchBehaviorNames.name(value); }
std::string_view rawValue(SleepTimer value) { return sleepTimerNames.name(value); }
std::string_view rawValue(LibraryTab value) { return libraryTabNames.name(value); }

DayPhase TimeOfDay::phase(std::chrono::system_clock::time_point at, const Calendar& calendar) const
{
    switch (value_) {
    case day: return DayPhase::day;
    case night: return DayPhase::night;
    case automatic: break;
    }
    // The same hours as DayPhase: night below 7 and from 19 on.
    return DayPhase::at(at, calendar);
}

std::optional<TimeOfDay> TimeOfDay::fromRawValue(std::string_view raw)
{
    auto value = timeOfDayNames.value(raw);
    if (!value)
        return std::nullopt;
    return TimeOfDay(*value);
}

std::string_view TimeOfDay::rawValue() const { return timeOfDayNames.name(value_); }

const HushmeadowsSettings& HushmeadowsSettings::defaultSettings()
{
    // Kept for the life of the process: queues may read it until it ends.
    static const auto* shared = new HushmeadowsSettings{};
    return *shared;
}

HushmeadowsSettings HushmeadowsSettings::make(std::optional<double> musicVolume,
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
                                              MusicStyle musicStyleDefault)
{
    HushmeadowsSettings settings{
        musicVolume,
        ambienceVolume,
        isMuted,
        screenSaverAudioEnabled,
        screenSaverAllDisplays,
        screenSaverChosen,
        launchBehavior,
        pixelPerfectScaling,
        framing,
        showsMenuBarExtra,
        std::move(selectedWorldID),
        std::move(worldMixes),
        std::move(favouriteWorldIDs),
        timeOfDay,
        sleepTimer,
        welcomeSeen,
        longAmbientSessions,
        reviewRequested,
        libraryTab,
        musicStyle,
        musicStyleDefault,
    };
    return settings.normalized();
}

double HushmeadowsSettings::clampedVolume(double value)
{
    if (!std::isfinite(value) || value <= 0)
        return 0;
    return value > 1 ? 1 : value;
}

HushmeadowsSettings HushmeadowsSettings::normalized() const
{
    HushmeadowsSettings result = *this;
    result.musicVolume = clamped(musicVolume);
    result.ambienceVolume = clamped(ambienceVolume);
    for (auto& [id, mix] : result.worldMixes) {
        mix.music = clamped(mix.music);
        mix.ambience = clamped(mix.ambience);
    }
    result.favouriteWorldIDs = withoutRepeats(favouriteWorldIDs);
    return result;
}

HushmeadowsSettings HushmeadowsSettings::fromJson(const Json& value)
{
    JsonReader reader(value, {});
    const auto& d = defaultSettings();
    HushmeadowsSettings s;
    s.musicVolume = reader.tolerant<double>("musicVolume", json::number);
    s.ambienceVolume = reader.tolerant<double>("ambienceVolume", json::number);
    s.isMuted = reader.tolerant<bool>("isMuted", json::boolean).value_or(d.isMuted);
    s.screenSaverAudioEnabled = reader.tolerant<bool>("screenSaverAudioEnabled", json::boolean).value_or(d.screenSaverAudioEnabled);
    s.screenSaverAllDisplays = reader.tolerant<bool>("screenSaverAllDisplays", json::boolean).value_or(d.screenSaverAllDisplays);
    s.screenSaverChosen = reader.tolerant<bool>("screenSaverChosen", json::boolean);
    s.launchBehavior = reader.tolerant<LaunchBehavior>("launchBehavior", json::enumeration(fromRawValue<LaunchBehavior>)).value_or(d.launchBehavior);
    s.pixelPerfectScaling = reader.tolerant<bool>("pixelPerfectScaling", json::boolean).value_or(d.pixelPerfectScaling);
    s.framing = reader.tolerant<Framing>("framing", json::enumeration(fromRawValue<Framing>)).value_or(d.framing);
    s.showsMenuBarExtra = reader.tolerant<bool>("showsMenuBarExtra", json::boolean).value_or(d.showsMenuBarExtra);
    s.selectedWorldID = reader.tolerant<std::string>("selectedWorldID", json::string);
    s.worldMixes = reader.tolerant<std::map<std::string, WorldMix>>("worldMixes", decodeWorldMixes).value_or(d.worldMixes);
    s.favouriteWorldIDs = reader.tolerant<std::vector<std::string>>("favouriteWorldIDs", decodeIdentifiers).value_or(d.favouriteWorldIDs);
    s.timeOfDay = reader.tolerant<TimeOfDay>("timeOfDay", json::enumeration(TimeOfDay::fromRawValue)).value_or(d.timeOfDay);
    s.sleepTimer = reader.tolerant<SleepTimer>("sleepTimer", json::enumeration(fromRawValue<SleepTimer>)).value_or(d.sleepTimer);
    s.welcomeSeen = reader.tolerant<bool>("welcomeSeen", json::boolean).value_or(d.welcomeSeen);
    s.longAmbientSessions = reader.tolerant<std::int64_t>("longAmbientSessions", json::integer).value_or(d.longAmbientSessions);
    s.reviewRequested = reader.tolerant<bool>("reviewRequested", json::boolean).value_or(d.reviewRequested);
    s.libraryTab = reader.tolerant<LibraryTab>("libraryTab", json::enumeration(fromRawValue<LibraryTab>));
    s.musicStyle = reader.tolerant<MusicStyle>("musicStyle", json::enumeration(MusicStyle::fromRawValue));
    s.musicStyleDefault = reader.tolerant<MusicStyle>("musicStyleDefault", json::enumeration(MusicStyle::fromRawValue)).value_or(d.musicStyleDefault);
    return s.normalized();
}

HushmeadowsSettings HushmeadowsSettings::decode(std::string_view json)
{
    return fromJson(parseJson(json));
}

OrderedJson HushmeadowsSettings::toJson() const
{
    const HushmeadowsSettings s = normalized();
    OrderedJson mixes = OrderedJson::object();
    for (const auto& [id, mix] : s.worldMixes)
        mixes[id] = OrderedJson{{"music", orNull(mix.music, plain)}, {"ambience", orNull(mix.ambience, plain)}};

    OrderedJson out = OrderedJson::object();
    out["musicVolume"] = orNull(s.musicVolume, plain);
    out["ambienceVolume"] = orNull(s.ambienceVolume, plain);
    out["isMuted"] = s.isMuted;
    out["screenSaverAudioEnabled"] = s.screenSaverAudioEnabled;
    out["screenSaverAllDisplays"] = s.screenSaverAllDisplays;
    out["screenSaverChosen"] = orNull(s.screenSaverChosen, [](bool chosen) { return OrderedJson(chosen); });
    out["launchBehavior"] = text(rawValue(s.launchBehavior));
    out["pixelPerfectScaling"] = s.pixelPerfectScaling;
    out["framing"] = text(rawValue(s.framing));
    out["showsMenuBarExtra"] = s.showsMenuBarExtra;
    out["selectedWorldID"] = orNull(s.selectedWorldID, [](const std::string& id) { return OrderedJson(id); });
    out["worldMixes"] = std::move(mixes);
    out["favouriteWorldIDs"] = s.favouriteWorldIDs;
    out["timeOfDay"] = text(s.timeOfDay.rawValue());
    out["sleepTimer"] = text(rawValue(s.sleepTimer));
    out["welcomeSeen"] = s.welcomeSeen;
    out["longAmbientSessions"] = s.longAmbientSessions;
    out["reviewRequested"] = s.reviewRequested;
    out["libraryTab"] = orNull(s.libraryTab, [](LibraryTab tab) { return text(rawValue(tab)); });
    out["musicStyle"] = orNull(s.musicStyle, [](MusicStyle style) { return text(style.rawValue()); });
    out["musicStyleDefault"] = text(s.musicStyleDefault.rawValue());
    return out;
}

std::vector<std::string_view> HushmeadowsSettings::allowedNames(std::string_view key)
{
    auto names = [](const auto& table) {
        std::vector<std::string_view> result;
        for (const auto& entry : table.entries)
            result.push_back(entry.second);
        return result;
    };
    if (key == "framing")
        return names(framingNames);
    if (key == "launchBehavior")
        return names(launchBehaviorNames);
    if (key == "sleepTimer")
        return names(sleepTimerNames);
    if (key == "libraryTab")
        return names(libraryTabNames);
    if (key == "timeOfDay")
        return names(timeOfDayNames);
    if (key == "musicStyle" || key == "musicStyleDefault") {
        std::vector<std::string_view> result;
        for (auto style : MusicStyle::allCases)
            result.push_back(MusicStyle(style).rawValue());
        return result;
    }
    return {};
}

std::string HushmeadowsSettings::encode() const
{
    // Identifiers set through the mutators may hold bytes that are not UTF-8;
    // they are written with replacement characters rather than failing the save.
    return toJson().dump(2, ' ', false, OrderedJson::error_handler_t::replace) + "\n";
}

double HushmeadowsSettings::musicLevel(std::string_view worldID, double builtInLevel) const
{
    return effectiveLevel(worldMixes, &WorldMix::music, musicVolume, worldID, builtInLevel);
}

double HushmeadowsSettings::ambienceLevel(std::string_view worldID, double builtInLevel) const
{
    return effectiveLevel(worldMixes, &WorldMix::ambience, ambienceVolume, worldID, builtInLevel);
}

double HushmeadowsSettings::musicLevel(const WorldManifest& world) const
{
    const auto& track = world.audio.music;
    return musicLevel(world.id, track ? track->defaultVolume : fallbackMusicLevel);
}

double HushmeadowsSettings::ambienceLevel(const WorldManifest& world) const
{
    const auto& track = world.audio.ambience;
    return ambienceLevel(world.id, track ? track->defaultVolume : fallbackAmbienceLevel);
}

bool HushmeadowsSettings::isFavourite(std::string_view worldID) const
{
    return std::find(favouriteWorldIDs.begin(), favouriteWorldIDs.end(), worldID) != favouriteWorldIDs.end();
}

bool HushmeadowsSettings::toggleFavourite(std::string_view worldID)
{
    auto sizeBefore = favouriteWorldIDs.size();
    std::erase(favouriteWorldIDs, worldID);
    if (favouriteWorldIDs.size() != sizeBefore)
        return false;
    favouriteWorldIDs.emplace_back(worldID);
    return true;
}

void HushmeadowsSettings::setMusicLevel(std::optional<double> level) { musicVolume = clamped(level); }

void HushmeadowsSettings::setMusicLevel(std::optional<double> level, std::string_view worldID)
{
    setWorldLevel(worldMixes, &WorldMix::music, level, worldID);
}

void HushmeadowsSettings::setAmbienceLevel(std::optional<double> level) { ambienceVolume = clamped(level); }

void HushmeadowsSettings::setAmbienceLevel(std::optional<double> level, std::string_view worldID)
{
    setWorldLevel(worldMixes, &WorldMix::ambience, level, worldID);
}

} // namespace hushmeadows
