#include "Platforms/Linux/FFmpegAudioFile.h"
#include "tests/support/FakeAudioFile.h"
#include "tests/support/FixtureKit.h"
#include "tests/support/OfflineAudio.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <optional>

namespace hushmeadows {
namespace {

namespace fs = std::filesystem;
namespace kit = hushmeadows::testing;

const std::string ffmpeg = "ffmpeg -hide_banner -loglevel error -nostdin -y ";

std::unique_ptr<AudioFile> openOrFail(const fs::path& file, double rate = 48000)
{
    auto opened = FFmpegAudioFile::open(file, rate);
    if (!opened) {
        ADD_FAILURE() << file << ": " << opened.error();
        return nullptr;
    }
    return std::move(*opened);
}

// Planes of frames read from the file's current position on.
struct Frames {
    std::vector<std::vector<float>> channels;
    std::size_t size() const { return channels.empty() ? 0 : channels[0].size(); }
};

// Reads up to `count` frames in reads of `chunk` frames, until the file ends.
Frames readFrames(AudioFile& file, std::int64_t count, std::uint32_t chunk = 1000)
{
    Frames frames;
    AudioFormat format = file.processingFormat();
    frames.channels.resize(static_cast<std::size_t>(format.channelCount));
    PCMBuffer buffer(format, chunk);
    while (count > 0) {
        auto read = file.read(buffer, static_cast<std::uint32_t>(std::min<std::int64_t>(count, chunk)));
        if (!read) {
            ADD_FAILURE() << "read failed at " << file.framePosition() << ": " << read.error();
            break;
        }
        if (buffer.frameLength() == 0)
            break;
        for (int c = 0; c < format.channelCount; ++c)
            frames.channels[static_cast<std::size_t>(c)].insert(frames.channels[static_cast<std::size_t>(c)].end(), buffer.channelData(c),
                                                                buffer.channelData(c) + buffer.frameLength());
        count -= buffer.frameLength();
    }
    return frames;
}

// Files whose every frame is known: 16-bit samples written to WAV, then FLAC.
struct KnownSamples {
    static constexpr std::int64_t frames = 10'007;
    static std::int16_t sample(std::int64_t i, int c)
    {
        return static_cast<std::int16_t>(c == 0 ? (i * 7919) % 65'536 - 32'768 : 32'767 - (i * 31) % 65'535);
    }
    static const fs::path& file(const std::string& extension)
    {
        static kit::TempDir dir;
        static fs::path wav = [] {
            // Float samples that are whole 16-bit steps convert to 16 bits exactly.
            kit::writeFloatWav(dir / "float.wav", 48000, 2, frames, [](std::int64_t i, int c) { return expected(i, c).value(); });
            for (const char* codec : {"pcm_s16le -f wav", "flac"})
                kit::runCommand(ffmpeg + "-i " + kit::shellQuoted((dir / "float.wav").string()) + " -c:a " + codec + " "
                                + kit::shellQuoted((dir / (std::string(codec) == "flac" ? "known.flac" : "known.wav")).string()));
            return dir / "known.wav";
        }();
        static fs::path flac = dir / "known.flac";
        return extension == "wav" ? wav : flac;
    }
    static std::optional<float> expected(std::int64_t i, int c) { return sample(i, c) / 32768.0f; }
};

template <const char* Extension>
struct FFmpegKnown : KnownSamples {
    static std::unique_ptr<AudioFile> open() { return openOrFail(file(Extension)); }
};
// Lossy and resampled files: only reading through tells what they hold.
template <const char* Container, int FileRate>
struct FFmpegTone {
    static std::unique_ptr<AudioFile> open() { return openOrFail(kit::audio({.seconds = 2.5, .sampleRate = FileRate, .container = Container})); }
    static std::optional<float> expected(std::int64_t, int) { return std::nullopt; }
};
struct Fake {
    static std::unique_ptr<AudioFile> open() { return std::make_unique<kit::FakeAudioFile>(30'011, 48000); }
    static std::optional<float> expected(std::int64_t i, int c) { return c == 0 ? kit::FakeAudioFile::left(i) : kit::FakeAudioFile::right(i); }
};

constexpr char wav[] = "wav", flac[] = "flac", m4a[] = "m4a", mp3[] = "mp3", ogg[] = "ogg", opus[] = "opus";
using Files = ::testing::Types<FFmpegKnown<wav>, FFmpegKnown<flac>, FFmpegTone<m4a, 48000>, FFmpegTone<mp3, 44100>,
                               FFmpegTone<ogg, 48000>, FFmpegTone<opus, 48000>, FFmpegTone<flac, 44100>, Fake>;

template <class File>
class AudioFileContract : public ::testing::Test {};
TYPED_TEST_SUITE(AudioFileContract, Files);

// Reading through gives exactly the length, the file's own samples where they
// are known; reading from any frame gives what reading through gave there.
TYPED_TEST(AudioFileContract, ReadsItsLengthExactlyAndFromAnyFrameAsReadingThrough)
{
    auto file = TypeParam::open();
    ASSERT_TRUE(file);
    std::int64_t length = file->length();
    Frames all = readFrames(*file, length + 10'000, 1000);
    ASSERT_EQ(static_cast<std::int64_t>(all.size()), length);
    EXPECT_EQ(file->framePosition(), length);
    for (std::size_t c = 0; c < all.channels.size(); ++c)
        for (std::int64_t i = 0; i < length; ++i)
            if (auto known = TypeParam::expected(i, static_cast<int>(c))) {
                ASSERT_EQ(all.channels[c][static_cast<std::size_t>(i)], *known) << "frame " << i << " channel " << c;
            }

    for (std::int64_t start : {std::int64_t{77'777}, std::int64_t{0}, length - 1, std::int64_t{1023}, length / 2, length - 3000, std::int64_t{5}}) {
        if (start < 0 || start >= length)
            continue;
        file->setFramePosition(start);
        Frames part = readFrames(*file, 3000, 700);
        auto expected = static_cast<std::size_t>(std::min<std::int64_t>(3000, length - start));
        ASSERT_EQ(part.size(), expected) << "from " << start;
        for (std::size_t c = 0; c < part.channels.size(); ++c)
            for (std::size_t i = 0; i < expected; ++i)
                ASSERT_EQ(part.channels[c][i], all.channels[c][static_cast<std::size_t>(start) + i]) << "from " << start << ", frame " << i;
    }
    file->setFramePosition(-5);
    EXPECT_EQ(file->framePosition(), 0);
    file->setFramePosition(length + 9);
    EXPECT_EQ(file->framePosition(), length);
}

TEST(FFmpegAudioFile, AACHasItsTrueLengthWithoutPriming)
{
    const fs::path& path = kit::audio({.seconds = 1.3, .container = "m4a", .frequency = 330});
    auto file = openOrFail(path);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->length(), 62'400) << "priming and padding are not part of the sound";
    Frames read = readFrames(*file, 100'000, 4096);
    ASSERT_EQ(read.size(), 62'400u);
    // The sound runs to the very end: the last frames are not padding's silence.
    float tail = 0;
    for (std::size_t i = read.size() - 64; i < read.size(); ++i)
        tail = std::max(tail, std::fabs(read.channels[0][i]));
    EXPECT_GT(tail, 0.05f);
}

TEST(FFmpegAudioFile, ResamplingKeepsTimeAndSeeksConsistently)
{
    const fs::path& path = kit::audio({.seconds = 1.5, .sampleRate = 44'100, .channels = 1, .container = "flac"});
    auto file = openOrFail(path, 48'000);
    ASSERT_TRUE(file);
    auto& ffmpegFile = static_cast<FFmpegAudioFile&>(*file);
    EXPECT_EQ(ffmpegFile.fileSampleRate(), 44'100);
    EXPECT_EQ(ffmpegFile.fileLength(), 66'150);
    EXPECT_EQ(file->processingFormat(), (AudioFormat{48'000, 1}));
    EXPECT_EQ(file->length(), 72'000);

    // The 440 Hz tone (amplitude 1/8, phase 0 at frame 0) lands where it
    // belongs at 48 kHz: an offset of one frame would be off by 0.007.
    Frames read = readFrames(*file, 72'000);
    ASSERT_EQ(read.size(), 72'000u);
    double worst = 0;
    for (std::size_t i = 1000; i < 71'000; ++i) {
        double ideal = 0.125 * std::sin(2 * std::numbers::pi * 440 * static_cast<double>(i) / 48'000);
        worst = std::max(worst, std::fabs(read.channels[0][i] - ideal));
    }
    EXPECT_LT(worst, 1e-3);

}

TEST(FFmpegAudioFile, MoreThanTwoChannelsAreMixedDownToStereo)
{
    const fs::path& path = kit::audio({.seconds = 0.5, .channels = 6, .container = "flac"});
    auto file = openOrFail(path);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->processingFormat(), (AudioFormat{48'000, 2}));
    EXPECT_EQ(file->length(), 24'000);
    Frames read = readFrames(*file, 24'000);
    ASSERT_EQ(read.size(), 24'000u);
    float peak = 0;
    for (float sample : read.channels[1])
        peak = std::max(peak, std::fabs(sample));
    EXPECT_GT(peak, 0.05f);
    EXPECT_LE(peak, 1.0f);
}

TEST(FFmpegAudioFile, FailuresAreReadableTexts)
{
    kit::TempDir dir;
    kit::writeText(dir / "notes.m4a", "these are not sounds");
    auto result = FFmpegAudioFile::open(dir / "notes.m4a", 48'000);
    ASSERT_FALSE(result);
    EXPECT_NE(result.error().find("not a readable media file"), std::string::npos) << result.error();

    result = FFmpegAudioFile::open(dir / "missing.flac", 48'000);
    ASSERT_FALSE(result);
    EXPECT_NE(result.error().find("cannot open the file"), std::string::npos) << result.error();

    result = FFmpegAudioFile::open(kit::video(), 48'000);
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error(), "the file holds no audio track");

    result = FFmpegAudioFile::open(kit::audio(), 0);
    ASSERT_FALSE(result);

    // A file that loses its end after opening reads short, then fails cleanly.
    kit::copyFile(kit::audio({.seconds = 2, .container = "wav"}), dir / "cut.wav");
    auto file = openOrFail(dir / "cut.wav");
    ASSERT_TRUE(file);
    fs::resize_file(dir / "cut.wav", fs::file_size(dir / "cut.wav") / 2);
    file->setFramePosition(90'000);
    PCMBuffer buffer(file->processingFormat(), 1000);
    auto read = file->read(buffer);
    EXPECT_TRUE(!read || buffer.frameLength() < 1000) << "the second half is gone";
}

} // namespace
} // namespace hushmeadows
