#include "Apps/hushmeadows/CheckCommand.h"

#include "Apps/hushmeadows/CommandOptions.h"
#include "Apps/hushmeadows/HelpText.h"
#include "Platforms/Linux/FFmpegAudioFile.h"
#include "Platforms/Linux/FFmpegImageDecoder.h"
#include "SceneCore/Runtime/Log.h"
#include "SceneCore/Runtime/PrintableText.h"
#include "SceneCore/Worlds/WorldLibrary.h"
#include "SceneCore/Worlds/WorldPackage.h"

#include <filesystem>
#include <map>
#include <optional>
#include <tuple>

namespace hushmeadows {

namespace fs = std::filesystem;

namespace {

constexpr const char* usage = HelpText::check;

void printLine(std::FILE* out, const std::string& folder, const std::string& text)
{
    std::fprintf(out, "%s: %s\n", printable(folder).c_str(), printable(text).c_str());
    std::fflush(out);
}

// What playback meets after the video: the poster decoded whole and the
// first second of each sound, as the saver would read them.
std::expected<void, WorldPackageError> verifyPlayback(const WorldPackage& package)
{
    const auto& manifest = package.manifest();
    if (auto poster = package.posterURL(); poster && !FFmpegImageDecoder().decode(*poster, PixelFormat::bgra8))
        return std::unexpected(WorldPackageError::undecodableResource("visual.poster", *manifest.visual.poster,
                                                                      std::string(WorldPackageError::unreadableImageReason)));
    const std::tuple<const char*, std::optional<fs::path>, const std::optional<WorldManifest::Track>&> sounds[] = {
        {"audio.music.file", package.musicURL(), manifest.audio.music},
        {"audio.ambience.file", package.ambienceURL(), manifest.audio.ambience},
    };
    for (const auto& [field, url, track] : sounds) {
        if (!url)
            continue;
        auto unreadable = [&] {
            return std::unexpected(WorldPackageError::undecodableResource(field, track->file, std::string(WorldPackageError::unreadableAudioReason)));
        };
        constexpr double rate = 48000;
        auto file = FFmpegAudioFile::open(*url, rate);
        if (!file)
            return unreadable();
        auto second = PCMBuffer::make((*file)->processingFormat(), static_cast<std::uint32_t>(rate));
        if (!second || !(*file)->read(*second) || second->frameLength() == 0)
            return unreadable();
    }
    return {};
}

} // namespace

int runCheckCommand(const std::vector<std::string>& arguments, const MediaProbe& media, std::FILE* out, std::FILE* err)
{
    bool verifyMedia = false;
    std::vector<fs::path> paths;
    for (const auto& argument : arguments) {
        if (argument == "--media") {
            verifyMedia = true;
        } else if (argument == "--help" || argument == "-h") {
            std::fputs(usage, out);
            return 0;
        } else if (isOptionWord(argument)) {
            std::fprintf(err, "hushmeadows check: unknown option %s\n%s", printableExcerpt(argument).c_str(), usage);
            return 2;
        } else {
            paths.emplace_back(argument);
        }
    }
    if (paths.empty()) {
        std::fputs(usage, err);
        return 2;
    }

    // An author checks their own files: show the texts behind skipped
    // versions and variations instead of "<private>".
    Log::setRevealsPrivate(true);

    bool anyFailed = false;
    std::map<std::string, std::string> firstFolderById;

    auto checkPackage = [&](const fs::path& folder) {
        std::string name = folderDisplayName(folder);
        auto package = WorldPackage::contentsOf(folder, media);
        if (!package) {
            anyFailed = true;
            std::fprintf(out, "%s\n", printable(WorldLibrary::Failure{folder, package.error()}.description()).c_str());
            std::fflush(out);
            return;
        }
        auto [first, inserted] = firstFolderById.emplace(package->id(), name);
        if (!inserted) {
            // The library keeps the first package with an id; this one would never show.
            anyFailed = true;
            printLine(out, name, "dropped: id " + package->id() + " is already loaded from " + first->second);
            return;
        }
        if (verifyMedia) {
            auto verified = package->verifyMedia(media);
            if (verified)
                verified = verifyPlayback(*package);
            if (!verified) {
                anyFailed = true;
                printLine(out, name, verified.error().description());
                return;
            }
        }
        printLine(out, name, "ok");
    };

    for (const auto& path : paths) {
        if (WorldPackage::hasPackageExtension(path)) {
            checkPackage(path);
            continue;
        }
        std::error_code error;
        if (!fs::is_directory(path, error)) {
            anyFailed = true;
            std::fprintf(err, "hushmeadows check: %s is not a folder\n", printable(path.string()).c_str());
            continue;
        }
        auto entries = WorldLibrary::packageEntries(path);
        if (entries.empty())
            std::fprintf(err, "hushmeadows check: no world packages in %s\n", printable(path.string()).c_str());
        for (const auto& entry : entries)
            checkPackage(entry);
    }
    return anyFailed ? 1 : 0;
}

} // namespace hushmeadows
