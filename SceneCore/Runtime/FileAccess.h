#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

namespace hushmeadows {

// How the core reads the small files a user or an archive can place
// (catalogue, manifests, settings), serialises read-modify-write of a file
// across processes, and holds a package folder so that what is opened inside
// it stays inside it. The platform installs its adapter once per process;
// until then a portable fallback is used (a best-effort regular-file check,
// containment checked on resolved paths, no cross-process lock).
class FileAccess {
public:
    enum class ReadFailure {
        missing,    // nothing at the path
        notRegular, // a folder, pipe, device or socket: never opened for reading
        tooLarge,   // the opened file is larger than the limit
        unreadable, // anything else (permissions, I/O)
    };

    // The whole text, or why there is none. (A plain struct: the parsers
    // that use it also build as C++20 for fuzzing.)
    struct ReadResult {
        std::string text;
        std::optional<ReadFailure> failure;
        explicit operator bool() const { return !failure; }
    };

    // Held while alive; releasing it lets the next process in.
    class Lock {
    public:
        virtual ~Lock() = default;
    };

    // The lock, or why there is none: timed_out when another process held it
    // for the whole wait, else the system's reason for not opening the lock
    // file (read_only_file_system, no_space_on_device, not_a_directory...).
    struct LockResult {
        std::unique_ptr<Lock> held;
        std::error_code failure;
        explicit operator bool() const { return held != nullptr; }
    };

    // A folder as it was when it was held. While anyone holds it, every file
    // read or opened by a path under the folder's path (as written) is
    // resolved beneath the folder held: a link that leads out of it, or the
    // folder renamed away and something else put at its path, cannot make an
    // open reach a file outside (adapters refuse such opens, or keep to the
    // folder held). Links that stay beneath are followed.
    class HeldFolder {
    public:
        virtual ~HeldFolder() = default;
    };

    // Where a path lies in a held folder: the folder and the rest of the path.
    struct HeldLocation {
        std::shared_ptr<const HeldFolder> folder;
        std::filesystem::path relative;
    };

    virtual ~FileAccess() = default;

    // The whole file, at most `limit` bytes. Opens only regular files, never
    // blocks on opening, and judges the size of what it opened.
    virtual ReadResult read(const std::filesystem::path& file, std::uintmax_t limit) const = 0;

    // An exclusive advisory lock on `lockFile` (created when missing), waiting
    // at most `wait`. Creating it is a write: callers that only read take no
    // lock.
    virtual LockResult lock(const std::filesystem::path& lockFile, std::chrono::milliseconds wait) const = 0;

    // Opens `folder` as it is now, to be held; nothing when it is not a
    // folder that can be opened. Use hold(), which also makes it count.
    virtual std::shared_ptr<const HeldFolder> openFolder(const std::filesystem::path& folder) const = 0;

    // Whether opening `file` for reading resolves inside the held folder it
    // lies in (true for a file in no held folder, or one that does not open
    // for another reason).
    virtual bool staysInside(const std::filesystem::path& file) const = 0;

    // Holds `folder` through the installed adapter until the last copy of the
    // result is released; a later hold of the same path takes over from it.
    static std::shared_ptr<const HeldFolder> hold(const std::filesystem::path& folder);

    // The held folder `file` lies in by its path as written (the nearest one),
    // with the rest of the path; nothing when it lies in none.
    static std::optional<HeldLocation> heldLocation(const std::filesystem::path& file);

    // The installed adapter, or the portable fallback.
    static std::shared_ptr<const FileAccess> current();
    static void install(std::shared_ptr<const FileAccess> access);

    // Words for a log line or a person.
    static std::string_view describe(ReadFailure failure);
};

// The file's text through the installed adapter.
inline FileAccess::ReadResult readSmallFile(const std::filesystem::path& file, std::uintmax_t limit)
{
    return FileAccess::current()->read(file, limit);
}

} // namespace hushmeadows
