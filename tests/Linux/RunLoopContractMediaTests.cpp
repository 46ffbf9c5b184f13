#include "Platforms/Linux/SDLRunLoop.h"
#include "Platforms/Linux/ThreadRunLoop.h"
#include "Platforms/Linux/ThreadSerialQueue.h"
#include "SceneCore/Runtime/ManualRunLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

namespace hushmeadows {
namespace {

using ::testing::ElementsAre;

// Runs a loop for `seconds` of its own time, on this thread.
void runFor(ManualRunLoop& loop, double seconds) { loop.advance(seconds); }
void runFor(ThreadRunLoop& loop, double seconds) { loop.runUntil([] { return false; }, seconds); }
void runFor(SDLRunLoop& loop, double seconds) { loop.postAfter(seconds, [&loop] { loop.quit(); }), loop.run(); }

template <typename Loop>
class RunLoopContract : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(SDL_Init(SDL_INIT_EVENTS), 0) << SDL_GetError(); }
    void TearDown() override { SDL_Quit(); }
};
using Loops = ::testing::Types<ManualRunLoop, ThreadRunLoop, SDLRunLoop>;
TYPED_TEST_SUITE(RunLoopContract, Loops);

TYPED_TEST(RunLoopContract, WorkRunsOnTheLoopInTimeOrderNotBeforeItIsDueUntilCancelled)
{
    TypeParam loop;
    std::vector<std::string> ran;
    const double start = loop.mediaTime();
    const auto owner = std::this_thread::get_id();
    bool early = false, offLoop = false;
    auto note = [&](std::string name, double due) {
        return [&, name, due] {
            early = early || loop.mediaTime() - start < due - 1e-9;
            offLoop = offLoop || std::this_thread::get_id() != owner;
            ran.push_back(name);
        };
    };
    loop.postAfter(0.06, note("later", 0.06));
    loop.postAfter(0.03, note("sooner", 0.03));
    loop.post(note("now", 0));
    std::thread([&] { loop.post(note("from-thread", 0)); }).join();
    auto cancelled = loop.postAfter(0.01, note("cancelled", 0.01));
    cancelled->cancel();
    // Repeating work keeps its cadence until it cancels itself.
    int ticks = 0;
    std::shared_ptr<Cancellable> timer = loop.scheduleRepeating(0.02, [&] {
        early = early || loop.mediaTime() - start < 0.02 * ++ticks - 1e-9;
        if (ticks == 3)
            timer->cancel();
    });
    runFor(loop, 0.2);
    EXPECT_THAT(ran, ElementsAre("now", "from-thread", "sooner", "later"));
    EXPECT_EQ(ticks, 3);
    EXPECT_FALSE(early);
    EXPECT_FALSE(offLoop);
    EXPECT_TRUE(cancelled->isCancelled());
}

TEST(SDLRunLoop, EventsReachTheHandlerButItsOwnWakeUpsDoNotAndAnEarlyQuitIsKept)
{
    ASSERT_EQ(SDL_Init(SDL_INIT_EVENTS), 0) << SDL_GetError();
    {
        SDLRunLoop loop;
        std::vector<Uint32> events;
        const Uint32 userEvent = SDL_RegisterEvents(1);
        loop.setEventHandler([&](const SDL_Event& event) { events.push_back(event.type); });
        std::thread([&] {
            loop.post([&] {
                SDL_Event event{};
                event.type = userEvent;
                SDL_PushEvent(&event);
            });
        }).join();
        runFor(loop, 0.05);
        EXPECT_THAT(events, ElementsAre(userEvent));

        SDLRunLoop early;
        bool ran = false;
        early.post([&] { ran = true; });
        early.quit();
        early.run(); // returns without waiting
        EXPECT_FALSE(ran);
    }
    SDL_Quit();
}

TEST(ThreadSerialQueue, RunsWorkOneAtATimeInOrderOffTheCallingThread)
{
    std::vector<int> order;
    std::atomic<int> concurrent{0};
    bool overlapped = false, onCaller = false;
    {
        ThreadSerialQueue queue("app.hushmeadows.posters");
        for (int i = 0; i < 50; ++i)
            queue.async([&, i, caller = std::this_thread::get_id()] {
                overlapped = overlapped || concurrent.fetch_add(1) != 0;
                onCaller = onCaller || std::this_thread::get_id() == caller;
                order.push_back(i);
                concurrent.fetch_sub(1);
            });
    } // the destructor drains the queue
    ASSERT_EQ(order.size(), 50u);
    EXPECT_TRUE(std::ranges::is_sorted(order));
    EXPECT_FALSE(overlapped);
    EXPECT_FALSE(onCaller);
}

} // namespace
} // namespace hushmeadows
