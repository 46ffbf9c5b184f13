#pragma once

#include "SceneCore/Runtime/FileAccess.h"

namespace hushmeadows {

// FileAccess on POSIX systems (Linux and macOS): open without blocking,
// judge the opened descriptor, flock for the cross-process lock.
class PosixFileAccess final : public FileAccess {
public:
    ReadResult read(const std::filesystem::path& file, std::uintmax_t limit) const override;
    std::unique_ptr<Lock> lock(const std::filesystem::path& lockFile, std::chrono::milliseconds wait) const override;

    // Makes this adapter the one FileAccess::current() returns.
    static void install();
};

} // namespace hushmeadows
