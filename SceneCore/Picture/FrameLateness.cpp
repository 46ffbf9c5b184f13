#include "SceneCore/Picture/FrameLateness.h"

#include <algorithm>
#include <cmath>

namespace hushmeadows {

namespace {
constexpr double binSeconds = 1e-4;
constexpr std::size_t binCount = 5000;
} // namespace

FrameLateness::FrameLateness() : bins_(binCount, 0) {}

void FrameLateness::record(double seconds, long skipped)
{
    const double late = std::isfinite(seconds) ? std::max(seconds, 0.0) : 0.0;
    const auto bin = std::min(static_cast<std::size_t>(late / binSeconds), binCount - 1);
    ++bins_[bin];
    ++frames_;
    skipped_ += std::max(skipped, 0L);
    maximum_ = std::max(maximum_, late);
}

double FrameLateness::percentile(double share) const
{
    if (frames_ == 0)
        return 0;
    // The smallest bin edge at or below which `share` of the frames lie.
    const double wanted = std::ceil(share * static_cast<double>(frames_));
    double seen = 0;
    for (std::size_t bin = 0; bin < binCount; ++bin) {
        seen += bins_[bin];
        if (seen >= wanted)
            return std::min(static_cast<double>(bin + 1) * binSeconds, maximum_);
    }
    return maximum_;
}

FrameLateness::Summary FrameLateness::summary() const
{
    return {frames_, skipped_, percentile(0.5), percentile(0.99), maximum_};
}

} // namespace hushmeadows
