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
    struct Case {
        Environment::Platform platform;
        std::optional<Path> userDatabaseHome = {}, processHome = {};
        std::optional<std::string> xdgConfigHome = {};
    };
    const std::pair<Case, Path> cases[] = {
        {{.platform = linuxDesktop, .userDatabaseHome = ada, .processHome = session}, session / ".config/hushmeadows"},
        {{.platform = linuxDesktop, .userDatabaseHome = ada, .processHome = session, .xdgConfigHome = "/srv/config"}, "/srv/config/hushmeadows"},
        // A relative or empty value is not a base directory.
        {{.platform = linuxDesktop, .userDatabaseHome = ada, .processHome = session, .xdgConfigHome = "relative/config"}, session / ".config/hushmeadows"},
        {{.platform = linuxDesktop, .userDatabaseHome = ada, .processHome = session, .xdgConfigHome = ""}, session / ".config/hushmeadows"},
        // Without $HOME the user database decides.
        {{.platform = linuxDesktop, .userDatabaseHome = ada}, ada / ".config/hushmeadows"},
        // A sandboxed process's $HOME is its container, not the home the companion shares.
        {{.platform = macOS, .userDatabaseHome = "/Users/ada", .processHome = container, .xdgConfigHome = "/ignored"},
         "/Users/ada/Library/Application Support/Hushmeadows"},
        {{.platform = macOS, .processHome = container}, container / "Library/Application Support/Hushmeadows"},
    };
    for (const auto& [c, folder] : cases) {
        Environment environment;
        environment.platform = c.platform;
        environment.userDatabaseHome = c.userDatabaseHome;
        environment.processHome = c.processHome;
        environment.xdgConfigHome = c.xdgConfigHome;
        EXPECT_EQ(SharedFolder::url(environment), folder);
        EXPECT_EQ(SettingsStore::sharedFileURL(environment), folder / "Settings.json");
    }
}

} // namespace
} // namespace hushmeadows
