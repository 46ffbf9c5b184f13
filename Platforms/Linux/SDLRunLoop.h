#pragma once

#include "Platforms/Linux/ThreadRunLoop.h"

#include <SDL.h>

#include <atomic>
#include <functional>
#include <thread>

namespace hushmeadows {

// The main run loop of a program with SDL windows: a ThreadRunLoop whose
// waiting happens in SDL's event queue (SDL_WaitEventTimeout), so that window
// events, work posted from other threads and quit() from anywhere all end the
// wait at once. SDL's event subsystem must be initialised before run().
class SDLRunLoop final : public RunLoop {
public:
    SDLRunLoop();

    void post(std::function<void()> work) override;
    std::shared_ptr<Cancellable> postAfter(double delay, std::function<void()> work) override;
    std::shared_ptr<Cancellable> scheduleRepeating(double interval, std::function<void()> work) override;
    double mediaTime() const override { return loop_.mediaTime(); }

    // Every SDL event the loop takes, on the loop's thread.
    void setEventHandler(std::function<void(const SDL_Event&)> handler) { handler_ = std::move(handler); }
    // Runs on the loop's thread after due work and events, before each wait:
    // the place to draw what they changed.
    void setBeforeWait(std::function<void()> beforeWait) { beforeWait_ = std::move(beforeWait); }

    // Runs until quit(); a quit() that came before run() is kept.
    void run();
    // From any thread, signal watchers included.
    void quit();

private:
    void pump(double maxWait);
    void wakeFromOtherThread();

    ThreadRunLoop loop_;
    Uint32 wakeEvent_ = 0;
    std::atomic<bool> quitRequested_{false};
    std::atomic<std::thread::id> owner_{};
    std::function<void(const SDL_Event&)> handler_;
    std::function<void()> beforeWait_;
};

} // namespace hushmeadows
