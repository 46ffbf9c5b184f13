#include "SceneCore/Worlds/WorldLibrary.h"

#include "SceneCore/Runtime/Log.h"
#include "SceneCore/Runtime/MediaProbeCache.h"

#include <algorithm>
#include <set>

namespace hushmeadows {

namespace fs = std::filesystem;

std::string WorldLibrary::Failure::description() const
{
    return folderDisplayName(url) + ": " + error.description();
}

std::vector<fs::path> WorldLibrary::packageEntries(const fs::path& folder)
{
    std::vector<fs::path> entries;
    std::error_code error;
    fs::directory_iterator it(folder, error);
    if (error)
        return entries;
    for (const auto& entry : it) {
        if (WorldPackage::hasPackageExtension(entry.path()))
            entries.push_back(entry.path());
    }
    std::sort(entries.begin(), entries.end(), [](const fs::path& a, const fs::path& b) {
        return a.filename().string() < b.filename().string();
    });
    return entries;
}

WorldLibrary WorldLibrary::searching(const std::vector<fs::path>& folders, const MediaProbe& probe)
{
    // One scan probes each file once, however many packages link to it.
    MediaProbeCache media(probe);
    WorldLibrary library;
    std::set<std::string> seen;
    for (const auto& folder : folders) {
        for (const auto& entry : packageEntries(folder)) {
            auto package = WorldPackage::contentsOf(entry, media);
            if (!package) {
                Log::worlds.error("Skipping world %{public}s: %{private}s", entry.filename().string(), package.error().description());
                library.failures_.push_back(Failure{entry, package.error()});
                continue;
            }
            if (!seen.insert(package->id()).second)
                continue;
            library.worlds_.push_back(std::move(*package));
        }
    }
    return library;
}

std::optional<fs::path> WorldLibrary::worldsDirectory(const Bundle& bundle)
{
    if (!bundle.resourcesDirectory)
        return std::nullopt;
    return *bundle.resourcesDirectory / "Worlds";
}

WorldLibrary WorldLibrary::bundle(const Bundle& bundle, const MediaProbe& media)
{
    auto directory = worldsDirectory(bundle);
    if (!directory)
        return WorldLibrary();
    return searching({*directory}, media);
}

const WorldPackage* WorldLibrary::world(std::optional<std::string_view> id) const
{
    if (worlds_.empty())
        return nullptr;
    if (id) {
        for (const auto& package : worlds_)
            if (package.id() == *id)
                return &package;
    }
    return &worlds_.front();
}

} // namespace hushmeadows
