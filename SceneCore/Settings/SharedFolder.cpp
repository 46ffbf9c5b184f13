#include "SceneCore/Settings/SharedFolder.h"

namespace hushmeadows {

namespace fs = std::filesystem;

fs::path SharedFolder::xdgBaseDirectory(const std::optional<std::string>& variable, const fs::path& home, std::string_view fallbackUnderHome)
{
    if (variable && !variable->empty()) {
        fs::path base(*variable);
        if (base.is_absolute())
            return base;
    }
    return home / fallbackUnderHome;
}

fs::path SharedFolder::realHomeDirectory(const Environment& environment)
{
    const auto& first = environment.platform == Environment::Platform::macOS ? environment.userDatabaseHome : environment.processHome;
    const auto& second = environment.platform == Environment::Platform::macOS ? environment.processHome : environment.userDatabaseHome;
    if (first && !first->empty())
        return *first;
    if (second && !second->empty())
        return *second;
    return {};
}

fs::path SharedFolder::url(const Environment& environment)
{
    auto home = realHomeDirectory(environment);
    if (environment.platform == Environment::Platform::macOS)
        return home / macOSPath;
    return xdgBaseDirectory(environment.xdgConfigHome, home, ".config") / xdgFolderName;
}

fs::path SharedFolder::fileURL(std::string_view name, const Environment& environment)
{
    return url(environment) / name;
}

} // namespace hushmeadows
