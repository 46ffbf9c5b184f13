#include "Platforms/Linux/FFmpegAudioFile.h"
#include "Platforms/Linux/FFmpegMediaProbe.h"
#include "tests/support/FixtureKit.h"

extern "C" {
#include <libavutil/log.h>
}

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <functional>
#include <sys/stat.h>

namespace hushmeadows {
namespace {

class FFmpegMediaProbeTest : public ::testing::Test {
protected:
    // Broken files are the point of many cases here; FFmpeg's complaints
    // about them would only bury real failures.
    static void SetUpTestSuite() { av_log_set_level(AV_LOG_QUIET); }
    // A named pipe is refused by every probe without waiting for a writer.
    void SetUp() override { ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0); }

    // A copy of `from` in the test's folder, its bytes changed by `patch`.
    std::filesystem::path patched(const std::filesystem::path& from, const std::string& name, std::function<void(std::string&)> patch)
    {
        std::ifstream in(from, std::ios::binary);
        std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        patch(bytes);
        testing::writeText(dir / name, bytes);
        return dir / name;
    }

    FFmpegMediaProbe inspector;
    testing::TempDir dir;
};

TEST_F(FFmpegMediaProbeTest, PixelSizeComesFromTheContentOfAReadableImageOnly)
{
    auto jpeg = dir / "photo.png"; // the content decides, not the name
    testing::runCommand("ffmpeg -hide_banner -loglevel error -nostdin -y -i "
        + testing::shellQuoted(testing::poster(40, 30).string()) + " -frames:v 1 -f mjpeg " + testing::shellQuoted(jpeg.string()));
    testing::writeText(dir / "notes.png", "just some text, not a picture\n");
    testing::writeText(dir / "empty.png", "");
    auto cut = [&](std::size_t size) { return patched(testing::poster(16, 9), "cut" + std::to_string(size) + ".png", [=](std::string& bytes) { bytes.resize(size); }); };
    // Names are never expanded as patterns: only files the patterns would
    // expand to exist, and a real picture under such a name is itself.
    testing::copyFile(testing::poster(16, 9), dir / "frame1.png");
    testing::copyFile(testing::poster(16, 9), dir / "frame001.png");
    testing::copyFile(testing::poster(8, 4), dir / "frame%d.png");
    const std::pair<std::filesystem::path, std::optional<PixelSize>> cases[] = {
        {testing::poster(16, 9), PixelSize{16, 9}}, {testing::poster(1, 1), PixelSize{1, 1}}, {jpeg, PixelSize{40, 30}},
        {dir / "notes.png", std::nullopt}, {dir / "empty.png", std::nullopt}, {cut(8), std::nullopt}, {cut(20), std::nullopt},
        {cut(std::filesystem::file_size(testing::poster(16, 9)) / 2), std::nullopt},
        {dir / "missing.png", std::nullopt}, {dir.path(), std::nullopt}, {dir / "fifo", std::nullopt},
        {dir / "frame%03d.png", std::nullopt}, {dir / "frame*.png", std::nullopt}, {dir / "frame%d.png", PixelSize{8, 4}},
        // Other kinds of media are not posters, though a frame could be decoded.
        {testing::audio(), std::nullopt}, {testing::video(), std::nullopt},
    };
    for (const auto& [file, expected] : cases)
        EXPECT_EQ(inspector.imagePixelSize(file), expected) << file;
}

// Lossy encoders add priming and padding frames; the length must be that of
// the audio that went in, whether the container states it or it is counted,
// and the probe and the player must agree on it. What cannot be played both
// refuse, with a reason a person can act on.
TEST_F(FFmpegMediaProbeTest, AudioHasItsTrueLengthOrIsRefusedWithItsReason)
{
    auto flac = testing::audio({.seconds = 0.5, .sampleRate = 44100, .channels = 1, .container = "flac"});
    // A FLAC whose header leaves the total out (zero) is counted.
    auto unstated = patched(flac, "unstated.flac", [](std::string& bytes) { bytes[21] &= '\xF0', bytes.replace(22, 4, 4, '\0'); });
    auto header = [&](std::string name, std::uint16_t channels, std::uint32_t rate) {
        return patched(testing::audio(), name, [=](std::string& bytes) {
            bytes.replace(bytes.find("fmt ") + 10, 6, std::string(reinterpret_cast<const char*>(&channels), 2)
                                                          + std::string(reinterpret_cast<const char*>(&rate), 4));
        });
    };
    auto tone = [](std::string container) { return testing::audio({.seconds = 0.25, .container = container}); };
    testing::writeText(dir / "notes.wav", "RIFF? no, just text\n");
    const std::pair<std::filesystem::path, std::string> cases[] = {
        {testing::audio(), "48000 Hz × 2: 12000"}, {flac, "44100 Hz × 1: 22050"}, {unstated, "44100 Hz × 1: 22050"},
        {testing::emptyWav(), "48000 Hz × 2: 0"}, {tone("m4a"), "48000 Hz × 2: 12000"}, {tone("mp3"), "48000 Hz × 2: 12000"},
        {tone("ogg"), "48000 Hz × 2: 12000"}, {tone("opus"), "48000 Hz × 2: 12000"},
        {header("wide.wav", 200, 48000), "it has 200 channels, more than the 32 the saver can mix"},
        {header("fast.wav", 2, 2'000'000'000), "its sample rate of 2000000000 Hz is beyond the 768000 Hz the saver can play"},
        {dir / "notes.wav", "not a readable media file"}, {testing::video(), "the file holds no audio track"},
        {dir / "missing.wav", "cannot open the file"}, {dir / "fifo", "not a regular file"},
    };
    for (const auto& [file, expected] : cases) {
        auto info = inspector.audioFileInfo(file);
        auto played = FFmpegAudioFile::open(file, info ? info->sampleRate : 48000);
        auto said = [&](std::int64_t frames) {
            return std::to_string(std::lround(info->sampleRate)) + " Hz × " + std::to_string(info->channelCount) + ": " + std::to_string(frames);
        };
        EXPECT_THAT(info ? said(info->lengthFrames) : info.error(), ::testing::StartsWith(expected)) << file;
        EXPECT_THAT(played ? (info ? said((*played)->length()) : "opened") : played.error(), ::testing::StartsWith(expected)) << file;
    }
}

TEST_F(FFmpegMediaProbeTest, ProbeNamesTheStepAVideoFailsAt)
{
    testing::writeText(dir / "notes.mp4", "a text file under a video name\n");
    testing::writeText(dir / "empty.mp4", "");
    using enum VideoProbeFailure;
    const std::pair<std::filesystem::path, std::optional<VideoProbeFailure>> cases[] = {
        {testing::video(), std::nullopt}, {testing::video({.exact = true}), std::nullopt},
        {testing::video({.width = 33, .height = 17, .container = "mov"}), std::nullopt},
        {testing::video({.fps = 1, .seconds = 1, .container = "mkv"}), std::nullopt}, {testing::video({.container = "webm"}), std::nullopt},
        // Wider than playback shows, though small once decoded.
        {testing::video({.width = 4098, .height = 16}), unsupportedFormat},
        {dir / "notes.mp4", notReadable}, {dir / "empty.mp4", notReadable}, {dir / "missing.mp4", notReadable}, {dir / "fifo", notReadable},
        {testing::audio({.container = "m4a"}), noVideoTrack}, {testing::audio(), notReadable}, // a WAV is no movie container
    };
    for (const auto& [file, expected] : cases) {
        auto result = inspector.probeVideo(file);
        EXPECT_EQ(result ? std::optional(result->failure) : std::nullopt, expected) << file;
    }
}

// Only the given file is ever read -------------------------------------------

TEST_F(FFmpegMediaProbeTest, PlaylistsNamingAnotherVideoAreRefused)
{
    // Absolute locations: they resolve no matter what the file is opened as.
    auto real = dir / "elsewhere" / "real.mp4";
    testing::copyFile(testing::video(), real);
    for (std::string name : {"clip.m3u8", "clip.mp4"}) {
        SCOPED_TRACE(name);
        auto file = dir / "package" / name;
        testing::writeText(file, "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:1\n#EXTINF:0.5,\n" + real.string() + "\n#EXT-X-ENDLIST\n");
        auto seen = testing::runCommand("ffprobe -v error -show_entries stream=codec_type -of csv=p=0 " + testing::shellQuoted(file.string()));
        ASSERT_NE(seen.find("video"), std::string::npos) << "the playlist is not a working one";
        auto result = inspector.probeVideo(file);
        ASSERT_TRUE(result) << "probed through the playlist";
        EXPECT_EQ(result->failure, VideoProbeFailure::notReadable);
    }
}

} // namespace
} // namespace hushmeadows
