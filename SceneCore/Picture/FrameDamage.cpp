#include "SceneCore/Picture/FrameDamage.h"

#include <algorithm>
#include <cstring>

namespace hushmeadows {

namespace {

// Gathers runs band by band: a run spanning exactly the columns of a
// rectangle that ended on the band above grows that rectangle downwards.
class RunMerger {
public:
    explicit RunMerger(std::vector<PixelRect>& rects) : rects_(rects) {}

    void add(int x0, int x1, int y0, int y1)
    {
        for (std::size_t index : above_) {
            PixelRect& rect = rects_[index];
            if (rect.x == x0 && rect.width == x1 - x0 && rect.y + rect.height == y0) {
                rect.height = y1 - rect.y;
                current_.push_back(index);
                return;
            }
        }
        current_.push_back(rects_.size());
        rects_.push_back({x0, y0, x1 - x0, y1 - y0});
    }
    void endBand()
    {
        above_.swap(current_);
        current_.clear();
    }

private:
    std::vector<PixelRect>& rects_;
    std::vector<std::size_t> above_;
    std::vector<std::size_t> current_;
};

} // namespace

FrameDamage FrameDamage::between(const Image& shown, const Image& next)
{
    FrameDamage damage;
    if (shown.size() != next.size() || shown.format != next.format || shown.isEmpty()) {
        damage.kind = Kind::whole;
        return damage;
    }
    const int width = shown.width;
    const int height = shown.height;
    const std::size_t rowBytes = static_cast<std::size_t>(width) * 4;
    const int columns = (width + tileSize - 1) / tileSize;
    const int bands = (height + tileSize - 1) / tileSize;
    const long limit = static_cast<long>(columns) * bands / 2;

    std::vector<unsigned char> changed(static_cast<std::size_t>(columns));
    // Per band: the changed columns' extent, for the coarse fallback.
    struct Extent {
        int first = -1, last = -1;
    };
    std::vector<Extent> extents(static_cast<std::size_t>(bands));
    long changedTiles = 0;
    RunMerger runs(damage.rects);

    for (int band = 0; band < bands; ++band) {
        const int y0 = band * tileSize;
        const int y1 = std::min(y0 + tileSize, height);
        std::fill(changed.begin(), changed.end(), 0);
        int marked = 0;
        for (int y = y0; y < y1 && marked < columns; ++y) {
            const std::uint8_t* a = shown.row(y);
            const std::uint8_t* b = next.row(y);
            if (std::memcmp(a, b, rowBytes) == 0)
                continue;
            for (int column = 0; column < columns; ++column) {
                if (changed[static_cast<std::size_t>(column)])
                    continue;
                const std::size_t offset = static_cast<std::size_t>(column) * tileSize * 4;
                const std::size_t length = std::min<std::size_t>(tileSize * 4, rowBytes - offset);
                if (std::memcmp(a + offset, b + offset, length) != 0) {
                    changed[static_cast<std::size_t>(column)] = 1;
                    ++marked;
                }
            }
        }
        changedTiles += marked;
        if (changedTiles > limit) {
            damage.kind = Kind::whole;
            damage.rects.clear();
            return damage;
        }
        for (int column = 0; column < columns;) {
            if (!changed[static_cast<std::size_t>(column)]) {
                ++column;
                continue;
            }
            int end = column;
            while (end < columns && changed[static_cast<std::size_t>(end)])
                ++end;
            Extent& extent = extents[static_cast<std::size_t>(band)];
            if (extent.first < 0)
                extent.first = column;
            extent.last = end;
            runs.add(column * tileSize, std::min(end * tileSize, width), y0, y1);
            column = end;
        }
        runs.endBand();
    }

    if (damage.rects.empty())
        return damage;
    damage.kind = Kind::some;
    if (damage.rects.size() <= maxRects)
        return damage;
    // Too many small pieces: one rectangle per band of tiles, merged down.
    damage.rects.clear();
    RunMerger coarse(damage.rects);
    for (int band = 0; band < bands; ++band) {
        const Extent& extent = extents[static_cast<std::size_t>(band)];
        if (extent.first >= 0)
            coarse.add(extent.first * tileSize, std::min(extent.last * tileSize, width), band * tileSize, std::min((band + 1) * tileSize, height));
        coarse.endBand();
    }
    return damage;
}

} // namespace hushmeadows
