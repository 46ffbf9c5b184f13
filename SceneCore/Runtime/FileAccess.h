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
// (catalogue, manifests, settings) and serialises read-modify-write of a file
// across processes. The platform installs its adapter once per process; until
// then a portable fallback is used (a best-effort regular-file check and no
// cross-process lock).
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

    virtual ~FileAccess() = default;

    // The whole file, at most `limit` bytes. Opens only regular files, never
    // blocks on opening, and judges the size of what it opened.
    virtual ReadResult read(const std::filesystem::path& file, std::uintmax_t limit) const = 0;

    // An exclusive advisory lock on `lockFile` (created when missing), waiting
    // at most `wait`. Creating it is a write: callers that only read take no
    // lock.
    virtual LockResult lock(const std::filesystem::path& lockFile, std::chrono::milliseconds wait) const = 0;

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
