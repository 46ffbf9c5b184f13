#pragma once

// Programming errors (an impossible count, an unsupported initialiser) end the
// process here, with one recognisable line on stderr.

namespace hushmeadows::detail {
[[noreturn]] void preconditionFailure(const char* condition, const char* message, const char* file, int line);
}

#define HM_PRECONDITION(condition, message)                                                     \
    do {                                                                                        \
        if (!(condition)) [[unlikely]]                                                          \
            ::hushmeadows::detail::preconditionFailure(#condition, (message), __FILE__, __LINE__); \
    } while (false)
