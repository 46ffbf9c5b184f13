#include "SceneCore/Picture/PixelSceneView.h"

#include "SceneCore/Picture/FrameDamage.h"
#include "SceneCore/Runtime/Log.h"

#include <algorithm>
#include <atomic>
#include <cmath>

namespace hushmeadows {

namespace {

std::atomic<int> liveViews{0};

ColorRGB8 toColor(double red, double green, double blue)
{
    auto byte = [](double v) { return static_cast<std::uint8_t>(std::lround(std::clamp(v, 0.0, 1.0) * 255.0)); };
    return {byte(red), byte(green), byte(blue)};
}

int roundPixel(double v) { return static_cast<int>(std::lround(v)); }

constexpr double latePollInterval = 0.003;

} // namespace

PixelSceneView::PixelSceneView(SceneSurface& surface, PosterStore& posters, RunLoop& mainLoop, VideoSourceMaker makeSource)
    : surface_(surface)
    , posters_(posters)
    , mainLoop_(mainLoop)
    , makeSource_(std::move(makeSource))
{
    ++liveViews;
}

PixelSceneView::PixelSceneView(std::unique_ptr<SceneSurface> surface, PosterStore& posters, RunLoop& mainLoop, VideoSourceMaker makeSource)
    : PixelSceneView(*surface, posters, mainLoop, std::move(makeSource))
{
    ownedSurface_ = std::move(surface);
}

PixelSceneView::~PixelSceneView()
{
    unload();
    --liveViews;
}

int PixelSceneView::liveCount() { return liveViews.load(); }

void PixelSceneView::setPixelPerfect(bool pixelPerfect)
{
    pixelPerfect_ = pixelPerfect;
    layout();
}

void PixelSceneView::setFillsView(bool fillsView)
{
    fillsView_ = fillsView;
    layout();
}

void PixelSceneView::unload()
{
    ++*generation_;
    if (source_)
        source_->invalidate();
    source_.reset();
    if (tick_)
        tick_->cancel();
    tick_.reset();
    running_ = false;
    world_.reset();
    poster_.reset();
    artwork_.reset();
    showsVideo_ = false;
    artworkFrame_.reset();
    lastLayout_.reset();
    surface_.clear();
}

void PixelSceneView::load(const WorldPackage& world)
{
    unload();
    world_ = world;
    lateness_ = FrameLateness();
    if (auto urls = world.videoURLs(); makeSource_ && !urls.empty())
        source_ = makeSource_(urls);
    updateRunState();

    auto posterURL = world.posterURL();
    if (!posterURL) {
        Log::picture.error("World %{public}s has no poster; the picture stays black until its video plays", world.id());
        return;
    }
    std::weak_ptr<int> generation = generation_;
    int expected = *generation_;
    std::string id = world.id();
    posters_.load(*posterURL, [this, generation, expected, id](PosterStore::EntryPtr entry) {
        auto current = generation.lock();
        if (!current || *current != expected)
            return;
        if (!entry) {
            Log::picture.error("The poster of %{public}s could not be decoded", id);
            return;
        }
        showPoster(std::move(entry));
    });
}

void PixelSceneView::showPoster(PosterStore::EntryPtr entry)
{
    // The poster's edges dress the margins even once the video shows.
    poster_ = entry;
    if (!showsVideo_) {
        // Shares the entry's lifetime: the image stays while the surface shows it.
        artwork_ = std::shared_ptr<const Image>(entry, &entry->image);
        ++framesDisplayed_;
    }
    layout();
}

void PixelSceneView::play()
{
    wantsPlay_ = true;
    updateRunState();
}

void PixelSceneView::setSuspended(Suspension reason, bool suspended)
{
    if (suspended)
        suspensions_ |= bit(reason);
    else
        suspensions_ &= ~bit(reason);
    updateRunState();
}

void PixelSceneView::updateRunState()
{
    running_ = wantsPlay_ && world_.has_value() && suspensions_ == 0;
    if (!source_)
        return;
    if (running_) {
        source_->play();
        if (!tick_)
            scheduleTick();
    } else {
        source_->pause();
        if (tick_)
            tick_->cancel();
        tick_.reset();
    }
}

void PixelSceneView::scheduleTick()
{
    // Wake when the next frame falls due. While none is decoded yet: before
    // the first, look again within half a frame's time; later, at the time
    // the next should be due, and once that has passed (the decoder is
    // behind) every few milliseconds, so a late frame is not made later.
    const double now = mainLoop_.mediaTime();
    const double rate = std::max(source_->nominalFrameRate(), 1.0);
    double delay = 0.5 / std::max(rate, 48.0);
    if (auto due = source_->nextFrameDueTime())
        delay = std::clamp(*due - now, 0.0, 1.0);
    else if (showsVideo_)
        delay = std::clamp(source_->lastFrameDueTime() + 1 / rate - now, latePollInterval, 1.0);
    tick_ = mainLoop_.postAfter(delay, [this] {
        pumpFrame();
        // pumpFrame lets the tick go for good when nothing will ever come.
        if (tick_ && running_ && source_)
            scheduleTick();
    });
}

void PixelSceneView::pumpFrame()
{
    if (!source_ || !world_)
        return;
    if (source_->didFail()) {
        // Nothing will ever come: the poster stands and the tick rests.
        if (tick_)
            tick_->cancel();
        tick_.reset();
        if (showsVideo_) {
            // The video failed while playing: never a frozen last frame.
            showsVideo_ = false;
            artwork_.reset();
            artworkFrame_.reset();
            if (poster_)
                showPoster(poster_);
            else
                surface_.clear();
        }
        return;
    }
    auto frame = source_->copyNewFrame(mainLoop_.mediaTime());
    if (!frame)
        return; // the last frame (or the poster) stays
    showFrame(std::move(frame));
    ++framesDisplayed_;
    // The surface presents what it was given before the run loop next waits.
    lateness_.record(mainLoop_.mediaTime() - source_->lastFrameDueTime(), source_->lastFramesPassedOver());
}

void PixelSceneView::showFrame(std::shared_ptr<const Image> frame)
{
    const bool samePlace = showsVideo_ && artwork_ && artworkFrame_ && artwork_->size() == frame->size();
    showsVideo_ = true;
    if (!samePlace) {
        // The first frame after the poster, or a new size: laid out afresh.
        artwork_ = std::move(frame);
        layout();
        return;
    }
    FrameDamage damage = FrameDamage::between(*artwork_, *frame);
    switch (damage.kind) {
    case FrameDamage::Kind::none:
        // What shows is this frame already; its buffer goes back to the pool.
        return;
    case FrameDamage::Kind::some:
        artwork_ = std::move(frame);
        surface_.updateArtwork(artwork_, damage.rects);
        return;
    case FrameDamage::Kind::whole:
        artwork_ = std::move(frame);
        surface_.setArtwork(artwork_, *artworkFrame_, world_->manifest().visual.pixelArt ? Magnification::nearest : Magnification::linear);
        return;
    }
}

void PixelSceneView::tearDown()
{
    wantsPlay_ = false;
    unload();
}

void PixelSceneView::layout()
{
    if (!world_ || !artwork_)
        return;
    const auto& visual = world_->manifest().visual;
    SceneLayout::Input input;
    input.contentSize = {static_cast<double>(artwork_->width), static_cast<double>(artwork_->height)};
    input.boundsSize = surface_.boundsSize();
    input.backingScale = surface_.backingScale();
    input.scaling = visual.scaling;
    input.focus = visual.focus;
    input.safeArea = visual.safeArea;
    input.pixelPerfect = pixelPerfect_ && visual.pixelArt;
    input.alwaysFill = fillsView_;
    input.protectsSafeArea = visual.protectsSafeArea;
    SceneLayout::Result result = SceneLayout::compute(input);
    lastLayout_ = result;
    if (result.scale <= 0) {
        artworkFrame_.reset();
        surface_.clear();
        return;
    }

    // The layout's frame is in points from the bottom left; the surface
    // counts device pixels from the top left.
    double pixelsPerPoint = input.backingScale > 1 ? input.backingScale : 1;
    PixelRect frame{roundPixel(result.frame.x() * pixelsPerPoint),
                    roundPixel((input.boundsSize.height - result.frame.y() - result.frame.height()) * pixelsPerPoint),
                    roundPixel(result.frame.width() * pixelsPerPoint), roundPixel(result.frame.height() * pixelsPerPoint)};
    PixelSize view{roundPixel(input.boundsSize.width * pixelsPerPoint), roundPixel(input.boundsSize.height * pixelsPerPoint)};

    artworkFrame_ = frame;
    surface_.setArtwork(artwork_, frame, visual.pixelArt ? Magnification::nearest : Magnification::linear);
    surface_.setMargins(marginBars(frame, view, visual, poster_));
}

std::vector<MarginBar> PixelSceneView::marginBars(PixelRect frame, PixelSize view, const WorldManifest::Visual& visual, const PosterStore::EntryPtr& poster)
{
    const std::optional<EdgeStrips>* strips = poster ? &poster->strips : nullptr;
    if (strips && !*strips)
        strips = nullptr;
    int x0 = std::clamp(frame.x, 0, view.width);
    int y0 = std::clamp(frame.y, 0, view.height);
    int x1 = std::clamp(frame.x + frame.width, x0, view.width);
    int y1 = std::clamp(frame.y + frame.height, y0, view.height);

    ColorRGB8 average;
    if (strips) {
        const auto& components = (*strips)->averageComponents;
        average = toColor(components.red, components.green, components.blue);
    }
    std::optional<ColorRGB8> matte;
    if (visual.matteIsAuto())
        matte = average;
    else if (auto rgb = visual.matteComponents())
        matte = toColor(rgb->red, rgb->green, rgb->blue);

    std::vector<MarginBar> bars;
    auto add = [&](PixelRect rect, const Image* strip, bool vertical) {
        if (rect.isEmpty())
            return;
        MarginBar bar;
        bar.rect = rect;
        if (matte || !strips || !strip) {
            bar.color = matte.value_or(average);
        } else {
            bar.fill = MarginBar::Fill::strip;
            // Shares the poster entry's lifetime rather than copying the strip.
            bar.strip = std::shared_ptr<const Image>(poster, strip);
            bar.stripIsVertical = vertical;
            bar.spanStart = vertical ? frame.y : frame.x;
            bar.spanLength = vertical ? frame.height : frame.width;
        }
        bars.push_back(std::move(bar));
    };

    add({0, y0, x0, y1 - y0}, strips ? &(*strips)->left : nullptr, true);
    add({x1, y0, view.width - x1, y1 - y0}, strips ? &(*strips)->right : nullptr, true);
    add({x0, 0, x1 - x0, y0}, strips ? &(*strips)->top : nullptr, false);
    add({x0, y1, x1 - x0, view.height - y1}, strips ? &(*strips)->bottom : nullptr, false);
    // Corners belong to no single edge: the average colour.
    add({0, 0, x0, y0}, nullptr, true);
    add({x1, 0, view.width - x1, y0}, nullptr, true);
    add({0, y1, x0, view.height - y1}, nullptr, true);
    add({x1, y1, view.width - x1, view.height - y1}, nullptr, true);
    return bars;
}

} // namespace hushmeadows
