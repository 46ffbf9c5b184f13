#include "SceneCore/Picture/SystemRandomGenerator.h"

#include <random>

namespace hushmeadows {

SystemRandomGenerator::result_type SystemRandomGenerator::operator()()
{
    // One device per thread: std::random_device is not safe to share, and
    // opening it is the expensive part.
    thread_local std::random_device device;
    static_assert(std::random_device::min() == 0 && std::random_device::max() == 0xFFFF'FFFFu,
                  "two draws must make exactly 64 bits");
    const auto high = static_cast<result_type>(device());
    const auto low = static_cast<result_type>(device());
    return (high << 32) | low;
}

} // namespace hushmeadows
