#include "Platforms/Linux/LinuxEnvironment.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace hushmeadows {

std::optional<std::filesystem::path> LinuxEnvironment::userDatabaseHome()
{
    long suggested = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(suggested > 0 ? static_cast<std::size_t>(suggested) : 4096);
    passwd entry{};
    passwd* found = nullptr;
    for (;;) {
        int result = getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found);
        if (result == ERANGE && buffer.size() < (1u << 20)) {
            buffer.resize(buffer.size() * 2);
            continue;
        }
        if (result != 0 || found == nullptr || found->pw_dir == nullptr || found->pw_dir[0] == '\0')
            return std::nullopt;
        return std::filesystem::path(found->pw_dir);
    }
}

Environment LinuxEnvironment::current() { return Environment::fromProcess(userDatabaseHome()); }

void LinuxEnvironment::install() { Environment::install(current()); }

} // namespace hushmeadows
