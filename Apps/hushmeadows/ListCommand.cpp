#include "Apps/hushmeadows/ListCommand.h"

#include "SceneCore/Runtime/PrintableText.h"
#include "Apps/hushmeadows/HelpText.h"
#include "Apps/hushmeadows/ProgramPaths.h"
#include "HushmeadowsSaver/WorldChoice.h"
#include "SceneCore/Settings/SettingsStore.h"

namespace hushmeadows {

namespace {

// Where a folder's worlds come from, in a person's words: the first folder
// is the user's own, the program's folder is bundled, the rest the system's.
std::string sourceLabel(const std::vector<WorldsFolder>& folders, std::size_t index)
{
    if (folders[index].source == "fallback")
        return "bundled";
    return index == 0 ? "user" : "system";
}

} // namespace

int runListCommand(const std::vector<std::string>& arguments, const MediaProbe& media, std::FILE* out, std::FILE* err)
{
    std::optional<std::filesystem::path> file;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == "--file" && i + 1 < arguments.size()) {
            file = arguments[++i];
        } else if (arguments[i] == "--help" || arguments[i] == "-h") {
            std::fputs(HelpText::list, out);
            return 0;
        } else {
            std::fputs(HelpText::list, err);
            return 2;
        }
    }
    SettingsStore store(file ? *file : SettingsStore::sharedFileURL());
    HushmeadowsSettings settings = store.load();
    if (const auto& moved = store.lastSetAside())
        std::fprintf(err, "hushmeadows list: %s was %s; moved it to %s and used the defaults\n", printable(store.fileURL().string()).c_str(),
                     moved->reason.c_str(), printable(moved->movedTo.string()).c_str());
    auto folders = linuxWorldsFolders(Environment::current(), bundledWorldsFolder());
    WorldChoice choice = chooseWorld(settings, folders, media);

    for (const auto& world : choice.library.worlds()) {
        std::string source = "none";
        for (std::size_t i = 0; i < folders.size(); ++i)
            if (folders[i].path == world.rootURL().parent_path())
                source = sourceLabel(folders, i);
        bool chosen = choice.world && choice.world->rootURL() == world.rootURL();
        std::fprintf(out, "%s\t%s\t%s\t%s\t%s\n", chosen ? "*" : " ", printable(world.id()).c_str(), printable(world.name()).c_str(),
                     printable(world.rootURL().string()).c_str(), source.c_str());
    }
    // A world of the same id found earlier hides a bundled one: say so, or
    // the bundled world seems to have vanished.
    if (!folders.empty() && folders.back().source == "fallback") {
        auto bundled = WorldLibrary::searching({folders.back().path}, media);
        for (const auto& hidden : bundled.worlds()) {
            for (const auto& world : choice.library.worlds())
                if (world.id() == hidden.id() && world.rootURL() != hidden.rootURL())
                    std::fprintf(out, "hidden\t%s\tthe bundled world is hidden by %s\n", printable(hidden.id()).c_str(),
                                 printable(world.rootURL().string()).c_str());
        }
    }
    for (const auto& failure : choice.library.failures())
        std::fprintf(out, "failed\t%s\n", printable(failure.description()).c_str());
    if (choice.library.worlds().empty())
        std::fputs("hushmeadows list: no worlds found\n", err);
    return 0;
}

} // namespace hushmeadows
