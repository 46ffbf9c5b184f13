#pragma once

#include <cstdint>
#include <utility>
#include <vector>

namespace hushmeadows::worldgen {

constexpr int sampleRate = 48000;

// How the end of a loop meets its start: the step across the seam against
// the largest steps just before and just after it. A click shows as a seam
// step far above its neighbours; a seamless loop has a ratio near or below 1.
struct SeamReport {
    double seamStep = 0;
    double neighbourStep = 0;
    double ratio() const { return neighbourStep > 0 ? seamStep / neighbourStep : (seamStep > 0 ? 1e9 : 0); }
};

// A stereo sound that plays as an endless loop. Writes wrap around the end,
// so a note that starts near the end of the loop rings on at its start.
class StereoLoop {
public:
    explicit StereoLoop(std::int64_t frames);
    static StereoLoop fromInterleaved(const std::vector<float>& samples);

    std::int64_t frames() const { return static_cast<std::int64_t>(left_.size()); }
    float left(std::int64_t frame) const { return left_[static_cast<std::size_t>(frame)]; }
    float right(std::int64_t frame) const { return right_[static_cast<std::size_t>(frame)]; }

    // Adds at `frame` modulo the loop length (negative frames too).
    void add(std::int64_t frame, double left, double right);
    void mix(const StereoLoop& other, double gain);
    void scale(double gain);
    double peak() const;
    SeamReport seam() const;
    std::vector<float> interleaved() const;

    // Runs `process(frame, left, right) -> pair` over the loop as if the loop
    // had been playing forever: a first pass brings the processor's state
    // (filter memories, echoes) to what it would be at the loop's end, the
    // second pass writes the result. So echoes of the end ring on into the
    // start, and the seam sounds like any other moment.
    template <typename Process>
    void processAsLoop(Process&& process)
    {
        for (std::size_t i = 0; i < left_.size(); ++i)
            process(static_cast<std::int64_t>(i), left_[i], right_[i]);
        for (std::size_t i = 0; i < left_.size(); ++i) {
            auto [l, r] = process(static_cast<std::int64_t>(i), left_[i], right_[i]);
            left_[i] = static_cast<float>(l);
            right_[i] = static_cast<float>(r);
        }
    }

private:
    std::vector<float> left_;
    std::vector<float> right_;
};

} // namespace hushmeadows::worldgen
