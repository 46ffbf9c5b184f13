#include "Platforms/Linux/LinuxPowerEvents.h"
#include "Platforms/Linux/ThreadRunLoop.h"
#include "tests/support/FixtureKit.h"

#include <gtest/gtest.h>

#include <algorithm>

#include <csignal>
#include <cstdlib>
#include <sstream>

namespace hushmeadows {
namespace {

// A private message bus standing in for the system bus: sd-bus follows
// DBUS_SYSTEM_BUS_ADDRESS.
class PrivateSystemBus {
public:
    PrivateSystemBus()
    {
        std::istringstream lines(testing::runCommand("dbus-daemon --session --fork --print-address=1 --print-pid=1"));
        std::getline(lines, address_);
        lines >> pid_;
        setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), 1);
    }
    ~PrivateSystemBus()
    {
        unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
        if (pid_ > 0)
            kill(pid_, SIGTERM);
    }
    void prepareForSleep(bool going)
    {
        // Through --session so that the sender registers with the bus first.
        testing::runCommand("DBUS_SESSION_BUS_ADDRESS=" + testing::shellQuoted(address_)
                            + " dbus-send --session --type=signal /org/freedesktop/login1 org.freedesktop.login1.Manager.PrepareForSleep boolean:"
                            + (going ? "true" : "false"));
    }

private:
    std::string address_;
    pid_t pid_ = 0;
};

TEST(LinuxPowerEvents, LogindGoingToSleepReachesTheMainThread)
{
    PrivateSystemBus bus;
    ThreadRunLoop loop;
    std::vector<std::string> names;
    std::vector<bool> asleep; // as a scene view hears it, waking included
    LinuxPowerEvents events(loop);
    events.observe([&](const std::string& name) { names.push_back(name); });
    events.observeSuspensions([&](Suspension reason, bool suspended) {
        if (reason == Suspension::systemSleep)
            asleep.push_back(suspended);
    });
    ASSERT_TRUE(events.watchesSleep());

    // Waking up says nothing; going to sleep does. The watcher may still be
    // subscribing, so the signal is repeated until it arrives.
    bus.prepareForSleep(false);
    bool heard = loop.runUntil([&] {
        if (names.empty())
            bus.prepareForSleep(true);
        return !names.empty();
    }, 10.0);
    ASSERT_TRUE(heard);
    EXPECT_EQ(names.front(), "org.freedesktop.login1.Manager.PrepareForSleep");
    ASSERT_TRUE(loop.runUntil([&] {
        bus.prepareForSleep(false);
        return !asleep.empty() && !asleep.back();
    }, 10.0));
    // A scene view hears both ways; observers only each going to sleep.
    EXPECT_EQ(names.size(), static_cast<std::size_t>(std::ranges::count(asleep, true)));
}

TEST(LinuxPowerEvents, MissingSourcesAreSkipped)
{
    // No display and no bus: nothing to watch, and nothing goes wrong.
    const char* display = std::getenv("DISPLAY");
    std::string saved = display ? display : "";
    unsetenv("DISPLAY");
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    {
        ThreadRunLoop loop;
        LinuxPowerEvents events(loop);
        events.observe([](const std::string&) {});
        EXPECT_FALSE(events.watchesDisplaySleep());
        loop.runUntil([] { return false; }, 0.3);
    }
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    if (!saved.empty())
        setenv("DISPLAY", saved.c_str(), 1);
}

} // namespace
} // namespace hushmeadows
