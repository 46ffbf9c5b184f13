#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace hushmeadows {

// What the folder rules need to know about the user and the machine. A plain
// value, so the rules can be tested with any home and any variables; the
// platform fills in what only it can read (the user database) and installs
// the result with install(...).
struct Environment {
    enum class Platform { linuxDesktop, macOS };

    Platform platform = buildPlatform();
    // The home directory the user database gives for the current user id, when
    // the platform could read one. On macOS this is the real home, outside any
    // sandbox container.
    std::optional<std::filesystem::path> userDatabaseHome;
    // $HOME of the process (inside the container when sandboxed).
    std::optional<std::filesystem::path> processHome;
    // $XDG_CONFIG_HOME and $XDG_DATA_HOME as found, unchecked.
    std::optional<std::string> xdgConfigHome;
    std::optional<std::string> xdgDataHome;
    // $XDG_DATA_DIRS as found: a colon-separated list, unchecked.
    std::optional<std::string> xdgDataDirs;

    bool operator==(const Environment&) const = default;

    static constexpr Platform buildPlatform()
    {
#if defined(__APPLE__)
        return Platform::macOS;
#else
        return Platform::linuxDesktop;
#endif
    }

    // The variables of this process (empty ones count as unset), with the
    // user database's home as the platform read it.
    static Environment fromProcess(std::optional<std::filesystem::path> userDatabaseHome);

    // The installed environment; until one is installed, fromProcess without
    // a user database entry.
    static Environment current();
    static void install(std::optional<Environment> environment);
};

} // namespace hushmeadows
