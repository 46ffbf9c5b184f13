#include "SceneCore/Runtime/FileAccess.h"

#include "SceneCore/Runtime/PathContainment.h"

#include <fstream>
#include <map>
#include <mutex>
#include <vector>

namespace hushmeadows {

namespace {

namespace fs = std::filesystem;

// Without the platform's calls a held folder is its resolved path, and the
// check and the open are two steps; the platform adapters close that gap.
class PortableHeldFolder final : public FileAccess::HeldFolder {
public:
    explicit PortableHeldFolder(fs::path root)
        : root_(std::move(root))
    {
    }
    const fs::path& root() const { return root_; }

private:
    fs::path root_;
};

// The file a path names, or nothing when it lies in a held folder but
// resolves outside it.
std::optional<fs::path> containedPath(const fs::path& file)
{
    auto held = FileAccess::heldLocation(file);
    if (!held)
        return file;
    const auto* folder = dynamic_cast<const PortableHeldFolder*>(held->folder.get());
    if (!folder)
        return file;
    fs::path candidate = folder->root() / held->relative;
    if (!isPathInside(candidate, folder->root()))
        return std::nullopt;
    return candidate;
}

class PortableFileAccess final : public FileAccess {
public:
    ReadResult read(const fs::path& named, std::uintmax_t limit) const override
    {
        auto file = containedPath(named);
        if (!file)
            return {{}, ReadFailure::unreadable};
        std::error_code error;
        auto status = fs::status(*file, error);
        if (!fs::exists(status))
            return {{}, ReadFailure::missing};
        if (!fs::is_regular_file(status))
            return {{}, ReadFailure::notRegular};
        std::ifstream in(*file, std::ios::binary);
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

    LockResult lock(const fs::path&, std::chrono::milliseconds) const override { return {std::make_unique<Lock>(), {}}; }

    std::shared_ptr<const HeldFolder> openFolder(const fs::path& folder) const override
    {
        std::error_code error;
        if (!fs::is_directory(folder, error))
            return nullptr;
        return std::make_shared<PortableHeldFolder>(resolvedPath(folder));
    }

    bool staysInside(const fs::path& file) const override { return containedPath(file).has_value(); }
};

// The held folders by their path as written, lexically normal and without a
// trailing separator; the latest hold of a path that is still alive wins.
struct HeldFolders {
    std::mutex mutex;
    std::map<std::string, std::vector<std::weak_ptr<const FileAccess::HeldFolder>>> byPath;
};

// Kept for the life of the process: queues open media until it ends.
HeldFolders& heldFolders()
{
    static auto* folders = new HeldFolders;
    return *folders;
}

std::string folderKey(const fs::path& folder)
{
    std::string key = folder.lexically_normal().string();
    while (key.size() > 1 && key.back() == '/')
        key.pop_back();
    return key;
}

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

std::shared_ptr<const FileAccess::HeldFolder> FileAccess::hold(const fs::path& folder)
{
    auto held = current()->openFolder(folder);
    if (!held)
        return nullptr;
    auto& folders = heldFolders();
    std::lock_guard guard(folders.mutex);
    for (auto entry = folders.byPath.begin(); entry != folders.byPath.end();) {
        std::erase_if(entry->second, [](const auto& weak) { return weak.expired(); });
        entry = entry->second.empty() ? folders.byPath.erase(entry) : std::next(entry);
    }
    folders.byPath[folderKey(folder)].push_back(held);
    return held;
}

std::optional<FileAccess::HeldLocation> FileAccess::heldLocation(const fs::path& file)
{
    fs::path normal = file.lexically_normal();
    auto& folders = heldFolders();
    std::lock_guard guard(folders.mutex);
    if (folders.byPath.empty())
        return std::nullopt;
    for (fs::path folder = normal.parent_path(); !folder.empty(); folder = folder.parent_path()) {
        auto entry = folders.byPath.find(folderKey(folder));
        if (entry != folders.byPath.end()) {
            for (auto held = entry->second.rbegin(); held != entry->second.rend(); ++held) {
                if (auto alive = held->lock())
                    return HeldLocation{std::move(alive), normal.lexically_relative(folder)};
            }
        }
        if (folder == folder.parent_path())
            break;
    }
    return std::nullopt;
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
