#pragma once

#include "SceneCore/Settings/Environment.h"
#include "SceneCore/Settings/HushmeadowsSettings.h"

#include <chrono>
#include <cstdint>
#include <expected>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace hushmeadows {

// Reads and writes the settings record as a JSON file. Loading never fails: a
// file that cannot be used is set aside under a new name and the defaults are
// returned, so the screen saver never goes without settings. load(), save()
// and setAside() on one store are serialised by its lock.
class SettingsStore {
public:
    using Clock = std::function<std::chrono::system_clock::time_point()>;
    using SaveHandler = std::function<void(const HushmeadowsSettings&)>;

    // The name under which a completed save is announced. The core has no
    // notification centre: the platform layer posts this name (on the
    // distributed centre on macOS, without a payload; listeners reload the
    // file) from the handler given to onDidSave.
    static constexpr std::string_view didSave = "app.hushmeadows.settings.didSave";
    static constexpr std::string_view fileName = "Settings.json";
    // Larger files are set aside without being read.
    static constexpr std::uintmax_t maximumFileSize = 1'048'576;

    // Why a save or an update did not happen, as one sentence for a person
    // ("cannot lock /x/Settings.json: the folder is read-only").
    struct Failure {
        std::error_code code;
        std::string description;
    };

    // The clock dates set-aside files; the system clock when none is given.
    // With `existingHome`, saving makes missing folders only when that folder
    // exists, so a home that is not there is never made.
    explicit SettingsStore(std::filesystem::path fileURL, Clock clock = {}, std::optional<std::filesystem::path> existingHome = {});

    SettingsStore(const SettingsStore&) = delete;
    SettingsStore& operator=(const SettingsStore&) = delete;

    const std::filesystem::path& fileURL() const { return fileURL_; }

    // SharedFolder's Settings.json: the one the screen saver always uses.
    static std::filesystem::path sharedFileURL(const Environment& environment = Environment::current());
    // The application-data folder's Settings.json.
    static std::filesystem::path defaultFileURL(const Environment& environment = Environment::current());
    // A store on sharedFileURL that makes its folder only inside an existing
    // home (or under an XDG_CONFIG_HOME outside the home, which may be made).
    static SettingsStore shared(const Environment& environment = Environment::current());

    // Missing file: the defaults, silently. A regular file above
    // maximumFileSize or not decodable: logged on "settings" at error level,
    // set aside, defaults. Anything else at the path (a folder, a device, an
    // unreadable file) is left in place: logged, defaults.
    // Setting aside is the only thing a load ever writes: a file that reads
    // well is read without the lock file, which is neither taken nor made.
    HushmeadowsSettings load();

    // Writes the record (pretty printed, keys in field order) atomically: into
    // a temporary file in the same folder, then renamed over the old one, so a
    // reader sees the old file or the new one, never half of one. Creates the
    // folder when needed. On success the didSave handler runs, outside the lock.
    std::expected<void, Failure> save(const HushmeadowsSettings& settings);

    // Moves the file to "<name without extension>.unreadable-<stamp>.json"
    // beside it, the stamp being the clock's time in ISO 8601 UTC with every
    // ":" made "-" (Settings.unreadable-2026-03-01T08-15-02Z.json). Nothing is
    // ever overwritten: when that name is taken, "-2", "-3"… is added to the
    // stamp. Returns where the file went; nothing when there was no file or
    // the move failed (logged; the file then stays where it was).
    std::optional<std::filesystem::path> setAside();

    // Loads, applies `change` and saves while holding the lock beside the
    // file ("Settings.json.lock"), so that processes changing different keys
    // at once never lose each other's change. A change that refuses (nothing)
    // fails with invalid_argument and saves nothing. Another process holding
    // the lock for longer than updateWait fails with timed_out.
    using Change = std::function<std::optional<HushmeadowsSettings>(const HushmeadowsSettings&)>;
    std::expected<HushmeadowsSettings, Failure> update(const Change& change);
    static constexpr std::chrono::seconds updateWait{10};

    // What the last load() moved out of the way, for telling a person.
    struct SetAside {
        std::string reason;
        std::filesystem::path movedTo;
    };
    const std::optional<SetAside>& lastSetAside() const { return lastSetAside_; }

    // Called after every successful save with the record saved.
    void onDidSave(SaveHandler handler);

    // "2026-03-01T08-15-02Z" for that moment (seconds, UTC).
    static std::string setAsideStamp(std::chrono::system_clock::time_point moment);

private:
    // The record, or nothing when the file must be set aside but `mayMove`
    // is false.
    std::optional<HushmeadowsSettings> loadLocked(bool mayMove);
    std::optional<std::filesystem::path> setAsideLocked(std::string_view reason);
    std::filesystem::path lockFileURL() const;
    std::expected<void, Failure> makeFolder() const;

    std::filesystem::path fileURL_;
    Clock clock_;
    std::optional<std::filesystem::path> existingHome_;
    std::mutex lock_;
    SaveHandler didSaveHandler_;
    std::optional<SetAside> lastSetAside_;
};

} // namespace hushmeadows
