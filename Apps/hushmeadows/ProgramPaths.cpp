#include "Apps/hushmeadows/ProgramPaths.h"

#include "SceneCore/Worlds/WorldLibrary.h"

namespace hushmeadows {

namespace fs = std::filesystem;

Bundle programBundle()
{
    Bundle bundle;
    bundle.info = {{"CFBundleShortVersionString", "0.1"}, {"CFBundleVersion", "1"}};
    std::error_code error;
    fs::path executable = fs::read_symlink("/proc/self/exe", error);
    if (error)
        return bundle;
    fs::path directory = executable.parent_path();
    for (const fs::path& candidate : {directory / "Resources", directory / ".." / "share" / "hushmeadows"}) {
        if (fs::is_directory(candidate, error)) {
            bundle.resourcesDirectory = fs::weakly_canonical(candidate, error);
            break;
        }
    }
    return bundle;
}

std::optional<fs::path> bundledWorldsFolder() { return WorldLibrary::worldsDirectory(programBundle()); }

} // namespace hushmeadows
