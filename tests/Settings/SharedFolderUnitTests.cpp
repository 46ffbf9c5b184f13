#include "SceneCore/Settings/SettingsStore.h"
#include "SceneCore/Settings/SharedFolder.h"

#include <gtest/gtest.h>

namespace hushmeadows {
namespace {

using Path = std::filesystem::path;

Environment linuxUser()
{
    Environment environment;
    environment.platform = Environment::Platform::linuxDesktop;
    environment.userDatabaseHome = Path("/home/ada");
    environment.processHome = Path("/tmp/session-home");
    return environment;
}

Environment sandboxedMacUser()
{
    Environment environment;
    environment.platform = Environment::Platform::macOS;
    environment.userDatabaseHome = Path("/Users/ada");
    environment.processHome = Path("/Users/ada/Library/Containers/app.hushmeadows/Data");
    return environment;
}

TEST(SharedFolder, LinuxFollowsXDGConfigHome)
{
    auto environment = linuxUser();
    EXPECT_EQ(SettingsStore::sharedFileURL(environment), Path("/tmp/session-home/.config/hushmeadows/Settings.json"));

    environment.xdgConfigHome = "/srv/config";
    EXPECT_EQ(SharedFolder::url(environment), Path("/srv/config/hushmeadows"));

    // A relative or empty value is not a base directory.
    environment.xdgConfigHome = "relative/config";
    EXPECT_EQ(SharedFolder::url(environment), Path("/tmp/session-home/.config/hushmeadows"));
    environment.xdgConfigHome = "";
    EXPECT_EQ(SharedFolder::url(environment), Path("/tmp/session-home/.config/hushmeadows"));

    // Without $HOME the user database decides.
    environment.processHome.reset();
    EXPECT_EQ(SharedFolder::fileURL("Settings.json", environment), Path("/home/ada/.config/hushmeadows/Settings.json"));
}

TEST(SharedFolder, MacOSUsesTheRealHomeNotTheContainer)
{
    auto environment = sandboxedMacUser();
    environment.xdgConfigHome = "/ignored";
    EXPECT_EQ(SharedFolder::realHomeDirectory(environment), Path("/Users/ada"));
    EXPECT_EQ(SettingsStore::sharedFileURL(environment), Path("/Users/ada/Library/Application Support/Hushmeadows/Settings.json"));

    environment.userDatabaseHome.reset();
    EXPECT_EQ(SharedFolder::url(environment),
              Path("/Users/ada/Library/Containers/app.hushmeadows/Data/Library/Application Support/Hushmeadows"));
}

} // namespace
} // namespace hushmeadows
