#include "SceneCore/Settings/SettingsStore.h"

#include "SceneCore/Runtime/DecodingError.h"
#include "SceneCore/Runtime/FileAccess.h"
#include "SceneCore/Runtime/Log.h"
#include "SceneCore/Runtime/PathContainment.h"
#include "SceneCore/Settings/AppDataFolder.h"
#include "SceneCore/Settings/SharedFolder.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <random>

namespace hushmeadows {

namespace fs = std::filesystem;

namespace {

// The last OS error of a failed stream operation, or a generic I/O error.
std::error_code lastStreamError()
{
    int code = errno;
    return code != 0 ? std::error_code(code, std::generic_category()) : std::make_error_code(std::errc::io_error);
}

fs::path setAsideCandidate(const fs::path& url, const std::string& stamp, int attempt)
{
    auto stem = url.filename();
    stem.replace_extension();
    std::string name = stem.string() + ".unreadable-" + stamp;
    // Appended piece by piece: GCC 12 at -O3 warns falsely (-Wrestrict) on
    // a literal prepended to a temporary string.
    if (attempt > 1) {
        name += '-';
        name += std::to_string(attempt);
    }
    name += ".json";
    return url.parent_path() / name;
}

// Moves `from` to `to` unless `to` exists. A hard link refuses an existing
// target by itself; where links are not possible (a folder, some file
// systems) the check comes first, which is safe within this store's lock.
std::error_code moveWithoutReplacing(const fs::path& from, const fs::path& to)
{
    std::error_code error;
    fs::create_hard_link(from, to, error);
    if (!error) {
        fs::remove(from, error);
        if (error) {
            std::error_code ignored;
            fs::remove(to, ignored);
        }
        return error;
    }
    if (error == std::errc::file_exists)
        return error;
    if (fs::exists(fs::symlink_status(to, error)))
        return std::make_error_code(std::errc::file_exists);
    error.clear();
    fs::rename(from, to, error);
    return error;
}

// Why a folder could not be written to, in a person's words; the system's
// own words for anything rarer.
std::string folderTrouble(std::error_code error)
{
    if (error == std::errc::read_only_file_system)
        return "the folder is read-only";
    if (error == std::errc::permission_denied || error == std::errc::operation_not_permitted)
        return "no permission to write in the folder";
    if (error == std::errc::no_space_on_device)
        return "the disk is full";
    if (error == std::errc::not_a_directory)
        return "a part of its path is not a folder";
    return error.message();
}

// Why the lock beside the settings could not be had.
std::string lockTrouble(std::error_code error, std::chrono::milliseconds wait)
{
    if (error != std::errc::timed_out)
        return folderTrouble(error);
    auto count = wait.count() % 1000 == 0 ? std::to_string(wait.count() / 1000) + " s" : std::to_string(wait.count()) + " ms";
    return "another process has held it for " + count;
}

std::string temporaryName(const fs::path& url)
{
    static std::atomic<std::uint64_t> counter{0};
    std::random_device device;
    char suffix[40];
    std::snprintf(suffix, sizeof suffix, "%08x%04llx", device(), static_cast<unsigned long long>(counter++ & 0xFFFF));
    std::string name(1, '.');
    name += url.filename().string();
    name += ".tmp-";
    name += suffix;
    return name;
}

} // namespace

SettingsStore::SettingsStore(fs::path fileURL, Clock clock, std::optional<fs::path> existingHome)
    : fileURL_(std::move(fileURL))
    , clock_(clock ? std::move(clock) : Clock([] { return std::chrono::system_clock::now(); }))
    , existingHome_(std::move(existingHome))
{
}

SettingsStore SettingsStore::shared(const Environment& environment)
{
    auto file = sharedFileURL(environment);
    auto home = SharedFolder::realHomeDirectory(environment);
    // Without any home the path is relative to wherever the program runs:
    // nothing is made there either (the empty home never exists).
    bool insideHome = home.empty() ? file.is_relative() : isPathInside(file, home);
    return SettingsStore(std::move(file), {}, insideHome ? std::optional(home) : std::nullopt);
}

fs::path SettingsStore::sharedFileURL(const Environment& environment)
{
    return SharedFolder::url(environment) / fileName;
}

fs::path SettingsStore::defaultFileURL(const Environment& environment)
{
    return AppDataFolder::directory(AppDataFolder::Kind::applicationData, environment) / fileName;
}

HushmeadowsSettings SettingsStore::load()
{
    std::lock_guard guard(lock_);
    // Saves replace the file atomically, so reading needs no file lock, and a
    // reader that took it would leave a lock file behind.
    if (auto settings = loadLocked(false))
        return *settings;
    // Moving the file aside is a write: under the file lock, judged again,
    // since a writer may have replaced it meanwhile and its file must stay.
    // Only a moment's wait: a writer holds the lock for milliseconds (and an
    // update on this store, holding it, waits for this load to end).
    constexpr std::chrono::milliseconds wait(100);
    auto held = FileAccess::current()->lock(lockFileURL(), wait);
    if (!held) {
        Log::settings.error("Settings file left in place, using defaults: cannot lock it: %{private}s", lockTrouble(held.failure, wait));
        return HushmeadowsSettings::defaultSettings();
    }
    return *loadLocked(true);
}

std::optional<HushmeadowsSettings> SettingsStore::loadLocked(bool mayMove)
{
    lastSetAside_.reset();
    auto data = readSmallFile(fileURL_, maximumFileSize);
    if (!data) {
        // Only a regular file that is ours to judge is ever moved; a folder,
        // device or pipe at this path is left where it is.
        auto failure = *data.failure;
        if (failure == FileAccess::ReadFailure::tooLarge) {
            if (!mayMove)
                return std::nullopt;
            setAsideLocked("larger than 1 MB");
        } else if (failure != FileAccess::ReadFailure::missing) {
            Log::settings.error("Settings file unusable, using defaults: %{private}s", std::string(FileAccess::describe(failure)));
        }
        return HushmeadowsSettings::defaultSettings();
    }
    try {
        return HushmeadowsSettings::decode(data.text);
    } catch (const DecodingError& decodingError) {
        if (!mayMove)
            return std::nullopt;
        Log::settings.error("Settings file unreadable, using defaults: %{private}s", std::string(decodingError.what()));
        setAsideLocked("not valid settings JSON");
        return HushmeadowsSettings::defaultSettings();
    }
}

std::expected<HushmeadowsSettings, SettingsStore::Failure> SettingsStore::update(const Change& change)
{
    // The lock file lives beside the settings, so their folder comes first.
    if (auto folder = makeFolder(); !folder)
        return std::unexpected(folder.error());
    auto held = FileAccess::current()->lock(lockFileURL(), updateWait);
    if (!held)
        return std::unexpected(Failure{held.failure, "cannot lock " + fileURL_.string() + ": " + lockTrouble(held.failure, updateWait)});
    HushmeadowsSettings changed;
    {
        std::lock_guard guard(lock_);
        auto current = *loadLocked(true);
        auto result = change(current);
        if (!result)
            return std::unexpected(Failure{std::make_error_code(std::errc::invalid_argument), "the change was refused"});
        changed = std::move(*result);
    }
    if (auto saved = save(changed); !saved)
        return std::unexpected(saved.error());
    return changed;
}

std::expected<void, SettingsStore::Failure> SettingsStore::makeFolder() const
{
    auto cannotSave = [&](std::error_code code, const std::string& why) {
        return std::unexpected(Failure{code, "cannot save " + fileURL_.string() + ": " + why});
    };
    std::error_code error;
    if (existingHome_ && (existingHome_->empty() || !fs::is_directory(*existingHome_, error)))
        return cannotSave(std::make_error_code(std::errc::no_such_file_or_directory),
                          existingHome_->empty() ? "no home folder is known (HOME is not set)"
                                                 : "the home folder " + existingHome_->string() + " does not exist");
    auto folder = fileURL_.parent_path();
    if (folder.empty())
        return {};
    fs::create_directories(folder, error);
    if (!error)
        return {};
    // Name the file that stands where a folder should be.
    for (auto part = folder; !part.empty(); part = part.parent_path()) {
        std::error_code ignored;
        auto status = fs::status(part, ignored);
        if (fs::exists(status) && !fs::is_directory(status))
            return cannotSave(std::make_error_code(std::errc::not_a_directory), part.string() + " is not a folder");
        if (part == part.parent_path())
            break;
    }
    return cannotSave(error, "cannot make the folder " + folder.string() + ": " + folderTrouble(error));
}

std::filesystem::path SettingsStore::lockFileURL() const
{
    return fileURL_.parent_path() / (fileURL_.filename().string() + ".lock");
}

std::expected<void, SettingsStore::Failure> SettingsStore::save(const HushmeadowsSettings& settings)
{
    SaveHandler handler;
    {
        std::lock_guard guard(lock_);
        if (auto made = makeFolder(); !made)
            return std::unexpected(made.error());
        auto cannotSave = [&](std::error_code code) {
            return std::unexpected(Failure{code, "cannot save " + fileURL_.string() + ": " + folderTrouble(code)});
        };
        std::error_code error;
        auto folder = fileURL_.parent_path();

        auto temporary = folder / temporaryName(fileURL_);
        std::string text = settings.encode();
        {
            errno = 0;
            std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
            if (out)
                out.write(text.data(), static_cast<std::streamsize>(text.size()));
            if (out)
                out.close();
            if (!out) {
                auto failure = lastStreamError();
                fs::remove(temporary, error);
                return cannotSave(failure);
            }
        }

        fs::rename(temporary, fileURL_, error);
        if (error) {
            std::error_code ignored;
            fs::remove(temporary, ignored);
            return cannotSave(error);
        }
        handler = didSaveHandler_;
    }
    if (handler)
        handler(settings.normalized());
    return {};
}

std::optional<fs::path> SettingsStore::setAside()
{
    std::lock_guard guard(lock_);
    return setAsideLocked("set aside on request");
}

std::optional<fs::path> SettingsStore::setAsideLocked(std::string_view reason)
{
    std::error_code error;
    if (!fs::is_regular_file(fs::symlink_status(fileURL_, error)))
        return std::nullopt;

    auto stamp = setAsideStamp(clock_());
    constexpr int attempts = 100;
    for (int attempt = 1; attempt <= attempts; ++attempt) {
        auto target = setAsideCandidate(fileURL_, stamp, attempt);
        error = moveWithoutReplacing(fileURL_, target);
        if (!error) {
            lastSetAside_ = SetAside{.reason = std::string(reason), .movedTo = target};
            return target;
        }
        if (error != std::errc::file_exists)
            break;
    }
    Log::settings.error("Settings file could not be set aside: %{private}s", error.message());
    return std::nullopt;
}

void SettingsStore::onDidSave(SaveHandler handler)
{
    std::lock_guard guard(lock_);
    didSaveHandler_ = std::move(handler);
}

std::string SettingsStore::setAsideStamp(std::chrono::system_clock::time_point moment)
{
    using namespace std::chrono;
    auto seconds = floor<std::chrono::seconds>(moment);
    auto day = floor<days>(seconds);
    year_month_day date{day};
    hh_mm_ss time{seconds - day};
    char text[48];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d-%02d-%02dZ",
                  static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()),
                  static_cast<unsigned>(date.day()),
                  static_cast<int>(time.hours().count()),
                  static_cast<int>(time.minutes().count()),
                  static_cast<int>(time.seconds().count()));
    return text;
}

} // namespace hushmeadows
