#pragma once

#include "HushmeadowsSaver/AudioArbiter.h"
#include "HushmeadowsSaver/SystemPowerEvents.h"
#include "SceneCore/Runtime/Calendar.h"
#include "SceneCore/Sound/AmbientAudioEngine.h"
#include "SceneCore/Sound/MusicSelection.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <vector>

namespace hushmeadows {

// The one sound of the screen saver process: several views (one per display)
// claim it, the first claim starts the world's sound, further claims restart
// it with the newest world and settings, and the last release stops it.
// Going to sleep, for the machine or its displays, cuts it at once whatever
// the claims. Main thread only.
class SaverAudio final : public AudioArbiter {
public:
    static constexpr double acquireFadeIn = 4.0;
    static constexpr double releaseFadeOut = 0.8;

    struct Services {
        // For the one engine, made with the arbiter and never replaced.
        AmbientAudioEngine::Services engine;
        // Watched from the first claim on, for the life of the arbiter.
        SystemPowerEvents& powerEvents;
        // The studio overlay of a world; may be empty (no overlays at all).
        MusicSelection::OverlayLoader loadOverlay;
        // The clock and calendar that decide the day phase of a claim.
        std::function<std::chrono::system_clock::time_point()> now;
        Calendar calendar = Calendar::current();
    };

    explicit SaverAudio(Services services);
    ~SaverAudio() override;
    SaverAudio(const SaverAudio&) = delete;
    SaverAudio& operator=(const SaverAudio&) = delete;

    void acquire(const void* client, const WorldPackage& world, const HushmeadowsSettings& settings) override;
    // The same with a fade-in of one's own and, when given, a day phase that
    // replaces the settings' (offline rendering).
    void acquire(const void* client, const WorldPackage& world, const HushmeadowsSettings& settings, double fadeIn,
                 std::optional<DayPhase> phase);
    void release(const void* client, bool immediately) override;
    Diagnostics diagnostics(const void* client) const override;

    AmbientAudioEngine& engine() { return *engine_; }
    const AmbientAudioEngine& engine() const { return *engine_; }
    std::size_t clientCount() const { return clients_.size(); }

private:
    void observeSystem();

    SystemPowerEvents& powerEvents_;
    MusicSelection::OverlayLoader loadOverlay_;
    std::function<std::chrono::system_clock::time_point()> now_;
    Calendar calendar_;
    // Entry points of the studio tracks of the overlays loaded so far.
    std::shared_ptr<std::map<std::filesystem::path, std::vector<std::int64_t>>> entryPoints_;
    std::unique_ptr<AmbientAudioEngine> engine_;
    std::set<const void*> clients_;
    bool observing_ = false;
    // Lets the power handlers, which stay installed, find the arbiter gone.
    std::shared_ptr<SaverAudio*> self_;
};

} // namespace hushmeadows
