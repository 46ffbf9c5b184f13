#include "Apps/hushmeadows/WorldArgument.h"

#include "SceneCore/Runtime/PrintableText.h"
#include "Apps/hushmeadows/ProgramPaths.h"
#include "HushmeadowsSaver/WorldChoice.h"
#include "SceneCore/Settings/Environment.h"

namespace hushmeadows {

std::expected<WorldPackage, std::string> findWorld(const std::optional<std::string>& argument, const HushmeadowsSettings& settings,
                                                   const MediaProbe& media)
{
    namespace fs = std::filesystem;
    if (argument && WorldPackage::hasPackageExtension(*argument)) {
        fs::path folder = *argument;
        auto package = WorldPackage::contentsOf(folder, media);
        if (!package)
            return std::unexpected(printable(WorldLibrary::Failure{folder, package.error()}.description()));
        return *package;
    }
    // Ids never hold "/" nor start with "."; such an argument is a path.
    if (argument && (argument->find('/') != std::string::npos || argument->starts_with("."))) {
        std::string problem = printable(*argument);
        problem += " is not a world package (a folder whose name ends in .";
        problem += WorldPackage::fileExtension;
        problem += ')';
        return std::unexpected(problem);
    }
    WorldChoice choice = chooseWorld(settings, linuxWorldsFolders(Environment::current(), bundledWorldsFolder()), media);
    if (argument) {
        for (const auto& world : choice.library.worlds())
            if (world.id() == *argument)
                return world;
        return std::unexpected("no world with id " + printable(*argument));
    }
    if (!choice.world)
        return std::unexpected(std::string("no worlds found"));
    return *choice.world;
}

} // namespace hushmeadows
