#include "SceneCore/Settings/SettingsStore.h"

#include "SceneCore/Runtime/FileAccess.h"
#include "tests/support/FixtureKit.h"
#include "tests/support/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <iterator>
#include <set>
#include <thread>

namespace hushmeadows {
namespace {

namespace fs = std::filesystem;
using testing::LogCapture;
using testing::TempDir;
using namespace std::chrono_literals;

// 2026-03-01T08:15:02.750Z: the fraction must not reach the stamp.
std::chrono::system_clock::time_point pinnedNow()
{
    return std::chrono::sys_days{std::chrono::year{2026} / 3 / 1} + 8h + 15min + 2s + 750ms;
}

constexpr std::string_view setAsideName = "Settings.unreadable-2026-03-01T08-15-02Z.json";

std::string contents(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::set<std::string> namesIn(const fs::path& folder)
{
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.insert(entry.path().filename().string());
    return names;
}

// Valid settings JSON padded with spaces to exactly `size` bytes.
std::string paddedSettings(std::size_t size)
{
    std::string text = R"({"musicVolume": 0.25})";
    text.insert(text.size() - 1, size - text.size(), ' ');
    return text;
}

struct SettingsStoreTest : ::testing::Test {
    TempDir folder;
    fs::path file = folder / "Settings.json";
    SettingsStore store{file, pinnedNow};
    LogCapture log;
};

TEST_F(SettingsStoreTest, SetAsideNeverOverwrites)
{
    testing::writeText(folder / setAsideName, "first");
    testing::writeText(folder / "Settings.unreadable-2026-03-01T08-15-02Z-2.json", "second");
    testing::writeText(file, "third");

    auto moved = store.setAside();
    ASSERT_TRUE(moved);
    EXPECT_EQ(moved->filename(), "Settings.unreadable-2026-03-01T08-15-02Z-3.json");
    EXPECT_EQ(contents(*moved), "third");
    EXPECT_EQ(contents(folder / setAsideName), "first");
    EXPECT_FALSE(fs::exists(file));
}

// Every field's way through the file is the settings' own encoding, tested
// with them; here it is what is saved, where, and who hears of it.
TEST_F(SettingsStoreTest, SaveAndUpdateRoundTripAndAnnounceIt)
{
    HushmeadowsSettings settings;
    settings.setAmbienceLevel(0.9, "ä/\"x\"");
    SettingsStore nested(folder / "deep" / "Settings.json");
    std::vector<HushmeadowsSettings> announced;
    nested.onDidSave([&](const HushmeadowsSettings& saved) { announced.push_back(saved); });
    ASSERT_TRUE(nested.save(settings).has_value());
    EXPECT_EQ(nested.load(), settings);

    auto updated = nested.update([](HushmeadowsSettings current) -> std::optional<HushmeadowsSettings> {
        current.toggleFavourite("dune");
        return current;
    });
    ASSERT_TRUE(updated.has_value());
    settings.toggleFavourite("dune");
    EXPECT_EQ(nested.load(), settings);
    EXPECT_EQ(announced, (std::vector<HushmeadowsSettings>{announced.front(), settings}));

    // A refused change saves nothing.
    auto refused = nested.update([](const HushmeadowsSettings&) { return std::optional<HushmeadowsSettings>(); });
    EXPECT_EQ(refused.error().code, std::errc::invalid_argument);
    EXPECT_EQ(announced.size(), 2u);
}

TEST_F(SettingsStoreTest, ReaderNeverSeesHalfASave)
{
    // Another store on the same file: only the rename can keep a reader from
    // catching the file half written (which it would set aside).
    HushmeadowsSettings quiet;
    quiet.setMusicLevel(0.1);
    HushmeadowsSettings busy = quiet;
    for (int i = 0; i < 1000; ++i)
        busy.toggleFavourite("world-" + std::to_string(i));
    ASSERT_TRUE(store.save(quiet).has_value());

    std::atomic<bool> done{false};
    std::thread writer([&] {
        SettingsStore other(file);
        for (int i = 0; i < 40; ++i)
            EXPECT_TRUE(other.save(i % 2 ? quiet : busy).has_value());
        done = true;
    });
    int loads = 0;
    while (!done || loads == 0) {
        auto loaded = store.load();
        ++loads;
        if (loaded != quiet && loaded != busy) {
            ADD_FAILURE() << "load " << loads << " saw neither record";
            break;
        }
    }
    writer.join();
    EXPECT_TRUE(log.lines("settings").empty());
}

std::optional<HushmeadowsSettings> unchanged(const HushmeadowsSettings& settings)
{
    return settings;
}

TEST_F(SettingsStoreTest, SavingMakesNoHomeAndNamesWhatIsInTheWay)
{
    fs::create_directories(folder / "home");
    testing::writeText(folder / "plain", "");
    const fs::path gone = folder / "gone";
    auto linuxAt = [](std::optional<fs::path> home, std::optional<std::string> configHome) {
        Environment environment;
        environment.platform = Environment::Platform::linuxDesktop;
        environment.processHome = std::move(home);
        environment.xdgConfigHome = std::move(configHome);
        return environment;
    };
    const std::string goneHome = "the home folder " + gone.string() + " does not exist";
    const std::tuple<std::string, Environment, std::string> cases[] = { // name, environment, failure (empty: saved)
        {"home", linuxAt(folder / "home", {}), ""},
        {"missing home", linuxAt(gone, {}), goneHome},
        {"missing home, configuration inside it", linuxAt(gone, (gone / "config").string()), goneHome},
        // XDG_CONFIG_HOME is made when missing; it is not the home.
        {"missing home, configuration elsewhere", linuxAt(gone, (folder / "config").string()), ""},
        {"no home at all", linuxAt(std::nullopt, {}), "no home folder is known (HOME is not set)"},
        {"a file in the way", linuxAt(folder / "home", (folder / "plain/config").string()), (folder / "plain").string() + " is not a folder"},
    };
    for (const auto& [name, environment, failure] : cases) {
        SCOPED_TRACE(name);
        auto shared = SettingsStore::shared(environment);
        auto updated = shared.update(unchanged);
        if (failure.empty()) {
            EXPECT_TRUE(updated.has_value());
            EXPECT_TRUE(fs::is_regular_file(shared.fileURL()));
        } else {
            ASSERT_FALSE(updated.has_value());
            EXPECT_EQ(updated.error().description, "cannot save " + shared.fileURL().string() + ": " + failure);
            EXPECT_FALSE(shared.save({}).has_value());
        }
    }
    EXPECT_FALSE(fs::exists(gone));
}

// The lock port as the store meets it: every lock asked for is noted; it can
// be refused, or let another writer act while the store waits for it.
struct LockLedger final : FileAccess {
    std::shared_ptr<const FileAccess> files = FileAccess::current();
    mutable std::vector<fs::path> asked;
    std::error_code refusal;
    std::function<void()> whileWaiting;

    ReadResult read(const fs::path& file, std::uintmax_t limit) const override { return files->read(file, limit); }
    LockResult lock(const fs::path& lockFile, std::chrono::milliseconds) const override
    {
        asked.push_back(lockFile);
        if (whileWaiting)
            whileWaiting();
        if (refusal)
            return {nullptr, refusal};
        return {std::make_unique<Lock>(), {}};
    }
    std::shared_ptr<const HeldFolder> openFolder(const fs::path& folder) const override { return files->openFolder(folder); }
    bool staysInside(const fs::path& file) const override { return files->staysInside(file); }
};

struct SettingsStoreLockTest : SettingsStoreTest {
    std::shared_ptr<LockLedger> ledger = std::make_shared<LockLedger>();
    SettingsStoreLockTest() { FileAccess::install(ledger); }
    ~SettingsStoreLockTest() override { FileAccess::install(ledger->files); }
};

// Only a regular file that fails to decode is set aside, under the lock; a
// folder (or device, or pipe) at the path is left where it is.
TEST_F(SettingsStoreLockTest, LoadKeepsOrSetsAsideWhatIsThere)
{
    struct Case {
        std::string name;
        std::optional<std::string> text; // nothing: no file, or a folder
        double musicVolume;               // -1: defaults
        bool setAside;
        std::size_t errors;
        bool folderAtPath = false;
    };
    const Case cases[] = {
        {"missing", std::nullopt, -1, false, 0},
        {"a folder at the path", std::nullopt, -1, false, 1, true},
        {"empty object", "{}", -1, false, 0},
        {"empty file", "", -1, true, 1},
        {"cut short", "{\"musicVolume\": 0.5", -1, true, 1},
        {"exactly the limit", paddedSettings(SettingsStore::maximumFileSize), 0.25, false, 0},
        {"one byte over", paddedSettings(SettingsStore::maximumFileSize + 1), -1, true, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        log.clear();
        ledger->asked.clear();
        if (c.text)
            testing::writeText(file, *c.text);
        else if (c.folderAtPath)
            fs::create_directories(file / "inner");
        auto loaded = store.load();
        EXPECT_EQ(loaded.musicVolume.value_or(-1), c.musicVolume);
        EXPECT_EQ(log.lines("settings").size(), c.errors);
        EXPECT_EQ(store.lastSetAside().has_value(), c.setAside);
        EXPECT_EQ(ledger->asked, c.setAside ? std::vector<fs::path>{folder / "Settings.json.lock"} : std::vector<fs::path>{});
        if (c.setAside) {
            EXPECT_EQ(namesIn(folder.path()), (std::set<std::string>{std::string(setAsideName)}));
            EXPECT_EQ(contents(folder / setAsideName), *c.text);
            log.clear();
            EXPECT_EQ(store.load(), HushmeadowsSettings::defaultSettings());
            EXPECT_TRUE(log.lines().empty());
        } else if (!c.text) {
            EXPECT_EQ(fs::is_directory(file / "inner"), c.folderAtPath);
            EXPECT_FALSE(store.setAside());
        }
        fs::remove(folder / setAsideName);
        fs::remove_all(file);
    }
}

TEST_F(SettingsStoreLockTest, WhatAWriterReplacedMeanwhileIsNotSetAside)
{
    testing::writeText(file, "{ not json");
    ledger->whileWaiting = [&] { testing::writeText(file, R"({"isMuted": true})"); };
    EXPECT_TRUE(store.load().isMuted);
    EXPECT_FALSE(store.lastSetAside());
    EXPECT_EQ(namesIn(folder.path()), (std::set<std::string>{"Settings.json"}));
    EXPECT_TRUE(log.lines("settings").empty());
}

TEST_F(SettingsStoreLockTest, ARefusedLockLeavesTheFileAndSaysWhy)
{
    const std::tuple<std::errc, std::string, std::string> cases[] = { // refusal, said when loading, when updating
        {std::errc::read_only_file_system, "the folder is read-only", "the folder is read-only"},
        {std::errc::no_space_on_device, "the disk is full", "the disk is full"},
        {std::errc::timed_out, "another process has held it for 100 ms", "another process has held it for 10 s"},
    };
    testing::writeText(file, "{ not json");
    for (const auto& [refusal, whenLoading, whenUpdating] : cases) {
        SCOPED_TRACE(whenUpdating);
        ledger->refusal = std::make_error_code(refusal);
        log.clear();
        EXPECT_EQ(store.load(), HushmeadowsSettings::defaultSettings());
        EXPECT_FALSE(store.lastSetAside());
        EXPECT_THAT(log.lines("settings"), ::testing::ElementsAre(::testing::EndsWith(whenLoading)));

        auto updated = store.update(unchanged);
        ASSERT_FALSE(updated.has_value());
        EXPECT_EQ(updated.error().code, refusal);
        EXPECT_EQ(updated.error().description, "cannot lock " + file.string() + ": " + whenUpdating);
        EXPECT_EQ(contents(file), "{ not json");
    }
}

} // namespace
} // namespace hushmeadows
