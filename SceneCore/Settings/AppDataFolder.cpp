#include "SceneCore/Settings/AppDataFolder.h"

#include "SceneCore/Settings/SharedFolder.h"

namespace hushmeadows {

namespace fs = std::filesystem;

fs::path AppDataFolder::directory(Kind kind, const Environment& environment)
{
    if (kind == Kind::shared)
        return SharedFolder::url(environment);
    if (environment.platform == Environment::Platform::macOS) {
        // The process's own home: inside a sandbox this is the container.
        fs::path home = environment.processHome ? *environment.processHome : SharedFolder::realHomeDirectory(environment);
        return home / "Library/Application Support";
    }
    return SharedFolder::xdgBaseDirectory(environment.xdgDataHome, SharedFolder::realHomeDirectory(environment), ".local/share") / SharedFolder::xdgFolderName;
}

} // namespace hushmeadows
