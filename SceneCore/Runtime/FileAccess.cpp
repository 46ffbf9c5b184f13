#include "SceneCore/Runtime/FileAccess.h"

#include <fstream>
#include <mutex>

namespace hushmeadows {

namespace {

namespace fs = std::filesystem;

// Without the platform's calls the check and the open are two steps; the
// platform adapters close that gap.
class PortableFileAccess final : public FileAccess {
public:
    ReadResult read(const fs::path& file, std::uintmax_t limit) const override
    {
        std::error_code error;
        auto status = fs::status(file, error);
        if (!fs::exists(status))
            return {{}, ReadFailure::missing};
        if (!fs::is_regular_file(status))
            return {{}, ReadFailure::notRegular};
        std::ifstream in(file, std::ios::binary);
        if (!in)
            return {{}, ReadFailure::unreadable};
        std::string data(static_cast<std::size_t>(limit) + 1, '\0');
        in.read(data.data(), static_cast<std::streamsize>(data.size()));
        if (in.bad())
            return {{}, ReadFailure::unreadable};
        data.resize(static_cast<std::size_t>(in.gcount()));
        if (data.size() > limit)
            return {{}, ReadFailure::tooLarge};
        return {std::move(data), std::nullopt};
    }

    std::unique_ptr<Lock> lock(const fs::path&, std::chrono::milliseconds) const override { return std::make_unique<Lock>(); }
};

// Kept for the life of the process: queues read files until it ends.
std::mutex& installedMutex()
{
    static auto* mutex = new std::mutex;
    return *mutex;
}

std::shared_ptr<const FileAccess>& installed()
{
    static auto* access = new std::shared_ptr<const FileAccess>(std::make_shared<PortableFileAccess>());
    return *access;
}

} // namespace

std::shared_ptr<const FileAccess> FileAccess::current()
{
    std::lock_guard guard(installedMutex());
    return installed();
}

void FileAccess::install(std::shared_ptr<const FileAccess> access)
{
    std::lock_guard guard(installedMutex());
    installed() = access ? std::move(access) : std::make_shared<PortableFileAccess>();
}

std::string_view FileAccess::describe(ReadFailure failure)
{
    switch (failure) {
    case ReadFailure::missing:
        return "no such file";
    case ReadFailure::notRegular:
        return "not a regular file";
    case ReadFailure::tooLarge:
        return "larger than allowed";
    case ReadFailure::unreadable:
        return "cannot be read";
    }
    return "cannot be read";
}

} // namespace hushmeadows
