#include "SceneCore/Settings/SettingsStore.h"
#include "SceneCore/Settings/SharedFolder.h"

#include <gtest/gtest.h>

namespace hushmeadows {
namespace {

using Path = std::filesystem::path;

TEST(SharedFolder, FollowsXDGConfigHomeOnLinuxAndTheRealHomeOnMacOS)
{
    using enum Environment::Platform;
    const Path ada = "/home/ada", session = "/tmp/session-home";
    const Path container = "/Users/ada/Library/Containers/app.hushmeadows/Data";
    auto at = [](Environment::Platform platform, std::optional<Path> userDatabaseHome, std::optional<Path> processHome,
                 std::optional<std::string> xdgConfigHome = {}) {
        Environment environment;
        environment.platform = platform;
        environment.userDatabaseHome = userDatabaseHome;
        environment.processHome = processHome;
        environment.xdgConfigHome = xdgConfigHome;
        return environment;
    };
    const std::pair<Environment, Path> cases[] = {
        {at(linuxDesktop, ada, session), session / ".config/hushmeadows"},
        {at(linuxDesktop, ada, session, "/srv/config"), "/srv/config/hushmeadows"},
        // A relative or empty value is not a base directory.
        {at(linuxDesktop, ada, session, "relative/config"), session / ".config/hushmeadows"},
        {at(linuxDesktop, ada, session, ""), session / ".config/hushmeadows"},
        // Without $HOME the user database decides.
        {at(linuxDesktop, ada, std::nullopt), ada / ".config/hushmeadows"},
        // A sandboxed process's $HOME is its container, not the home the companion shares.
        {at(macOS, "/Users/ada", container, "/ignored"), "/Users/ada/Library/Application Support/Hushmeadows"},
        {at(macOS, std::nullopt, container), container / "Library/Application Support/Hushmeadows"},
    };
    for (const auto& [environment, folder] : cases) {
        EXPECT_EQ(SharedFolder::url(environment), folder);
        EXPECT_EQ(SettingsStore::sharedFileURL(environment), folder / "Settings.json");
    }
}

} // namespace
} // namespace hushmeadows
