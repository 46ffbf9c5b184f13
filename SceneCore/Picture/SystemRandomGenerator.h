#pragma once

#include <cstdint>
#include <limits>

namespace hushmeadows {

// The operating system's randomness as a uniform random bit generator. It holds
// no state of its own, so copies are cheap and never repeat each other's
// sequence; each call asks the system's entropy source (std::random_device).
class SystemRandomGenerator {
public:
    using result_type = std::uint64_t;

    static constexpr result_type min() { return 0; }
    static constexpr result_type max() { return std::numeric_limits<result_type>::max(); }

    result_type operator()();
};

} // namespace hushmeadows
