#include "Platforms/Linux/FFmpegAudioFile.h"
#include "tests/support/FakeAudioFile.h"
#include "tests/support/FixtureKit.h"
#include "tests/support/OfflineAudio.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <optional>

namespace hushmeadows {
namespace {

namespace fs = std::filesystem;
namespace kit = hushmeadows::testing;

std::unique_ptr<AudioFile> openOrFail(const fs::path& file)
{
    auto opened = FFmpegAudioFile::open(file, 48000);
    EXPECT_TRUE(opened) << file << ": " << (opened ? "" : opened.error());
    return opened ? std::move(*opened) : nullptr;
}

// One plane per channel of up to `count` frames read from the file's position
// in reads of `chunk` frames, until the file ends.
struct Frames {
    std::vector<std::vector<float>> channels;
    std::size_t size() const { return channels[0].size(); }
};
Frames readFrames(AudioFile& file, std::int64_t count, std::uint32_t chunk = 1000)
{
    PCMBuffer buffer(file.processingFormat(), chunk);
    Frames frames{std::vector<std::vector<float>>(static_cast<std::size_t>(buffer.channelCount()))};
    for (; count > 0; count -= buffer.frameLength()) {
        auto read = file.read(buffer, static_cast<std::uint32_t>(std::min<std::int64_t>(count, chunk)));
        EXPECT_TRUE(read) << "read failed at " << file.framePosition() << ": " << (read ? "" : read.error());
        if (!read || buffer.frameLength() == 0)
            break;
        for (std::size_t c = 0; c < frames.channels.size(); ++c)
            frames.channels[c].insert(frames.channels[c].end(), buffer.channelData(static_cast<int>(c)),
                                      buffer.channelData(static_cast<int>(c)) + buffer.frameLength());
    }
    return frames;
}

// Files whose every frame is known: whole 16-bit steps, written as float,
// converted to 16-bit WAV and to FLAC (exactly, as they are whole steps).
struct KnownSamples {
    static std::optional<float> expected(std::int64_t i, int c)
    {
        return static_cast<std::int16_t>(c == 0 ? (i * 7919) % 65'536 - 32'768 : 32'767 - (i * 31) % 65'535) / 32768.0f;
    }
    static const fs::path& file(const std::string& extension)
    {
        static kit::TempDir dir;
        static fs::path wav = [] {
            kit::writeFloatWav(dir / "float.wav", 48000, 2, 10'007, [](std::int64_t i, int c) { return expected(i, c).value(); });
            for (std::string to : {"-c:a pcm_s16le known.wav", "-c:a flac known.flac"})
                kit::runCommand("cd " + kit::shellQuoted(dir.path().string()) + " && ffmpeg -hide_banner -loglevel error -nostdin -y -i float.wav " + to);
            return dir / "known.wav";
        }();
        static fs::path flac = dir / "known.flac";
        return extension == "wav" ? wav : flac;
    }
};

template <const char* Extension>
struct FFmpegKnown : KnownSamples {
    static std::unique_ptr<AudioFile> open() { return openOrFail(file(Extension)); }
};
// Lossy, resampled and mixed-down files: only reading through tells what they hold.
template <const char* Container, int FileRate, int Channels = 2>
struct FFmpegTone {
    static std::unique_ptr<AudioFile> open()
    {
        return openOrFail(kit::audio({.seconds = 2.5, .sampleRate = FileRate, .channels = Channels, .container = Container}));
    }
    static std::optional<float> expected(std::int64_t, int) { return std::nullopt; }
};
struct Fake {
    static std::unique_ptr<AudioFile> open() { return std::make_unique<kit::FakeAudioFile>(30'011, 48000); }
    static std::optional<float> expected(std::int64_t i, int c) { return c == 0 ? kit::FakeAudioFile::left(i) : kit::FakeAudioFile::right(i); }
};

constexpr char wav[] = "wav", flac[] = "flac", m4a[] = "m4a", mp3[] = "mp3", ogg[] = "ogg", opus[] = "opus";
using Files = ::testing::Types<FFmpegKnown<wav>, FFmpegKnown<flac>, FFmpegTone<m4a, 48000>, FFmpegTone<mp3, 44100>,
                               FFmpegTone<ogg, 48000>, FFmpegTone<opus, 48000>, FFmpegTone<flac, 44100>, FFmpegTone<flac, 48000, 6>, Fake>;

template <class File>
class AudioFileContract : public ::testing::Test {};
TYPED_TEST_SUITE(AudioFileContract, Files);

// Reading through gives exactly the length, the file's own samples where they
// are known, sound on both channels (more channels are mixed down to stereo);
// reading from any frame gives what reading through gave there.
TYPED_TEST(AudioFileContract, ReadsItsLengthExactlyAndFromAnyFrameAsReadingThrough)
{
    auto file = TypeParam::open();
    ASSERT_TRUE(file);
    std::int64_t length = file->length();
    Frames all = readFrames(*file, length + 10'000, 1000);
    ASSERT_EQ(static_cast<std::int64_t>(all.size()), length);
    EXPECT_EQ(file->framePosition(), length);
    EXPECT_EQ(file->processingFormat().channelCount, 2);
    for (std::size_t c = 0; c < all.channels.size(); ++c) {
        EXPECT_GT(std::fabs(std::ranges::max(all.channels[c], {}, [](float x) { return std::fabs(x); })), 0.05f) << "channel " << c;
        for (std::int64_t i = 0; i < length; ++i)
            if (auto known = TypeParam::expected(i, static_cast<int>(c))) {
                ASSERT_EQ(all.channels[c][static_cast<std::size_t>(i)], *known) << "frame " << i << " channel " << c;
            }
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

} // namespace
} // namespace hushmeadows
