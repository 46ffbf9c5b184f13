#include "SceneCore/Picture/VariationOrder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace hushmeadows {
namespace {

// Every round a permutation, and no index twice in a row across rounds.
template <class Generator>
void expectRounds(VariationOrder<Generator> order, int rounds)
{
    const int count = order.count();
    int previous = -1;
    for (int round = 0; round < rounds; ++round) {
        std::vector<int> played;
        for (int i = 0; i < count; ++i)
            played.push_back(order.next());
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
}

} // namespace
} // namespace hushmeadows
