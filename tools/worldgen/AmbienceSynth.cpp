#include "tools/worldgen/AmbienceSynth.h"

#include "tools/worldgen/LoopReverb.h"
#include "tools/worldgen/Random.h"
#include "tools/worldgen/StateVariableFilter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace hushmeadows::worldgen {

namespace {

constexpr double tau = 2 * std::numbers::pi;

// Ambience peaks stay below the music's.
constexpr double peakLevel = 0.316; // -10 dBFS

double rms(const StereoLoop& loop)
{
    double sum = 0;
    for (std::int64_t i = 0; i < loop.frames(); ++i)
        sum += loop.left(i) * loop.left(i) + loop.right(i) * loop.right(i);
    return std::sqrt(sum / (2.0 * static_cast<double>(loop.frames())));
}

std::pair<double, double> panGains(double pan)
{
    double angle = (pan + 1) * std::numbers::pi / 4;
    return {std::cos(angle), std::sin(angle)};
}

// One gliding whistle: frequency from `from` to `to`, a smooth swell in and out.
void addChirp(StereoLoop& loop, std::int64_t start, double seconds, double from, double to, double vibrato, double amplitude, double pan)
{
    const auto length = static_cast<std::int64_t>(seconds * sampleRate);
    const auto [gainLeft, gainRight] = panGains(pan);
    double phase = 0;
    for (std::int64_t n = 0; n < length; ++n) {
        double u = static_cast<double>(n) / length;
        double frequency = from + (to - from) * u + vibrato * std::sin(tau * 28 * n / sampleRate);
        phase += tau * frequency / sampleRate;
        double envelope = std::pow(std::sin(std::numbers::pi * u), 2);
        double sample = amplitude * envelope * (std::sin(phase) + 0.15 * std::sin(2 * phase));
        loop.add(start + n, sample * gainLeft, sample * gainRight);
    }
}

} // namespace

StereoLoop AmbienceSynth::wind(TimeOfDay timeOfDay, std::int64_t frames)
{
    const bool day = timeOfDay == TimeOfDay::day;
    Random random(day ? 0x77696E64ull : 0x6E696768ull);

    // Gusts: a few harmonics of the loop length with fixed random phases,
    // so the envelope is periodic over the loop by construction.
    constexpr int harmonics = 6;
    std::array<double, harmonics> weight{}, phase{};
    for (int k = 0; k < harmonics; ++k) {
        weight[k] = std::pow(k + 1.0, -0.8) * random.between(0.6, 1.0);
        phase[k] = random.between(0, tau);
    }
    std::vector<double> gust(static_cast<std::size_t>(frames));
    for (std::int64_t i = 0; i < frames; ++i) {
        double t = static_cast<double>(i) / static_cast<double>(frames);
        double value = 0;
        for (int k = 0; k < harmonics; ++k)
            value += weight[k] * std::cos(tau * (k + 1) * t + phase[k]);
        gust[static_cast<std::size_t>(i)] = value;
    }
    auto [low, high] = std::ranges::minmax(gust);
    for (auto& value : gust)
        value = (value - low) / (high - low);

    StereoLoop loop(frames);
    for (std::int64_t i = 0; i < frames; ++i) {
        double shared = random.between(-1, 1);
        loop.add(i, 0.55 * shared + 0.45 * random.between(-1, 1), 0.55 * shared + 0.45 * random.between(-1, 1));
    }

    const double baseCutoff = day ? 230 : 150;
    const double cutoffSpan = day ? 620 : 360;
    const double rustleLevel = day ? 0.05 : 0.025;
    struct Filters {
        StateVariableFilter whoosh, rumble, rustle;
    };
    std::array<Filters, 2> channel{};
    const StateVariableFilter::Tuning rumbleTuning(140, 0.7);
    const StateVariableFilter::Tuning rustleTuning(3200, 0.7);
    loop.processAsLoop([&](std::int64_t frame, double left, double right) {
        const double g = gust[static_cast<std::size_t>(frame)];
        const StateVariableFilter::Tuning whooshTuning(baseCutoff + cutoffSpan * g, 0.8 + 1.2 * g);
        const double level = 0.25 + 0.75 * g * g;
        auto voice = [&](Filters& filters, double input) {
            double whoosh = filters.whoosh.process(input, whooshTuning).band;
            double rumble = filters.rumble.process(input, rumbleTuning).low;
            double rustle = filters.rustle.process(input, rustleTuning).high;
            return level * (whoosh + 0.5 * rumble) + rustleLevel * g * g * g * rustle;
        };
        return std::pair{voice(channel[0], left), voice(channel[1], right)};
    });
    loop.scale(0.1 / rms(loop));
    return loop;
}

StereoLoop AmbienceSynth::birds(std::int64_t frames)
{
    Random random(0x62697264ull);
    StereoLoop loop(frames);
    const double seconds = static_cast<double>(frames) / sampleRate;
    const int phrases = std::max(2, static_cast<int>(seconds / 4.5));
    for (int i = 0; i < phrases; ++i) {
        // One phrase per slot, away from its neighbours.
        double slot = seconds / phrases;
        auto start = static_cast<std::int64_t>((i * slot + random.between(0.1, 0.6) * slot) * sampleRate);
        double pan = random.between(-0.6, 0.6);
        double pitch = random.between(0.92, 1.08);
        double amplitude = random.between(0.7, 1.0);
        switch (random.integer(0, 2)) {
        case 0: { // a few rising tweets
            int count = random.integer(3, 5);
            for (int c = 0; c < count; ++c)
                addChirp(loop, start + c * sampleRate * 11 / 100, 0.07, 3400 * pitch, 4600 * pitch, 0, amplitude, pan);
            break;
        }
        case 1: // a slow two-note call, falling
            addChirp(loop, start, 0.22, 3000 * pitch, 2700 * pitch, 50, amplitude * 0.8, pan);
            addChirp(loop, start + sampleRate * 3 / 10, 0.26, 2600 * pitch, 2250 * pitch, 50, amplitude * 0.8, pan);
            break;
        default: { // a short falling trill
            int count = random.integer(6, 9);
            for (int c = 0; c < count; ++c)
                addChirp(loop, start + c * sampleRate / 20, 0.035, 5200 * pitch, 4400 * pitch, 0, amplitude * (1 - 0.06 * c), pan);
            break;
        }
        }
    }
    loop.processAsLoop(LoopReverb(0.55, 0.4, 0.6, 1.0));
    return loop;
}

StereoLoop AmbienceSynth::crickets(std::int64_t frames)
{
    Random random(0x637269636Bull);
    StereoLoop loop(frames);
    const double seconds = static_cast<double>(frames) / sampleRate;
    const std::array<double, 3> carriers{4400, 4750, 5100};
    const std::array<double, 3> periods{0.62, 0.81, 1.05};
    const std::array<double, 3> levels{1.0, 0.7, 0.5};
    for (std::size_t c = 0; c < carriers.size(); ++c) {
        // A whole number of chirps per loop keeps each cricket's rhythm across the seam.
        const int chirps = static_cast<int>(std::lround(seconds / periods[c]));
        const double period = static_cast<double>(frames) / chirps;
        const double offset = random.between(0, period);
        const double swellPhase = random.between(0, tau);
        const double restPhase = random.between(0, tau);
        const int pulses = c == 1 ? 4 : 3;
        const auto [gainLeft, gainRight] = panGains(random.between(-0.7, 0.7));
        for (int k = 0; k < chirps; ++k) {
            double u = static_cast<double>(k) / chirps;
            if (std::sin(tau * 3 * u + restPhase) < -0.75)
                continue; // a pause now and then
            double amplitude = levels[c] * (0.6 + 0.4 * std::sin(tau * u + swellPhase));
            auto start = static_cast<std::int64_t>(offset + k * period);
            for (int p = 0; p < pulses; ++p) {
                const auto pulseStart = start + p * sampleRate * 24 / 1000;
                const auto pulseLength = sampleRate * 14 / 1000;
                for (std::int64_t n = 0; n < pulseLength; ++n) {
                    double v = static_cast<double>(n) / pulseLength;
                    double envelope = 0.5 - 0.5 * std::cos(tau * v);
                    double t = static_cast<double>(n) / sampleRate;
                    double sample = amplitude * envelope * (std::sin(tau * carriers[c] * t) + 0.1 * std::sin(tau * 2 * carriers[c] * t));
                    loop.add(pulseStart + n, sample * gainLeft, sample * gainRight);
                }
            }
        }
    }
    loop.processAsLoop(LoopReverb(0.5, 0.5, 0.5, 1.0));
    return loop;
}

StereoLoop AmbienceSynth::render(TimeOfDay timeOfDay, std::int64_t frames)
{
    StereoLoop mix = wind(timeOfDay, frames);
    if (timeOfDay == TimeOfDay::day) {
        StereoLoop song = birds(frames);
        mix.mix(song, 0.2 / song.peak());
    } else {
        mix.scale(0.7);
        StereoLoop chorus = crickets(frames);
        mix.mix(chorus, 0.08 / chorus.peak());
    }
    mix.scale(peakLevel / mix.peak());
    return mix;
}

} // namespace hushmeadows::worldgen
