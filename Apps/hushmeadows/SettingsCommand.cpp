#include "Apps/hushmeadows/SettingsCommand.h"

#include "SceneCore/Settings/SettingsStore.h"

#include <nlohmann/json.hpp>

#include <optional>

namespace hushmeadows {

namespace {

constexpr const char* usage = "usage: hushmeadows settings [--file PATH]\n"
                              "       hushmeadows settings set KEY VALUE [--file PATH]\n";

// The record with one key replaced, or why the value does not fit.
std::optional<HushmeadowsSettings> withValue(const HushmeadowsSettings& settings, const std::string& key, const nlohmann::json& value,
                                             std::string& problem)
{
    nlohmann::json object = nlohmann::json::parse(settings.encode());
    if (!object.contains(key)) {
        problem = "unknown setting " + key;
        return std::nullopt;
    }
    object[key] = value;
    HushmeadowsSettings changed = HushmeadowsSettings::fromJson(object);
    // Decoding is tolerant and clamps volumes: a value that does not come
    // back as given was not taken, so it is refused rather than silently
    // replaced.
    nlohmann::json written = nlohmann::json::parse(changed.encode());
    if (written[key] != value) {
        problem = "bad value for " + key + ": " + value.dump();
        return std::nullopt;
    }
    return changed;
}

} // namespace

int runSettingsCommand(const std::vector<std::string>& arguments, std::FILE* out, std::FILE* err)
{
    std::optional<std::filesystem::path> file;
    std::vector<std::string> words;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == "--file") {
            if (i + 1 >= arguments.size()) {
                std::fputs(usage, err);
                return 2;
            }
            file = arguments[++i];
        } else if (arguments[i] == "--help" || arguments[i] == "-h") {
            std::fputs(usage, out);
            return 0;
        } else {
            words.push_back(arguments[i]);
        }
    }

    SettingsStore store(file ? *file : SettingsStore::sharedFileURL());
    if (words.empty()) {
        std::fprintf(out, "%s\n", store.load().encode().c_str());
        return 0;
    }
    if (words.size() != 3 || words[0] != "set") {
        std::fputs(usage, err);
        return 2;
    }

    const std::string& key = words[1];
    const std::string& text = words[2];
    HushmeadowsSettings current = store.load();
    std::string problem;
    std::optional<HushmeadowsSettings> changed;
    // JSON first (true, 0.4, null, [..]); a value that is not JSON, or whose
    // JSON reading does not fit, is tried as plain text ("fill", "meadow").
    nlohmann::json parsed = nlohmann::json::parse(text, nullptr, false);
    if (!parsed.is_discarded())
        changed = withValue(current, key, parsed, problem);
    if (!changed) {
        std::string firstProblem = problem;
        changed = withValue(current, key, nlohmann::json(text), problem);
        if (!changed && !firstProblem.empty())
            problem = firstProblem;
    }
    if (!changed) {
        std::fprintf(err, "hushmeadows settings: %s\n", problem.c_str());
        return 1;
    }
    if (auto saved = store.save(*changed); !saved) {
        std::fprintf(err, "hushmeadows settings: cannot save %s: %s\n", store.fileURL().c_str(), saved.error().message().c_str());
        return 1;
    }
    std::fprintf(out, "%s\n", changed->encode().c_str());
    return 0;
}

} // namespace hushmeadows
