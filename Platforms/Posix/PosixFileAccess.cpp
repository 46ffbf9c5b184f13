#include "Platforms/Posix/PosixFileAccess.h"

#include <algorithm>
#include <cerrno>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace hushmeadows {

namespace {

class Descriptor {
public:
    explicit Descriptor(int fd)
        : fd_(fd)
    {
    }
    ~Descriptor()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

class FlockLock final : public FileAccess::Lock {
public:
    explicit FlockLock(int fd)
        : descriptor_(fd)
    {
    }

private:
    // Closing the descriptor releases the lock.
    Descriptor descriptor_;
};

} // namespace

FileAccess::ReadResult PosixFileAccess::read(const std::filesystem::path& file, std::uintmax_t limit) const
{
    // O_NONBLOCK: opening a FIFO with no writer returns at once instead of
    // waiting for one; the descriptor is then refused as not regular.
    Descriptor fd(::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (fd.get() < 0)
        return {{}, errno == ENOENT || errno == ENOTDIR ? ReadFailure::missing : ReadFailure::unreadable};
    struct stat status{};
    if (::fstat(fd.get(), &status) != 0)
        return {{}, ReadFailure::unreadable};
    if (!S_ISREG(status.st_mode))
        return {{}, ReadFailure::notRegular};
    if (status.st_size < 0 || static_cast<std::uintmax_t>(status.st_size) > limit)
        return {{}, ReadFailure::tooLarge};
    // One byte more than fstat said notices a file that grew meanwhile.
    auto size = static_cast<std::size_t>(status.st_size);
    std::string data(size + 1, '\0');
    std::size_t filled = 0;
    while (filled < data.size()) {
        auto count = ::read(fd.get(), data.data() + filled, data.size() - filled);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return {{}, ReadFailure::unreadable};
        if (count == 0)
            break;
        filled += static_cast<std::size_t>(count);
    }
    if (filled > size)
        return {{}, size >= limit ? ReadFailure::tooLarge : ReadFailure::unreadable};
    data.resize(filled);
    return {std::move(data), std::nullopt};
}

FileAccess::LockResult PosixFileAccess::lock(const std::filesystem::path& lockFile, std::chrono::milliseconds wait) const
{
    auto failure = [](int code) { return LockResult{nullptr, std::error_code(code, std::generic_category())}; };
    int fd = ::open(lockFile.c_str(), O_RDWR | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0644);
    if (fd < 0)
        return failure(errno);
    auto lock = std::make_unique<FlockLock>(fd);
    auto deadline = std::chrono::steady_clock::now() + wait;
    while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR)
            return failure(errno);
        if (std::chrono::steady_clock::now() >= deadline)
            return failure(ETIMEDOUT);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return {std::move(lock), {}};
}

std::optional<PosixFileAccess::Ends> PosixFileAccess::ends(const std::filesystem::path& file, std::size_t headSize, std::size_t tailSize)
{
    Descriptor fd(::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status{};
    if (fd.get() < 0 || ::fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return std::nullopt;
    auto size = static_cast<std::size_t>(status.st_size);
    auto readAt = [&](std::size_t offset, std::size_t count) -> std::optional<std::string> {
        std::string bytes(count, '\0');
        auto got = ::pread(fd.get(), bytes.data(), count, static_cast<off_t>(offset));
        if (got < 0)
            return std::nullopt;
        bytes.resize(static_cast<std::size_t>(got));
        return bytes;
    };
    auto head = readAt(0, std::min(headSize, size));
    auto tail = readAt(size - std::min(tailSize, size), std::min(tailSize, size));
    if (!head || !tail)
        return std::nullopt;
    return Ends{std::move(*head), std::move(*tail)};
}

void PosixFileAccess::install()
{
    FileAccess::install(std::make_shared<PosixFileAccess>());
}

} // namespace hushmeadows
