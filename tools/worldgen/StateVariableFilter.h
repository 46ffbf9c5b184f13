#pragma once

#include "tools/worldgen/StereoLoop.h"

#include <cmath>
#include <numbers>

namespace hushmeadows::worldgen {

// A trapezoidal state variable filter: stable while its cutoff moves every
// sample, which the wind needs for its gusts.
class StateVariableFilter {
public:
    struct Outputs {
        double low, band, high;
    };

    // Worked out once per sample and shared by both channels.
    struct Tuning {
        double k, a1, a2, a3;

        Tuning(double cutoff, double q)
        {
            const double g = std::tan(std::numbers::pi * cutoff / sampleRate);
            k = 1.0 / q;
            a1 = 1.0 / (1.0 + g * (g + k));
            a2 = g * a1;
            a3 = g * a2;
        }
    };

    Outputs process(double input, const Tuning& tuning)
    {
        const auto [k, a1, a2, a3] = tuning;
        const double v3 = input - ic2_;
        const double v1 = a1 * ic1_ + a2 * v3;
        const double v2 = ic2_ + a2 * ic1_ + a3 * v3;
        ic1_ = 2 * v1 - ic1_;
        ic2_ = 2 * v2 - ic2_;
        return {v2, v1, input - k * v1 - v2};
    }

private:
    double ic1_ = 0;
    double ic2_ = 0;
};

} // namespace hushmeadows::worldgen
