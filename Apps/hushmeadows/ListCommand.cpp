#include "Apps/hushmeadows/ListCommand.h"

#include "Apps/hushmeadows/ProgramPaths.h"
#include "HushmeadowsSaver/WorldChoice.h"
#include "SceneCore/Settings/SettingsStore.h"

namespace hushmeadows {

int runListCommand(const std::vector<std::string>& arguments, const MediaProbe& media, std::FILE* out, std::FILE* err)
{
    std::optional<std::filesystem::path> file;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == "--file" && i + 1 < arguments.size()) {
            file = arguments[++i];
        } else {
            std::fputs("usage: hushmeadows list [--file SETTINGS]\n", err);
            return 2;
        }
    }
    SettingsStore store(file ? *file : SettingsStore::sharedFileURL());
    HushmeadowsSettings settings = store.load();
    auto folders = linuxWorldsFolders(Environment::current(), bundledWorldsFolder());
    WorldChoice choice = chooseWorld(settings, folders, media);

    for (const auto& world : choice.library.worlds()) {
        std::string source = "none";
        for (const auto& folder : folders)
            if (folder.path == world.rootURL().parent_path())
                source = folder.source;
        bool chosen = choice.world && choice.world->rootURL() == world.rootURL();
        std::fprintf(out, "%s\t%s\t%s\t%s\t%s\n", chosen ? "*" : " ", world.id().c_str(), world.name().c_str(), world.rootURL().c_str(),
                     source.c_str());
    }
    for (const auto& failure : choice.library.failures())
        std::fprintf(out, "failed\t%s\n", failure.description().c_str());
    if (choice.library.worlds().empty())
        std::fputs("hushmeadows list: no worlds found\n", err);
    return 0;
}

} // namespace hushmeadows
