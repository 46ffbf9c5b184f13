#include "Apps/hushmeadows/CheckCommand.h"

#include "Apps/hushmeadows/CommandOptions.h"
#include "Apps/hushmeadows/PrintableText.h"
#include "SceneCore/Runtime/Log.h"
#include "SceneCore/Worlds/WorldLibrary.h"
#include "SceneCore/Worlds/WorldPackage.h"

#include <filesystem>
#include <map>
#include <optional>

namespace hushmeadows {

namespace fs = std::filesystem;

namespace {

constexpr const char* usage = "usage: hushmeadows check [--media] PATH...\n"
                              "  PATH ending in .hushmeadow: check that package; any other folder: check every package in it\n"
                              "  --media  also decode the start of each package's video\n";

void printLine(std::FILE* out, const std::string& folder, const std::string& text)
{
    std::fprintf(out, "%s: %s\n", printable(folder).c_str(), printable(text).c_str());
    std::fflush(out);
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
            if (auto verified = package->verifyMedia(media); !verified) {
                anyFailed = true;
                printLine(out, name, verified.error().description());
                return;
            }
        }
        printLine(out, name, "ok");
    };

    for (const auto& path : paths) {
        if (path.extension() == "." + std::string(WorldPackage::fileExtension)) {
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
