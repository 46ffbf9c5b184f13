#pragma once

#include "SceneCore/Picture/SceneSurface.h"

#include <memory>

namespace hushmeadows {

// The scene surface on macOS: an artwork layer and a margin layer inside the
// saver view's backing layer. Contents are CGImages made from the core's
// images; magnification follows the view's filter choice.
class LayerSceneSurface final : public SceneSurface {
public:
    LayerSceneSurface();
    ~LayerSceneSurface() override;

    // Puts the layers into a host layer (a CALayer*, passed opaquely so this
    // header stays plain C++), or takes them out.
    void attach(void* hostLayer);
    void detach();

    Size boundsSize() const override;
    double backingScale() const override;
    void setArtwork(std::shared_ptr<const Image> image, PixelRect frame, Magnification magnification) override;
    // Core Animation magnifies on the GPU from the frame's own pixels, so a
    // changed part saves no drawing here: the new frame replaces the
    // contents whole (the view already skips frames equal to the last).
    void updateArtwork(std::shared_ptr<const Image> image, const std::vector<PixelRect>& changed) override;
    void setMargins(std::vector<MarginBar> bars) override;
    void clear() override;

private:
    struct Layers;
    std::unique_ptr<Layers> layers_;
};

} // namespace hushmeadows
