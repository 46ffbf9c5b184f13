#pragma once

#include "SceneCore/Runtime/Image.h"

#include <filesystem>
#include <string>
#include <string_view>

// Real media files for tests, made at test time with the ffmpeg command-line tool.
namespace hushmeadows::testing {

// A fresh folder under the system temp folder, removed with everything in it
// when the object goes away. The path has its symbolic links resolved.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(std::string_view name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

// Both create missing parent folders; copyFile overwrites.
void writeText(const std::filesystem::path& file, std::string_view text);
void copyFile(const std::filesystem::path& from, const std::filesystem::path& to);

struct VideoSpec {
    int width = 32;
    int height = 18;
    int fps = 12;
    double seconds = 0.5; // rounded to whole frames, at least one
    // false: libx264 (yuv420p, or yuv444p for odd sizes), quick and lossy.
    // true: libx264rgb -qp 0 from rgb24, so decoded pixels equal the source.
    bool exact = false;
    std::string container = "mp4"; // mp4 | mov | m4v | mkv (H.264) or webm (VP9)
};

struct AudioSpec {
    double seconds = 0.25; // rounded to whole sample frames
    int sampleRate = 48000;
    int channels = 2;
    std::string container = "wav"; // wav (s16) | flac | m4a (AAC) | mp3 | ogg (Vorbis) | opus (Ogg)
    double frequency = 440;       // a sine tone, the same on every channel
};

// Each returns a file generated once per process into a cache folder and
// reused: callers must not modify it. The cache folder lives under the system
// temp folder, is unique to the process and is removed at exit.

// A video of ffmpeg's "testsrc2" pattern: moving, different in every frame.
const std::filesystem::path& video(const VideoSpec& wanted = {});
// An RGBA PNG holding exactly posterImage(width, height).
const std::filesystem::path& poster(int width = 16, int height = 9);
const std::filesystem::path& audio(const AudioSpec& wanted = {});
// A valid WAV header (16-bit stereo, 48 kHz) with zero sample frames.
const std::filesystem::path& emptyWav();
// A black 1-bit PNG of 16000 × 16000 in about 31 KB: 1 GB once decoded.
const std::filesystem::path& hugePNG();

// The pixels of poster(width, height), opaque, distinct up to 256 × 256: red
// x * 255 / (width - 1), green y * 255 / (height - 1) (0 for a size of 1),
// blue 255 where x + y is odd, else 0; integer division.
Image posterImage(int width, int height, PixelFormat format = PixelFormat::rgba8);

// Runs the command with /bin/sh and returns what it wrote to stdout; throws
// std::runtime_error when it exits with a non-zero status.
std::string runCommand(const std::string& shellCommand);

// The text quoted for a shell command line.
std::string shellQuoted(std::string_view text);

} // namespace hushmeadows::testing
