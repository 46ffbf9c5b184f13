#include "Platforms/Posix/PosixFileAccess.h"
#include "tests/support/FixtureKit.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <variant>

namespace hushmeadows {
namespace {

namespace fs = std::filesystem;
using Resolution = PosixFileAccess::Resolution;

// A package-like folder with links of every kind, and a file beside it.
struct LinkedFolder {
    testing::TempDir dir;
    fs::path root = dir / "calm.hushmeadow";

    LinkedFolder()
    {
        testing::writeText(dir / "outside.txt", "outside");
        testing::writeText(dir / "elsewhere/secret.txt", "secret");
        testing::writeText(root / "clip.txt", "clip");
        testing::writeText(root / "media/real.txt", "real");
        fs::create_symlink("media/real.txt", root / "inner.txt");
        fs::create_symlink("media/../clip.txt", root / "around.txt");
        fs::create_symlink("media", root / "shelf");
        fs::create_symlink(dir / "outside.txt", root / "out.txt");
        fs::create_symlink(root / "clip.txt", root / "absolute.txt");
        fs::create_symlink("../outside.txt", root / "climb.txt");
        fs::create_symlink("../elsewhere", root / "away");
        fs::create_symlink("loop-b", root / "loop-a");
        fs::create_symlink("loop-a", root / "loop-b");
    }
};

std::string contents(int fd)
{
    std::string text(64, '\0');
    auto count = ::read(fd, text.data(), text.size());
    ::close(fd);
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return text;
}

// Where a relative path leads beneath a folder: the text of the file it
// opens, or the errno. Links that stay beneath are followed; an absolute link
// (even to a file inside) or any climb above the folder is "outside".
TEST(PosixFileAccessTest, BothResolutionsOpenOnlyWhatLiesBeneath)
{
    LinkedFolder folder;
    int root = ::open(folder.root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(root, 0);
    std::vector<std::pair<std::string, std::variant<std::string, int>>> cases{
        {"clip.txt", "clip"}, {"media/real.txt", "real"}, {"media//./real.txt", "real"}, {"inner.txt", "real"},
        {"around.txt", "clip"}, {"shelf/real.txt", "real"}, {"gone.txt", ENOENT}, {"clip.txt/more", ENOTDIR}, {"loop-a", ELOOP},
    };
    for (const char* out : {"out.txt", "absolute.txt", "climb.txt", "away/secret.txt", "../outside.txt", "media/../../outside.txt", "/etc/passwd"})
        cases.push_back({out, PosixFileAccess::outsideError});
    for (auto how : {Resolution::kernel, Resolution::walk}) {
        for (const auto& [path, expected] : cases) {
            auto opened = PosixFileAccess::openBeneath(root, path, O_RDONLY | O_CLOEXEC, how);
            std::variant<std::string, int> got = opened ? std::variant<std::string, int>(contents(*opened)) : opened.error();
            EXPECT_EQ(got, expected) << path << (how == Resolution::walk ? " (walk)" : " (kernel)");
        }
    }
    ::close(root);
}

// The contract of a held folder, for the POSIX adapter and the portable
// fallback alike: while held, reads under its path stay beneath it; once
// released, the path is an ordinary path again.
class HeldFolderContract : public ::testing::TestWithParam<bool> {
protected:
    void SetUp() override
    {
        if (GetParam())
            PosixFileAccess::install();
        else
            FileAccess::install(nullptr);
    }
    void TearDown() override { FileAccess::install(nullptr); }
};

TEST_P(HeldFolderContract, ReadsUnderAHeldFolderStayInsideIt)
{
    LinkedFolder folder;
    auto read = [](const fs::path& file) {
        auto result = readSmallFile(file, 1024);
        return result ? result.text : std::string(FileAccess::describe(*result.failure));
    };
    auto access = FileAccess::current();
    const auto& root = folder.root;
    EXPECT_EQ(read(root / "out.txt"), "outside");
    EXPECT_TRUE(access->staysInside(root / "out.txt"));
    {
        auto held = FileAccess::hold(root);
        ASSERT_TRUE(held);
        EXPECT_EQ(read(root / "clip.txt"), "clip");
        EXPECT_EQ(read(root / "inner.txt"), "real");
        for (const char* out : {"out.txt", "climb.txt", "away/secret.txt"}) {
            EXPECT_EQ(read(root / out), "cannot be read") << out;
            EXPECT_FALSE(access->staysInside(root / out)) << out;
        }
        EXPECT_EQ(read(folder.dir / "outside.txt"), "outside");
        EXPECT_TRUE(access->staysInside(root / "inner.txt"));
        // A second hold of the same path, released first, leaves the first in force.
        EXPECT_TRUE(FileAccess::hold(folder.dir.path() / "calm.hushmeadow/"));
        EXPECT_EQ(read(root / "out.txt"), "cannot be read");
        EXPECT_FALSE(FileAccess::hold(root / "clip.txt"));
    }
    EXPECT_EQ(read(root / "out.txt"), "outside");
}

INSTANTIATE_TEST_SUITE_P(Adapters, HeldFolderContract, ::testing::Values(true, false),
                         [](const auto& info) { return info.param ? "posix" : "portable"; });

// Only the POSIX adapter knows the folder itself: renamed away and replaced
// by another, nothing under its path opens until the folder held is back.
TEST(PosixFileAccessTest, AHeldFolderReplacedAtItsPathOpensNothing)
{
    PosixFileAccess::install();
    LinkedFolder folder;
    auto held = FileAccess::hold(folder.root);
    EXPECT_EQ(PosixFileAccess::openedFilePath(folder.root / "inner.txt"), fs::canonical(folder.root / "media/real.txt"));
    fs::rename(folder.root, folder.dir / "moved");
    testing::writeText(folder.dir / "elsewhere/clip.txt", "impostor");
    fs::create_symlink(folder.dir / "elsewhere", folder.root);
    EXPECT_EQ(PosixFileAccess::openForReading(folder.root / "clip.txt"), std::unexpected(PosixFileAccess::outsideError));
    EXPECT_FALSE(readSmallFile(folder.root / "clip.txt", 1024));
    EXPECT_FALSE(PosixFileAccess::openedFilePath(folder.root / "clip.txt"));
    fs::remove(folder.root);
    fs::create_directory(folder.root);
    testing::writeText(folder.root / "clip.txt", "impostor");
    EXPECT_FALSE(readSmallFile(folder.root / "clip.txt", 1024));
    fs::remove_all(folder.root);
    fs::rename(folder.dir / "moved", folder.root);
    EXPECT_EQ(readSmallFile(folder.root / "clip.txt", 1024).text, "clip");
    FileAccess::install(nullptr);
}

} // namespace
} // namespace hushmeadows
