#pragma once

#include "SceneCore/Picture/Geometry.h"

#include <cstdint>
#include <expected>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace hushmeadows {

// The X server as the saver sees it, over a connection of its own:
// - implements: window geometry in root coordinates (top-left origin), the
//   monitors in RandR's order (asked afresh at every call), DestroyNotify of a watched window, covering
//   windows with the keyboard and pointer grabbed (standalone saver), input
//   idle time (MIT-SCREEN-SAVER), and the XScreenSaver daemon's state
//   (the root window's _SCREENSAVER_STATUS);
// - does not: draw (SDL does, on its own connection).
// X errors of the whole process are recorded instead of ending it, so that a
// window that went away is a value, never Xlib's dump and exit.
// Main thread only.
class X11SaverDisplay {
public:
    enum class DaemonState { absent, blank, lock, unblank };

    struct Events {
        bool destroyed = false; // a watched window was destroyed
        bool input = false;     // key, button, or pointer moved beyond a few pixels
    };

    // The error says why there is no display, ready for stderr.
    static std::expected<std::unique_ptr<X11SaverDisplay>, std::string> open();
    ~X11SaverDisplay();
    X11SaverDisplay(const X11SaverDisplay&) = delete;
    X11SaverDisplay& operator=(const X11SaverDisplay&) = delete;

    // The window's frame in root coordinates; none when there is no such window.
    std::optional<Rect> windowFrame(std::uint64_t window) const;
    // Active monitors in the server's order; the whole screen without RandR.
    std::vector<Rect> monitors() const;
    void watchForDestruction(std::uint64_t window);

    // A black, undecorated window over frame, shown and raised.
    std::uint64_t createCoveringWindow(const Rect& frame);
    // A covering window whose monitor went away; the grab goes with it.
    void destroyCoveringWindow(std::uint64_t window);
    // Keyboard and pointer to window, so that any input ends the saver.
    bool grabInput(std::uint64_t window);

    // Takes every pending event; never waits.
    Events takeEvents();

    double idleSeconds() const;
    DaemonState daemonState() const;

private:
    explicit X11SaverDisplay(void* display);

    void* display_; // Display*, opaque so that Xlib's macros stay out of this header
    std::vector<std::uint64_t> watched_;
    std::vector<std::uint64_t> created_;
    std::optional<Point> pointerOrigin_;
};

} // namespace hushmeadows
