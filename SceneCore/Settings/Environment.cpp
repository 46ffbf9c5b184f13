#include "SceneCore/Settings/Environment.h"

#include <cstdlib>
#include <mutex>

namespace hushmeadows {

namespace {

std::optional<std::string> variable(const char* name)
{
    const char* value = std::getenv(name);
    if (value == nullptr || *value == '\0')
        return std::nullopt;
    return std::string(value);
}

// Kept for the life of the process: queues read it until it ends.
std::mutex& installedMutex()
{
    static auto* mutex = new std::mutex;
    return *mutex;
}

std::optional<Environment>& installed()
{
    static auto* environment = new std::optional<Environment>;
    return *environment;
}

} // namespace

Environment Environment::fromProcess(std::optional<std::filesystem::path> userDatabaseHome)
{
    Environment environment;
    if (userDatabaseHome && !userDatabaseHome->empty())
        environment.userDatabaseHome = std::move(userDatabaseHome);
    if (auto home = variable("HOME"))
        environment.processHome = std::filesystem::path(*home);
    environment.xdgConfigHome = variable("XDG_CONFIG_HOME");
    environment.xdgDataHome = variable("XDG_DATA_HOME");
    environment.xdgDataDirs = variable("XDG_DATA_DIRS");
    return environment;
}

Environment Environment::current()
{
    {
        std::lock_guard lock(installedMutex());
        if (installed())
            return *installed();
    }
    return fromProcess(std::nullopt);
}

void Environment::install(std::optional<Environment> environment)
{
    std::lock_guard lock(installedMutex());
    installed() = std::move(environment);
}

} // namespace hushmeadows
