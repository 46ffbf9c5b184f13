#pragma once

#include "SceneCore/Runtime/FileAccess.h"

namespace hushmeadows {

// FileAccess on POSIX systems (Linux and macOS): open without blocking,
// judge the opened descriptor, flock for the cross-process lock.
class PosixFileAccess final : public FileAccess {
public:
    ReadResult read(const std::filesystem::path& file, std::uintmax_t limit) const override;
    LockResult lock(const std::filesystem::path& lockFile, std::chrono::milliseconds wait) const override;

    // The first `headSize` and last `tailSize` bytes of a regular file (fewer
    // when it is shorter), for headers that say what a file holds; nothing
    // for anything else. Never blocks on opening.
    struct Ends {
        std::string head;
        std::string tail;
    };
    static std::optional<Ends> ends(const std::filesystem::path& file, std::size_t headSize, std::size_t tailSize);

    // Makes this adapter the one FileAccess::current() returns.
    static void install();
};

} // namespace hushmeadows
