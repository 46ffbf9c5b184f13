#include "Platforms/Linux/SDLSceneSurface.h"

#include "SceneCore/Picture/FrameDamage.h"
#include "SceneCore/Picture/NearestUpscaler.h"

#include <SDL_syswm.h>

#include <algorithm>
#include <cstring>

namespace hushmeadows {

namespace {

// Byte order of a 4-byte surface pixel in memory, as far as our own drawing
// cares: the fourth byte is alpha or padding and never shown.
enum class ByteOrder { bgrx, rgbx, other };

ByteOrder byteOrderOf(Uint32 format)
{
    if (format == SDL_PIXELFORMAT_BGRA32)
        return ByteOrder::bgrx;
    if (format == SDL_PIXELFORMAT_RGBA32)
        return ByteOrder::rgbx;
#if SDL_BYTEORDER == SDL_LIL_ENDIAN
    if (format == SDL_PIXELFORMAT_XRGB8888)
        return ByteOrder::bgrx;
    if (format == SDL_PIXELFORMAT_XBGR8888)
        return ByteOrder::rgbx;
#else
    if (format == SDL_PIXELFORMAT_BGRX8888)
        return ByteOrder::bgrx;
    if (format == SDL_PIXELFORMAT_RGBX8888)
        return ByteOrder::rgbx;
#endif
    return ByteOrder::other;
}

bool hasPixelsFor(const Image& image)
{
    if (image.isEmpty() || image.bytesPerRow < static_cast<std::size_t>(image.width) * 4)
        return false;
    return image.pixels.size() >= image.bytesPerRow * static_cast<std::size_t>(image.height - 1) + static_cast<std::size_t>(image.width) * 4;
}

struct RGBA {
    std::uint8_t red, green, blue, alpha;
};

RGBA readPixel(const std::uint8_t* pixel, PixelFormat format)
{
    if (format == PixelFormat::rgba8)
        return {pixel[0], pixel[1], pixel[2], pixel[3]};
    return {pixel[2], pixel[1], pixel[0], pixel[3]};
}

// Straight alpha shown over black, rounded as the edge strips round it.
std::uint8_t overBlack(std::uint8_t component, std::uint8_t alpha)
{
    return static_cast<std::uint8_t>((component * alpha + 127) / 255);
}

// Non-negative a / b rounded to the nearest whole number.
long long roundedQuotient(long long a, long long b) { return (2 * a + b) / (2 * b); }

// Holds a surface's lock while we write its pixels ourselves; SDL's own blits
// and stretches lock for themselves and must not run under it.
class PixelAccess {
public:
    explicit PixelAccess(SDL_Surface* surface)
        : surface_(SDL_MUSTLOCK(surface) ? surface : nullptr)
    {
        if (surface_ && SDL_LockSurface(surface_) != 0)
            surface_ = nullptr;
    }
    ~PixelAccess()
    {
        if (surface_)
            SDL_UnlockSurface(surface_);
    }
    PixelAccess(const PixelAccess&) = delete;
    PixelAccess& operator=(const PixelAccess&) = delete;

private:
    SDL_Surface* surface_;
};

std::uint8_t* pixelAt(SDL_Surface* surface, int x, int y)
{
    return static_cast<std::uint8_t*>(surface->pixels) + static_cast<std::size_t>(y) * static_cast<std::size_t>(surface->pitch)
        + static_cast<std::size_t>(x) * 4;
}

void fillRow(std::uint8_t* out, Uint32 pixel, int count)
{
    for (int i = 0; i < count; ++i, out += 4)
        std::memcpy(out, &pixel, 4);
}

SDL_Surface* makeSurface(int width, int height, Uint32 format)
{
    SDL_Surface* surface = SDL_CreateRGBSurfaceWithFormat(0, width, height, 32, format);
    // A plain copy when it is blitted: nothing is blended over the window.
    if (surface)
        SDL_SetSurfaceBlendMode(surface, SDL_BLENDMODE_NONE);
    return surface;
}

} // namespace

std::expected<std::unique_ptr<SDLSceneSurface>, std::string> SDLSceneSurface::openWindow(const WindowOptions& options)
{
    // X11's own software framebuffer (XShm) rather than a texture that SDL
    // would upload through a renderer: far cheaper without a GPU.
    SDL_SetHint(SDL_HINT_FRAMEBUFFER_ACCELERATION, "0");

    SDL_Window* window = nullptr;
    if (options.foreignWindow) {
        window = SDL_CreateWindowFrom(reinterpret_cast<const void*>(static_cast<std::uintptr_t>(*options.foreignWindow)));
    } else if (options.size) {
        window = SDL_CreateWindow(options.title.c_str(), SDL_WINDOWPOS_UNDEFINED, SDL_WINDOWPOS_UNDEFINED, options.size->width,
                                  options.size->height, SDL_WINDOW_RESIZABLE);
    } else {
        SDL_DisplayMode mode{};
        if (SDL_GetDesktopDisplayMode(0, &mode) != 0)
            return std::unexpected(std::string(SDL_GetError()));
        window = SDL_CreateWindow(options.title.c_str(), SDL_WINDOWPOS_UNDEFINED, SDL_WINDOWPOS_UNDEFINED, mode.w, mode.h,
                                  SDL_WINDOW_FULLSCREEN_DESKTOP);
    }
    if (!window)
        return std::unexpected(std::string(SDL_GetError()));
    SDL_Surface* surface = SDL_GetWindowSurface(window);
    if (!surface) {
        std::string error = SDL_GetError();
        // A foreign window is only let go of here, never destroyed on the server.
        SDL_DestroyWindow(window);
        return std::unexpected(error);
    }
    return std::unique_ptr<SDLSceneSurface>(new SDLSceneSurface(window, surface));
}

std::optional<std::uint64_t> SDLSceneSurface::x11Window() const
{
    SDL_SysWMinfo info;
    SDL_VERSION(&info.version);
    if (!window_ || !SDL_GetWindowWMInfo(window_, &info) || info.subsystem != SDL_SYSWM_X11)
        return std::nullopt;
    return static_cast<std::uint64_t>(info.info.x11.window);
}

SDLSceneSurface::SDLSceneSurface(SDL_Surface* target)
{
    adoptTarget(target);
}

SDLSceneSurface::SDLSceneSurface(SDL_Window* window, SDL_Surface* target)
    : window_(window)
{
    adoptTarget(target);
}

SDLSceneSurface::~SDLSceneSurface()
{
    SDL_FreeSurface(scratch_);
    SDL_FreeSurface(canvas_);
    // Frees the window's surface too.
    if (window_)
        SDL_DestroyWindow(window_);
}

Size SDLSceneSurface::boundsSize() const { return {static_cast<double>(width_), static_cast<double>(height_)}; }

void SDLSceneSurface::adoptTarget(SDL_Surface* target)
{
    // The old target may already be gone (SDL frees a window's surface when
    // it makes the next one): nothing of it is read here.
    target_ = target;
    width_ = target ? target->w : 0;
    height_ = target ? target->h : 0;
    SDL_FreeSurface(canvas_);
    canvas_ = nullptr;
    if (target && byteOrderOf(target->format->format) == ByteOrder::other)
        canvas_ = makeSurface(width_, height_, SDL_PIXELFORMAT_BGRA32);
    backgroundDirty_ = true;

    SDL_Surface* drawing = canvas_ ? canvas_ : target_;
    const PixelFormat format = drawing && byteOrderOf(drawing->format->format) == ByteOrder::rgbx ? PixelFormat::rgba8 : PixelFormat::bgra8;
    if (format != drawingFormat_) {
        drawingFormat_ = format;
        prepareArtwork();
    }
}

bool SDLSceneSurface::refreshTarget()
{
    SDL_Surface* surface = SDL_GetWindowSurface(window_);
    if (!surface) {
        target_ = nullptr;
        return false;
    }
    const bool resized = surface->w != width_ || surface->h != height_;
    if (surface != target_ || resized)
        adoptTarget(surface);
    return resized;
}

bool SDLSceneSurface::handleEvent(const SDL_Event& event)
{
    if (!window_ || event.type != SDL_WINDOWEVENT || event.window.windowID != SDL_GetWindowID(window_))
        return false;
    switch (event.window.event) {
    case SDL_WINDOWEVENT_SIZE_CHANGED:
    case SDL_WINDOWEVENT_RESIZED:
        return refreshTarget();
    case SDL_WINDOWEVENT_SHOWN:
    case SDL_WINDOWEVENT_EXPOSED:
        // The server lost what we showed; the pixels we drew are still good.
        presentPending_ = true;
        return false;
    default:
        return false;
    }
}

std::optional<bool> SDLSceneSurface::visibilityChange(const SDL_Event& event) const
{
    if (!window_ || event.type != SDL_WINDOWEVENT || event.window.windowID != SDL_GetWindowID(window_))
        return std::nullopt;
    switch (event.window.event) {
    case SDL_WINDOWEVENT_SHOWN:
    case SDL_WINDOWEVENT_RESTORED:
        return true;
    case SDL_WINDOWEVENT_HIDDEN:
    case SDL_WINDOWEVENT_MINIMIZED:
        return false;
    default:
        return std::nullopt;
    }
}

void SDLSceneSurface::setArtwork(std::shared_ptr<const Image> image, PixelRect frame, Magnification magnification)
{
    if (image == artwork_ && frame == frame_ && magnification == magnification_)
        return;
    // A new picture at the same place covers the old one exactly; anything
    // else uncovers pixels that must go back to black or bars.
    if (frame == frame_ && magnification == magnification_ && image && artwork_)
        artworkDirty_ = true;
    else
        backgroundDirty_ = true;
    const bool samePicture = image == artwork_;
    artwork_ = std::move(image);
    frame_ = frame;
    magnification_ = magnification;
    if (!samePicture)
        prepareArtwork();
}

int SDLSceneSurface::wholeNearestScale() const
{
    if (!drawable_ || magnification_ != Magnification::nearest || frame_.isEmpty())
        return 0;
    const Image& image = *drawable_;
    const int scale = frame_.width / image.width;
    return scale >= 1 && frame_.width == image.width * scale && frame_.height == image.height * scale ? scale : 0;
}

void SDLSceneSurface::updateArtwork(std::shared_ptr<const Image> image, const std::vector<PixelRect>& changed)
{
    if (!image || !artwork_ || image->size() != artwork_->size() || wholeNearestScale() == 0) {
        setArtwork(std::move(image), frame_, magnification_);
        return;
    }
    artwork_ = std::move(image);
    prepareArtwork();
    if (!drawable_) {
        backgroundDirty_ = true;
        return;
    }
    // Drawn whole at the next render anyway.
    if (backgroundDirty_ || artworkDirty_)
        return;
    // Parts of several frames add up: each is against the one before, so
    // together they cover everything that differs from what shows.
    damage_.insert(damage_.end(), changed.begin(), changed.end());
    if (damage_.size() > 2 * FrameDamage::maxRects) {
        damage_.clear();
        artworkDirty_ = true;
    }
}

void SDLSceneSurface::setMargins(std::vector<MarginBar> bars)
{
    if (bars == bars_)
        return;
    bars_ = std::move(bars);
    backgroundDirty_ = true;
}

void SDLSceneSurface::clear()
{
    if (!artwork_ && bars_.empty())
        return;
    artwork_.reset();
    drawable_.reset();
    bars_.clear();
    frame_ = {};
    backgroundDirty_ = true;
}

void SDLSceneSurface::prepareArtwork()
{
    drawable_.reset();
    if (!artwork_ || !hasPixelsFor(*artwork_))
        return;
    const PixelFormat wanted = drawingFormat_;
    const Image& source = *artwork_;

    bool translucent = false;
    for (int y = 0; y < source.height && !translucent && !source.opaque; ++y) {
        const std::uint8_t* row = source.row(y);
        for (int x = 0; x < source.width; ++x) {
            if (row[static_cast<std::size_t>(x) * 4 + 3] != 255) {
                translucent = true;
                break;
            }
        }
    }
    if (!translucent && source.format == wanted) {
        drawable_ = artwork_;
        return;
    }

    Image copy = Image::blank(source.width, source.height, wanted);
    for (int y = 0; y < source.height; ++y) {
        const std::uint8_t* in = source.row(y);
        std::uint8_t* out = copy.row(y);
        for (int x = 0; x < source.width; ++x, in += 4, out += 4) {
            RGBA pixel = readPixel(in, source.format);
            if (pixel.alpha != 255) {
                pixel.red = overBlack(pixel.red, pixel.alpha);
                pixel.green = overBlack(pixel.green, pixel.alpha);
                pixel.blue = overBlack(pixel.blue, pixel.alpha);
            }
            out[0] = wanted == PixelFormat::rgba8 ? pixel.red : pixel.blue;
            out[1] = pixel.green;
            out[2] = wanted == PixelFormat::rgba8 ? pixel.blue : pixel.red;
            out[3] = 255;
        }
    }
    drawable_ = std::make_shared<const Image>(std::move(copy));
}

bool SDLSceneSurface::render()
{
    if (window_)
        refreshTarget();
    if (!target_ || !needsRender())
        return false;

    SDL_Surface* into = canvas_ ? canvas_ : target_;
    const bool everything = backgroundDirty_;
    std::vector<PixelRect> written;
    if (backgroundDirty_) {
        drawBackground(into);
        drawArtwork(into);
        written.push_back({0, 0, into->w, into->h});
    } else if (artworkDirty_) {
        written.push_back(drawArtwork(into));
    } else if (!damage_.empty()) {
        drawDamage(into, written);
    }
    std::vector<SDL_Rect> rects;
    for (const PixelRect& rect : written) {
        if (rect.isEmpty())
            continue;
        rects.push_back({rect.x, rect.y, rect.width, rect.height});
        pixelsDrawn_ += static_cast<long long>(rect.width) * rect.height;
    }
    if (canvas_) {
        for (SDL_Rect& rect : rects) {
            SDL_Rect at = rect;
            SDL_BlitSurface(canvas_, &rect, target_, &at);
        }
    }
    if (window_) {
        // An expose lost everything the server showed: send it all again.
        if (everything || presentPending_)
            SDL_UpdateWindowSurface(window_);
        else if (!rects.empty())
            SDL_UpdateWindowSurfaceRects(window_, rects.data(), static_cast<int>(rects.size()));
    }

    backgroundDirty_ = false;
    artworkDirty_ = false;
    presentPending_ = false;
    damage_.clear();
    ++framesRendered_;
    return true;
}

void SDLSceneSurface::drawDamage(SDL_Surface* into, std::vector<PixelRect>& written)
{
    const int scale = wholeNearestScale();
    if (scale == 0)
        return;
    const Image& image = *drawable_;
    PixelAccess access(into);
    PixelPlane destination{static_cast<std::uint8_t*>(into->pixels), static_cast<std::size_t>(into->pitch), into->w, into->h};
    for (const PixelRect& rect : damage_) {
        const int x0 = std::max(rect.x, 0), y0 = std::max(rect.y, 0);
        const int x1 = std::min(rect.x + rect.width, image.width), y1 = std::min(rect.y + rect.height, image.height);
        if (x0 >= x1 || y0 >= y1)
            continue;
        const ConstPixelPlane part{image.row(y0) + static_cast<std::size_t>(x0) * 4, image.bytesPerRow, x1 - x0, y1 - y0};
        written.push_back(NearestUpscaler::upscale(part, scale, destination, frame_.x + x0 * scale, frame_.y + y0 * scale));
    }
}

void SDLSceneSurface::drawBackground(SDL_Surface* into)
{
    SDL_FillRect(into, nullptr, SDL_MapRGB(into->format, 0, 0, 0));
    for (const auto& bar : bars_)
        drawBar(into, bar);
}

void SDLSceneSurface::drawBar(SDL_Surface* into, const MarginBar& bar)
{
    const int x0 = std::max(bar.rect.x, 0);
    const int y0 = std::max(bar.rect.y, 0);
    const int x1 = std::min(bar.rect.x + bar.rect.width, into->w);
    const int y1 = std::min(bar.rect.y + bar.rect.height, into->h);
    if (x0 >= x1 || y0 >= y1)
        return;
    SDL_Rect rect{x0, y0, x1 - x0, y1 - y0};

    const bool usesStrip = bar.fill == MarginBar::Fill::strip && bar.strip && hasPixelsFor(*bar.strip) && bar.spanLength > 0;
    if (!usesStrip) {
        const ColorRGB8 color = bar.fill == MarginBar::Fill::color ? bar.color : ColorRGB8{};
        SDL_FillRect(into, &rect, SDL_MapRGB(into->format, color.red, color.green, color.blue));
        return;
    }

    const Image& strip = *bar.strip;
    const long long length = bar.stripIsVertical ? strip.height : strip.width;
    // The strip pixel for a row (vertical strip) or column (horizontal).
    auto stripPixel = [&](int position) {
        long long index = static_cast<long long>(position - bar.spanStart) * length / bar.spanLength;
        index = std::clamp(index, 0LL, length - 1);
        const std::uint8_t* at = bar.stripIsVertical ? strip.row(static_cast<int>(index)) : strip.row(0) + static_cast<std::size_t>(index) * 4;
        const RGBA rgba = readPixel(at, strip.format);
        return SDL_MapRGB(into->format, rgba.red, rgba.green, rgba.blue);
    };

    PixelAccess access(into);
    if (bar.stripIsVertical) {
        for (int y = y0; y < y1; ++y)
            fillRow(pixelAt(into, x0, y), stripPixel(y), rect.w);
        return;
    }
    std::vector<Uint32> row(static_cast<std::size_t>(rect.w));
    for (int x = x0; x < x1; ++x)
        row[static_cast<std::size_t>(x - x0)] = stripPixel(x);
    for (int y = y0; y < y1; ++y)
        std::memcpy(pixelAt(into, x0, y), row.data(), row.size() * 4);
}

PixelRect SDLSceneSurface::drawArtwork(SDL_Surface* into)
{
    if (!drawable_ || frame_.isEmpty())
        return {};
    const Image& image = *drawable_;

    if (const int scale = wholeNearestScale()) {
        PixelAccess access(into);
        PixelPlane destination{static_cast<std::uint8_t*>(into->pixels), static_cast<std::size_t>(into->pitch), into->w, into->h};
        return NearestUpscaler::upscale(ConstPixelPlane::of(image), scale, destination, frame_.x, frame_.y);
    }

    // SDL only reads a surface; the pixels stay ours and are not written.
    SDL_Surface* source = SDL_CreateRGBSurfaceWithFormatFrom(const_cast<std::uint8_t*>(image.pixels.data()), image.width, image.height, 32,
                                                             static_cast<int>(image.bytesPerRow), into->format->format);
    if (!source)
        return {};
    stretchArtwork(into, source);
    SDL_FreeSurface(source);
    const int x0 = std::max(frame_.x, 0), y0 = std::max(frame_.y, 0);
    const int x1 = static_cast<int>(std::min<long long>(static_cast<long long>(frame_.x) + frame_.width, into->w));
    const int y1 = static_cast<int>(std::min<long long>(static_cast<long long>(frame_.y) + frame_.height, into->h));
    return x0 < x1 && y0 < y1 ? PixelRect{x0, y0, x1 - x0, y1 - y0} : PixelRect{};
}

void SDLSceneSurface::stretchArtwork(SDL_Surface* into, SDL_Surface* source)
{
    // Bilinear needs two pixels along each axis to blend between.
    const bool linear = magnification_ == Magnification::linear && source->w >= 2 && source->h >= 2;
    auto stretch = [linear, source](const SDL_Rect* from, SDL_Surface* to, const SDL_Rect* toRect) {
        return linear ? SDL_SoftStretchLinear(source, from, to, toRect) : SDL_SoftStretch(source, from, to, toRect);
    };

    const long long fx = frame_.x, fy = frame_.y, fw = frame_.width, fh = frame_.height;
    const long long vx0 = std::max(fx, 0LL), vy0 = std::max(fy, 0LL);
    const long long vx1 = std::min(fx + fw, static_cast<long long>(into->w));
    const long long vy1 = std::min(fy + fh, static_cast<long long>(into->h));
    if (vx0 >= vx1 || vy0 >= vy1)
        return;
    if (vx0 == fx && vy0 == fy && vx1 == fx + fw && vy1 == fy + fh) {
        SDL_Rect whole{frame_.x, frame_.y, frame_.width, frame_.height};
        stretch(nullptr, into, &whole);
        return;
    }

    // SDL's stretchers do not clip. Stretch only the source pixels that show,
    // widened to whole pixels (and one more on each side for linear, so the
    // blend at the screen edge still sees its neighbour), at the frame's own
    // scale into scratch pixels, and copy in the part inside the surface.
    struct Span {
        long long source0, source1, destination0, destination1;
    };
    auto spanOf = [linear](long long visible0, long long visible1, long long origin, long long frameLength, long long imageLength) {
        Span span;
        span.source0 = (visible0 - origin) * imageLength / frameLength;
        span.source1 = ((visible1 - origin) * imageLength + frameLength - 1) / frameLength;
        if (linear) {
            span.source0 = std::max(span.source0 - 1, 0LL);
            span.source1 = std::min(span.source1 + 1, imageLength);
        }
        span.destination0 = origin + roundedQuotient(span.source0 * frameLength, imageLength);
        span.destination1 = origin + roundedQuotient(span.source1 * frameLength, imageLength);
        return span;
    };
    const Span across = spanOf(vx0, vx1, fx, fw, source->w);
    const Span down = spanOf(vy0, vy1, fy, fh, source->h);
    const long long scratchWidth = across.destination1 - across.destination0;
    const long long scratchHeight = down.destination1 - down.destination0;
    // SDL's stretchers take 16-bit sizes.
    if (scratchWidth <= 0 || scratchHeight <= 0 || scratchWidth > 65535 || scratchHeight > 65535)
        return;

    if (!scratch_ || scratch_->w != scratchWidth || scratch_->h != scratchHeight || scratch_->format->format != into->format->format) {
        SDL_FreeSurface(scratch_);
        scratch_ = makeSurface(static_cast<int>(scratchWidth), static_cast<int>(scratchHeight), into->format->format);
        if (!scratch_)
            return;
    }
    const SDL_Rect from{static_cast<int>(across.source0), static_cast<int>(down.source0), static_cast<int>(across.source1 - across.source0),
                        static_cast<int>(down.source1 - down.source0)};
    if (stretch(&from, scratch_, nullptr) != 0)
        return;
    SDL_Rect shown{static_cast<int>(vx0 - across.destination0), static_cast<int>(vy0 - down.destination0), static_cast<int>(vx1 - vx0),
                   static_cast<int>(vy1 - vy0)};
    SDL_Rect at{static_cast<int>(vx0), static_cast<int>(vy0), shown.w, shown.h};
    SDL_BlitSurface(scratch_, &shown, into, &at);
}

} // namespace hushmeadows
