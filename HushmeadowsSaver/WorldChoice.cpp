#include "HushmeadowsSaver/WorldChoice.h"

namespace hushmeadows {

WorldChoice chooseWorld(const HushmeadowsSettings& settings, const std::vector<WorldsFolder>& folders, const MediaInspector& media)
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
