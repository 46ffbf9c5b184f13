#include "SceneCore/Runtime/Precondition.h"

#include <cstdio>
#include <cstdlib>

namespace hushmeadows::detail {

void preconditionFailure(const char* condition, const char* message, const char* file, int line)
{
    std::fprintf(stderr, "Precondition failed: %s (%s) at %s:%d\n", message, condition, file, line);
    std::fflush(stderr);
    std::abort();
}

} // namespace hushmeadows::detail
