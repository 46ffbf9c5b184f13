#pragma once

#include <cstdint>

namespace hushmeadows::worldgen {

// SplitMix64 with a fixed seed: every build draws the same world, and a
// change of the standard library cannot reshuffle it.
class Random {
public:
    explicit Random(std::uint64_t seed)
        : state_(seed)
    {
    }

    std::uint64_t next()
    {
        std::uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }

    // Uniform in [0, 1).
    double unit() { return static_cast<double>(next() >> 11) * 0x1.0p-53; }

    double between(double low, double high) { return low + (high - low) * unit(); }

    // Uniform in [low, high], both included.
    int integer(int low, int high) { return low + static_cast<int>(next() % static_cast<std::uint64_t>(high - low + 1)); }

private:
    std::uint64_t state_;
};

} // namespace hushmeadows::worldgen
