#include "SceneCore/Sound/StudioMusic.h"

#include "SceneCore/Runtime/JsonReader.h"
#include "SceneCore/Runtime/FileAccess.h"
#include "SceneCore/Runtime/Log.h"
#include "SceneCore/Runtime/PathContainment.h"

#include <mutex>

namespace hushmeadows {

namespace fs = std::filesystem;

fs::path StudioMusic::overlayRoot(const fs::path& worldsDirectory)
{
    fs::path directory = worldsDirectory;
    if (!directory.has_filename())
        directory = directory.parent_path();
    return directory.parent_path() / folderName;
}

std::optional<StudioMusic> StudioMusic::load(const std::string& worldID, const fs::path& worldsDirectory, const MediaProbe& media)
{
    fs::path root = overlayRoot(worldsDirectory);
    fs::path folder = root / worldID;
    fs::path manifestURL = folder / manifestFileName;
    std::error_code error;
    if (!fs::exists(manifestURL, error))
        return std::nullopt;

    auto text = readSmallFile(manifestURL, manifestSizeLimit);
    std::optional<Manifest> manifest;
    if (text) {
        try {
            manifest = Manifest::decode(text.text);
        } catch (const DecodingError&) {
        }
    }
    if (!manifest) {
        Log::audio.error("Studio music for %{public}s: studio.json is unreadable; using Classic", worldID);
        return std::nullopt;
    }
    if (manifest->formatVersion != 1 || manifest->world != worldID || (manifest->style && *manifest->style != "studio")) {
        Log::audio.error("Studio music for %{public}s: studio.json doesn't match this world or format; using Classic", worldID);
        return std::nullopt;
    }

    fs::path resolvedRoot = resolvedPath(root);
    fs::path resolvedFolder = resolvedPath(folder);
    if (!isPathInside(resolvedFolder, resolvedRoot)) {
        Log::audio.error("Studio music for %{public}s: its folder links outside the overlay; using Classic", worldID);
        return std::nullopt;
    }

    StudioMusic studio;
    studio.worldID = worldID;
    studio.folderURL = folder;
    for (const auto& [key, track] : manifest->tracks) {
        fs::path file = resolvedPath(folder / track.file);
        std::optional<AudioFileInfo> info;
        if (isPathInside(file, resolvedFolder) && fs::is_regular_file(file, error)) {
            auto opened = media.audioFileInfo(file);
            if (opened)
                info = *opened;
        }
        bool usable = info && info->lengthFrames >= 1 && info->sampleRate > 0
            && static_cast<double>(info->lengthFrames) / info->sampleRate > 0
            && (!track.frames || *track.frames == info->lengthFrames);
        if (!usable) {
            Log::audio.error("Studio music for %{public}s: the %{public}s track is missing, unreadable or not the expected file", worldID, key);
            return std::nullopt;
        }
        studio.tracks[key] = file;
        std::vector<std::int64_t> entries;
        for (auto frame : track.entryPoints)
            if (frame >= 0 && frame < info->lengthFrames)
                entries.push_back(frame);
        studio.entryPoints[file] = std::move(entries);
    }
    return studio;
}

namespace {
// Both kept for the life of the process: background loads use them until it ends.
std::mutex& cacheMutex()
{
    static auto* mutex = new std::mutex;
    return *mutex;
}
std::map<std::string, std::optional<StudioMusic>>& cache()
{
    static auto* entries = new std::map<std::string, std::optional<StudioMusic>>;
    return *entries;
}
} // namespace

std::optional<StudioMusic> StudioMusic::load(const WorldPackage& world, const MediaProbe& media)
{
    {
        std::lock_guard lock(cacheMutex());
        if (auto it = cache().find(world.id()); it != cache().end())
            return it->second;
    }
    auto studio = load(world.id(), world.rootURL().parent_path(), media);
    std::lock_guard lock(cacheMutex());
    cache().emplace(world.id(), studio);
    return studio;
}

void StudioMusic::clearCache()
{
    std::lock_guard lock(cacheMutex());
    cache().clear();
}

std::optional<fs::path> StudioMusic::url(std::optional<DayPhase> phase) const
{
    if (phase) {
        auto it = tracks.find(*phase == DayPhase::night ? "night" : "day");
        if (it != tracks.end())
            return it->second;
    }
    if (auto it = tracks.find("main"); it != tracks.end())
        return it->second;
    return std::nullopt;
}

} // namespace hushmeadows
