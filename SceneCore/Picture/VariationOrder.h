#pragma once

#include "SceneCore/Picture/SystemRandomGenerator.h"
#include "SceneCore/Runtime/Precondition.h"

#include <bit>
#include <concepts>
#include <cstdint>
#include <limits>
#include <optional>
#include <random>
#include <utility>
#include <vector>

namespace hushmeadows {

namespace variation_order_detail {

// 64 uniform bits from any uniform random bit generator, whatever its range.
// Written out rather than left to std::uniform_int_distribution so that a seeded
// generator gives the same order with every standard library.
template <std::uniform_random_bit_generator Generator>
std::uint64_t randomWord(Generator& generator)
{
    constexpr auto lowest = static_cast<std::uint64_t>(Generator::min());
    constexpr std::uint64_t span = static_cast<std::uint64_t>(Generator::max()) - lowest;
    if constexpr (span == std::numeric_limits<std::uint64_t>::max()) {
        return static_cast<std::uint64_t>(generator()) - lowest;
    } else {
        // Take the largest power-of-two part of the range per draw and reject
        // the rest, then stack draws until 64 bits are filled.
        constexpr int bitsPerDraw = std::bit_width(span + 1) - 1;
        constexpr std::uint64_t accepted = std::uint64_t{1} << bitsPerDraw;
        std::uint64_t word = 0;
        for (int filled = 0; filled < 64;) {
            const std::uint64_t value = static_cast<std::uint64_t>(generator()) - lowest;
            if (value >= accepted)
                continue;
            word = (word << bitsPerDraw) | value;
            filled += bitsPerDraw;
        }
        return word;
    }
}

// A uniform integer in 0 ..< bound (bound ≥ 1), by rejecting the few words
// that would bias the remainder.
template <std::uniform_random_bit_generator Generator>
std::uint64_t uniformBelow(Generator& generator, std::uint64_t bound)
{
    const std::uint64_t threshold = (std::uint64_t{0} - bound) % bound; // 2^64 mod bound
    for (;;) {
        const std::uint64_t word = randomWord(generator);
        if (word >= threshold)
            return word % bound;
    }
}

} // namespace variation_order_detail

// The order in which a world's variations are played: each round plays every
// variation once in a fresh random order, and no variation plays twice in a
// row, not even across the boundary between two rounds. A plain value, owned
// and touched by one thread.
template <std::uniform_random_bit_generator Generator = SystemRandomGenerator>
class VariationOrder {
public:
    // count < 1 is a programming error and stops the process.
    VariationOrder(int count, Generator generator)
        : count_(count)
        , generator_(std::move(generator))
    {
        HM_PRECONDITION(count >= 1, "a variation order needs at least one variation");
        bag_.reserve(static_cast<std::size_t>(count));
    }

    explicit VariationOrder(int count)
        requires std::same_as<Generator, SystemRandomGenerator>
        : VariationOrder(count, SystemRandomGenerator{})
    {
    }

    int count() const { return count_; }

    // The next variation index in 0 ..< count().
    int next()
    {
        if (bag_.empty())
            startRound();
        const int index = bag_.back();
        bag_.pop_back();
        last_ = index;
        return index;
    }

private:
    void startRound()
    {
        for (int index = 0; index < count_; ++index)
            bag_.push_back(index);
        for (std::size_t i = bag_.size() - 1; i > 0; --i) {
            const auto j = static_cast<std::size_t>(variation_order_detail::uniformBelow(generator_, i + 1));
            std::swap(bag_[i], bag_[j]);
        }
        // The round would open with the variation that just ended the last
        // one: trade it for the round's final slot. One swap, no reshuffle, so
        // each round costs exactly one shuffle's worth of randomness.
        if (count_ > 1 && last_ == bag_.back())
            std::swap(bag_.front(), bag_.back());
    }

    int count_;
    Generator generator_;
    std::vector<int> bag_; // still to play this round; the next is at the back
    std::optional<int> last_;
};

VariationOrder(int) -> VariationOrder<SystemRandomGenerator>;

} // namespace hushmeadows
