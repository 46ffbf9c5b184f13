#include "SceneCore/Picture/VariationOrder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace hushmeadows {
namespace {

template <class Generator>
std::vector<int> take(VariationOrder<Generator>& order, int n)
{
    std::vector<int> result;
    for (int i = 0; i < n; ++i)
        result.push_back(order.next());
    return result;
}

// Every round a permutation, and no index twice in a row across rounds.
template <class Generator>
void expectRounds(VariationOrder<Generator> order, int rounds)
{
    const int count = order.count();
    int previous = -1;
    for (int round = 0; round < rounds; ++round) {
        auto played = take(order, count);
        ASSERT_TRUE(count == 1 || played.front() != previous) << "count " << count << " round " << round;
        previous = played.back();
        std::ranges::sort(played);
        for (int i = 0; i < count; ++i)
            ASSERT_EQ(played[static_cast<std::size_t>(i)], i) << "count " << count << " round " << round;
    }
}

TEST(VariationOrder, RoundsArePermutationsThatNeverRepeatAnIndex)
{
    for (int count = 1; count <= 9; ++count)
        expectRounds(VariationOrder(count, std::mt19937_64(static_cast<std::uint64_t>(count))), 200);
    expectRounds(VariationOrder(4, std::minstd_rand(99)), 100); // range 1 … 2^31 − 2, not a power of two
    expectRounds(VariationOrder(4), 10);                        // the system's randomness
    EXPECT_DEATH(VariationOrder(0, std::mt19937_64(1)), "at least one variation");

    // So two variations simply alternate.
    VariationOrder two(2, std::mt19937_64(42));
    const int first = two.next();
    for (int i = 1; i < 50; ++i)
        ASSERT_EQ(two.next(), (first + i) % 2);
}

} // namespace
} // namespace hushmeadows
