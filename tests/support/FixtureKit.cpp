#include "tests/support/FixtureKit.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace hushmeadows::testing {

namespace fs = std::filesystem;

namespace {

// Generated fixtures of this process, by file name, in a folder removed at
// exit. std::map keeps the returned references valid while entries are added.
class FixtureCache {
public:
    template <typename Make>
    const fs::path& file(const std::string& name, Make&& make)
    {
        std::lock_guard lock(mutex_);
        if (auto found = files_.find(name); found != files_.end())
            return found->second;
        if (!folder_)
            folder_.emplace();
        fs::path target = *folder_ / name;
        // Made under a scratch name first, so a failed generation leaves
        // nothing that a later call would take for the finished file.
        fs::path scratch = *folder_ / ("partial-" + name);
        make(scratch);
        fs::rename(scratch, target);
        return files_.emplace(name, target).first->second;
    }

private:
    std::mutex mutex_;
    std::optional<TempDir> folder_;
    std::map<std::string, fs::path> files_;
};

FixtureCache& cache()
{
    static FixtureCache instance;
    return instance;
}

const std::string ffmpeg = "ffmpeg -hide_banner -loglevel error -nostdin -y ";

} // namespace

TempDir::TempDir()
{
    std::string pattern = (fs::temp_directory_path() / "hushmeadows-test-XXXXXX").string();
    if (!::mkdtemp(pattern.data()))
        throw std::runtime_error("cannot create a temporary folder from " + pattern);
    path_ = fs::canonical(pattern);
}

TempDir::~TempDir()
{
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

void writeText(const fs::path& file, std::string_view text)
{
    if (file.has_parent_path())
        fs::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream.write(text.data(), static_cast<std::streamsize>(text.size()));
    stream.close();
    if (!stream)
        throw std::runtime_error("cannot write " + file.string());
}

void copyFile(const fs::path& from, const fs::path& to)
{
    if (to.has_parent_path())
        fs::create_directories(to.parent_path());
    fs::copy_file(from, to, fs::copy_options::overwrite_existing);
}

std::string shellQuoted(std::string_view text)
{
    std::string quoted = "'";
    for (char c : text)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

std::string runCommand(const std::string& shellCommand)
{
    // The command's stderr goes to the test's own, where a failure shows it.
    FILE* pipe = ::popen(shellCommand.c_str(), "r");
    if (!pipe)
        throw std::runtime_error("cannot start: " + shellCommand);
    std::string output;
    std::array<char, 4096> buffer{};
    while (std::size_t count = std::fread(buffer.data(), 1, buffer.size(), pipe))
        output.append(buffer.data(), count);
    int status = ::pclose(pipe);
    if (status == -1 || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        throw std::runtime_error("command failed (status " + std::to_string(status) + "): " + shellCommand);
    return output;
}

const fs::path& video(const VideoSpec& wanted)
{
    long frames = std::max(1L, std::lround(wanted.seconds * wanted.fps));
    std::string chroma = wanted.width % 2 == 0 && wanted.height % 2 == 0 ? "yuv420p" : "yuv444p";
    std::string codec = wanted.exact ? "-c:v libx264rgb -preset ultrafast -qp 0 -pix_fmt rgb24"
                                     : "-c:v libx264 -preset ultrafast -crf 23 -pix_fmt " + chroma;
    std::string format = wanted.container == "mkv" ? "matroska" : wanted.container == "m4v" ? "mp4" : wanted.container;
    if (wanted.container == "webm")
        codec = "-c:v libvpx-vp9 -deadline realtime -b:v 0 -crf 40 -pix_fmt " + chroma;
    else if (wanted.container != "mkv")
        codec += " -movflags +faststart";

    std::string name = "video-" + std::to_string(wanted.width) + "x" + std::to_string(wanted.height) + "-"
        + std::to_string(wanted.fps) + "fps-" + std::to_string(frames) + (wanted.exact ? "-exact." : "-lossy.") + wanted.container;
    return cache().file(name, [&](const fs::path& out) {
        runCommand(ffmpeg + "-f lavfi -i testsrc2=size=" + std::to_string(wanted.width) + "x" + std::to_string(wanted.height)
            + ":rate=" + std::to_string(wanted.fps) + " -frames:v " + std::to_string(frames) + " " + codec + " -f " + format
            + " " + shellQuoted(out.string()));
    });
}

Image posterImage(int width, int height, PixelFormat format)
{
    Image image = Image::blank(width, height, format);
    for (int y = 0; y < height; ++y) {
        std::uint8_t* pixel = image.row(y);
        for (int x = 0; x < width; ++x, pixel += 4) {
            auto red = static_cast<std::uint8_t>(width > 1 ? x * 255 / (width - 1) : 0);
            auto green = static_cast<std::uint8_t>(height > 1 ? y * 255 / (height - 1) : 0);
            auto blue = static_cast<std::uint8_t>((x + y) % 2 ? 255 : 0);
            bool rgba = format == PixelFormat::rgba8;
            pixel[0] = rgba ? red : blue;
            pixel[1] = green;
            pixel[2] = rgba ? blue : red;
            pixel[3] = 255;
        }
    }
    return image;
}

const fs::path& poster(int width, int height)
{
    std::string size = std::to_string(width) + "x" + std::to_string(height);
    return cache().file("poster-" + size + ".png", [&](const fs::path& out) {
        // FFmpeg's PNG encoder is lossless: the file holds exactly these pixels.
        Image image = posterImage(width, height);
        fs::path raw = out.string() + ".rgba";
        writeText(raw, {reinterpret_cast<const char*>(image.pixels.data()), image.pixels.size()});
        runCommand(ffmpeg + "-f rawvideo -pix_fmt rgba -s " + size + " -i " + shellQuoted(raw.string())
            + " -frames:v 1 -c:v png -pix_fmt rgba -f image2pipe " + shellQuoted(out.string()));
        fs::remove(raw);
    });
}

const fs::path& audio(const AudioSpec& wanted)
{
    static const std::map<std::string, std::string> codecs = {
        {"wav", "pcm_s16le -f wav"}, {"flac", "flac -f flac"}, {"m4a", "aac -b:a 96k -f ipod"},
        {"mp3", "libmp3lame -b:a 64k -f mp3"}, {"ogg", "libvorbis -f ogg"}, {"opus", "libopus -b:a 64k -f ogg"},
    };
    long long frames = std::llround(wanted.seconds * wanted.sampleRate);
    std::string name = "audio-" + std::to_string(frames) + "frames-" + std::to_string(wanted.sampleRate) + "hz-"
        + std::to_string(wanted.channels) + "ch-" + std::to_string(wanted.frequency) + "." + wanted.container;
    return cache().file(name, [&](const fs::path& out) {
        runCommand(ffmpeg + "-f lavfi -i " + shellQuoted("sine=frequency=" + std::to_string(wanted.frequency) + ":sample_rate="
                       + std::to_string(wanted.sampleRate) + ",atrim=end_sample=" + std::to_string(frames))
            + " -ac " + std::to_string(wanted.channels) + " -c:a " + codecs.at(wanted.container) + " " + shellQuoted(out.string()));
    });
}

const fs::path& hugePNG()
{
    return cache().file("huge.png", [](const fs::path& out) {
        runCommand("python3 -c " + shellQuoted(R"(
import struct, sys, zlib
def chunk(k, d): return struct.pack(">I", len(d)) + k + d + struct.pack(">I", zlib.crc32(k + d))
z = zlib.compressobj(9); row = bytes(2001)
idat = b"".join(z.compress(row) for _ in range(16000)) + z.flush()
open(sys.argv[1], "wb").write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", 16000, 16000, 1, 0, 0, 0, 0)) + chunk(b"IDAT", idat) + chunk(b"IEND", b""))
)") + " " + shellQuoted(out.string()));
    });
}

const fs::path& emptyWav()
{
    return cache().file("empty.wav", [](const fs::path& out) {
        runCommand(ffmpeg + "-f lavfi -i anullsrc=r=48000:cl=stereo -frames:a 0 -c:a pcm_s16le -fflags +bitexact -f wav "
            + shellQuoted(out.string()));
    });
}

} // namespace hushmeadows::testing
