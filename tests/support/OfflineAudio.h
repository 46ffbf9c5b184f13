#pragma once

#include "SceneCore/Runtime/ManualRunLoop.h"
#include "SceneCore/Sound/PCMBuffer.h"
#include "SceneCore/Sound/SoftwareAudioEngine.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace hushmeadows::testing {

// Two planes of rendered sound.
struct StereoSignal {
    std::vector<float> left;
    std::vector<float> right;

    std::size_t size() const { return left.size(); }
    void append(const PCMBuffer& buffer);
};

// A software engine in manual rendering mode (stereo) on a manual run loop,
// started, with helpers to render in quanta the way a device would pull.
class OfflineGraph {
public:
    explicit OfflineGraph(ManualRunLoop& loop, double sampleRate = 48000, std::uint32_t quantum = 4096);

    SoftwareAudioEngine& engine() { return engine_; }
    // A node attached and connected in the engine's rate with the channel count.
    std::shared_ptr<AudioPlayerNode> addPlayer(int channels = 2);

    // Renders `frames` frames in quanta of at most `quantum` frames; after
    // each quantum the main loop runs what is due, then `between` runs.
    StereoSignal render(std::int64_t frames, const std::function<void()>& between = {});
    StereoSignal render(std::int64_t frames, std::uint32_t quantum, const std::function<void()>& between = {});

private:
    ManualRunLoop& loop_;
    SoftwareAudioEngine engine_;
    std::uint32_t quantum_;
    std::shared_ptr<PCMBuffer> scratch_;
};

// A buffer whose frame i holds left(i) and, in stereo, right(i).
std::shared_ptr<PCMBuffer> makeBuffer(std::uint32_t frames, const std::function<float(std::uint32_t)>& left,
                                      const std::function<float(std::uint32_t)>& right = {}, double sampleRate = 48000);

} // namespace hushmeadows::testing
