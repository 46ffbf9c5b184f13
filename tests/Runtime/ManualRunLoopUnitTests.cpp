#include "SceneCore/Runtime/ManualRunLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

namespace hushmeadows {
namespace {

using ::testing::ElementsAre;

TEST(ManualRunLoop, RunsDueWorkInTimeOrderAtItsOwnTime)
{
    ManualRunLoop loop;
    std::vector<std::pair<std::string, double>> ran;
    auto note = [&](std::string name) { return [&, name] { ran.emplace_back(name, loop.mediaTime()); }; };
    loop.postAfter(2.0, note("two"));
    loop.postAfter(0.5, note("half"));
    loop.post(note("now"));
    loop.postAfter(0.5, note("half-again"));

    loop.advance(1.0);
    EXPECT_THAT(ran, ElementsAre(std::pair{std::string("now"), 0.0}, std::pair{std::string("half"), 0.5}, std::pair{std::string("half-again"), 0.5}));
    EXPECT_DOUBLE_EQ(loop.mediaTime(), 1.0);
    loop.advance(1.0);
    EXPECT_EQ(ran.back(), (std::pair{std::string("two"), 2.0}));
    EXPECT_EQ(loop.pendingCount(), 0u);
}

TEST(ManualRunLoop, CancelledWorkNeverRuns)
{
    ManualRunLoop loop;
    int runs = 0;
    auto later = loop.postAfter(1.0, [&] { ++runs; });
    // Cancelled by earlier work of the same pass.
    loop.postAfter(0.5, [&] { later->cancel(); });
    loop.advance(5);
    EXPECT_EQ(runs, 0);
    EXPECT_TRUE(later->isCancelled());
}

TEST(ManualRunLoop, RepeatingWorkKeepsItsCadenceUntilCancelled)
{
    ManualRunLoop loop;
    std::vector<double> ticks;
    std::shared_ptr<Cancellable> timer;
    timer = loop.scheduleRepeating(0.25, [&] {
        ticks.push_back(loop.mediaTime());
        if (ticks.size() == 3)
            timer->cancel();
    });
    loop.advance(2.0);
    EXPECT_THAT(ticks, ElementsAre(0.25, 0.5, 0.75));
}

TEST(ManualRunLoop, WorkPostedFromAnotherThreadRunsOnTheNextPass)
{
    ManualRunLoop loop;
    bool ran = false;
    std::thread([&] { loop.post([&] { ran = true; }); }).join();
    EXPECT_FALSE(ran);
    loop.runPending();
    EXPECT_TRUE(ran);
}

} // namespace
} // namespace hushmeadows
