#include "Platforms/Linux/LinuxSaverHost.h"

#include "Platforms/Linux/FFmpegVideoFile.h"
#include "Platforms/Linux/ThreadSerialQueue.h"
#include "SceneCore/Picture/LoopingVideoSource.h"
#include "SceneCore/Picture/PixelSceneView.h"

namespace hushmeadows {

LinuxSaverHost::LinuxSaverHost(RunLoop& loop, X11SaverDisplay& display, std::uint64_t window, SDLSceneSurface& surface,
                               PosterStore& posters, bool preview)
    : loop_(loop)
    , display_(display)
    , window_(window)
    , surface_(surface)
    , posters_(posters)
    , preview_(preview)
{
}

LinuxSaverHost::~LinuxSaverHost() { superStopAnimation(); }

Rect LinuxSaverHost::flipped(const Rect& frame, const Rect& firstMonitor)
{
    return Rect{{frame.x() - firstMonitor.x(), firstMonitor.y() + firstMonitor.height() - (frame.y() + frame.height())}, frame.size};
}

std::optional<WindowInfo> LinuxSaverHost::window() const
{
    if (windowGone_)
        return std::nullopt;
    auto frame = display_.windowFrame(window_);
    if (!frame)
        return std::nullopt;
    auto monitors = display_.monitors();
    WindowInfo info;
    info.frame = flipped(*frame, monitors.front());
    // The window's screen is the monitor holding its centre.
    double cx = frame->x() + frame->width() / 2;
    double cy = frame->y() + frame->height() / 2;
    for (const Rect& monitor : monitors) {
        if (cx >= monitor.x() && cx < monitor.x() + monitor.width() && cy >= monitor.y() && cy < monitor.y() + monitor.height()) {
            info.screen = ScreenInfo{flipped(monitor, monitors.front())};
            break;
        }
    }
    return info;
}

std::vector<ScreenInfo> LinuxSaverHost::screens() const
{
    auto monitors = display_.monitors();
    std::vector<ScreenInfo> list;
    for (const Rect& monitor : monitors)
        list.push_back(ScreenInfo{flipped(monitor, monitors.front())});
    return list;
}

void LinuxSaverHost::superStartAnimation()
{
    if (timer_)
        return;
    timer_ = loop_.scheduleRepeating(interval_, [this] {
        if (tick_)
            tick_();
    });
}

void LinuxSaverHost::superStopAnimation()
{
    if (!timer_)
        return;
    timer_->cancel();
    timer_.reset();
}

void LinuxSaverHost::removeSceneView(SceneView& sceneView)
{
    if (shown_ == &sceneView)
        shown_ = nullptr;
}

void LinuxSaverHost::render()
{
    if (shown_ && !windowGone_)
        surface_.render();
}

std::unique_ptr<SceneView> LinuxSaverHost::makeSceneView(Size)
{
    RunLoop& loop = loop_;
    PixelSceneView::VideoSourceMaker makeSource;
    if (!postersOnly_) {
        makeSource = [&loop](const std::vector<std::filesystem::path>& urls) {
            return std::make_unique<LoopingVideoSource>(urls, loop, std::make_unique<ThreadSerialQueue>(LoopingVideoSource::queueLabel),
                                                        &FFmpegVideoFile::open);
        };
    }
    return std::make_unique<PixelSceneView>(surface_, posters_, loop_, std::move(makeSource));
}

int LinuxSaverHost::liveSceneViews() const { return PixelSceneView::liveCount(); }

int LinuxSaverHost::liveVideoSources() const { return LoopingVideoSource::liveCount(); }

} // namespace hushmeadows
