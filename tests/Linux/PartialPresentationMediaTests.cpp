// What the X server shows when only the changed parts of frames are
// magnified and presented must equal, frame after frame, what drawing every
// frame whole gives. Real lossless clips decoded by FFmpeg, a real window on
// a private Xvfb, screenshots read back from the server.

#include "Platforms/Linux/FFmpegImageDecoder.h"
#include "Platforms/Linux/FFmpegMediaProbe.h"
#include "Platforms/Linux/FFmpegVideoFile.h"
#include "Platforms/Linux/SDLSceneSurface.h"
#include "SceneCore/Picture/PixelSceneView.h"
#include "SceneCore/Runtime/ManualRunLoop.h"
#include "tests/support/FixtureKit.h"
#include "tests/support/ManualSerialQueue.h"

#include <SDL.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
// Last: Xlib's macros (None, Bool, Status) clash with the headers above.
#include <SDL_syswm.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

namespace hushmeadows {
namespace {

// An Xvfb of our own for the length of a test, with SDL's video on it.
class PrivateDisplay {
public:
    PrivateDisplay()
    {
        for (int n = 231; n < 290 && pid_ <= 0; ++n) {
            const std::string number = std::to_string(n);
            if (access(("/tmp/.X11-unix/X" + number).c_str(), F_OK) == 0 || access(("/tmp/.X" + number + "-lock").c_str(), F_OK) == 0)
                continue;
            name_ = ":" + number;
            if ((pid_ = fork()) == 0) {
                execlp("Xvfb", "Xvfb", name_.c_str(), "-screen", "0", "640x480x24", "-nolisten", "tcp", "-noreset", static_cast<char*>(nullptr));
                _exit(127);
            }
        }
        // Ready when it answers (it may take long on a loaded machine).
        for (int attempt = 0; pid_ > 0 && attempt < 600 && waitpid(pid_, nullptr, WNOHANG) != pid_; ++attempt) {
            if (Display* probe = XOpenDisplay(name_.c_str())) {
                XCloseDisplay(probe);
                setenv("DISPLAY", name_.c_str(), 1);
                SDL_SetHint(SDL_HINT_VIDEODRIVER, "x11");
                ready_ = SDL_InitSubSystem(SDL_INIT_VIDEO) == 0;
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    }
    ~PrivateDisplay()
    {
        if (ready_)
            SDL_QuitSubSystem(SDL_INIT_VIDEO);
        if (pid_ > 0)
            kill(pid_, SIGTERM), waitpid(pid_, nullptr, 0);
    }
    bool ready() const { return ready_; }

private:
    std::string name_;
    pid_t pid_ = -1;
    bool ready_ = false;
};

// Passes everything to the surface under test and keeps the whole picture
// the calls stand for, so the same frame can be drawn whole beside it.
class TeeSurface final : public SceneSurface {
public:
    explicit TeeSurface(SDLSceneSurface& inner) : inner_(inner) {}
    std::shared_ptr<const Image> artwork;
    PixelRect frame;
    Magnification magnification = Magnification::nearest;
    std::vector<MarginBar> bars;
    int partialUpdates = 0;

    Size boundsSize() const override { return inner_.boundsSize(); }
    double backingScale() const override { return inner_.backingScale(); }
    void setArtwork(std::shared_ptr<const Image> image, PixelRect rect, Magnification m) override
    {
        artwork = image, frame = rect, magnification = m;
        inner_.setArtwork(std::move(image), rect, m);
    }
    void updateArtwork(std::shared_ptr<const Image> image, const std::vector<PixelRect>& changed) override
    {
        artwork = image, ++partialUpdates;
        inner_.updateArtwork(std::move(image), changed);
    }
    void setMargins(std::vector<MarginBar> b) override { inner_.setMargins(bars = std::move(b)); }
    void clear() override { artwork.reset(), bars.clear(), inner_.clear(); }

private:
    SDLSceneSurface& inner_;
};

constexpr int clipWidth = 40, clipHeight = 24;

// The clip's frames as RGB bytes: scattered single pixels that pile up, then
// a block moving across, two equal frames, one frame where every pixel
// changes, and more scattered pixels; the last differs from the first, so
// the loop point changes the picture too.
std::vector<std::vector<std::uint8_t>> clipFrames()
{
    std::vector<std::uint8_t> picture(static_cast<std::size_t>(clipWidth) * clipHeight * 3);
    for (std::size_t i = 0; i < picture.size(); ++i)
        picture[i] = static_cast<std::uint8_t>(i * 7 % 200);
    auto set = [&picture](int x, int y, std::uint8_t r, std::uint8_t g, std::uint8_t b) {
        std::uint8_t* at = &picture[(static_cast<std::size_t>(y) * clipWidth + static_cast<std::size_t>(x)) * 3];
        at[0] = r, at[1] = g, at[2] = b;
    };
    std::vector<std::vector<std::uint8_t>> frames{picture};
    std::uint32_t state = 12345;
    auto next = [&state] { return state = state * 1103515245u + 12345u, (state >> 8) & 0xffff; };
    auto scatter = [&](int count) {
        for (int i = 0; i < count; ++i)
            set(static_cast<int>(next() % clipWidth), static_cast<int>(next() % clipHeight), 250, static_cast<std::uint8_t>(next()), 5);
        frames.push_back(picture);
    };
    for (int f = 0; f < 6; ++f)
        scatter(3);
    const std::vector<std::uint8_t> background = picture;
    for (int step = 0; step < 8; ++step) {
        picture = background;
        for (int y = 5; y < 13; ++y)
            for (int x = 0; x < 9; ++x)
                set(std::clamp(step * 4 + x - 3, 0, clipWidth - 1), y, 10, 240, static_cast<std::uint8_t>(step * 30));
        frames.push_back(picture);
    }
    frames.push_back(picture);
    for (auto& byte : picture)
        byte = static_cast<std::uint8_t>(255 - byte);
    frames.push_back(picture);
    for (int f = 0; f < 4; ++f)
        scatter(2);
    return frames;
}

std::filesystem::path makeClip(const testing::TempDir& dir, const std::vector<std::vector<std::uint8_t>>& frames)
{
    const auto raw = dir / "frames.rgb";
    std::ofstream out(raw, std::ios::binary);
    for (const auto& frame : frames)
        out.write(reinterpret_cast<const char*>(frame.data()), static_cast<std::streamsize>(frame.size()));
    out.close();
    const auto clip = dir / "world.hushmeadow" / "loop.mkv";
    std::filesystem::create_directories(clip.parent_path());
    testing::runCommand("ffmpeg -hide_banner -loglevel error -y -f rawvideo -pix_fmt rgb24 -s " + std::to_string(clipWidth) + "x"
                        + std::to_string(clipHeight) + " -r 12 -i " + testing::shellQuoted(raw.string())
                        + " -c:v libx264rgb -preset ultrafast -qp 0 -pix_fmt rgb24 " + testing::shellQuoted(clip.string()));
    return clip;
}

// Where the window's pixels, as the X server holds them, first differ from
// the same scene drawn whole on an offscreen surface; empty when they do not.
std::string differenceFromWholeRendering(SDLSceneSurface& surface, const TeeSurface& tee)
{
    const int width = static_cast<int>(surface.boundsSize().width), height = static_cast<int>(surface.boundsSize().height);
    SDL_SysWMinfo info;
    SDL_VERSION(&info.version);
    XImage* shot = SDL_GetWindowWMInfo(surface.window(), &info)
        ? XGetImage(info.info.x11.display, info.info.x11.window, 0, 0, static_cast<unsigned>(width), static_cast<unsigned>(height), AllPlanes, ZPixmap)
        : nullptr;
    if (!shot)
        return "no screenshot";
    SDL_Surface* target = SDL_CreateRGBSurfaceWithFormat(0, width, height, 32, SDL_PIXELFORMAT_XRGB8888);
    {
        SDLSceneSurface reference(target);
        reference.setArtwork(tee.artwork, tee.frame, tee.magnification);
        reference.setMargins(tee.bars);
        reference.render();
    }
    std::string difference;
    for (int y = 0; y < height && difference.empty(); ++y)
        for (int x = 0; x < width && difference.empty(); ++x) {
            std::uint32_t want;
            std::memcpy(&want, static_cast<const std::uint8_t*>(target->pixels) + y * target->pitch + x * 4, 4);
            if ((XGetPixel(shot, x, y) & 0xffffff) != (want & 0xffffff))
                difference = "pixel " + std::to_string(x) + "," + std::to_string(y) + " at width " + std::to_string(width);
        }
    SDL_FreeSurface(target);
    XDestroyImage(shot);
    return difference;
}

TEST(PartialPresentation, EveryFrameOnScreenEqualsTheWholeFrameRendering)
{
    PrivateDisplay display;
    ASSERT_TRUE(display.ready()) << "no private X server: " << SDL_GetError();
    testing::TempDir dir;
    const auto frames = clipFrames();
    const auto clip = makeClip(dir, frames);
    testing::copyFile(testing::poster(clipWidth, clipHeight), clip.parent_path() / "poster.png");

    // 210 × 150 shows the clip whole at 5× (200 × 120) with bars from the
    // poster's edges on every side.
    SDLSceneSurface::WindowOptions options;
    options.size = PixelSize{210, 150};
    auto opened = SDLSceneSurface::openWindow(options);
    ASSERT_TRUE(opened) << opened.error();
    SDLSceneSurface& surface = **opened;
    TeeSurface tee(surface);

    ManualRunLoop loop(100);
    FFmpegMediaProbe probe;
    auto posterQueue = std::make_unique<testing::ManualSerialQueue>(PosterStore::queueLabel);
    auto* posterWork = posterQueue.get();
    PosterStore posters(loop, std::move(posterQueue), std::make_shared<FFmpegImageDecoder>(), probe);
    testing::ManualSerialQueue* videoWork = nullptr;
    PixelSceneView view(tee, posters, loop, [&](const std::vector<std::filesystem::path>& urls) {
        auto queue = std::make_unique<testing::ManualSerialQueue>(LoopingVideoSource::queueLabel);
        videoWork = queue.get();
        return std::make_unique<LoopingVideoSource>(urls, loop, std::move(queue), &FFmpegVideoFile::open);
    });
    WorldManifest manifest;
    manifest.id = manifest.name = "changes";
    manifest.visual.file = "loop.mkv";
    manifest.visual.poster = "poster.png";
    manifest.visual.pixelArt = true;
    manifest.visual.scaling = WorldManifest::Scaling::aspectFit;
    view.load(WorldPackage(clip.parent_path(), manifest, {}));
    view.play();

    // The poster first, then the video over it.
    posterWork->runAll();
    loop.runPending();
    surface.render();
    ASSERT_NE(tee.artwork, nullptr);
    ASSERT_EQ(tee.frame, (PixelRect{5, 15, 200, 120}));
    EXPECT_EQ(differenceFromWholeRendering(surface, tee), "");

    // Two passes and a bit: every frame, the loop point twice.
    const long total = static_cast<long>(frames.size()) * 2 + 3;
    long checked = 0, equalFramesSkipped = 0;
    while (view.framesDisplayed() < total + 1) {
        const long before = view.framesDisplayed();
        const long long drawnBefore = surface.pixelsDrawn();
        if (videoWork)
            videoWork->runAll();
        loop.runPending();
        if (videoWork)
            videoWork->runAll();
        loop.advance(1.0 / 48);
        if (view.framesDisplayed() == before)
            continue;
        if (!surface.render()) {
            // A frame equal to the one showing: nothing drawn, nothing sent.
            EXPECT_EQ(surface.pixelsDrawn(), drawnBefore);
            ++equalFramesSkipped;
        }
        ASSERT_EQ(differenceFromWholeRendering(surface, tee), "") << "after frame " << view.framesDisplayed();
        if (++checked == static_cast<long>(frames.size()) + 5) {
            // A resize mid-run moves the picture (now 6×) and the bars: drawn whole again.
            SDL_SetWindowSize(surface.window(), 260, 150);
            bool resized = false;
            SDL_Event event;
            while (!resized && SDL_WaitEventTimeout(&event, 10000))
                resized = surface.handleEvent(event);
            ASSERT_TRUE(resized);
            view.layout();
            ASSERT_EQ(tee.frame, (PixelRect{10, 3, 240, 144}));
        }
        ASSERT_LT(loop.mediaTime(), 130) << "the video stopped";
    }
    EXPECT_GE(checked, total);
    // The two equal frames, once per pass.
    EXPECT_EQ(equalFramesSkipped, 2);
    EXPECT_GT(tee.partialUpdates, static_cast<int>(frames.size()));
    // Frames came on time and none were passed over.
    EXPECT_EQ(view.frameLateness().skipped, 0);
    EXPECT_LT(view.frameLateness().maximum, 1e-3);
    view.tearDown();
}

} // namespace
} // namespace hushmeadows
