#include "Apps/hushmeadows/SettingsCommand.h"

#include "Apps/hushmeadows/CommandOptions.h"
#include "Apps/hushmeadows/HelpText.h"
#include "SceneCore/Runtime/DecodingError.h"
#include "SceneCore/Runtime/JsonReader.h"
#include "SceneCore/Runtime/PrintableText.h"
#include "SceneCore/Settings/SettingsStore.h"

#include <optional>

namespace hushmeadows {

namespace {

constexpr const char* usage = HelpText::settings;

// What a key accepts, in words, judged from its enumeration names or from
// the kind of value it holds now.
std::string allowedValues(const std::string& key, const Json& current)
{
    auto names = HushmeadowsSettings::allowedNames(key);
    if (!names.empty()) {
        std::string list;
        for (auto name : names)
            list += (list.empty() ? "" : ", ") + std::string(name);
        return "one of " + list;
    }
    if (key.ends_with("Volume"))
        return "a number from 0 to 1, or null";
    if (key == "worldMixes")
        return "an object of world ids to {\"music\": 0 to 1, \"ambience\": 0 to 1}";
    if (current.is_boolean() || key == "screenSaverChosen")
        return "true or false";
    if (current.is_number_integer())
        return "a whole number";
    if (current.is_array())
        return "an array of texts";
    return "a value of the kind shown by hushmeadows settings";
}

// The record with one key replaced, or why the value does not fit.
std::optional<HushmeadowsSettings> withValue(const HushmeadowsSettings& settings, const std::string& key, const Json& value,
                                             std::string& problem)
{
    Json object = parseJson(settings.encode());
    if (!object.contains(key)) {
        problem = "unknown setting " + printableExcerpt(key);
        return std::nullopt;
    }
    Json current = object[key];
    object[key] = value;
    HushmeadowsSettings changed = HushmeadowsSettings::fromJson(object);
    // Decoding is tolerant and clamps volumes: a value that does not come
    // back as given was not taken, so it is refused rather than silently
    // replaced.
    Json written = parseJson(changed.encode());
    if (written[key] != value) {
        std::string shown = value.is_string() ? value.get<std::string>() : value.dump(-1, ' ', false, Json::error_handler_t::replace);
        problem = "bad value for " + key + ": " + printableExcerpt(shown) + " (allowed: " + allowedValues(key, current) + ")";
        return std::nullopt;
    }
    return changed;
}

// The value as JSON first (true, 0.4, null, [..]); a value that is not
// JSON, or whose JSON reading does not fit, is tried as plain text ("fill").
std::optional<HushmeadowsSettings> changed(const HushmeadowsSettings& current, const std::string& key, const std::string& text,
                                           std::string& problem)
{
    std::optional<HushmeadowsSettings> result;
    try {
        result = withValue(current, key, parseJson(text), problem);
    } catch (const DecodingError&) {
    }
    if (!result) {
        std::string firstProblem = problem;
        result = withValue(current, key, Json(text), problem);
        if (!result && !firstProblem.empty())
            problem = firstProblem;
    }
    return result;
}

// A file that could not be used was moved: tell the person where and why.
void reportSetAside(const SettingsStore& store, std::FILE* err)
{
    if (const auto& moved = store.lastSetAside())
        std::fprintf(err, "hushmeadows settings: %s was %s; moved it to %s and used the defaults\n",
                     printable(store.fileURL().string()).c_str(), moved->reason.c_str(), printable(moved->movedTo.string()).c_str());
}

// The file given, or the shared one, whose folder is made only inside an
// existing home.
SettingsStore storeFor(const std::optional<std::filesystem::path>& file)
{
    if (file)
        return SettingsStore(*file);
    return SettingsStore::shared();
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
        } else if (isOptionWord(arguments[i]) && words.size() != 2) {
            std::fprintf(err, "hushmeadows settings: unknown option %s\n%s", printableExcerpt(arguments[i]).c_str(), usage);
            return 2;
        } else {
            words.push_back(arguments[i]);
        }
    }

    SettingsStore store = storeFor(file);
    if (words.empty()) {
        auto settings = store.load();
        reportSetAside(store, err);
        std::fprintf(out, "%s\n", settings.encode().c_str());
        return 0;
    }
    if (words.size() != 3 || words[0] != "set") {
        std::fputs(usage, err);
        return 2;
    }

    std::string problem;
    auto saved = store.update([&](const HushmeadowsSettings& current) { return changed(current, words[1], words[2], problem); });
    reportSetAside(store, err);
    if (!saved && !problem.empty()) {
        std::fprintf(err, "hushmeadows settings: %s\n", problem.c_str());
        return 1;
    }
    if (!saved) {
        std::fprintf(err, "hushmeadows settings: %s\n", printable(saved.error().description).c_str());
        return 1;
    }
    std::fprintf(out, "%s\n", saved->encode().c_str());
    return 0;
}

} // namespace hushmeadows
