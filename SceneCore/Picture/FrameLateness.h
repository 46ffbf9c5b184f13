#pragma once

#include <cstdint>
#include <vector>

namespace hushmeadows {

// How late frames came on screen past their due time, as a histogram of
// tenths of a millisecond up to half a second (later ones share the last
// bin; the maximum stays exact), so that a run of any length costs the
// same few kilobytes. Main thread only.
class FrameLateness {
public:
    struct Summary {
        long frames = 0;
        // Frames passed over because a later one was already due.
        long skipped = 0;
        // Seconds: the median, the 99th percentile (each the upper edge of
        // its bin) and the exact maximum.
        double median = 0;
        double p99 = 0;
        double maximum = 0;
    };

    FrameLateness();

    // A frame shown `seconds` after it was due (early counts as on time),
    // after `skipped` earlier frames were passed over for it.
    void record(double seconds, long skipped = 0);
    Summary summary() const;

private:
    double percentile(double share) const;

    std::vector<std::uint32_t> bins_;
    long frames_ = 0;
    long skipped_ = 0;
    double maximum_ = 0;
};

} // namespace hushmeadows
