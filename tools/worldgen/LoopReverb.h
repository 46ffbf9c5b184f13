#pragma once

#include <cstdint>
#include <utility>
#include <vector>

namespace hushmeadows::worldgen {

// A small room: parallel damped combs into series allpasses, a few samples
// longer on the right for width. Meant for StereoLoop::processAsLoop.
class LoopReverb {
public:
    LoopReverb(double roomSize, double damping, double wet, double dry);

    std::pair<double, double> operator()(std::int64_t frame, double left, double right);

private:
    struct Comb {
        std::vector<double> buffer;
        std::size_t index = 0;
        double store = 0;
    };
    struct Allpass {
        std::vector<double> buffer;
        std::size_t index = 0;
    };
    struct Channel {
        std::vector<Comb> combs;
        std::vector<Allpass> allpasses;
        double process(double input, double feedback, double damping);
    };

    Channel left_;
    Channel right_;
    double feedback_;
    double damping_;
    double wet_;
    double dry_;
};

} // namespace hushmeadows::worldgen
