#include "HushmeadowsSaver/WorldChoice.h"

#include "SceneCore/Settings/AppDataFolder.h"

namespace hushmeadows {

std::vector<WorldsFolder> linuxWorldsFolders(const Environment& environment, const std::optional<std::filesystem::path>& bundledWorlds)
{
    std::vector<WorldsFolder> folders;
    folders.push_back({AppDataFolder::directory(AppDataFolder::Kind::applicationData, environment) / "Worlds", "direct"});
    std::string dirs = environment.xdgDataDirs.value_or("/usr/local/share/:/usr/share/");
    std::size_t start = 0;
    while (start <= dirs.size()) {
        auto end = dirs.find(':', start);
        if (end == std::string::npos)
            end = dirs.size();
        std::filesystem::path dir = dirs.substr(start, end - start);
        // Relative entries are invalid under the XDG rules and are skipped.
        if (dir.is_absolute())
            folders.push_back({dir / "hushmeadows" / "Worlds", "direct"});
        start = end + 1;
    }
    if (bundledWorlds)
        folders.push_back({*bundledWorlds, "fallback"});
    return folders;
}

WorldChoice chooseWorld(const HushmeadowsSettings& settings, const std::vector<WorldsFolder>& folders, const MediaProbe& media)
{
    WorldChoice choice;
    std::vector<std::filesystem::path> paths;
    for (const auto& folder : folders) {
        paths.push_back(folder.path);
        if (!choice.catalog)
            choice.catalog = WorldCatalog::load(folder.path);
    }
    choice.library = WorldLibrary::searching(paths, media);

    std::optional<std::string_view> wanted;
    if (settings.selectedWorldID)
        wanted = *settings.selectedWorldID;
    const WorldPackage* world = choice.library.world(wanted);
    if (!world)
        return choice;
    choice.world = *world;
    // The source is the word of the folder the package was found in.
    auto parent = world->rootURL().parent_path();
    for (const auto& folder : folders) {
        if (folder.path == parent) {
            choice.source = folder.source;
            break;
        }
    }
    return choice;
}

} // namespace hushmeadows
