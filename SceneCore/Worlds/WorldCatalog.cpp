#include "SceneCore/Worlds/WorldCatalog.h"

#include "SceneCore/Runtime/FileAccess.h"
#include "SceneCore/Runtime/JsonReader.h"
#include "SceneCore/Runtime/Log.h"


namespace hushmeadows {

namespace {

using Path = std::vector<std::string>;

// Collections and entries are identified by a non-empty text id; anything
// without one is dropped.
std::optional<std::string> identifier(const JsonReader& reader)
{
    auto id = reader.tolerant<std::string>("id", json::string);
    if (!id || id->empty())
        return std::nullopt;
    return id;
}

std::optional<WorldCatalog::Entry> decodeEntry(const Json& value, const Path& path)
{
    if (!value.is_object())
        return std::nullopt;
    JsonReader reader(value, path);
    auto id = identifier(reader);
    if (!id)
        return std::nullopt;
    WorldCatalog::Entry entry;
    entry.id = *id;
    if (auto status = reader.tolerant<std::string>("status", json::string))
        entry.status = *status == "available" ? WorldCatalog::Status::available : WorldCatalog::Status::comingSoon;
    entry.name = reader.tolerant<std::string>("name", json::string);
    return entry;
}

std::optional<WorldCatalog::Collection> decodeCollection(const Json& value, const Path& path)
{
    if (!value.is_object())
        return std::nullopt;
    JsonReader reader(value, path);
    auto id = identifier(reader);
    if (!id)
        return std::nullopt;
    WorldCatalog::Collection collection;
    collection.id = *id;
    collection.name = reader.tolerant<std::string>("name", json::string).value_or(*id);
    collection.subtitle = reader.tolerant<std::string>("subtitle", json::string);
    auto worlds = value.find("worlds");
    if (worlds != value.end() && worlds->is_array()) {
        for (std::size_t i = 0; i < worlds->size(); ++i) {
            if (auto entry = decodeEntry((*worlds)[i], reader.pathWith("worlds")))
                collection.worlds.push_back(std::move(*entry));
        }
    }
    return collection;
}

} // namespace

std::string_view rawValue(WorldCatalog::Status status)
{
    return status == WorldCatalog::Status::available ? "available" : "comingSoon";
}

WorldCatalog WorldCatalog::fromJson(const Json& value)
{
    JsonReader reader(value, {});
    WorldCatalog catalog;
    catalog.formatVersion = reader.tolerant<std::int64_t>("formatVersion", json::integer).value_or(1);
    auto collections = value.find("collections");
    if (collections != value.end() && collections->is_array()) {
        for (const auto& item : *collections) {
            if (auto collection = decodeCollection(item, {"collections"}))
                catalog.collections.push_back(std::move(*collection));
        }
    }
    return catalog;
}

WorldCatalog WorldCatalog::decode(std::string_view data) { return fromJson(parseJson(data)); }

Json WorldCatalog::toJson() const
{
    Json collectionsJson = Json::array();
    for (const auto& collection : collections) {
        Json worlds = Json::array();
        for (const auto& entry : collection.worlds) {
            Json item{{"id", entry.id}, {"status", std::string(rawValue(entry.status))}};
            if (entry.name)
                item["name"] = *entry.name;
            worlds.push_back(std::move(item));
        }
        Json item{{"id", collection.id}, {"name", collection.name}, {"worlds", std::move(worlds)}};
        if (collection.subtitle)
            item["subtitle"] = *collection.subtitle;
        collectionsJson.push_back(std::move(item));
    }
    return Json{{"formatVersion", formatVersion}, {"collections", std::move(collectionsJson)}};
}

std::optional<WorldCatalog> WorldCatalog::load(const std::filesystem::path& worldsFolder)
{
    auto file = worldsFolder / fileName;
    auto text = readSmallFile(file, maximumFileSize);
    if (text.failure == FileAccess::ReadFailure::missing)
        return std::nullopt;
    if (!text) {
        Log::worlds.error("Catalog in %{public}s is unreadable or larger than 1 MB", worldsFolder.string());
        return std::nullopt;
    }
    try {
        return decode(text.text);
    } catch (const DecodingError& decodingError) {
        Log::worlds.error("Catalog in %{public}s is unreadable: %{private}s", worldsFolder.string(), decodingError.debugDescription());
        return std::nullopt;
    }
}

const WorldCatalog::Entry* WorldCatalog::entry(std::string_view worldID) const
{
    for (const auto& collection : collections)
        for (const auto& item : collection.worlds)
            if (item.id == worldID)
                return &item;
    return nullptr;
}

} // namespace hushmeadows
