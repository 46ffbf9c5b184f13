#pragma once

#include "SceneCore/Picture/SceneSurface.h"

#include <SDL.h>

#include <cstdint>
#include <expected>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace hushmeadows {

// The scene surface on Linux: a software framebuffer that we fill ourselves,
// normally an SDL window's own surface (SDL_GetWindowSurface), presented with
// SDL_UpdateWindowSurface. Whole-scale nearest pictures go through the
// NearestUpscaler straight into the surface's pixels; every other scale goes
// through SDL's software stretchers.
//
// Nothing is drawn until render(), and render() draws only what changed since
// the last frame: a still poster costs nothing while it stands, and a frame
// of which the view says only parts changed (updateArtwork) has only those
// parts magnified and sent to the X server (SDL_UpdateWindowSurfaceRects).
// Anything that uncovers or moves pixels (a new place, size or picture,
// margins, a resize) draws everything again. Main thread only.
class SDLSceneSurface final : public SceneSurface {
public:
    struct WindowOptions {
        std::string title = "Hushmeadows";
        // A window of this size; without one, full screen on the desktop.
        std::optional<PixelSize> size;
        // Draw into this existing X window instead of opening one (the window
        // XScreenSaver gives a hack). It is not destroyed with the surface.
        std::optional<std::uint64_t> foreignWindow;
    };

    // Opens the window and fetches its surface. SDL's video subsystem must be
    // initialised. The error is SDL's text.
    static std::expected<std::unique_ptr<SDLSceneSurface>, std::string> openWindow(const WindowOptions& options);

    // Draws into a surface that the caller owns and keeps alive, with no
    // window (offscreen drawing). Any pixel format SDL can blit to works.
    explicit SDLSceneSurface(SDL_Surface* target);
    ~SDLSceneSurface() override;

    SDLSceneSurface(const SDLSceneSurface&) = delete;
    SDLSceneSurface& operator=(const SDLSceneSurface&) = delete;

    // Points are device pixels on X11.
    Size boundsSize() const override;
    double backingScale() const override { return 1.0; }
    void setArtwork(std::shared_ptr<const Image> image, PixelRect frame, Magnification magnification) override;
    // Parts are redrawn only for nearest magnification by a whole scale;
    // other pictures are redrawn whole.
    void updateArtwork(std::shared_ptr<const Image> image, const std::vector<PixelRect>& changed) override;
    void setMargins(std::vector<MarginBar> bars) override;
    void clear() override;

    // Feed every SDL event through here. Returns true when the window's size
    // changed: the owner then lays the picture out again.
    bool handleEvent(const SDL_Event& event);
    // Whether the event made the window visible (true) or hid or minimised
    // it (false); nullopt for every other event.
    std::optional<bool> visibilityChange(const SDL_Event& event) const;

    // Draws and shows a frame when anything changed since the last one.
    // Returns whether it drew.
    bool render();
    bool needsRender() const { return backgroundDirty_ || artworkDirty_ || presentPending_ || !damage_.empty(); }
    // Draws everything again at the next render().
    void setNeedsDisplay() { backgroundDirty_ = true; }

    SDL_Window* window() const { return window_; }
    // The X window drawn into, when the window is on X.
    std::optional<std::uint64_t> x11Window() const;
    long framesRendered() const { return framesRendered_; }
    // Device pixels drawn by all renders so far (what the upscaling cost).
    long long pixelsDrawn() const { return pixelsDrawn_; }

private:
    SDLSceneSurface(SDL_Window* window, SDL_Surface* target);

    // Takes the window's current surface; true when its size changed.
    bool refreshTarget();
    void adoptTarget(SDL_Surface* target);
    void prepareArtwork();
    void drawBackground(SDL_Surface* into);
    void drawBar(SDL_Surface* into, const MarginBar& bar);
    // Each returns the device pixels it wrote.
    PixelRect drawArtwork(SDL_Surface* into);
    void drawDamage(SDL_Surface* into, std::vector<PixelRect>& written);
    // The whole factor the artwork is magnified by with nearest sampling, or
    // 0 when it is not so drawn.
    int wholeNearestScale() const;
    void stretchArtwork(SDL_Surface* into, SDL_Surface* source);

    SDL_Window* window_ = nullptr;
    SDL_Surface* target_ = nullptr;
    // Where we draw when the target's pixels are not 4-byte BGRX or RGBX:
    // 32-bit BGRA, blitted (converted) to the target after each frame.
    SDL_Surface* canvas_ = nullptr;
    // Stretched pixels of a cropped picture before they are clipped in.
    SDL_Surface* scratch_ = nullptr;
    int width_ = 0;
    int height_ = 0;
    // The byte order we draw in: the target's, or the canvas's.
    PixelFormat drawingFormat_ = PixelFormat::bgra8;

    std::shared_ptr<const Image> artwork_;
    // The artwork in the drawing surface's byte order, composited over black;
    // the artwork itself when it already is.
    std::shared_ptr<const Image> drawable_;
    PixelRect frame_;
    Magnification magnification_ = Magnification::nearest;
    std::vector<MarginBar> bars_;

    bool backgroundDirty_ = true;
    bool artworkDirty_ = false;
    bool presentPending_ = false;
    // Source pixels of the artwork changed since the last render, while
    // nothing else needs drawing.
    std::vector<PixelRect> damage_;
    long framesRendered_ = 0;
    long long pixelsDrawn_ = 0;
};

} // namespace hushmeadows
