#include "Platforms/Linux/DisplayAudioLock.h"

#include "SceneCore/Runtime/Log.h"

#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <unistd.h>

namespace hushmeadows {

std::filesystem::path DisplayAudioLock::defaultPath()
{
    std::string display = std::getenv("DISPLAY") ? std::getenv("DISPLAY") : "";
    for (char& c : display)
        if (c == '/' || c == ':')
            c = '_';
    std::string name = "hushmeadows-audio-" + display + ".lock";
    if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime && *runtime)
        return std::filesystem::path(runtime) / name;
    return std::filesystem::path("/tmp") / ("hushmeadows-" + std::to_string(::getuid()) + "-" + name);
}

DisplayAudioLock::DisplayAudioLock(AudioArbiter& inner, std::filesystem::path lockFile)
    : inner_(inner)
    , lockFile_(std::move(lockFile))
{
}

DisplayAudioLock::~DisplayAudioLock()
{
    for (const void* client : std::set<const void*>(clients_))
        release(client, true);
    dropLock();
}

bool DisplayAudioLock::takeLock()
{
    if (fd_ >= 0)
        return true;
    int fd = ::open(lockFile_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) {
        Log::saver.error("audio lock %{public}s cannot be opened: no sound here", lockFile_.string());
        return false;
    }
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        ::close(fd);
        return false;
    }
    fd_ = fd;
    return true;
}

void DisplayAudioLock::dropLock()
{
    if (fd_ < 0)
        return;
    ::flock(fd_, LOCK_UN);
    ::close(fd_);
    fd_ = -1;
}

void DisplayAudioLock::acquire(const void* client, const WorldPackage& world, const HushmeadowsSettings& settings)
{
    if (!takeLock()) {
        Log::saver.notice("audio held by another process of this display; staying silent");
        return;
    }
    clients_.insert(client);
    inner_.acquire(client, world, settings);
}

void DisplayAudioLock::release(const void* client, bool immediately)
{
    if (clients_.erase(client) == 0)
        return;
    inner_.release(client, immediately);
    if (clients_.empty())
        dropLock();
}

AudioArbiter::Diagnostics DisplayAudioLock::diagnostics(const void* client) const { return inner_.diagnostics(client); }

} // namespace hushmeadows
