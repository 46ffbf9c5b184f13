#include "Platforms/Linux/X11SaverDisplay.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/extensions/Xrandr.h>
#include <X11/extensions/scrnsaver.h>

#include <algorithm>
#include <cmath>

namespace hushmeadows {

namespace {

Display* xdisplay(void* display) { return static_cast<Display*>(display); }

// Pointer travel that still counts as resting: a desk knock, not a user.
constexpr double pointerSlack = 8.0;

int recordError(Display*, XErrorEvent*)
{
    // The request that failed (on a window that went away) simply did nothing.
    return 0;
}

} // namespace

std::expected<std::unique_ptr<X11SaverDisplay>, std::string> X11SaverDisplay::open()
{
    Display* display = XOpenDisplay(nullptr);
    if (!display) {
        const char* name = XDisplayName(nullptr);
        return std::unexpected(std::string("cannot open the X display \"") + (name ? name : "") + "\"");
    }
    XSetErrorHandler(recordError);
    return std::unique_ptr<X11SaverDisplay>(new X11SaverDisplay(display));
}

X11SaverDisplay::X11SaverDisplay(void* display)
    : display_(display)
{
}

X11SaverDisplay::~X11SaverDisplay()
{
    Display* display = xdisplay(display_);
    if (!created_.empty()) {
        XUngrabKeyboard(display, CurrentTime);
        XUngrabPointer(display, CurrentTime);
    }
    for (auto window : created_)
        XDestroyWindow(display, window);
    XCloseDisplay(display);
}

std::optional<Rect> X11SaverDisplay::windowFrame(std::uint64_t window) const
{
    Display* display = xdisplay(display_);
    XWindowAttributes attributes{};
    if (window == 0 || !XGetWindowAttributes(display, window, &attributes))
        return std::nullopt;
    int x = 0;
    int y = 0;
    Window child = 0;
    XTranslateCoordinates(display, window, attributes.root, 0, 0, &x, &y, &child);
    return Rect{{double(x), double(y)}, {double(attributes.width), double(attributes.height)}};
}

std::vector<Rect> X11SaverDisplay::monitors() const
{
    Display* display = xdisplay(display_);
    std::vector<Rect> list;
    int eventBase = 0;
    int errorBase = 0;
    if (XRRQueryExtension(display, &eventBase, &errorBase)) {
        int count = 0;
        XRRMonitorInfo* monitors = XRRGetMonitors(display, DefaultRootWindow(display), True, &count);
        for (int i = 0; monitors && i < count; ++i)
            list.push_back(Rect{{double(monitors[i].x), double(monitors[i].y)}, {double(monitors[i].width), double(monitors[i].height)}});
        if (monitors)
            XRRFreeMonitors(monitors);
    }
    if (list.empty()) {
        Screen* screen = DefaultScreenOfDisplay(display);
        list.push_back(Rect{{0, 0}, {double(WidthOfScreen(screen)), double(HeightOfScreen(screen))}});
    }
    return list;
}

void X11SaverDisplay::watchForDestruction(std::uint64_t window)
{
    XSelectInput(xdisplay(display_), window, StructureNotifyMask);
    watched_.push_back(window);
    XFlush(xdisplay(display_));
}

std::uint64_t X11SaverDisplay::createCoveringWindow(const Rect& frame)
{
    Display* display = xdisplay(display_);
    XSetWindowAttributes attributes{};
    attributes.override_redirect = True;
    attributes.background_pixel = BlackPixel(display, DefaultScreen(display));
    attributes.event_mask = StructureNotifyMask | KeyPressMask | ButtonPressMask | PointerMotionMask;
    Window window = XCreateWindow(display, DefaultRootWindow(display), int(frame.x()), int(frame.y()), unsigned(frame.width()),
                                  unsigned(frame.height()), 0, CopyFromParent, InputOutput, CopyFromParent,
                                  CWOverrideRedirect | CWBackPixel | CWEventMask, &attributes);
    // No pointer over the picture.
    char empty = 0;
    Pixmap blank = XCreateBitmapFromData(display, window, &empty, 1, 1);
    XColor black{};
    Cursor cursor = XCreatePixmapCursor(display, blank, blank, &black, &black, 0, 0);
    XDefineCursor(display, window, cursor);
    XFreeCursor(display, cursor);
    XFreePixmap(display, blank);
    XMapRaised(display, window);
    XSync(display, False);
    created_.push_back(window);
    return window;
}

void X11SaverDisplay::destroyCoveringWindow(std::uint64_t window)
{
    auto it = std::find(created_.begin(), created_.end(), window);
    if (it == created_.end())
        return;
    created_.erase(it);
    XDestroyWindow(xdisplay(display_), window);
    XSync(xdisplay(display_), False);
}

bool X11SaverDisplay::grabInput(std::uint64_t window)
{
    Display* display = xdisplay(display_);
    bool keyboard = XGrabKeyboard(display, window, False, GrabModeAsync, GrabModeAsync, CurrentTime) == GrabSuccess;
    bool pointer = XGrabPointer(display, window, False, ButtonPressMask | PointerMotionMask, GrabModeAsync, GrabModeAsync, None, None,
                                CurrentTime)
        == GrabSuccess;
    Window root = 0;
    Window child = 0;
    int rootX = 0, rootY = 0, x = 0, y = 0;
    unsigned mask = 0;
    if (XQueryPointer(display, window, &root, &child, &rootX, &rootY, &x, &y, &mask))
        pointerOrigin_ = Point{double(rootX), double(rootY)};
    return keyboard && pointer;
}

X11SaverDisplay::Events X11SaverDisplay::takeEvents()
{
    Display* display = xdisplay(display_);
    Events events;
    while (XPending(display) > 0) {
        XEvent event{};
        XNextEvent(display, &event);
        switch (event.type) {
        case DestroyNotify:
            if (std::find(watched_.begin(), watched_.end(), event.xdestroywindow.window) != watched_.end())
                events.destroyed = true;
            break;
        case KeyPress:
        case ButtonPress:
            events.input = true;
            break;
        case MotionNotify: {
            Point at{double(event.xmotion.x_root), double(event.xmotion.y_root)};
            if (!pointerOrigin_)
                pointerOrigin_ = at;
            else if (std::hypot(at.x - pointerOrigin_->x, at.y - pointerOrigin_->y) > pointerSlack)
                events.input = true;
            break;
        }
        default:
            break;
        }
    }
    return events;
}

double X11SaverDisplay::idleSeconds() const
{
    Display* display = xdisplay(display_);
    int eventBase = 0;
    int errorBase = 0;
    if (!XScreenSaverQueryExtension(display, &eventBase, &errorBase))
        return 0;
    XScreenSaverInfo* info = XScreenSaverAllocInfo();
    if (!info)
        return 0;
    double seconds = 0;
    if (XScreenSaverQueryInfo(display, DefaultRootWindow(display), info))
        seconds = double(info->idle) / 1000.0;
    XFree(info);
    return seconds;
}

X11SaverDisplay::DaemonState X11SaverDisplay::daemonState() const
{
    Display* display = xdisplay(display_);
    Atom status = XInternAtom(display, "_SCREENSAVER_STATUS", True);
    if (status == None)
        return DaemonState::absent;
    Atom type = None;
    int format = 0;
    unsigned long count = 0;
    unsigned long after = 0;
    unsigned char* data = nullptr;
    DaemonState state = DaemonState::absent;
    if (XGetWindowProperty(display, DefaultRootWindow(display), status, 0, 1, False, XA_INTEGER, &type, &format, &count, &after, &data)
            == Success
        && data && format == 32 && count >= 1) {
        // The first item is the BLANK or LOCK atom while the screen is
        // blanked, 0 once it is not.
        Atom first = static_cast<Atom>(reinterpret_cast<long*>(data)[0]);
        if (first == 0)
            state = DaemonState::unblank;
        else if (first == XInternAtom(display, "LOCK", True))
            state = DaemonState::lock;
        else if (first == XInternAtom(display, "BLANK", True))
            state = DaemonState::blank;
    }
    if (data)
        XFree(data);
    return state;
}

} // namespace hushmeadows
