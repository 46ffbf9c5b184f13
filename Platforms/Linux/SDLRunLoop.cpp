#include "Platforms/Linux/SDLRunLoop.h"

#include <cmath>
#include <limits>

namespace hushmeadows {

SDLRunLoop::SDLRunLoop()
    : wakeEvent_(SDL_RegisterEvents(1))
{
    loop_.setEventPump([this](double maxWait) { pump(maxWait); });
}

void SDLRunLoop::post(std::function<void()> work)
{
    loop_.post(std::move(work));
    wakeFromOtherThread();
}

std::shared_ptr<Cancellable> SDLRunLoop::postAfter(double delay, std::function<void()> work)
{
    auto token = loop_.postAfter(delay, std::move(work));
    wakeFromOtherThread();
    return token;
}

std::shared_ptr<Cancellable> SDLRunLoop::scheduleRepeating(double interval, std::function<void()> work)
{
    auto token = loop_.scheduleRepeating(interval, std::move(work));
    wakeFromOtherThread();
    return token;
}

void SDLRunLoop::wakeFromOtherThread()
{
    // On the loop's own thread the next wait is computed after this work is
    // scheduled, so it needs no event.
    if (owner_.load() == std::this_thread::get_id() || wakeEvent_ == static_cast<Uint32>(-1))
        return;
    SDL_Event event{};
    event.type = wakeEvent_;
    SDL_PushEvent(&event);
}

void SDLRunLoop::run()
{
    owner_.store(std::this_thread::get_id());
    if (!quitRequested_.load())
        loop_.run();
    owner_.store(std::thread::id{});
}

void SDLRunLoop::quit()
{
    quitRequested_.store(true);
    loop_.quit();
    wakeFromOtherThread();
}

void SDLRunLoop::pump(double maxWait)
{
    // ThreadRunLoop::run() starts by clearing its own flag: a quit() that
    // came just before it is honoured here.
    if (quitRequested_.load()) {
        loop_.quit();
        return;
    }
    if (beforeWait_)
        beforeWait_();
    const double milliseconds = std::ceil(std::max(maxWait, 0.0) * 1000.0);
    const int timeout = milliseconds >= std::numeric_limits<int>::max() ? std::numeric_limits<int>::max() : static_cast<int>(milliseconds);
    SDL_Event event;
    if (!SDL_WaitEventTimeout(&event, timeout))
        return;
    do {
        if (event.type != wakeEvent_ && handler_)
            handler_(event);
    } while (SDL_PollEvent(&event));
}

} // namespace hushmeadows
