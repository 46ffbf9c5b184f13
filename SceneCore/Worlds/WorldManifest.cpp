#include "SceneCore/Worlds/WorldManifest.h"

#include "SceneCore/Runtime/JsonReader.h"

namespace hushmeadows {

const UnitPoint UnitPoint::center{0.5, 0.5};

namespace {

using Path = std::vector<std::string>;

constexpr EnumNames<WorldManifest::Scaling, 2> scalingNames{{{
    {WorldManifest::Scaling::aspectFill, "aspectFill"},
    {WorldManifest::Scaling::aspectFit, "aspectFit"},
}}};
constexpr EnumNames<WorldKind, 2> kindNames{{{
    {WorldKind::pixel, "pixel"},
    {WorldKind::voxel, "voxel"},
}}};

UnitPoint decodeUnitPoint(const Json& value, const Path& path)
{
    JsonReader reader(value, path);
    return {reader.required<double>("x", json::number), reader.required<double>("y", json::number)};
}

UnitSize decodeUnitSize(const Json& value, const Path& path)
{
    JsonReader reader(value, path);
    return {reader.required<double>("width", json::number), reader.required<double>("height", json::number)};
}

WorldTheme decodeTheme(const Json& value, const Path& path) { return WorldTheme::fromJson(value, path); }

// The versions map: string keys, then only day phase names survive.
std::map<DayPhase, WorldManifest::Version> decodeVersions(const Json& value, const Path& path)
{
    auto byName = json::object<WorldManifest::Version>(value, path, manifest_json::decodeVersion);
    std::map<DayPhase, WorldManifest::Version> versions;
    for (auto& [key, version] : byName) {
        if (auto phase = DayPhase::fromRawValue(key))
            versions.emplace(*phase, std::move(version));
    }
    return versions;
}

Json encodePoint(const UnitPoint& point) { return Json{{"x", point.x}, {"y", point.y}}; }
Json encodeSize(const UnitSize& size) { return Json{{"width", size.width}, {"height", size.height}}; }

} // namespace

template <>
std::optional<WorldManifest::Scaling> fromRawValue<WorldManifest::Scaling>(std::string_view text)
{
    return scalingNames.value(text);
}

template <>
std::optional<WorldKind> fromRawValue<WorldKind>(std::string_view text)
{
    return kindNames.value(text);
}

std::string_view rawValue(WorldManifest::Scaling scaling) { return scalingNames.name(scaling); }
std::string_view rawValue(WorldKind kind) { return kindNames.name(kind); }

bool WorldManifest::Visual::matteIsAuto() const { return matte && *matte == "auto"; }

std::optional<WorldManifest::Visual::RGB> WorldManifest::Visual::matteComponents() const
{
    // Seven characters: a number sign and six digits. A seven-byte text with a
    // multi-byte character cannot parse as digits, so bytes suffice.
    if (!matte || matte->size() != 7 || (*matte)[0] != '#')
        return std::nullopt;
    auto value = parseHexUInt32(std::string_view(*matte).substr(1));
    if (!value)
        return std::nullopt;
    return RGB{static_cast<double>((*value >> 16) & 0xFF) / 255.0,
               static_cast<double>((*value >> 8) & 0xFF) / 255.0,
               static_cast<double>(*value & 0xFF) / 255.0};
}

namespace manifest_json {

WorldManifest::Visual decodeVisual(const Json& value, const Path& path)
{
    JsonReader reader(value, path);
    WorldManifest::Visual visual;
    visual.file = reader.required<std::string>("file", json::string);
    visual.poster = reader.optional<std::string>("poster", json::string);
    visual.pixelArt = reader.optional<bool>("pixelArt", json::boolean).value_or(true);
    visual.scaling = reader.optional<WorldManifest::Scaling>("scaling", json::enumeration(fromRawValue<WorldManifest::Scaling>)).value_or(WorldManifest::Scaling::aspectFill);
    visual.focus = reader.optional<UnitPoint>("focus", decodeUnitPoint).value_or(UnitPoint::center);
    visual.safeArea = reader.optional<UnitSize>("safeArea", decodeUnitSize).value_or(UnitSize{0.8, 0.8});
    visual.variations = reader.tolerant<std::vector<std::string>>("variations", json::stringArray).value_or(std::vector<std::string>{});
    visual.protectsSafeArea = reader.tolerant<bool>("protectsSafeArea", json::boolean).value_or(false);
    visual.matte = reader.tolerant<std::string>("matte", json::string);
    return visual;
}

WorldManifest::Track decodeTrack(const Json& value, const Path& path)
{
    JsonReader reader(value, path);
    WorldManifest::Track track;
    track.file = reader.required<std::string>("file", json::string);
    track.defaultVolume = reader.required<double>("defaultVolume", json::number);
    track.style = reader.tolerant<MusicStyle>("style", json::enumeration(MusicStyle::fromRawValue));
    return track;
}

WorldManifest::Audio decodeAudio(const Json& value, const Path& path)
{
    JsonReader reader(value, path);
    WorldManifest::Audio audio;
    audio.music = reader.optional<WorldManifest::Track>("music", decodeTrack);
    audio.ambience = reader.optional<WorldManifest::Track>("ambience", decodeTrack);
    return audio;
}

WorldManifest::Version decodeVersion(const Json& value, const Path& path)
{
    JsonReader reader(value, path);
    WorldManifest::Version version;
    version.visual = reader.required<WorldManifest::Visual>("visual", decodeVisual);
    version.audio = reader.tolerant<WorldManifest::Audio>("audio", decodeAudio);
    version.theme = reader.tolerant<WorldTheme>("theme", decodeTheme);
    version.subtitle = reader.tolerant<std::string>("subtitle", json::string);
    version.tags = reader.tolerant<std::vector<std::string>>("tags", json::stringArray);
    return version;
}

Json encode(const WorldManifest::Visual& visual)
{
    Json out = Json::object();
    out["file"] = visual.file;
    if (visual.poster)
        out["poster"] = *visual.poster;
    out["pixelArt"] = visual.pixelArt;
    out["scaling"] = std::string(rawValue(visual.scaling));
    out["focus"] = encodePoint(visual.focus);
    out["safeArea"] = encodeSize(visual.safeArea);
    out["variations"] = visual.variations;
    out["protectsSafeArea"] = visual.protectsSafeArea;
    if (visual.matte)
        out["matte"] = *visual.matte;
    return out;
}

Json encode(const WorldManifest::Track& track)
{
    Json out = Json::object();
    out["file"] = track.file;
    out["defaultVolume"] = track.defaultVolume;
    if (track.style)
        out["style"] = std::string(track.style->rawValue());
    return out;
}

Json encode(const WorldManifest::Audio& audio)
{
    Json out = Json::object();
    if (audio.music)
        out["music"] = encode(*audio.music);
    if (audio.ambience)
        out["ambience"] = encode(*audio.ambience);
    return out;
}

Json encode(const WorldManifest::Version& version)
{
    Json out = Json::object();
    out["visual"] = encode(version.visual);
    if (version.audio)
        out["audio"] = encode(*version.audio);
    if (version.theme)
        out["theme"] = version.theme->toJson();
    if (version.subtitle)
        out["subtitle"] = *version.subtitle;
    if (version.tags)
        out["tags"] = *version.tags;
    return out;
}

} // namespace manifest_json

WorldManifest WorldManifest::fromJson(const Json& value)
{
    JsonReader reader(value, {});
    WorldManifest manifest;
    manifest.formatVersion = reader.required<std::int64_t>("formatVersion", json::integer);
    manifest.id = reader.required<std::string>("id", json::string);
    manifest.name = reader.required<std::string>("name", json::string);
    manifest.subtitle = reader.optional<std::string>("subtitle", json::string);
    manifest.tags = reader.optional<std::vector<std::string>>("tags", json::stringArray).value_or(std::vector<std::string>{});
    manifest.visual = reader.required<Visual>("visual", manifest_json::decodeVisual);
    manifest.audio = reader.optional<Audio>("audio", manifest_json::decodeAudio).value_or(Audio{});
    manifest.theme = reader.tolerant<WorldTheme>("theme", decodeTheme);
    manifest.timeOfDay = reader.tolerant<DayPhase>("timeOfDay", json::enumeration(DayPhase::fromRawValue));
    manifest.versions = reader.tolerant<std::map<DayPhase, Version>>("versions", decodeVersions).value_or(std::map<DayPhase, Version>{});
    manifest.kind = reader.tolerant<WorldKind>("kind", json::enumeration(fromRawValue<WorldKind>)).value_or(WorldKind::pixel);
    return manifest;
}

WorldManifest WorldManifest::decode(std::string_view data)
{
    return fromJson(parseJson(data));
}

Json WorldManifest::toJson() const
{
    Json out = Json::object();
    out["formatVersion"] = formatVersion;
    out["id"] = id;
    out["name"] = name;
    if (subtitle)
        out["subtitle"] = *subtitle;
    out["tags"] = tags;
    out["visual"] = manifest_json::encode(visual);
    out["audio"] = manifest_json::encode(audio);
    if (theme)
        out["theme"] = theme->toJson();
    if (timeOfDay)
        out["timeOfDay"] = std::string(timeOfDay->rawValue());
    Json encodedVersions = Json::object();
    for (const auto& [phase, version] : versions)
        encodedVersions[std::string(phase.rawValue())] = manifest_json::encode(version);
    out["versions"] = encodedVersions;
    out["kind"] = std::string(rawValue(kind));
    return out;
}

std::string WorldManifest::encode() const { return toJson().dump(2); }

WorldManifest WorldManifest::applyingVersion(DayPhase phase) const
{
    if (!timeOfDay || *timeOfDay == phase)
        return *this;
    auto found = versions.find(phase);
    if (found == versions.end())
        return *this;
    const Version& version = found->second;
    WorldManifest result = *this;
    result.visual = version.visual;
    if (version.audio)
        result.audio = *version.audio;
    if (version.theme)
        result.theme = version.theme;
    if (version.subtitle)
        result.subtitle = version.subtitle;
    if (version.tags)
        result.tags = *version.tags;
    result.timeOfDay = phase;
    return result;
}

} // namespace hushmeadows
