#pragma once

#include "SceneCore/Settings/Environment.h"

#include <filesystem>
#include <string_view>

namespace hushmeadows {

// The folder that the screen saver and the companion application share, so
// that a choice made in one reaches the other.
//   macOS: "Library/Application Support/Hushmeadows" under the real home,
//          never the sandbox container's.
//   Linux: $XDG_CONFIG_HOME/hushmeadows, by default ~/.config/hushmeadows; a
//          relative $XDG_CONFIG_HOME is ignored, as the XDG rules require.
// With no home known at all the result is relative to the working directory.
struct SharedFolder {
    static constexpr std::string_view settingsFileName = "Settings.json";
    static constexpr std::string_view macOSPath = "Library/Application Support/Hushmeadows";
    static constexpr std::string_view xdgFolderName = "hushmeadows";

    // macOS: the user database's home, else $HOME. Linux: $HOME, else the
    // user database's home, as XDG applications do (so a session, or a test,
    // that sets HOME is followed).
    static std::filesystem::path realHomeDirectory(const Environment& environment = Environment::current());

    static std::filesystem::path url(const Environment& environment = Environment::current());
    static std::filesystem::path fileURL(std::string_view name, const Environment& environment = Environment::current());

    // The base directory an XDG variable names: its value when absolute,
    // else the default under the home directory (".config", ".local/share").
    static std::filesystem::path xdgBaseDirectory(const std::optional<std::string>& variable, const std::filesystem::path& home, std::string_view fallbackUnderHome);
};

} // namespace hushmeadows
