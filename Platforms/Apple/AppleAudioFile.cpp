#include "Platforms/Apple/AppleAudioFile.h"

#include "Platforms/Posix/PosixFileAccess.h"

#include <AudioToolbox/AudioToolbox.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace hushmeadows {

namespace {

// The most frames a pass may end short of the length before the file counts
// as cut short (one of the longest blocks of a lossy codec).
constexpr std::int64_t lostTailTolerance = 8192;
// Frames decoded per call, and the furthest a read skips forward instead of
// seeking (one second at the processing rate is about what a seek costs).
constexpr std::uint32_t chunkFrames = 4096;

std::string statusText(const char* what, OSStatus status) { return std::string(what) + " (status " + std::to_string(status) + ")"; }

struct Opened {
    ExtAudioFileRef file = nullptr;
    AudioStreamBasicDescription format{};
    std::int64_t length = 0; // frames at the file's rate
};

// Opens a local regular file and reads its format and length, refusing
// formats out of range.
std::expected<Opened, std::string> openFile(const std::filesystem::path& path)
{
    // Never blocks on a pipe or reads a device: only a regular file, and a
    // loaded package's file only inside the folder that was loaded.
    auto located = PosixFileAccess::openedFilePath(path);
    if (!located)
        return std::unexpected(std::string("not a regular file, or outside its package"));
    const auto* bytes = reinterpret_cast<const UInt8*>(located->c_str());
    CFURLRef url = CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, bytes, static_cast<CFIndex>(std::strlen(located->c_str())), false);
    if (!url)
        return std::unexpected(std::string("the path cannot be used"));
    Opened opened;
    OSStatus status = ExtAudioFileOpenURL(url, &opened.file);
    CFRelease(url);
    if (status != noErr || !opened.file)
        return std::unexpected(statusText("not an audio file", status));
    UInt32 size = sizeof(opened.format);
    status = ExtAudioFileGetProperty(opened.file, kExtAudioFileProperty_FileDataFormat, &size, &opened.format);
    SInt64 frames = 0;
    UInt32 framesSize = sizeof(frames);
    if (status == noErr)
        status = ExtAudioFileGetProperty(opened.file, kExtAudioFileProperty_FileLengthFrames, &framesSize, &frames);
    if (status != noErr) {
        ExtAudioFileDispose(opened.file);
        return std::unexpected(statusText("the audio format is unknown", status));
    }
    // Where the file records its encoder's priming and padding, the valid
    // frames between them are the sound's true length (what reading gives).
    AudioFilePacketTableInfo table{};
    UInt32 tableSize = sizeof(table);
    if (ExtAudioFileGetProperty(opened.file, kExtAudioFileProperty_PacketTable, &tableSize, &table) == noErr && table.mNumberValidFrames > 0)
        frames = table.mNumberValidFrames;
    const auto& format = opened.format;
    auto problem = AudioFileInfo::formatProblem(format.mSampleRate, static_cast<int>(std::min<UInt32>(format.mChannelsPerFrame, 1'000'000)));
    if (!problem && frames < 0)
        problem = "its header states a negative length";
    if (problem) {
        ExtAudioFileDispose(opened.file);
        return std::unexpected(*problem);
    }
    opened.length = frames;
    return opened;
}

} // namespace

std::expected<AudioFileInfo, std::string> AppleAudioFile::inspect(const std::filesystem::path& file)
{
    auto opened = openFile(file);
    if (!opened)
        return std::unexpected(opened.error());
    ExtAudioFileDispose(opened->file);
    return AudioFileInfo{.sampleRate = opened->format.mSampleRate,
                         .channelCount = static_cast<int>(opened->format.mChannelsPerFrame),
                         .lengthFrames = opened->length};
}

std::expected<std::unique_ptr<AudioFile>, std::string> AppleAudioFile::open(const std::filesystem::path& file, double sampleRate)
{
    if (!(sampleRate > 0 && sampleRate <= AudioFileInfo::highestSampleRate) || sampleRate != std::floor(sampleRate))
        return std::unexpected("cannot read audio at " + std::to_string(sampleRate) + " Hz");
    auto opened = openFile(file);
    if (!opened)
        return std::unexpected(opened.error());
    ExtAudioFileDispose(opened->file);

    std::unique_ptr<AppleAudioFile> audio(new AppleAudioFile());
    audio->path_ = file;
    audio->fileRate_ = opened->format.mSampleRate;
    audio->fileChannels_ = static_cast<int>(opened->format.mChannelsPerFrame);
    audio->format_ = AudioFormat{sampleRate, audio->fileChannels_ == 1 ? 1 : 2};
    audio->resampled_ = audio->fileRate_ != sampleRate;
    audio->length_ = audio->resampled_ ? std::llround(static_cast<double>(opened->length) * sampleRate / audio->fileRate_) : opened->length;
    if (auto pass = audio->openPass(); !pass)
        return std::unexpected(pass.error());
    return audio;
}

AppleAudioFile::~AppleAudioFile() { closePass(); }

void AppleAudioFile::closePass()
{
    if (pass_)
        ExtAudioFileDispose(pass_);
    pass_ = nullptr;
}

std::expected<void, std::string> AppleAudioFile::openPass()
{
    closePass();
    auto opened = openFile(path_);
    if (!opened)
        return std::unexpected(opened.error());
    if (opened->format.mSampleRate != fileRate_ || static_cast<int>(opened->format.mChannelsPerFrame) != fileChannels_) {
        ExtAudioFileDispose(opened->file);
        return std::unexpected(std::string("the file changed while it was being read"));
    }
    pass_ = opened->file;
    passPosition_ = 0;
    passEnded_ = false;

    AudioStreamBasicDescription client{};
    client.mSampleRate = format_.sampleRate;
    client.mFormatID = kAudioFormatLinearPCM;
    client.mFormatFlags = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;
    client.mBitsPerChannel = 32;
    client.mChannelsPerFrame = static_cast<UInt32>(format_.channelCount);
    client.mFramesPerPacket = 1;
    client.mBytesPerFrame = 4 * client.mChannelsPerFrame;
    client.mBytesPerPacket = client.mBytesPerFrame;
    OSStatus status = ExtAudioFileSetProperty(pass_, kExtAudioFileProperty_ClientDataFormat, sizeof(client), &client);
    if (status == noErr && fileChannels_ > 2) {
        // A stereo client layout makes the converter mix down by the file's
        // own layout instead of dropping channels.
        AudioChannelLayout stereo{};
        stereo.mChannelLayoutTag = kAudioChannelLayoutTag_Stereo;
        status = ExtAudioFileSetProperty(pass_, kExtAudioFileProperty_ClientChannelLayout, sizeof(stereo), &stereo);
    }
    if (status != noErr) {
        closePass();
        return std::unexpected(statusText("cannot convert the audio", status));
    }
    return {};
}

void AppleAudioFile::setFramePosition(std::int64_t frame) { target_ = std::clamp<std::int64_t>(frame, 0, length_); }

std::expected<std::uint32_t, std::string> AppleAudioFile::decode(std::uint32_t frames)
{
    const auto channels = static_cast<std::size_t>(format_.channelCount);
    if (scratch_.size() < static_cast<std::size_t>(chunkFrames) * channels)
        scratch_.resize(static_cast<std::size_t>(chunkFrames) * channels);
    frames = std::min(frames, chunkFrames);
    if (passEnded_ || frames == 0)
        return 0u;
    AudioBufferList list{};
    list.mNumberBuffers = 1;
    list.mBuffers[0].mNumberChannels = static_cast<UInt32>(channels);
    list.mBuffers[0].mDataByteSize = static_cast<UInt32>(frames * channels * sizeof(float));
    list.mBuffers[0].mData = scratch_.data();
    UInt32 got = frames;
    OSStatus status = ExtAudioFileRead(pass_, &got, &list);
    if (status != noErr)
        return std::unexpected(statusText("cannot decode the audio", status));
    if (got == 0)
        passEnded_ = true;
    return got;
}

std::expected<void, std::string> AppleAudioFile::reachTarget()
{
    if (!pass_ || target_ < passPosition_) {
        // Back to frame 0 is a fresh pass; a seek goes on from there below.
        if (auto pass = openPass(); !pass)
            return pass;
    }
    if (target_ == passPosition_)
        return {};
    const auto skipLimit = static_cast<std::int64_t>(format_.sampleRate);
    if (!resampled_ && target_ - passPosition_ > skipLimit) {
        // Same rate: the service's seek lands on the exact frame.
        OSStatus status = ExtAudioFileSeek(pass_, target_);
        if (status != noErr)
            return std::unexpected(statusText("seek refused", status));
        passPosition_ = target_;
        passEnded_ = false;
        return {};
    }
    while (passPosition_ < target_) {
        auto want = static_cast<std::uint32_t>(std::min<std::int64_t>(target_ - passPosition_, chunkFrames));
        auto got = decode(want);
        if (!got)
            return std::unexpected(got.error());
        // Past the data's end the frames are the padding silence.
        passPosition_ += *got == 0 ? want : *got;
    }
    return {};
}

std::expected<void, std::string> AppleAudioFile::read(PCMBuffer& buffer, std::uint32_t frames)
{
    if (buffer.format() != format_)
        return std::unexpected("the buffer holds " + std::to_string(buffer.channelCount()) + " channel(s) at "
                               + std::to_string(buffer.format().sampleRate) + " Hz, the file reads as "
                               + std::to_string(format_.channelCount) + " at " + std::to_string(format_.sampleRate) + " Hz");
    if (auto reached = reachTarget(); !reached)
        return reached;
    const std::int64_t wanted = std::min<std::int64_t>({static_cast<std::int64_t>(frames), static_cast<std::int64_t>(buffer.frameCapacity()),
                                                        length_ - target_});
    const int channels = format_.channelCount;
    std::int64_t done = 0;
    while (done < wanted) {
        auto got = decode(static_cast<std::uint32_t>(std::min<std::int64_t>(wanted - done, chunkFrames)));
        if (!got)
            return std::unexpected(got.error());
        if (*got == 0) {
            // The data ended before the length: silence up to it when only a
            // few frames are missing, else the read comes out short.
            if (length_ - (target_ + done) > lostTailTolerance)
                break;
            for (int c = 0; c < channels; ++c)
                std::fill(buffer.channelData(c) + done, buffer.channelData(c) + wanted, 0.0f);
            done = wanted;
            break;
        }
        for (std::uint32_t i = 0; i < *got; ++i) {
            for (int c = 0; c < channels; ++c)
                buffer.channelData(c)[done + i] = scratch_[static_cast<std::size_t>(i) * static_cast<std::size_t>(channels) + static_cast<std::size_t>(c)];
        }
        done += *got;
    }
    buffer.setFrameLength(static_cast<std::uint32_t>(done));
    target_ += done;
    passPosition_ = target_;
    return {};
}

} // namespace hushmeadows
