#include "Platforms/Linux/FFmpegMediaProbe.h"
#include "tests/support/FixtureKit.h"

extern "C" {
#include <libavutil/log.h>
}

#include <gtest/gtest.h>

#include <fstream>
#include <sys/stat.h>

namespace hushmeadows {
namespace {

using testing::TempDir;

class FFmpegMediaProbeTest : public ::testing::Test {
protected:
    // Broken files are the point of many cases here; FFmpeg's complaints
    // about them would only bury real failures.
    static void SetUpTestSuite() { av_log_set_level(AV_LOG_QUIET); }

    // The first `size` bytes of `from`, written to `to`.
    static void truncateCopy(const std::filesystem::path& from, const std::filesystem::path& to, std::size_t size)
    {
        std::ifstream in(from, std::ios::binary);
        std::string bytes(size, '\0');
        in.read(bytes.data(), static_cast<std::streamsize>(size));
        ASSERT_EQ(in.gcount(), static_cast<std::streamsize>(size)) << from;
        testing::writeText(to, bytes);
    }

    // What the ffmpeg tools themselves see in a file, one codec type a line;
    // used to prove that an attack file really works without our restrictions.
    static std::string streamTypesSeenByFFprobe(const std::filesystem::path& file)
    {
        return testing::runCommand("ffprobe -v error -show_entries stream=codec_type -of csv=p=0 "
            + testing::shellQuoted(file.string()));
    }

    FFmpegMediaProbe inspector;
    TempDir dir;
};

TEST_F(FFmpegMediaProbeTest, PixelSizeComesFromTheContentOfAReadableImageOnly)
{
    auto jpeg = dir / "photo.png"; // the content decides, not the name
    testing::runCommand("ffmpeg -hide_banner -loglevel error -nostdin -y -i "
        + testing::shellQuoted(testing::poster(40, 30).string()) + " -frames:v 1 -f mjpeg " + testing::shellQuoted(jpeg.string()));
    testing::writeText(dir / "notes.png", "just some text, not a picture\n");
    testing::writeText(dir / "empty.png", "");
    auto size = std::filesystem::file_size(testing::poster(16, 9));
    for (std::size_t cut : {std::size_t{8}, std::size_t{20}, size / 2})
        truncateCopy(testing::poster(16, 9), dir / ("cut" + std::to_string(cut) + ".png"), cut);
    const std::pair<std::filesystem::path, std::optional<PixelSize>> cases[] = {
        {testing::poster(16, 9), PixelSize{16, 9}}, {testing::poster(1, 1), PixelSize{1, 1}}, {jpeg, PixelSize{40, 30}},
        {dir / "notes.png", std::nullopt}, {dir / "empty.png", std::nullopt}, {dir / "cut8.png", std::nullopt},
        {dir / "cut20.png", std::nullopt}, {dir / ("cut" + std::to_string(size / 2) + ".png"), std::nullopt},
        {dir / "missing.png", std::nullopt}, {dir.path(), std::nullopt},
        // Other kinds of media are not posters, though a frame could be decoded.
        {testing::audio(), std::nullopt}, {testing::video(), std::nullopt},
    };
    for (const auto& [file, expected] : cases)
        EXPECT_EQ(inspector.imagePixelSize(file), expected) << file;
}

// Lossy encoders add priming and padding frames; the length must be that of
// the audio that went in, not of what a naive decode yields.
TEST_F(FFmpegMediaProbeTest, AudioHasItsTrueLengthFormatAndChannels)
{
    struct Case {
        std::filesystem::path file;
        double rate;
        int channels;
        std::int64_t frames;
    };
    std::vector<Case> cases{
        {testing::audio({.seconds = 0.25, .sampleRate = 48000, .channels = 2}), 48000, 2, 12000},
        {testing::audio({.seconds = 0.5, .sampleRate = 44100, .channels = 1, .container = "flac"}), 44100, 1, 22050},
        {testing::emptyWav(), 48000, 2, 0},
    };
    for (std::string container : {"m4a", "mp3", "ogg", "opus"})
        cases.push_back({testing::audio({.seconds = 0.25, .container = container}), 48000, 2, 12000});
    for (const auto& c : cases) {
        auto info = inspector.audioFileInfo(c.file);
        ASSERT_TRUE(info) << c.file << ": " << info.error();
        EXPECT_EQ(info->sampleRate, c.rate) << c.file;
        EXPECT_EQ(info->channelCount, c.channels) << c.file;
        EXPECT_EQ(info->lengthFrames, c.frames) << c.file;
    }

    testing::writeText(dir / "notes.wav", "RIFF? no, just text\n");
    testing::writeText(dir / "empty.wav", "");
    for (const auto& file : {dir / "notes.wav", dir / "empty.wav", dir / "missing.wav", testing::poster(), testing::video()}) {
        auto info = inspector.audioFileInfo(file);
        ASSERT_FALSE(info) << file << " was taken for audio";
        EXPECT_FALSE(info.error().empty()) << file;
    }
}

TEST_F(FFmpegMediaProbeTest, ProbeNamesTheStepAVideoFailsAt)
{
    testing::writeText(dir / "notes.mp4", "a text file under a video name\n");
    testing::writeText(dir / "empty.mp4", "");
    const std::pair<std::filesystem::path, std::optional<VideoProbeFailure>> cases[] = {
        {testing::video(), std::nullopt},
        {testing::video({.exact = true}), std::nullopt},
        {testing::video({.width = 33, .height = 17, .container = "mov"}), std::nullopt},
        {testing::video({.fps = 1, .seconds = 1, .container = "mkv"}), std::nullopt},
        {testing::video({.container = "webm"}), std::nullopt},
        {dir / "notes.mp4", VideoProbeFailure::notReadable},
        {dir / "empty.mp4", VideoProbeFailure::notReadable},
        {dir / "missing.mp4", VideoProbeFailure::notReadable},
        {testing::audio({.container = "m4a"}), VideoProbeFailure::noVideoTrack},
        {testing::audio(), VideoProbeFailure::notReadable}, // a WAV is no movie container
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
    std::string playlist = "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:1\n#EXTINF:0.5,\n" + real.string()
        + "\n#EXT-X-ENDLIST\n";
    for (std::string name : {"clip.m3u8", "clip.mp4"}) {
        SCOPED_TRACE(name);
        auto file = dir / "package" / name;
        testing::writeText(file, playlist);
        ASSERT_NE(streamTypesSeenByFFprobe(file).find("video"), std::string::npos) << "the playlist is not a working one";

        auto result = inspector.probeVideo(file);
        ASSERT_TRUE(result) << "probed through the playlist";
        EXPECT_EQ(result->failure, VideoProbeFailure::notReadable);
    }
}

TEST_F(FFmpegMediaProbeTest, ImageNamesAreNeverExpandedAsPatterns)
{
    testing::copyFile(testing::poster(16, 9), dir / "frame1.png");
    testing::copyFile(testing::poster(16, 9), dir / "frame001.png");
    // Nothing exists under the literal names, only files the patterns expand to.
    EXPECT_EQ(inspector.imagePixelSize(dir / "frame%d.png"), std::nullopt);
    EXPECT_EQ(inspector.imagePixelSize(dir / "frame%03d.png"), std::nullopt);
    EXPECT_EQ(inspector.imagePixelSize(dir / "frame*.png"), std::nullopt);

    // A real picture under such a name is read as itself.
    testing::copyFile(testing::poster(8, 4), dir / "frame%d.png");
    EXPECT_EQ(inspector.imagePixelSize(dir / "frame%d.png"), (PixelSize{8, 4}));
}

TEST_F(FFmpegMediaProbeTest, ANamedPipeIsRefusedWithoutWaitingForAWriter)
{
    auto fifo = dir / "poster.png";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(inspector.imagePixelSize(fifo), std::nullopt);
    EXPECT_FALSE(inspector.audioFileInfo(fifo));
    EXPECT_EQ(inspector.probeVideo(fifo)->failure, VideoProbeFailure::notReadable);
}

} // namespace
} // namespace hushmeadows
