#include "SceneCore/Settings/SettingsStore.h"

#include "tests/support/FixtureKit.h"
#include "tests/support/LogCapture.h"

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

constexpr std::string_view pinnedSetAsideName = "Settings.unreadable-2026-03-01T08-15-02Z.json";

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

    std::vector<std::string> settingsLines() const { return log.lines("settings"); }
};

TEST_F(SettingsStoreTest, MissingFileGivesDefaultsSilently)
{
    EXPECT_EQ(store.load(), HushmeadowsSettings::defaultSettings());
    EXPECT_TRUE(namesIn(folder.path()).empty());
    EXPECT_TRUE(log.records().empty());
}

TEST_F(SettingsStoreTest, EmptyObjectGivesDefaultsAndTheFileStays)
{
    testing::writeText(file, "{}");
    EXPECT_EQ(store.load(), HushmeadowsSettings::defaultSettings());
    EXPECT_EQ(namesIn(folder.path()), (std::set<std::string>{"Settings.json"}));
    EXPECT_EQ(contents(file), "{}");
    EXPECT_TRUE(log.records().empty());
}

TEST_F(SettingsStoreTest, UndecodableFileIsLoggedSetAsideAndTheNextLoadIsSilent)
{
    for (std::string_view text : {"", "[1, 2]", "{\"musicVolume\": 0.5"}) {
        SCOPED_TRACE(text);
        log.clear();
        testing::writeText(file, text);
        EXPECT_EQ(store.load(), HushmeadowsSettings::defaultSettings());

        auto records = log.records();
        ASSERT_EQ(records.size(), 1u);
        EXPECT_EQ(records[0].category, "settings");
        EXPECT_EQ(records[0].level, LogLevel::error);
        EXPECT_EQ(records[0].format, "Settings file unreadable, using defaults: %{private}s");
        EXPECT_EQ(records[0].render(false), "Settings file unreadable, using defaults: <private>");

        EXPECT_EQ(namesIn(folder.path()), (std::set<std::string>{std::string(pinnedSetAsideName)}));
        EXPECT_EQ(contents(folder / pinnedSetAsideName), text);

        log.clear();
        EXPECT_EQ(store.load(), HushmeadowsSettings::defaultSettings());
        EXPECT_TRUE(log.records().empty());
        fs::remove(folder / pinnedSetAsideName);
    }
}

TEST_F(SettingsStoreTest, SizeLimitIsOneMebibyteInclusive)
{
    testing::writeText(file, paddedSettings(SettingsStore::maximumFileSize));
    EXPECT_EQ(store.load().musicVolume, 0.25);
    EXPECT_EQ(namesIn(folder.path()), (std::set<std::string>{"Settings.json"}));

    // One byte more: the same valid settings are not read at all.
    auto tooLarge = paddedSettings(SettingsStore::maximumFileSize + 1);
    testing::writeText(file, tooLarge);
    EXPECT_EQ(store.load(), HushmeadowsSettings::defaultSettings());
    EXPECT_EQ(namesIn(folder.path()), (std::set<std::string>{std::string(pinnedSetAsideName)}));
    EXPECT_EQ(contents(folder / pinnedSetAsideName), tooLarge);
    EXPECT_TRUE(settingsLines().empty());
}

TEST_F(SettingsStoreTest, UnknownSizeIsSetAside)
{
    // A folder in the file's place has no file size.
    fs::create_directories(file / "inner");
    EXPECT_EQ(store.load(), HushmeadowsSettings::defaultSettings());
    EXPECT_TRUE(fs::is_directory(folder / pinnedSetAsideName / "inner"));
    EXPECT_FALSE(fs::exists(file));
}

TEST_F(SettingsStoreTest, SetAsideNeverOverwrites)
{
    testing::writeText(folder / pinnedSetAsideName, "first");
    testing::writeText(folder / "Settings.unreadable-2026-03-01T08-15-02Z-2.json", "second");
    testing::writeText(file, "third");

    auto moved = store.setAside();
    ASSERT_TRUE(moved);
    EXPECT_EQ(moved->filename(), "Settings.unreadable-2026-03-01T08-15-02Z-3.json");
    EXPECT_EQ(contents(*moved), "third");
    EXPECT_EQ(contents(folder / pinnedSetAsideName), "first");
    EXPECT_FALSE(fs::exists(file));
    EXPECT_FALSE(store.setAside());
}

TEST_F(SettingsStoreTest, SaveCreatesTheFolderAndRoundTripsEveryField)
{
    auto settings = HushmeadowsSettings::make(0.25, 0.75, true, true, true, false, LaunchBehavior::enterAmbientMode, false,
                                              Framing::wholeScene, false, "calm-lake",
                                              {{"calm-lake", WorldMix{0.4, std::nullopt}}, {"ä/\"x\"", WorldMix{std::nullopt, 0.9}}},
                                              {"night-rain", "calm-lake"}, TimeOfDay::day, SleepTimer::after60Minutes, true,
                                              -7, true, LibraryTab::pixel, MusicStyle::studio, MusicStyle::classic);
    SettingsStore nested(folder / "deep" / "er" / "Settings.json");
    std::vector<HushmeadowsSettings> announced;
    nested.onDidSave([&](const HushmeadowsSettings& saved) { announced.push_back(saved); });

    ASSERT_TRUE(nested.save(settings).has_value());
    EXPECT_EQ(nested.load(), settings);
    EXPECT_EQ(announced, std::vector<HushmeadowsSettings>{settings});

    // A second save replaces the file and leaves no temporary file behind.
    settings.toggleFavourite("dune");
    ASSERT_TRUE(nested.save(settings).has_value());
    EXPECT_EQ(nested.load(), settings);
    EXPECT_EQ(namesIn(folder / "deep" / "er"), (std::set<std::string>{"Settings.json"}));
    EXPECT_TRUE(settingsLines().empty());
}

TEST_F(SettingsStoreTest, ReaderNeverSeesHalfASave)
{
    // Another process's store on the same file: only the rename can keep a
    // reader from catching the file half written (which it would set aside).
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
    EXPECT_TRUE(settingsLines().empty());
    EXPECT_EQ(namesIn(folder.path()), (std::set<std::string>{"Settings.json"}));
}

TEST_F(SettingsStoreTest, FailedSaveLeavesWhatWasThere)
{
    // The rename cannot replace a non-empty folder.
    fs::create_directories(file / "keep");
    std::vector<HushmeadowsSettings> announced;
    store.onDidSave([&](const HushmeadowsSettings& saved) { announced.push_back(saved); });
    auto result = store.save(HushmeadowsSettings{});
    ASSERT_FALSE(result.has_value());
    EXPECT_TRUE(result.error());
    EXPECT_TRUE(fs::is_directory(file / "keep"));
    EXPECT_EQ(namesIn(folder.path()), (std::set<std::string>{"Settings.json"}));
    EXPECT_TRUE(announced.empty());

    // A file where the folder should be.
    testing::writeText(folder / "blocker", "x");
    SettingsStore blocked(folder / "blocker" / "Settings.json");
    EXPECT_FALSE(blocked.save(HushmeadowsSettings{}).has_value());
    EXPECT_EQ(contents(folder / "blocker"), "x");
}

} // namespace
} // namespace hushmeadows
