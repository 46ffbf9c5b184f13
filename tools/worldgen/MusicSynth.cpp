#include "tools/worldgen/MusicSynth.h"

#include "tools/worldgen/LoopReverb.h"
#include "tools/worldgen/Random.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <vector>

namespace hushmeadows::worldgen {

namespace {

constexpr double tau = 2 * std::numbers::pi;
constexpr double peakLevel = 0.355; // -9 dBFS

double frequencyOf(int midiNote) { return 440.0 * std::pow(2.0, (midiNote - 69) / 12.0); }

std::int64_t framesOf(double seconds) { return static_cast<std::int64_t>(std::lround(seconds * sampleRate)); }

std::pair<double, double> panGains(double pan)
{
    double angle = (pan + 1) * std::numbers::pi / 4;
    return {std::cos(angle), std::sin(angle)};
}

// A sine by rotation: one complex multiply per sample instead of a sin().
class Phasor {
public:
    Phasor(double frequency, double phase)
        : c_(std::cos(phase))
        , s_(std::sin(phase))
        , stepCos_(std::cos(tau * frequency / sampleRate))
        , stepSin_(std::sin(tau * frequency / sampleRate))
    {
    }

    double next()
    {
        const double value = s_;
        const double c = c_ * stepCos_ - s_ * stepSin_;
        s_ = s_ * stepCos_ + c_ * stepSin_;
        c_ = c;
        return value;
    }

private:
    double c_, s_, stepCos_, stepSin_;
};

// A held tone that swells in slowly and fades out long after it is released.
void addPad(StereoLoop& loop, std::int64_t start, double frequency, double seconds, double amplitude, double pan)
{
    constexpr double attack = 1.8;
    constexpr double release = 3.5;
    const auto attackFrames = framesOf(attack);
    const auto held = framesOf(seconds);
    const auto total = framesOf(seconds + release);
    const auto [gainLeft, gainRight] = panGains(pan);
    Phasor fundamental(frequency, 0), detuned(frequency * 1.004, 1.0), octave(2 * frequency, 0);
    for (std::int64_t n = 0; n < total; ++n) {
        double envelope = n < attackFrames ? 0.5 - 0.5 * std::cos(std::numbers::pi * static_cast<double>(n) / static_cast<double>(attackFrames)) : 1.0;
        envelope *= 1.0 - 0.15 * static_cast<double>(std::min(n, held)) / static_cast<double>(held);
        if (n >= held)
            envelope *= 0.5 + 0.5 * std::cos(std::numbers::pi * static_cast<double>(n - held) / static_cast<double>(total - held));
        double sample = fundamental.next() + 0.5 * detuned.next() + 0.12 * octave.next();
        sample *= amplitude * envelope / 1.6;
        loop.add(start + n, sample * gainLeft, sample * gainRight);
    }
}

// A soft bell: a short swell, then partials that die away at their own pace.
void addBell(StereoLoop& loop, std::int64_t start, double frequency, double amplitude, double pan)
{
    constexpr double attack = 0.04;
    constexpr double length = 6.0;
    constexpr double fadeOut = 0.5;
    constexpr std::array<double, 4> ratio{1.0, 2.0, 3.0, 4.07};
    constexpr std::array<double, 4> weight{1.0, 0.28, 0.09, 0.04};
    constexpr std::array<double, 4> decay{2.4, 1.1, 0.5, 0.3};
    const auto attackFrames = framesOf(attack);
    const auto total = framesOf(length);
    const auto fadeStart = framesOf(length - fadeOut);
    const auto [gainLeft, gainRight] = panGains(pan);
    std::vector<Phasor> partials;
    std::array<double, 4> level{}, fall{};
    for (std::size_t k = 0; k < ratio.size(); ++k) {
        partials.emplace_back(ratio[k] * frequency, 0.0);
        level[k] = weight[k];
        fall[k] = std::exp(-1.0 / (decay[k] * sampleRate));
    }
    for (std::int64_t n = 0; n < total; ++n) {
        double envelope = n < attackFrames ? 0.5 - 0.5 * std::cos(std::numbers::pi * static_cast<double>(n) / static_cast<double>(attackFrames)) : 1.0;
        if (n >= fadeStart)
            envelope *= 0.5 + 0.5 * std::cos(std::numbers::pi * static_cast<double>(n - fadeStart) / static_cast<double>(total - fadeStart));
        double sample = 0;
        for (std::size_t k = 0; k < partials.size(); ++k) {
            sample += level[k] * partials[k].next();
            level[k] *= fall[k];
        }
        sample *= amplitude * envelope;
        loop.add(start + n, sample * gainLeft, sample * gainRight);
    }
}

struct Chord {
    int bass;
    std::array<int, 4> voices;
};

// I, vi7, IVmaj7, I/E, ii7, Vsus: the last leans back into the first across the seam.
constexpr std::array<Chord, MusicSynth::chordCount> progression{{
    {36, {55, 60, 62, 64}},
    {45, {55, 60, 64, 69}},
    {41, {57, 60, 64, 67}},
    {40, {55, 60, 62, 67}},
    {38, {57, 60, 62, 65}},
    {43, {55, 60, 62, 69}},
}};

// Major pentatonic from G4 to A5.
constexpr std::array<int, 7> melodyScale{67, 69, 72, 74, 76, 79, 81};

const std::array<std::vector<double>, 6> rhythms{{
    {0, 2, 3.5, 5, 6},
    {0.5, 2, 4, 5.5},
    {0, 1.5, 3, 4.5, 6.5},
    {1, 2.5, 4, 6},
    {0, 3, 4, 5.5},
    {0, 2, 4.5, 6},
}};

} // namespace

StereoLoop MusicSynth::render()
{
    const std::int64_t frames = loopFrames();
    const double beat = 60.0 / beatsPerMinute;
    const double chordSeconds = beatsPerChord * beat;
    StereoLoop loop(frames);
    Random random(0x6D75736963ull);

    int scaleIndex = 3;
    for (int c = 0; c < chordCount; ++c) {
        const Chord& chord = progression[c];
        const auto chordStart = framesOf(c * chordSeconds);
        addPad(loop, chordStart, frequencyOf(chord.bass), chordSeconds, 0.13, 0.0);
        for (std::size_t v = 0; v < chord.voices.size(); ++v)
            addPad(loop, chordStart, frequencyOf(chord.voices[v]), chordSeconds, 0.05, -0.45 + 0.3 * static_cast<double>(v));

        // The first note of each chord is one of its tones; the rest wander by small steps.
        std::vector<int> chordTones;
        for (int i = 0; i < static_cast<int>(melodyScale.size()); ++i)
            for (int voice : chord.voices)
                if (melodyScale[i] % 12 == voice % 12)
                    chordTones.push_back(i);
        std::ranges::sort(chordTones, {}, [&](int i) { return std::abs(i - scaleIndex); });
        scaleIndex = chordTones[static_cast<std::size_t>(random.integer(0, std::min<int>(1, static_cast<int>(chordTones.size()) - 1)))];

        const auto& rhythm = rhythms[static_cast<std::size_t>(random.integer(0, static_cast<int>(rhythms.size()) - 1))];
        for (std::size_t n = 0; n < rhythm.size(); ++n) {
            if (n > 0) {
                int step = random.integer(-2, 2);
                scaleIndex = std::clamp(scaleIndex + (step == 0 ? 1 : step), 0, static_cast<int>(melodyScale.size()) - 1);
            }
            auto start = chordStart + framesOf(rhythm[n] * beat);
            addBell(loop, start, frequencyOf(melodyScale[static_cast<std::size_t>(scaleIndex)]), 0.22 * random.between(0.7, 1.0),
                    random.between(-0.35, 0.35));
        }
    }

    loop.processAsLoop(LoopReverb(0.8, 0.35, 0.45, 0.85));
    loop.scale(peakLevel / loop.peak());
    return loop;
}

} // namespace hushmeadows::worldgen
