#pragma once

#include "SceneCore/Settings/Environment.h"

#include <filesystem>

namespace hushmeadows {

// Where the application keeps its own data.
//   shared:          SharedFolder::url, the folder shared with the screen saver.
//   applicationData: macOS: "Library/Application Support" under the process's
//                    home (the container's when sandboxed). Linux:
//                    $XDG_DATA_HOME/hushmeadows, by default
//                    ~/.local/share/hushmeadows.
struct AppDataFolder {
    enum class Kind { shared, applicationData };

    static std::filesystem::path directory(Kind kind, const Environment& environment = Environment::current());
};

} // namespace hushmeadows
