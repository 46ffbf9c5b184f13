#include "Platforms/Linux/SDLRunLoop.h"
#include "Platforms/Linux/TerminationSignals.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <thread>
#include <vector>

namespace hushmeadows {
namespace {

class SDLRunLoopTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(SDL_Init(SDL_INIT_EVENTS), 0) << SDL_GetError(); }
    void TearDown() override { SDL_Quit(); }
};

TEST_F(SDLRunLoopTest, WorkFromOtherThreadsRunsOnTheLoopAndQuitFromAnyThreadEndsIt)
{
    SDLRunLoop loop;
    std::vector<std::string> ran;
    std::vector<Uint32> events;
    int waits = 0;
    const auto owner = std::this_thread::get_id();
    bool onOwner = true;
    const Uint32 userEvent = SDL_RegisterEvents(1);
    loop.setEventHandler([&](const SDL_Event& event) { events.push_back(event.type); });
    loop.setBeforeWait([&] { ++waits; });

    std::thread quitter;
    std::thread helper([&] {
        loop.post([&] {
            onOwner = onOwner && std::this_thread::get_id() == owner;
            ran.push_back("posted");
            SDL_Event event{};
            event.type = userEvent;
            SDL_PushEvent(&event);
        });
        loop.postAfter(0.02, [&] {
            ran.push_back("later");
            quitter = std::thread([&] { loop.quit(); });
        });
    });
    helper.join();
    loop.run();
    quitter.join();

    EXPECT_THAT(ran, ::testing::ElementsAre("posted", "later"));
    EXPECT_TRUE(onOwner);
    // Our own wake-ups never reach the handler; other events do.
    EXPECT_THAT(events, ::testing::ElementsAre(userEvent));
    EXPECT_GT(waits, 0);
}

TEST_F(SDLRunLoopTest, QuitBeforeRunIsKept)
{
    SDLRunLoop loop;
    bool ran = false;
    loop.post([&] { ran = true; });
    loop.quit();
    loop.run(); // returns without waiting
    EXPECT_FALSE(ran);
}

TEST(TerminationSignals, SignalsReachTheCallbackOnItsOwnThreadAndTheOldHandlersComeBack)
{
    static std::atomic<int> earlierHandlerCalls{0};
    struct sigaction earlier {}, saved {};
    earlier.sa_handler = [](int) { ++earlierHandlerCalls; };
    sigemptyset(&earlier.sa_mask);
    ASSERT_EQ(sigaction(SIGTERM, &earlier, &saved), 0);

    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<int> received;
    std::thread::id callbackThread;
    {
        TerminationSignals signals([&](int signal) {
            std::lock_guard lock(mutex);
            received.push_back(signal);
            callbackThread = std::this_thread::get_id();
            arrived.notify_all();
        });
        std::raise(SIGTERM);
        std::raise(SIGINT);
        std::unique_lock lock(mutex);
        // A bound against hanging, not a speed requirement.
        ASSERT_TRUE(arrived.wait_for(lock, std::chrono::seconds(10), [&] { return received.size() == 2; }));
        EXPECT_THAT(received, ::testing::ElementsAre(SIGTERM, SIGINT));
        EXPECT_NE(callbackThread, std::this_thread::get_id());
        EXPECT_EQ(earlierHandlerCalls.load(), 0);
    }
    std::raise(SIGTERM);
    EXPECT_EQ(earlierHandlerCalls.load(), 1);
    sigaction(SIGTERM, &saved, nullptr);
}

} // namespace
} // namespace hushmeadows
