#include "SceneCore/Worlds/WorldPackage.h"

#include "SceneCore/Runtime/FileAccess.h"
#include "SceneCore/Runtime/Log.h"
#include "SceneCore/Runtime/MediaProbeCache.h"
#include "SceneCore/Runtime/PathContainment.h"

#include <cmath>

namespace hushmeadows {

namespace fs = std::filesystem;

namespace {

// Decodes one UTF-8 code point at `at`, advancing it; invalid bytes count as
// one unknown character.
char32_t nextCodePoint(std::string_view text, std::size_t& at)
{
    auto byte = static_cast<unsigned char>(text[at]);
    int length = byte < 0x80 ? 1 : (byte >> 5) == 0x6 ? 2 : (byte >> 4) == 0xE ? 3 : (byte >> 3) == 0x1E ? 4 : 1;
    if (at + static_cast<std::size_t>(length) > text.size())
        length = 1;
    char32_t code = length == 1 ? byte : byte & (0x7F >> length);
    for (int i = 1; i < length; ++i)
        code = (code << 6) | (static_cast<unsigned char>(text[at + static_cast<std::size_t>(i)]) & 0x3F);
    at += static_cast<std::size_t>(length);
    return code;
}

// Tab and the Unicode space separators: what the platform trims as whitespace.
bool isWhitespace(char32_t c)
{
    return c == U'\t' || c == U' ' || c == 0xA0 || c == 0x1680 || (c >= 0x2000 && c <= 0x200A)
        || c == 0x202F || c == 0x205F || c == 0x3000;
}

bool isBlankAfterTrimming(std::string_view text)
{
    for (std::size_t at = 0; at < text.size();) {
        if (!isWhitespace(nextCodePoint(text, at)))
            return false;
    }
    return true;
}

// "^[a-z0-9][a-z0-9-]*$" with the regular-expression engine's default
// options, where "$" also matches before one line terminator that ends the text.
bool matchesIdPattern(std::string_view id)
{
    for (std::string_view terminator : {"\r\n", "\n", "\r", "\v", "\f", "\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9"}) {
        if (id.size() > terminator.size() && id.ends_with(terminator)) {
            id.remove_suffix(terminator.size());
            break;
        }
    }
    if (id.empty())
        return false;
    auto lowerOrDigit = [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'); };
    if (!lowerOrDigit(id.front()))
        return false;
    for (char c : id.substr(1))
        if (!lowerOrDigit(c) && c != '-')
            return false;
    return true;
}

bool withinUnit(double v) { return v >= 0 && v <= 1; }

std::expected<void, WorldPackageError> validateTrack(const WorldManifest::Track& track, const std::string& field, const fs::path& root, const MediaProbe& media)
{
    if (!withinUnit(track.defaultVolume))
        return std::unexpected(WorldPackageError::invalidValue(field + ".defaultVolume", std::string(WorldPackageError::volumeReason)));
    std::string fileField = field + ".file";
    auto location = WorldPackage::requireResource(fileField, track.file, root);
    if (!location)
        return std::unexpected(location.error());
    auto info = media.audioFileInfo(*location);
    if (!info)
        return std::unexpected(WorldPackageError::undecodableResource(fileField, track.file, std::string(WorldPackageError::unreadableAudioReason)));
    if (info->lengthFrames < 1)
        return std::unexpected(WorldPackageError::undecodableResource(fileField, track.file, std::string(WorldPackageError::noAudioReason)));
    return {};
}

} // namespace

WorldPackage::WorldPackage(fs::path rootURL, WorldManifest manifest, std::vector<std::string> variationFiles,
                           std::shared_ptr<const FileAccess::HeldFolder> folder)
    : rootURL_(std::move(rootURL))
    , manifest_(std::move(manifest))
    , variationFiles_(std::move(variationFiles))
    , folder_(std::move(folder))
{
}

bool WorldPackage::operator==(const WorldPackage& other) const
{
    return rootURL_ == other.rootURL_ && manifest_ == other.manifest_ && variationFiles_ == other.variationFiles_;
}

bool WorldPackage::hasPackageExtension(const fs::path& path)
{
    std::string extension = path.extension().string();
    return extension.size() == fileExtension.size() + 1 && extension.front() == '.' && extension.ends_with(fileExtension);
}

std::string WorldPackage::describe(const DecodingError& error)
{
    switch (error.kind()) {
    case DecodingError::Kind::keyNotFound:
        return "missing key '" + error.dottedPath() + "'";
    case DecodingError::Kind::typeMismatch:
    case DecodingError::Kind::valueNotFound:
        return "wrong type at '" + error.dottedPath() + "'";
    case DecodingError::Kind::dataCorrupted:
        return error.codingPath().empty() ? std::string("not valid JSON") : "invalid value at '" + error.dottedPath() + "'";
    }
    return "unreadable";
}

std::expected<fs::path, WorldPackageError> WorldPackage::requireResource(std::string_view field, std::string_view path, const fs::path& root)
{
    auto invalid = [&] {
        return std::unexpected(WorldPackageError::invalidValue(std::string(field), std::string(WorldPackageError::relativePathReason)));
    };
    // A NUL would cut the path short where the system reads it.
    if (path.empty() || path.front() == '/' || path.find('\0') != std::string_view::npos)
        return invalid();
    for (std::size_t start = 0; start <= path.size();) {
        auto end = path.find('/', start);
        if (end == std::string_view::npos)
            end = path.size();
        if (path.substr(start, end - start) == "..")
            return invalid();
        start = end + 1;
    }

    fs::path candidate = resolvedPath(root / fs::path(std::string(path)));

    std::error_code error;
    auto status = fs::status(candidate, error);
    if (error || !fs::exists(status) || fs::is_directory(status))
        return std::unexpected(WorldPackageError::missingResource(std::string(field), std::string(path)));

    // The resolved path answers for a folder that is not held; a held one is
    // asked the way every later open will resolve it.
    if (!isPathInside(candidate, root) || !FileAccess::current()->staysInside(root / fs::path(std::string(path))))
        return std::unexpected(WorldPackageError::resourceOutsidePackage(std::string(field), std::string(path)));

    // Only regular files have a size; anything else (a pipe, a device) is
    // reported as empty before anything tries to read it.
    auto size = fs::is_regular_file(status) ? fs::file_size(candidate, error) : 0;
    if (error || size < 1)
        return std::unexpected(WorldPackageError::emptyResource(std::string(field), std::string(path)));
    return candidate;
}

std::expected<void, WorldPackageError> WorldPackage::validate(const WorldManifest& manifest, const fs::path& root, const MediaProbe& media)
{
    if (!WorldManifest::supportedFormatVersions.contains(manifest.formatVersion))
        return std::unexpected(WorldPackageError::unsupportedFormatVersion(manifest.formatVersion));
    if (isBlankAfterTrimming(manifest.id) || !matchesIdPattern(manifest.id))
        return std::unexpected(WorldPackageError::invalidValue("id", std::string(WorldPackageError::idReason)));
    if (isBlankAfterTrimming(manifest.name))
        return std::unexpected(WorldPackageError::invalidValue("name", std::string(WorldPackageError::nameReason)));

    const auto& visual = manifest.visual;
    if (!withinUnit(visual.focus.x) || !withinUnit(visual.focus.y))
        return std::unexpected(WorldPackageError::invalidValue("visual.focus", std::string(WorldPackageError::focusReason)));
    auto safeFraction = [](double v) { return v >= 0.1 && v <= 1; };
    if (!safeFraction(visual.safeArea.width) || !safeFraction(visual.safeArea.height))
        return std::unexpected(WorldPackageError::invalidValue("visual.safeArea", std::string(WorldPackageError::safeAreaReason)));

    if (auto video = requireResource("visual.file", visual.file, root); !video)
        return std::unexpected(video.error());

    if (visual.poster) {
        auto poster = requireResource("visual.poster", *visual.poster, root);
        if (!poster)
            return std::unexpected(poster.error());
        auto size = media.imagePixelSize(*poster);
        if (!size)
            return std::unexpected(WorldPackageError::undecodableResource("visual.poster", *visual.poster, std::string(WorldPackageError::unreadableImageReason)));
        if (auto problem = decodedSizeProblem(*size))
            return std::unexpected(WorldPackageError::undecodableResource("visual.poster", *visual.poster, *problem));
    }

    if (manifest.audio.music) {
        if (auto checked = validateTrack(*manifest.audio.music, "audio.music", root, media); !checked)
            return checked;
    }
    if (manifest.audio.ambience) {
        if (auto checked = validateTrack(*manifest.audio.ambience, "audio.ambience", root, media); !checked)
            return checked;
    }
    return {};
}

std::vector<std::string> WorldPackage::validVariations(const WorldManifest::Visual& visual, const fs::path& root)
{
    std::vector<std::string> valid;
    for (const auto& entry : visual.variations) {
        auto location = requireResource("visual.variations", entry, root);
        if (!location) {
            Log::worlds.error("Skipping variation in %{public}s: %{private}s", folderDisplayName(root), location.error().description());
            continue;
        }
        if (entry != visual.file)
            valid.push_back(entry);
    }
    return valid;
}

std::expected<WorldPackage, WorldPackageError> WorldPackage::contentsOf(const fs::path& url, const MediaProbe& probe)
{
    // Versions name the base's poster and sounds again: each file is probed once.
    MediaProbeCache media(probe);
    std::error_code error;
    if (!fs::is_directory(url, error))
        return std::unexpected(WorldPackageError::notADirectory(url));
    // Held from here on: the checks below and every later open of the
    // package's media resolve inside this folder.
    auto folder = FileAccess::hold(url);
    if (!folder)
        return std::unexpected(WorldPackageError::notADirectory(url));

    fs::path manifestURL = url / manifestFileName;
    if (!fs::exists(manifestURL, error))
        return std::unexpected(WorldPackageError::manifestMissing(url));

    auto text = readSmallFile(manifestURL, manifestSizeLimit);
    if (!text)
        return std::unexpected(WorldPackageError::manifestUnreadable(url, std::string(WorldPackageError::manifestSizeReason)));

    WorldManifest manifest;
    try {
        manifest = WorldManifest::decode(text.text);
    } catch (const DecodingError& decodingError) {
        return std::unexpected(WorldPackageError::manifestUnreadable(url, describe(decodingError)));
    } catch (const std::exception& other) {
        return std::unexpected(WorldPackageError::manifestUnreadable(url, other.what()));
    }

    if (auto valid = validate(manifest, url, media); !valid)
        return std::unexpected(valid.error());

    for (auto it = manifest.versions.begin(); it != manifest.versions.end();) {
        WorldManifest candidate = manifest;
        candidate.visual = it->second.visual;
        if (it->second.audio)
            candidate.audio = *it->second.audio;
        auto valid = validate(candidate, url, media);
        if (valid) {
            ++it;
            continue;
        }
        Log::worlds.error("Skipping the %{public}s version of %{public}s: %{private}s", it->first.rawValue(), folderDisplayName(url), valid.error().description());
        it = manifest.versions.erase(it);
    }

    auto variations = validVariations(manifest.visual, url);
    return WorldPackage(url, std::move(manifest), std::move(variations), std::move(folder));
}

fs::path WorldPackage::visualURL() const { return rootURL_ / manifest_.visual.file; }

std::vector<fs::path> WorldPackage::videoURLs() const
{
    std::vector<fs::path> urls{visualURL()};
    for (const auto& file : variationFiles_)
        urls.push_back(rootURL_ / file);
    return urls;
}

std::optional<fs::path> WorldPackage::posterURL() const
{
    if (!manifest_.visual.poster)
        return std::nullopt;
    return rootURL_ / *manifest_.visual.poster;
}

std::optional<fs::path> WorldPackage::musicURL() const
{
    if (!manifest_.audio.music)
        return std::nullopt;
    return rootURL_ / manifest_.audio.music->file;
}

std::optional<fs::path> WorldPackage::ambienceURL() const
{
    if (!manifest_.audio.ambience)
        return std::nullopt;
    return rootURL_ / manifest_.audio.ambience->file;
}

std::set<DayPhase> WorldPackage::phases() const
{
    std::set<DayPhase> result;
    if (!manifest_.timeOfDay || manifest_.versions.empty())
        return result;
    result.insert(*manifest_.timeOfDay);
    for (const auto& [phase, version] : manifest_.versions)
        result.insert(phase);
    return result;
}

bool WorldPackage::hasAnySound() const
{
    auto sounds = [](const WorldManifest& m) { return m.audio.music.has_value() || m.audio.ambience.has_value(); };
    if (sounds(manifest_))
        return true;
    for (DayPhase phase : phases())
        if (sounds(manifest_.applyingVersion(phase)))
            return true;
    return false;
}

WorldPackage WorldPackage::version(DayPhase phase) const
{
    if (!manifest_.timeOfDay || *manifest_.timeOfDay == phase || !manifest_.versions.contains(phase))
        return *this;
    WorldManifest phased = manifest_.applyingVersion(phase);
    auto variations = validVariations(phased.visual, rootURL_);
    return WorldPackage(rootURL_, std::move(phased), std::move(variations), folder_);
}

std::string videoProbeReason(const VideoProbeResult& result)
{
    switch (result.failure) {
    case VideoProbeFailure::notReadable: return "not a readable movie";
    case VideoProbeFailure::noVideoTrack: return "no video track";
    case VideoProbeFailure::notPlayable: return "not playable on this Mac";
    case VideoProbeFailure::zeroDuration: return "zero duration";
    case VideoProbeFailure::cannotBeRead: return "cannot be read";
    case VideoProbeFailure::unsupportedFormat: return result.detail ? *result.detail : std::string("unsupported video format");
    case VideoProbeFailure::decoderCouldNotStart: return "decoder could not start";
    case VideoProbeFailure::noDecodableFrames: return result.detail ? *result.detail : std::string("no decodable frames");
    }
    return "not a readable movie";
}

std::expected<void, WorldPackageError> WorldPackage::verifyMedia(const MediaProbe& media) const
{
    auto problem = media.probeVideo(visualURL());
    if (!problem)
        return {};
    return std::unexpected(WorldPackageError::undecodableResource("visual.file", manifest_.visual.file, videoProbeReason(*problem)));
}

} // namespace hushmeadows
