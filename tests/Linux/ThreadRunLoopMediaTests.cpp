#include "Platforms/Linux/ThreadRunLoop.h"
#include "Platforms/Linux/ThreadSerialQueue.h"
#include "SceneCore/Runtime/Precondition.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace hushmeadows {
namespace {

TEST(ThreadRunLoop, RunsPostedAndTimedWorkOnItsThreadInOrder)
{
    ThreadRunLoop loop;
    std::vector<std::string> ran;
    auto owner = std::this_thread::get_id();
    bool onOwner = true;
    loop.postAfter(0.05, [&] { ran.push_back("later"); loop.quit(); });
    loop.post([&] { ran.push_back("first"); });
    std::thread([&] { loop.post([&] { onOwner = onOwner && std::this_thread::get_id() == owner; ran.push_back("from-thread"); }); }).join();
    auto cancelled = loop.postAfter(0.01, [&] { ran.push_back("cancelled"); });
    cancelled->cancel();
    loop.run();
    EXPECT_THAT(ran, ::testing::ElementsAre("first", "from-thread", "later"));
    EXPECT_TRUE(onOwner);
}

TEST(ThreadRunLoop, RepeatingTimerAndRunUntil)
{
    ThreadRunLoop loop;
    int ticks = 0;
    auto timer = loop.scheduleRepeating(0.01, [&] { ++ticks; });
    EXPECT_TRUE(loop.runUntil([&] { return ticks >= 3; }, 5.0));
    timer->cancel();
    int stopped = ticks;
    EXPECT_FALSE(loop.runUntil([] { return false; }, 0.05));
    EXPECT_EQ(ticks, stopped);
}

TEST(ThreadSerialQueue, RunsWorkOneAtATimeInOrderOffTheCallingThread)
{
    std::vector<int> order;
    std::atomic<int> concurrent{0};
    bool overlapped = false;
    std::thread::id worker;
    {
        ThreadSerialQueue queue("app.hushmeadows.posters");
        EXPECT_EQ(queue.label(), "app.hushmeadows.posters");
        for (int i = 0; i < 50; ++i) {
            queue.async([&, i] {
                if (concurrent.fetch_add(1) != 0)
                    overlapped = true;
                order.push_back(i);
                worker = std::this_thread::get_id();
                concurrent.fetch_sub(1);
            });
        }
    } // the destructor drains the queue
    ASSERT_EQ(order.size(), 50u);
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
    EXPECT_FALSE(overlapped);
    EXPECT_NE(worker, std::this_thread::get_id());
}

TEST(PreconditionDeathTest, StopsTheProcessWithItsMessage)
{
    EXPECT_DEATH(HM_PRECONDITION(1 + 1 == 3, "arithmetic is broken"), "Precondition failed: arithmetic is broken");
}

} // namespace
} // namespace hushmeadows
