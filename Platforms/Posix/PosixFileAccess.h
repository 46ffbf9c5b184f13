#pragma once

#include "SceneCore/Runtime/FileAccess.h"

#include <cerrno>
#include <expected>

namespace hushmeadows {

// FileAccess on POSIX systems (Linux and macOS): open without blocking,
// judge the opened descriptor, flock for the cross-process lock. A held
// folder is the folder's identity: each open under it finds the folder at its
// path, refuses it when it is no longer the one held, and opens beneath it.
class PosixFileAccess final : public FileAccess {
public:
    ReadResult read(const std::filesystem::path& file, std::uintmax_t limit) const override;
    LockResult lock(const std::filesystem::path& lockFile, std::chrono::milliseconds wait) const override;
    std::shared_ptr<const HeldFolder> openFolder(const std::filesystem::path& folder) const override;
    bool staysInside(const std::filesystem::path& file) const override;

    // What an open gives for a file of a held folder that resolves outside
    // it, or when the folder at the held path is no longer the one held.
    static constexpr int outsideError = EXDEV;

    // Opens a file for reading, never blocking (a FIFO is not waited on):
    // beneath its held folder when it lies in one, else by its path. The
    // descriptor, which the caller closes, or the errno.
    static std::expected<int, int> openForReading(const std::filesystem::path& file);

    // For frameworks that open only by path: opens `file` as openForReading
    // does and, when it is a regular file, gives the path the system has for
    // what was opened (links resolved, inside the held folder), to be opened
    // again at once. Only a rename racing that second open can change what it
    // finds. Nothing for anything else.
    static std::optional<std::filesystem::path> openedFilePath(const std::filesystem::path& file);

    // How a path is resolved beneath a folder.
    enum class Resolution {
        kernel, // openat2 with RESOLVE_BENEATH where the system offers it, else walk
        walk,   // one component at a time without following links, each link
                // read and followed here: absolute ones and any climb above the
                // folder are refused
    };
    // Opens `relative` beneath the open folder `folder` with the open flags
    // `flags` (no O_CREAT). Links that stay beneath are followed. The
    // descriptor or the errno: outsideError when the path leads out.
    static std::expected<int, int> openBeneath(int folder, const std::filesystem::path& relative, int flags,
                                               Resolution how = Resolution::kernel);

    // The first `headSize` and last `tailSize` bytes of a regular file (fewer
    // when it is shorter), for headers that say what a file holds; nothing
    // for anything else. Opened as openForReading does.
    struct Ends {
        std::string head;
        std::string tail;
    };
    static std::optional<Ends> ends(const std::filesystem::path& file, std::size_t headSize, std::size_t tailSize);

    // Makes this adapter the one FileAccess::current() returns.
    static void install();
};

} // namespace hushmeadows
