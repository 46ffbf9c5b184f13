#pragma once

#include "SceneCore/Runtime/MediaProbe.h"
#include "SceneCore/Sound/AudioFile.h"

#include <cstdint>
#include <expected>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

struct OpaqueExtAudioFile;

namespace hushmeadows {

// An audio file read through Extended Audio File Services, as float at the
// requested rate: mono for mono files, stereo for everything else (more
// channels are mixed down through a stereo client channel layout).
//
// Exactness. The service leaves out an encoder's priming and padding where
// the file records them (an MP4 or CAF packet table, an MP3's gapless
// header), and its length counts only the frames between. Without resampling
// its seeks are sample-exact, so a position is reached by seeking; with
// resampling (the file's rate differs) the converter's state depends on all
// that came before, so a position is reached by reading from the start, as
// one pass would. A pass that ends a few frames short of the length (a
// resampler's rounding, a lossy decoder's last block) is completed with
// silence, so that a loop keeps its timing.
//
// Bounds, as for every media file a package can hold: only a local regular
// file is opened, and headers claiming more than 768 kHz or 32 channels are
// refused.
class AppleAudioFile final : public AudioFile {
public:
    static std::expected<std::unique_ptr<AudioFile>, std::string> open(const std::filesystem::path& file, double sampleRate);
    // The file's own format and true length, for the media probe.
    static std::expected<AudioFileInfo, std::string> inspect(const std::filesystem::path& file);

    ~AppleAudioFile() override;
    AppleAudioFile(const AppleAudioFile&) = delete;
    AppleAudioFile& operator=(const AppleAudioFile&) = delete;

    AudioFormat processingFormat() const override { return format_; }
    std::int64_t length() const override { return length_; }
    std::int64_t framePosition() const override { return target_; }
    void setFramePosition(std::int64_t frame) override;
    std::expected<void, std::string> read(PCMBuffer& buffer, std::uint32_t frames) override;
    using AudioFile::read;

private:
    AppleAudioFile() = default;

    // A fresh pass standing at frame 0.
    std::expected<void, std::string> openPass();
    // Makes the pass stand at target_.
    std::expected<void, std::string> reachTarget();
    // Decodes up to `frames` frames into scratch_; 0 at the end of the data.
    std::expected<std::uint32_t, std::string> decode(std::uint32_t frames);
    void closePass();

    std::filesystem::path path_;
    AudioFormat format_;
    double fileRate_ = 0;
    int fileChannels_ = 0;
    bool resampled_ = false;
    std::int64_t length_ = 0;
    std::int64_t target_ = 0;
    OpaqueExtAudioFile* pass_ = nullptr;
    std::int64_t passPosition_ = 0; // frames at the processing rate
    bool passEnded_ = false;
    std::vector<float> scratch_;
};

} // namespace hushmeadows
