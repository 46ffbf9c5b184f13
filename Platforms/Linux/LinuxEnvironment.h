#pragma once

#include "SceneCore/Settings/Environment.h"

#include <filesystem>
#include <optional>

namespace hushmeadows {

// The environment as Linux gives it: the process variables plus the home
// directory from the password database.
class LinuxEnvironment {
public:
    // The current user id's home directory in the password database; nothing
    // when there is no entry or it names no directory.
    static std::optional<std::filesystem::path> userDatabaseHome();

    static Environment current();

    // Makes current() the environment that the folder rules use by default.
    static void install();
};

} // namespace hushmeadows
