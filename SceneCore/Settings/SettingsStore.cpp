#include "SceneCore/Settings/SettingsStore.h"

#include "SceneCore/Runtime/DecodingError.h"
#include "SceneCore/Runtime/FileAccess.h"
#include "SceneCore/Runtime/Log.h"
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

SettingsStore::SettingsStore(fs::path fileURL, Clock clock)
    : fileURL_(std::move(fileURL))
    , clock_(clock ? std::move(clock) : Clock([] { return std::chrono::system_clock::now(); }))
{
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
    // Only a moment's wait: a writer holds the lock for milliseconds, and the
    // file is replaced atomically, so reading without it is still whole.
    auto held = FileAccess::current()->lock(lockFileURL(), std::chrono::milliseconds(100));
    std::lock_guard guard(lock_);
    return loadLocked();
}

HushmeadowsSettings SettingsStore::loadLocked()
{
    lastSetAside_.reset();
    auto data = readSmallFile(fileURL_, maximumFileSize);
    if (!data) {
        // Only a regular file that is ours to judge is ever moved; a folder,
        // device or pipe at this path is left where it is.
        auto failure = *data.failure;
        if (failure == FileAccess::ReadFailure::tooLarge)
            setAsideLocked("larger than 1 MB");
        else if (failure != FileAccess::ReadFailure::missing)
            Log::settings.error("Settings file unusable, using defaults: %{private}s", std::string(FileAccess::describe(failure)));
        return HushmeadowsSettings::defaultSettings();
    }
    try {
        return HushmeadowsSettings::decode(data.text);
    } catch (const DecodingError& decodingError) {
        Log::settings.error("Settings file unreadable, using defaults: %{private}s", std::string(decodingError.what()));
        setAsideLocked("not valid settings JSON");
        return HushmeadowsSettings::defaultSettings();
    }
}

std::expected<HushmeadowsSettings, std::error_code> SettingsStore::update(const Change& change)
{
    // The lock file lives beside the settings, so their folder comes first.
    std::error_code folderError;
    if (!fileURL_.parent_path().empty())
        fs::create_directories(fileURL_.parent_path(), folderError);
    auto held = FileAccess::current()->lock(lockFileURL(), std::chrono::seconds(10));
    if (!held)
        return std::unexpected(std::make_error_code(std::errc::resource_unavailable_try_again));
    HushmeadowsSettings changed;
    {
        std::lock_guard guard(lock_);
        auto current = loadLocked();
        auto result = change(current);
        if (!result)
            return std::unexpected(std::make_error_code(std::errc::invalid_argument));
        changed = std::move(*result);
    }
    if (auto saved = save(changed); !saved)
        return std::unexpected(saved.error());
    return changed;
}

std::filesystem::path SettingsStore::lockFileURL() const
{
    return fileURL_.parent_path() / (fileURL_.filename().string() + ".lock");
}

std::expected<void, std::error_code> SettingsStore::save(const HushmeadowsSettings& settings)
{
    SaveHandler handler;
    {
        std::lock_guard guard(lock_);
        std::error_code error;
        auto folder = fileURL_.parent_path();
        if (!folder.empty()) {
            fs::create_directories(folder, error);
            if (error)
                return std::unexpected(error);
        }

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
                return std::unexpected(failure);
            }
        }

        fs::rename(temporary, fileURL_, error);
        if (error) {
            std::error_code ignored;
            fs::remove(temporary, ignored);
            return std::unexpected(error);
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
