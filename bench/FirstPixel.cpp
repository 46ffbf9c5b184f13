// Time from starting a program to its first picture on the X screen: takes
// the root window's middle row and column, starts the program, and reads
// them again every 2 ms until a pixel differs and is not black (an empty
// window is no picture); prints the milliseconds from the fork. The program
// is then sent SIGTERM.
// Usage: FirstPixel COMMAND [ARGUMENTS...]

#include <chrono>
#include <csignal>
#include <cstdio>
#include <thread>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include <X11/Xlib.h>
#include <X11/Xutil.h>

namespace {

std::vector<unsigned long> sample(Display* display, Window root, int width, int height)
{
    std::vector<unsigned long> pixels;
    XImage* row = XGetImage(display, root, 0, height / 2, static_cast<unsigned>(width), 1, AllPlanes, ZPixmap);
    XImage* column = XGetImage(display, root, width / 2, 0, 1, static_cast<unsigned>(height), AllPlanes, ZPixmap);
    for (int x = 0; row && x < width; ++x)
        pixels.push_back(XGetPixel(row, x, 0));
    for (int y = 0; column && y < height; ++y)
        pixels.push_back(XGetPixel(column, 0, y));
    if (row)
        XDestroyImage(row);
    if (column)
        XDestroyImage(column);
    return pixels;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: FirstPixel COMMAND [ARGUMENTS...]\n");
        return 2;
    }
    Display* display = XOpenDisplay(nullptr);
    if (!display) {
        std::fprintf(stderr, "FirstPixel: no X display\n");
        return 1;
    }
    const Window root = DefaultRootWindow(display);
    const int width = DisplayWidth(display, DefaultScreen(display));
    const int height = DisplayHeight(display, DefaultScreen(display));
    const auto before = sample(display, root, width, height);

    const auto start = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        execvp(argv[1], argv + 1);
        _exit(127);
    }
    double milliseconds = -1;
    while (std::chrono::steady_clock::now() - start < std::chrono::seconds(20)) {
        const auto now = sample(display, root, width, height);
        bool shows = false;
        for (std::size_t i = 0; i < now.size() && i < before.size() && !shows; ++i)
            shows = now[i] != before[i] && (now[i] & 0xffffff) != 0;
        if (shows) {
            milliseconds = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
            break;
        }
        if (waitpid(child, nullptr, WNOHANG) == child)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    kill(child, SIGTERM);
    waitpid(child, nullptr, 0);
    XCloseDisplay(display);
    if (milliseconds < 0) {
        std::fprintf(stderr, "FirstPixel: nothing appeared\n");
        return 1;
    }
    std::printf("%.1f\n", milliseconds);
    return 0;
}
