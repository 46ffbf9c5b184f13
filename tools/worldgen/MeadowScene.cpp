#include "tools/worldgen/MeadowScene.h"

#include "tools/worldgen/Random.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace hushmeadows::worldgen {

namespace {

constexpr int W = ArtCanvas::width;
constexpr int H = ArtCanvas::height;
constexpr double tau = 2 * std::numbers::pi;

// Sky band tops; the last band reaches down behind the hills.
constexpr std::array<int, 6> skyEdges{0, 24, 44, 62, 78, 92};
constexpr int meadowBand1 = 150;
constexpr int meadowBand2 = 165;

double fraction(double value) { return value - std::floor(value); }

int toPixel(double value) { return static_cast<int>(std::lround(value)); }

bool checker(int x, int y) { return ((x + y) & 1) == 0; }

MeadowScene::Palette dayPalette()
{
    MeadowScene::Palette p{};
    p.sky = {Rgb::hex(0x6DA7DB), Rgb::hex(0x7FB3E0), Rgb::hex(0x93C0E5), Rgb::hex(0xA8CDE9), Rgb::hex(0xBFDAEC), Rgb::hex(0xD6E7EE)};
    p.halo = Rgb::hex(0xFFF6DA);
    p.sunOrMoon = Rgb::hex(0xFFF5CF);
    p.sunOrMoonShade = Rgb::hex(0xFCE7A6);
    p.cloudRim = Rgb::hex(0xFFFFFF);
    p.cloud = Rgb::hex(0xF0F5F9);
    p.cloudShade = Rgb::hex(0xD3E1EC);
    p.farHill = Rgb::hex(0x9DC3B4);
    p.farHillRim = Rgb::hex(0xB3D3C3);
    p.farTree = Rgb::hex(0x87B1A2);
    p.nearHill = Rgb::hex(0x7DB36A);
    p.nearHillRim = Rgb::hex(0x95C67B);
    p.nearHillShade = Rgb::hex(0x70A760);
    p.treeDark = Rgb::hex(0x4E8A4A);
    p.treeLight = Rgb::hex(0x68A55B);
    p.trunk = Rgb::hex(0x6B4E36);
    p.wall = Rgb::hex(0x9A6B47);
    p.wallShade = Rgb::hex(0x80593A);
    p.roof = Rgb::hex(0xB5523F);
    p.roofShade = Rgb::hex(0x8E3E31);
    p.door = Rgb::hex(0x5A3A28);
    p.window = Rgb::hex(0xCFE6F0);
    p.chimney = Rgb::hex(0x8A8178);
    p.smoke = Rgb::hex(0xC4CDD3);
    p.meadow = {Rgb::hex(0x8CC45C), Rgb::hex(0x7DB852), Rgb::hex(0x6EAB49)};
    p.meadowRim = Rgb::hex(0xA3D26E);
    p.flowers = {Rgb::hex(0xFFFDF4), Rgb::hex(0xF6D65A), Rgb::hex(0xF0A2C0)};
    p.bladeDark = Rgb::hex(0x5A973E);
    p.bladeLight = Rgb::hex(0x9ACF62);
    p.bladeTip = Rgb::hex(0xBFE284);
    p.foregroundDark = Rgb::hex(0x4A8734);
    p.foregroundLight = Rgb::hex(0x6BA945);
    p.moteBright = Rgb::hex(0xFFF9D0);
    p.moteDim = Rgb::hex(0xE6E2B4);
    p.moteGlow = p.moteDim;
    p.star = p.sky[0];
    p.starDim = p.sky[0];
    p.bird = Rgb::hex(0x3E4B5C);
    return p;
}

MeadowScene::Palette nightPalette()
{
    MeadowScene::Palette p{};
    p.sky = {Rgb::hex(0x0B1230), Rgb::hex(0x0F1839), Rgb::hex(0x141F44), Rgb::hex(0x19274F), Rgb::hex(0x20305A), Rgb::hex(0x2A3B66)};
    p.halo = Rgb::hex(0x8393C4);
    p.sunOrMoon = Rgb::hex(0xF2EDD5);
    p.sunOrMoonShade = Rgb::hex(0xD5CDB0);
    p.cloudRim = Rgb::hex(0x56648F);
    p.cloud = Rgb::hex(0x2C375F);
    p.cloudShade = Rgb::hex(0x232D52);
    p.farHill = Rgb::hex(0x1C3448);
    p.farHillRim = Rgb::hex(0x284661);
    p.farTree = Rgb::hex(0x172C3E);
    p.nearHill = Rgb::hex(0x173A36);
    p.nearHillRim = Rgb::hex(0x22504A);
    p.nearHillShade = Rgb::hex(0x143330);
    p.treeDark = Rgb::hex(0x0F2A28);
    p.treeLight = Rgb::hex(0x1A3C38);
    p.trunk = Rgb::hex(0x1A2424);
    p.wall = Rgb::hex(0x3A2E2C);
    p.wallShade = Rgb::hex(0x2E2422);
    p.roof = Rgb::hex(0x4A2A2C);
    p.roofShade = Rgb::hex(0x36201F);
    p.door = Rgb::hex(0x21191A);
    p.window = Rgb::hex(0xFFD27A);
    p.chimney = Rgb::hex(0x3A3A44);
    p.smoke = Rgb::hex(0x5B6790);
    p.meadow = {Rgb::hex(0x1D4337), Rgb::hex(0x193C31), Rgb::hex(0x15352B)};
    p.meadowRim = Rgb::hex(0x285A49);
    p.flowers = {Rgb::hex(0xB8C2D8), Rgb::hex(0xA3AC7C), Rgb::hex(0x9C86A8)};
    p.bladeDark = Rgb::hex(0x173A2E);
    p.bladeLight = Rgb::hex(0x2D6150);
    p.bladeTip = Rgb::hex(0x3E7862);
    p.foregroundDark = Rgb::hex(0x0F2A22);
    p.foregroundLight = Rgb::hex(0x1F4A3A);
    p.moteBright = Rgb::hex(0xF4FF9E);
    p.moteDim = Rgb::hex(0x9DBA55);
    p.moteGlow = Rgb::hex(0x4F6E36);
    p.star = Rgb::hex(0xE6EAF8);
    p.starDim = Rgb::hex(0x7C89B2);
    p.bird = p.sky[0];
    return p;
}

struct Celestial {
    double x, y;
};

Celestial celestialOf(TimeOfDay timeOfDay)
{
    return timeOfDay == TimeOfDay::day ? Celestial{58, 34} : Celestial{252, 32};
}

constexpr double celestialRadius = 8.0;

} // namespace

MeadowScene::MeadowScene(TimeOfDay timeOfDay, int loopFrames)
    : timeOfDay_(timeOfDay)
    , loopFrames_(loopFrames)
    , palette_(timeOfDay == TimeOfDay::day ? dayPalette() : nightPalette())
{
    for (int x = 0; x < W; ++x) {
        farTop_[x] = toPixel(97 - (5 * std::sin(0.021 * x + 0.7) + 3 * std::sin(0.053 * x + 2.1) + 1.5 * std::sin(0.13 * x + 4.0)));
        nearTop_[x] = toPixel(116 - (6 * std::sin(0.016 * x + 2.4) + 3 * std::sin(0.045 * x + 0.3) + 1.0 * std::sin(0.11 * x + 1.0)));
        meadowTop_[x] = toPixel(137 - (2.5 * std::sin(0.012 * x + 1.2) + 1.2 * std::sin(0.04 * x + 0.4)));
    }

    // One layout for day and night: the same seeds place the same things.
    Random layout(0x6D6561646F77ull);

    const int cloudCount = timeOfDay == TimeOfDay::day ? 4 : 3;
    const std::array<double, 4> cloudX{40, 128, 206, 290};
    const std::array<double, 4> cloudY{30, 18, 46, 26};
    for (int i = 0; i < 4; ++i) {
        Cloud cloud{cloudX[i] + layout.between(-6, 6), cloudY[i], layout.between(3.5, 6.5), layout.between(0, tau), {}};
        int puffs = layout.integer(4, 6);
        double span = puffs * 5.0;
        for (int k = 0; k < puffs; ++k) {
            double along = (k + 0.5) / puffs;
            double bulge = std::sin(along * std::numbers::pi);
            double radius = 2.5 + 4.5 * bulge * layout.between(0.75, 1.0);
            cloud.puffs.push_back({(along - 0.5) * span, -radius * 0.45 + layout.between(-0.5, 0.5), radius});
        }
        if (i < cloudCount)
            clouds_.push_back(std::move(cloud));
    }

    for (int i = 0; i < 26; ++i)
        farTrees_.push_back(layout.integer(0, W - 1));

    for (int x : {22, 31, 39, 47, 96, 262, 271, 283, 306})
        trees_.push_back({x, layout.between(3.5, 6.0), layout.integer(2, 3)});

    cabinX_ = 196;
    cabinBase_ = 0;
    for (int x = cabinX_; x < cabinX_ + 16; ++x)
        cabinBase_ = std::max(cabinBase_, nearTop_[x] + 1);

    for (int i = 0; i < 150; ++i) {
        int x = layout.integer(0, W - 1);
        // More flowers near the viewer, where the meadow is larger.
        double depth = std::sqrt(layout.unit());
        int y = meadowTop_[x] + 3 + toPixel(depth * (H - 2 - meadowTop_[x] - 3));
        flowers_.push_back({x, y, layout.integer(0, 2), y > 160 && layout.unit() < 0.6});
    }

    for (int i = 0; i < 95; ++i) {
        int x = layout.integer(0, W - 1);
        double depth = std::sqrt(layout.unit());
        int top = meadowTop_[x] + 3;
        int y = top + toPixel(depth * (H - 1 - top));
        double nearness = static_cast<double>(y - top) / (H - 1 - top);
        Tuft tuft{x, y, 0.6 + 1.6 * nearness, layout.between(-0.6, 0.6), {}};
        int height = 3 + toPixel(nearness * 8) + layout.integer(0, 2);
        int blades = layout.integer(3, 5);
        for (int k = 0; k < blades; ++k)
            tuft.blades.push_back({layout.integer(-2, 2), std::max(2, toPixel(height * layout.between(0.6, 1.0))), layout.integer(-1, 1)});
        tufts_.push_back(std::move(tuft));
    }
    std::ranges::sort(tufts_, {}, &Tuft::y);

    for (int x = layout.integer(0, 3); x < W + 4; x += layout.integer(3, 7)) {
        Tuft blade{x, H + 1, 2.6, layout.between(-0.4, 0.4), {}};
        blade.blades.push_back({0, layout.integer(9, 22), layout.integer(-2, 2)});
        foreground_.push_back(std::move(blade));
    }

    Random life(timeOfDay == TimeOfDay::day ? 0x706F6C6C656Eull : 0x66697265666Cull);
    if (timeOfDay == TimeOfDay::day) {
        for (int i = 0; i < 22; ++i)
            motes_.push_back({life.between(0, W), life.between(108, 170), life.between(25, 45), life.between(-14, -4),
                              life.unit(), life.between(0, tau), 0, life.integer(2, 4), 0});
    } else {
        for (int i = 0; i < 24; ++i)
            motes_.push_back({life.between(8, W - 8), life.between(104, 172), 6, 3.5, life.between(0, tau), life.between(0, tau),
                              life.between(0, tau), life.integer(1, 2), life.integer(1, 3)});
        Celestial moon = celestialOf(timeOfDay);
        while (stars_.size() < 110) {
            int x = life.integer(0, W - 1);
            int y = life.integer(1, 96);
            double dx = x - moon.x, dy = y - moon.y;
            if (y >= farTop_[x] - 2 || dx * dx + dy * dy < 18 * 18)
                continue;
            bool twinkles = life.unit() < 0.25;
            stars_.push_back({x, y, life.integer(2, 5), life.between(0, tau), twinkles, !twinkles && life.unit() < 0.05});
        }
    }
}

double MeadowScene::wind(double t, double x) const
{
    // A slow gust wave that travels across the meadow, plus a light flutter.
    return 0.8 * std::sin(tau * (2 * t) - tau * x / 220) + 0.3 * std::sin(tau * (5 * t) + 0.045 * x);
}

void MeadowScene::render(int frame, ArtCanvas& canvas) const
{
    const double t = static_cast<double>(frame) / loopFrames_;
    drawSky(canvas, t);
    drawClouds(canvas, t);
    if (timeOfDay_ == TimeOfDay::day)
        drawBirds(canvas, t);
    drawLand(canvas);
    drawCabin(canvas, t);
    drawMeadow(canvas, t);
    drawMotes(canvas, t);
    for (const auto& blade : foreground_)
        drawBlade(canvas, blade.x, blade.y, blade.blades[0], blade.amplitude * wind(t, blade.x) + blade.phase,
                  palette_.foregroundDark, palette_.foregroundLight, palette_.foregroundLight);
}

void MeadowScene::drawSky(ArtCanvas& canvas, double t) const
{
    const Celestial sun = celestialOf(timeOfDay_);
    for (int y = 0; y < H; ++y) {
        int band = 0;
        while (band + 1 < static_cast<int>(skyEdges.size()) && y >= skyEdges[band + 1])
            ++band;
        for (int x = 0; x < W; ++x) {
            int shown = band;
            // A dithered row softens each band edge the way pixel artists do.
            if (band + 1 < static_cast<int>(skyEdges.size()) && y == skyEdges[band + 1] - 1 && checker(x, y))
                shown = band + 1;
            Rgb colour = palette_.sky[shown];
            double dx = x + 0.5 - sun.x, dy = y + 0.5 - sun.y;
            double distance = std::sqrt(dx * dx + dy * dy);
            if (distance < 13)
                colour = colour.mixedWith(palette_.halo, 0.24);
            else if (distance < 18)
                colour = colour.mixedWith(palette_.halo, 0.11);
            canvas.set(x, y, colour);
        }
    }

    for (const auto& star : stars_) {
        bool bright = star.twinkles ? std::sin(tau * star.cycles * t + star.phase) > 0.2 : star.phase > 3.0;
        canvas.set(star.x, star.y, bright || star.large ? palette_.star : palette_.starDim);
        if (star.large) {
            canvas.set(star.x - 1, star.y, palette_.starDim);
            canvas.set(star.x + 1, star.y, palette_.starDim);
            canvas.set(star.x, star.y - 1, palette_.starDim);
            canvas.set(star.x, star.y + 1, palette_.starDim);
        }
    }

    canvas.fillDisc(sun.x, sun.y, celestialRadius, palette_.sunOrMoonShade);
    if (timeOfDay_ == TimeOfDay::day) {
        canvas.fillDisc(sun.x - 0.5, sun.y - 0.5, celestialRadius - 1, palette_.sunOrMoon);
    } else {
        canvas.fillDisc(sun.x - 0.6, sun.y - 0.6, celestialRadius - 1.2, palette_.sunOrMoon);
        canvas.fillDisc(sun.x - 3, sun.y - 2, 1.6, palette_.sunOrMoonShade);
        canvas.fillDisc(sun.x + 2, sun.y + 2.5, 2.1, palette_.sunOrMoonShade);
        canvas.fillDisc(sun.x + 3, sun.y - 3, 1.1, palette_.sunOrMoonShade);
    }
}

void MeadowScene::drawClouds(ArtCanvas& canvas, double t) const
{
    for (const auto& cloud : clouds_) {
        // Whole-pixel offsets move the cloud rigidly, so its outline never shimmers.
        const int shift = toPixel(cloud.drift * std::sin(tau * t + cloud.phase));
        const double cx = std::floor(cloud.x) + shift;
        const int base = static_cast<int>(cloud.y);
        auto inside = [&](int x, int y) {
            if (y > base)
                return false;
            for (const auto& puff : cloud.puffs) {
                double dx = x + 0.5 - (cx + puff.dx), dy = y + 0.5 - (base + puff.dy);
                if (dx * dx + dy * dy <= puff.radius * puff.radius)
                    return true;
            }
            return false;
        };
        for (int y = base - 16; y <= base; ++y) {
            for (int x = static_cast<int>(cx) - 24; x <= static_cast<int>(cx) + 24; ++x) {
                if (!inside(x, y))
                    continue;
                Rgb colour = palette_.cloud;
                if (!inside(x, y - 1))
                    colour = palette_.cloudRim;
                else if (y >= base - 1 || !inside(x, y + 2))
                    colour = palette_.cloudShade;
                canvas.set(x, y, colour);
            }
        }
    }
}

void MeadowScene::drawBirds(ArtCanvas& canvas, double t) const
{
    const double p = fraction(t + 0.15);
    const double x = -20 + p * (W + 40);
    const double y = 50 + 3 * std::sin(tau * p);
    auto bird = [&](int bx, int by, int wing) {
        canvas.set(bx, by, palette_.bird);
        int lift = wing == 0 ? -1 : (wing == 2 ? 1 : 0);
        canvas.set(bx - 1, by + (lift < 0 ? -1 : 0), palette_.bird);
        canvas.set(bx + 1, by + (lift < 0 ? -1 : 0), palette_.bird);
        canvas.set(bx - 2, by + lift, palette_.bird);
        canvas.set(bx + 2, by + lift, palette_.bird);
    };
    // Four wing poses per flap: up, level, down, level.
    int flap = static_cast<int>(fraction(t * 26) * 4);
    auto wing = [](int pose) { return pose % 4 == 3 ? 1 : pose % 4; };
    bird(toPixel(x), toPixel(y), wing(flap));
    bird(toPixel(x - 11), toPixel(y + 6), wing(flap + 1));
}

void MeadowScene::drawLand(ArtCanvas& canvas) const
{
    for (int x = 0; x < W; ++x)
        for (int y = farTop_[x]; y < H; ++y)
            canvas.set(x, y, y == farTop_[x] ? palette_.farHillRim : palette_.farHill);
    for (int x : farTrees_)
        canvas.fillDisc(x + 0.5, farTop_[x] + 0.6, 1.4, palette_.farTree);

    for (int x = 0; x < W; ++x) {
        for (int y = nearTop_[x]; y < H; ++y) {
            Rgb colour = palette_.nearHill;
            int depth = y - nearTop_[x];
            if (depth == 0)
                colour = palette_.nearHillRim;
            else if (depth > 10 || (depth == 10 && checker(x, y)))
                colour = palette_.nearHillShade;
            canvas.set(x, y, colour);
        }
    }

    for (const auto& tree : trees_) {
        double cx = tree.x + 0.5;
        double cy = nearTop_[tree.x] - tree.trunk - tree.radius + 1.5;
        for (int y = static_cast<int>(cy); y <= nearTop_[tree.x]; ++y)
            canvas.set(tree.x, y, palette_.trunk);
        canvas.fillDisc(cx, cy, tree.radius, palette_.treeDark);
        canvas.fillDisc(cx - tree.radius * 0.3, cy - tree.radius * 0.35, tree.radius * 0.55, palette_.treeLight);
    }
}

void MeadowScene::drawCabin(ArtCanvas& canvas, double t) const
{
    const int x0 = cabinX_;
    const int base = cabinBase_;
    const auto& p = palette_;

    canvas.fillRect(x0 + 12, base - 19, 2, 6, p.chimney);
    for (int row = 0; row < 8; ++row) {
        int y = base - 16 + row;
        int inset = 7 - row;
        for (int x = x0 - 2 + inset; x <= x0 + 17 - inset; ++x)
            canvas.set(x, y, row == 7 || x == x0 - 2 + inset || x == x0 + 17 - inset ? p.roofShade : p.roof);
    }
    for (int y = base - 8; y < base; ++y)
        for (int x = x0; x < x0 + 16; ++x)
            canvas.set(x, y, (base - 1 - y) % 3 == 2 ? p.wallShade : p.wall);
    canvas.fillRect(x0 + 3, base - 6, 3, 6, p.door);
    canvas.fillRect(x0 + 9, base - 6, 4, 3, p.window);
    if (timeOfDay_ == TimeOfDay::night) {
        // Lamplight spills onto the grass below the window.
        for (int x = x0 + 8; x <= x0 + 13; ++x)
            canvas.set(x, base, p.window.mixedWith(p.nearHill, 0.72));
    }

    const int puffs = 6;
    for (int i = 0; i < puffs; ++i) {
        double age = fraction(t + static_cast<double>(i) / puffs);
        if (age > 0.88)
            continue;
        double x = x0 + 13 + age * 16 + 1.2 * std::sin(tau * age * 1.5 + i);
        double y = base - 20 - age * 30;
        Rgb colour = age < 0.45 ? p.smoke : p.smoke.mixedWith(p.sky[2], 0.45);
        canvas.fillDisc(x, y, 0.7 + age * 2.3, colour);
    }
}

void MeadowScene::drawBlade(ArtCanvas& canvas, int x, int y, const Blade& blade, double sway, Rgb dark, Rgb light, Rgb tip) const
{
    int previous = x + blade.dx;
    for (int j = 0; j < blade.height; ++j) {
        double f = blade.height > 1 ? static_cast<double>(j) / (blade.height - 1) : 0.0;
        int px = x + blade.dx + toPixel(blade.lean * f + sway * std::pow(f, 1.5));
        Rgb colour = j == blade.height - 1 ? tip : (f < 0.45 ? dark : light);
        // Keep the blade connected when it bends by more than a pixel per row.
        int step = px > previous ? 1 : -1;
        for (int fill = previous + step; fill != px && std::abs(px - previous) > 1; fill += step)
            canvas.set(fill, y - j, colour);
        canvas.set(px, y - j, colour);
        previous = px;
    }
}

void MeadowScene::drawMeadow(ArtCanvas& canvas, double t) const
{
    const auto& p = palette_;
    for (int x = 0; x < W; ++x) {
        for (int y = meadowTop_[x]; y < H; ++y) {
            int band = y < meadowBand1 ? 0 : (y < meadowBand2 ? 1 : 2);
            if ((y == meadowBand1 - 1 || y == meadowBand2 - 1) && checker(x, y))
                band += 1;
            canvas.set(x, y, y == meadowTop_[x] ? p.meadowRim : p.meadow[band]);
        }
    }
    for (const auto& flower : flowers_) {
        Rgb colour = p.flowers[flower.colour];
        if (flower.large) {
            canvas.set(flower.x - 1, flower.y, colour);
            canvas.set(flower.x + 1, flower.y, colour);
            canvas.set(flower.x, flower.y - 1, colour);
            canvas.set(flower.x, flower.y + 1, colour);
            canvas.set(flower.x, flower.y, flower.colour == 1 ? p.flowers[0] : p.flowers[1]);
        } else {
            canvas.set(flower.x, flower.y, colour);
        }
    }
    for (const auto& tuft : tufts_) {
        double sway = tuft.amplitude * std::sin(tau * (2 * t) - tau * tuft.x / 220 + tuft.phase) +
                      0.3 * tuft.amplitude * std::sin(tau * (5 * t) + 0.045 * tuft.x);
        for (const auto& blade : tuft.blades)
            drawBlade(canvas, tuft.x, tuft.y, blade, sway, p.bladeDark, p.bladeLight, p.bladeTip);
    }
}

void MeadowScene::drawMotes(ArtCanvas& canvas, double t) const
{
    const auto& p = palette_;
    for (const auto& mote : motes_) {
        if (timeOfDay_ == TimeOfDay::day) {
            // Pollen drifts up and across, showing only while it catches the light.
            double age = fraction(t + mote.offset);
            if (age < 0.06 || age > 0.94)
                continue;
            double x = mote.x + age * mote.dx + 1.5 * std::sin(tau * mote.wobbleCycles * t + mote.wobblePhase);
            double y = mote.y + age * mote.dy + 1.0 * std::cos(tau * mote.wobbleCycles * t + mote.wobblePhase);
            canvas.set(toPixel(x), toPixel(y), age > 0.2 && age < 0.8 ? p.moteBright : p.moteDim);
        } else {
            // Fireflies hover in place and glow in slow pulses.
            int x = toPixel(mote.x + mote.dx * std::sin(tau * mote.wobbleCycles * t + mote.offset));
            int y = toPixel(mote.y + mote.dy * std::sin(tau * (mote.wobbleCycles + 1) * t + mote.wobblePhase));
            double glow = std::sin(tau * mote.blinkCycles * t + mote.blinkPhase);
            if (glow > 0.6) {
                canvas.set(x - 1, y, p.moteGlow);
                canvas.set(x + 1, y, p.moteGlow);
                canvas.set(x, y - 1, p.moteGlow);
                canvas.set(x, y + 1, p.moteGlow);
                canvas.set(x, y, p.moteBright);
            } else if (glow > 0.1) {
                canvas.set(x, y, p.moteBright);
            } else if (glow > -0.4) {
                canvas.set(x, y, p.moteDim);
            }
        }
    }
}

} // namespace hushmeadows::worldgen
