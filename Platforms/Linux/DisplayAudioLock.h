#pragma once

#include "HushmeadowsSaver/AudioArbiter.h"

#include <filesystem>
#include <set>

namespace hushmeadows {

// One sound for every process of a display. XScreenSaver runs one process
// per monitor, each with its own arbiter; this decorator forwards a claim
// only while it holds an exclusive lock on a file named after the display,
// so only the first process to claim sounds. The lock goes with the last
// release of this process, and with the process itself (the kernel drops it),
// so the sound never outlives its owner. A process that cannot take the lock
// stays silent: there is no hand-over, the sound ends with its owner.
class DisplayAudioLock final : public AudioArbiter {
public:
    // "$XDG_RUNTIME_DIR/hushmeadows-audio-DISPLAY.lock", or under /tmp with
    // the user id when there is no runtime folder.
    static std::filesystem::path defaultPath();

    DisplayAudioLock(AudioArbiter& inner, std::filesystem::path lockFile);
    ~DisplayAudioLock() override;
    DisplayAudioLock(const DisplayAudioLock&) = delete;
    DisplayAudioLock& operator=(const DisplayAudioLock&) = delete;

    void acquire(const void* client, const WorldPackage& world, const HushmeadowsSettings& settings) override;
    void release(const void* client, bool immediately) override;
    Diagnostics diagnostics(const void* client) const override;

    bool holdsLock() const { return fd_ >= 0; }

private:
    bool takeLock();
    void dropLock();

    AudioArbiter& inner_;
    std::filesystem::path lockFile_;
    int fd_ = -1;
    std::set<const void*> clients_;
};

} // namespace hushmeadows
