#include "Platforms/Posix/PosixFileAccess.h"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <string_view>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/param.h>
#include <sys/stat.h>
#include <unistd.h>

#if defined(__linux__)
#include <linux/openat2.h>
#include <sys/syscall.h>
#endif

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


// Flags for a folder that is only looked through, never listed.
#if defined(O_PATH)
constexpr int searchFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;
#else
constexpr int searchFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
#endif

// A held folder is the folder's identity, not an open descriptor: a library
// of hundreds of worlds, loaded once per display, must not use up the
// process's descriptors. Each open finds the folder at its path again and
// goes on only when it is the very folder that was held, so one renamed away
// and replaced by another (or by a link elsewhere) is refused.
class PosixHeldFolder final : public FileAccess::HeldFolder {
public:
    PosixHeldFolder(std::filesystem::path path, dev_t device, ino_t inode)
        : path_(std::move(path))
        , device_(device)
        , inode_(inode)
    {
    }

    // The folder opened for looking through, or the errno.
    std::expected<int, int> open() const
    {
        int fd = ::open(path_.c_str(), searchFlags);
        if (fd < 0)
            return std::unexpected(errno);
        struct stat status{};
        if (::fstat(fd, &status) != 0 || status.st_dev != device_ || status.st_ino != inode_) {
            ::close(fd);
            return std::unexpected(PosixFileAccess::outsideError);
        }
        return fd;
    }

private:
    std::filesystem::path path_;
    dev_t device_;
    ino_t inode_;
};

constexpr int readFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

// More links than this in one path is a loop, as the kernel counts.
constexpr int linkLimit = 40;

// Pieces of a path, without empty and "." pieces.
void prependPieces(std::deque<std::string>& pending, const std::filesystem::path& path)
{
    std::vector<std::string> pieces;
    for (const auto& piece : path) {
        auto text = piece.string();
        if (!text.empty() && text != "." && text != "/")
            pieces.push_back(std::move(text));
    }
    pending.insert(pending.begin(), pieces.begin(), pieces.end());
}

// The target of the link `name` in `folder`, or nothing when it is no link.
std::optional<std::string> linkTarget(int folder, const std::string& name)
{
    std::string target(4096, '\0');
    auto length = ::readlinkat(folder, name.c_str(), target.data(), target.size());
    if (length < 0 || static_cast<std::size_t>(length) >= target.size())
        return std::nullopt;
    target.resize(static_cast<std::size_t>(length));
    return target;
}

std::expected<int, int> walkBeneath(int root, const std::filesystem::path& relative, int flags)
{
    if (relative.is_absolute())
        return std::unexpected(PosixFileAccess::outsideError);
    std::deque<std::string> pending;
    prependPieces(pending, relative);
    if (pending.empty())
        return std::unexpected(EISDIR);
    // The folders walked into below the root; each closes when left.
    std::vector<std::unique_ptr<Descriptor>> chain;
    auto current = [&] { return chain.empty() ? root : chain.back()->get(); };
    int links = 0;
    while (!pending.empty()) {
        std::string name = std::move(pending.front());
        pending.pop_front();
        if (name == "..") {
            if (chain.empty())
                return std::unexpected(PosixFileAccess::outsideError);
            chain.pop_back();
            if (pending.empty())
                return std::unexpected(EISDIR);
            continue;
        }
        const bool last = pending.empty();
        int fd = ::openat(current(), name.c_str(), (last ? flags : searchFlags) | O_NOFOLLOW);
        int error = errno;
        if (fd >= 0) {
            // With O_PATH, O_NOFOLLOW opens a link itself instead of failing.
            struct stat status{};
            if (::fstat(fd, &status) == 0 && S_ISLNK(status.st_mode)) {
                ::close(fd);
                error = ELOOP;
            } else if (last) {
                return fd;
            } else {
                chain.push_back(std::make_unique<Descriptor>(fd));
                continue;
            }
        }
        // A link is read and followed here, where its target can be judged.
        auto target = linkTarget(current(), name);
        if (!target)
            return std::unexpected(error);
        if (++links > linkLimit)
            return std::unexpected(ELOOP);
        if (target->empty())
            return std::unexpected(ENOENT);
        if (target->front() == '/')
            return std::unexpected(PosixFileAccess::outsideError);
        prependPieces(pending, *target);
        if (pending.empty())
            return std::unexpected(EISDIR);
    }
    return std::unexpected(EISDIR);
}

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

std::expected<int, int> PosixFileAccess::openBeneath(int folder, const std::filesystem::path& relative, int flags, Resolution how)
{
#if defined(__linux__) && defined(SYS_openat2)
    if (how == Resolution::kernel) {
        struct open_how request{};
        request.flags = static_cast<std::uint64_t>(flags);
        request.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
        for (int attempt = 0; attempt < 8; ++attempt) {
            long fd = ::syscall(SYS_openat2, folder, relative.c_str(), &request, sizeof request);
            if (fd >= 0)
                return static_cast<int>(fd);
            // EAGAIN: a rename raced the lookup, which the kernel refuses to
            // judge; look again.
            if (errno == EAGAIN || errno == EINTR)
                continue;
            // Older kernels, and sandboxes that filter the call, fall back to the walk.
            if (errno != ENOSYS && errno != EPERM)
                return std::unexpected(errno);
            break;
        }
    }
#else
    (void)how;
#endif
    return walkBeneath(folder, relative, flags);
}

namespace {

std::expected<int, int> openInside(const PosixHeldFolder& folder, const std::filesystem::path& relative, int flags)
{
    auto root = folder.open();
    if (!root)
        return root;
    Descriptor held(*root);
    return PosixFileAccess::openBeneath(held.get(), relative, flags);
}

} // namespace

std::expected<int, int> PosixFileAccess::openForReading(const std::filesystem::path& file)
{
    // O_NONBLOCK: opening a FIFO with no writer returns at once instead of
    // waiting for one; callers then refuse it as not regular.
    if (auto held = heldLocation(file)) {
        if (const auto* folder = dynamic_cast<const PosixHeldFolder*>(held->folder.get()))
            return openInside(*folder, held->relative, readFlags);
    }
    int fd = ::open(file.c_str(), readFlags);
    if (fd < 0)
        return std::unexpected(errno);
    return fd;
}

namespace {

// A regular file opened for reading, with its status; -1 for anything else.
int openRegularFile(const std::filesystem::path& file, struct stat& status)
{
    auto opened = PosixFileAccess::openForReading(file);
    if (!opened)
        return -1;
    if (::fstat(*opened, &status) != 0 || !S_ISREG(status.st_mode)) {
        ::close(*opened);
        return -1;
    }
    return *opened;
}

} // namespace

std::optional<std::filesystem::path> PosixFileAccess::openedFilePath(const std::filesystem::path& file)
{
    struct stat status{};
    Descriptor fd(openRegularFile(file, status));
    if (fd.get() < 0)
        return std::nullopt;
#if defined(F_GETPATH)
    char buffer[MAXPATHLEN] = {};
    if (::fcntl(fd.get(), F_GETPATH, buffer) != 0)
        return std::nullopt;
    return std::filesystem::path(buffer);
#else
    std::error_code error;
    auto named = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd.get()), error);
    if (error || !named.is_absolute())
        return std::nullopt;
    return named;
#endif
}

std::shared_ptr<const FileAccess::HeldFolder> PosixFileAccess::openFolder(const std::filesystem::path& folder) const
{
    std::error_code error;
    auto path = std::filesystem::absolute(folder, error);
    if (error)
        return nullptr;
    Descriptor fd(::open(path.c_str(), searchFlags));
    struct stat status{};
    if (fd.get() < 0 || ::fstat(fd.get(), &status) != 0)
        return nullptr;
    return std::make_shared<PosixHeldFolder>(std::move(path), status.st_dev, status.st_ino);
}

bool PosixFileAccess::staysInside(const std::filesystem::path& file) const
{
    auto held = heldLocation(file);
    const auto* folder = held ? dynamic_cast<const PosixHeldFolder*>(held->folder.get()) : nullptr;
    if (!folder)
        return true;
    // Only looked up, not opened for reading: a device is never touched.
#if defined(O_PATH)
    auto opened = openInside(*folder, held->relative, O_PATH | O_CLOEXEC);
#else
    auto opened = openInside(*folder, held->relative, readFlags);
#endif
    if (opened)
        ::close(*opened);
    return opened || opened.error() != outsideError;
}

FileAccess::ReadResult PosixFileAccess::read(const std::filesystem::path& file, std::uintmax_t limit) const
{
    auto opened = openForReading(file);
    if (!opened)
        return {{}, opened.error() == ENOENT || opened.error() == ENOTDIR ? ReadFailure::missing : ReadFailure::unreadable};
    Descriptor fd(*opened);
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
    struct stat status{};
    Descriptor fd(openRegularFile(file, status));
    if (fd.get() < 0)
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
