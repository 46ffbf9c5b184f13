#include "SceneCore/Picture/FrameLateness.h"

#include <gtest/gtest.h>

#include <limits>

namespace hushmeadows {
namespace {

TEST(FrameLateness, SummarisesPercentilesExactMaximumAndSkippedFrames)
{
    FrameLateness lateness;
    EXPECT_EQ(lateness.summary().p99, 0) << "nothing recorded";
    // 98 frames 1 ms late, one 7 ms, one 2 s (past the last bin); early and
    // undefined times count as on time.
    for (int i = 0; i < 98; ++i)
        lateness.record(0.001);
    lateness.record(0.007, 2);
    lateness.record(2.0, 1);
    lateness.record(-0.004);
    lateness.record(std::numeric_limits<double>::quiet_NaN());
    const FrameLateness::Summary summary = lateness.summary();
    EXPECT_EQ(summary.frames, 102);
    EXPECT_EQ(summary.skipped, 3);
    EXPECT_NEAR(summary.median, 0.0011, 1e-9);
    EXPECT_NEAR(summary.p99, 0.0071, 1e-9);
    EXPECT_EQ(summary.maximum, 2.0);
}

} // namespace
} // namespace hushmeadows
