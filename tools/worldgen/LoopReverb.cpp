#include "tools/worldgen/LoopReverb.h"

#include "tools/worldgen/StereoLoop.h"

#include <array>

namespace hushmeadows::worldgen {

namespace {

// Mutually prime delays in samples at 44.1 kHz, scaled to our rate.
constexpr std::array<int, 8> combDelays{1116, 1188, 1277, 1356, 1422, 1491, 1557, 1617};
constexpr std::array<int, 4> allpassDelays{556, 441, 341, 225};
constexpr int stereoSpread = 23;
constexpr double inputGain = 0.015;

std::size_t scaled(int delay) { return static_cast<std::size_t>(delay * sampleRate / 44100); }

} // namespace

LoopReverb::LoopReverb(double roomSize, double damping, double wet, double dry)
    : feedback_(0.28 + 0.7 * roomSize)
    , damping_(damping)
    , wet_(wet)
    , dry_(dry)
{
    for (int delay : combDelays) {
        left_.combs.push_back({std::vector<double>(scaled(delay)), 0, 0});
        right_.combs.push_back({std::vector<double>(scaled(delay + stereoSpread)), 0, 0});
    }
    for (int delay : allpassDelays) {
        left_.allpasses.push_back({std::vector<double>(scaled(delay)), 0});
        right_.allpasses.push_back({std::vector<double>(scaled(delay + stereoSpread)), 0});
    }
}

double LoopReverb::Channel::process(double input, double feedback, double damping)
{
    double sum = 0;
    for (auto& comb : combs) {
        double out = comb.buffer[comb.index];
        comb.store = out * (1 - damping) + comb.store * damping;
        comb.buffer[comb.index] = input + comb.store * feedback;
        if (++comb.index == comb.buffer.size())
            comb.index = 0;
        sum += out;
    }
    for (auto& allpass : allpasses) {
        double delayed = allpass.buffer[allpass.index];
        allpass.buffer[allpass.index] = sum + delayed * 0.5;
        if (++allpass.index == allpass.buffer.size())
            allpass.index = 0;
        sum = delayed - sum;
    }
    return sum;
}

std::pair<double, double> LoopReverb::operator()(std::int64_t, double left, double right)
{
    double input = (left + right) * inputGain;
    double wetLeft = left_.process(input, feedback_, damping_);
    double wetRight = right_.process(input, feedback_, damping_);
    return {left * dry_ + wetLeft * wet_, right * dry_ + wetRight * wet_};
}

} // namespace hushmeadows::worldgen
