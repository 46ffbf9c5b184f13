#include "SceneCore/Sound/StudioMusicManifest.h"

#include "SceneCore/Runtime/JsonReader.h"

namespace hushmeadows {

namespace {

using Path = std::vector<std::string>;

StudioMusicManifest::Track decodeTrack(const Json& value, const Path& path)
{
    JsonReader reader(value, path);
    StudioMusicManifest::Track track;
    track.file = reader.required<std::string>("file", json::string);
    track.frames = reader.optional<std::int64_t>("frames", json::integer);
    auto entries = reader.optional<std::vector<std::int64_t>>("entryPoints", [](const Json& v, const Path& p) {
        return json::array<std::int64_t>(v, p, [](const Json& e, const Path& ep) {
            JsonReader entry(e, ep);
            return entry.required<std::int64_t>("frame", json::integer);
        });
    });
    track.entryPoints = entries.value_or(std::vector<std::int64_t>{});
    return track;
}

} // namespace

StudioMusicManifest StudioMusicManifest::decode(std::string_view data)
{
    Json value = parseJson(data);
    JsonReader reader(value, {});
    StudioMusicManifest manifest;
    manifest.formatVersion = reader.required<std::int64_t>("formatVersion", json::integer);
    manifest.world = reader.required<std::string>("world", json::string);
    manifest.style = reader.optional<std::string>("style", json::string);
    manifest.tracks = reader.required<std::map<std::string, Track>>("tracks", [](const Json& v, const Path& p) {
        return json::object<Track>(v, p, decodeTrack);
    });
    return manifest;
}

Json StudioMusicManifest::toJson() const
{
    Json trackObjects = Json::object();
    for (const auto& [key, track] : tracks) {
        Json item{{"file", track.file}};
        if (track.frames)
            item["frames"] = *track.frames;
        Json entries = Json::array();
        for (auto frame : track.entryPoints)
            entries.push_back(Json{{"frame", frame}});
        item["entryPoints"] = entries;
        trackObjects[key] = item;
    }
    Json out{{"formatVersion", formatVersion}, {"world", world}, {"tracks", trackObjects}};
    if (style)
        out["style"] = *style;
    return out;
}

} // namespace hushmeadows
