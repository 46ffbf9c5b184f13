#pragma once

#include "SceneCore/Runtime/SerialQueue.h"
#include "SceneCore/Sound/AudioFile.h"
#include "SceneCore/Sound/AudioPlayer.h"
#include "SceneCore/Sound/PCMBuffer.h"

#include <cstdint>
#include <expected>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace hushmeadows {

// Plays a long music file as an endless loop without decoding it whole: three
// buffers of about four seconds are read in turn and scheduled back to back
// on a player node; after the file's last frame reading goes on at frame 0.
//
// All mutable state belongs to the streamer's serial queue. Its work runs
// there; the operations documented as synchronous run on the calling thread
// but exclusively with the queue's work (one mutex is held by both), which is
// what running synchronously on the queue amounts to. Buffer completions
// arrive on the main run loop (that is where the graph delivers them); they
// touch only the consumed counter and hop to the queue for the rest.
//
// Create, use and destroy it on the main thread. Destruction waits for work
// the queue is running at that moment; queued work then does nothing.
class LoopStreamer {
public:
    static constexpr const char* queueLabel = "app.hushmeadows.loop-streamer";
    static constexpr int bufferCount = 3;
    static constexpr double bufferSeconds = 4;
    static constexpr const char* emptyFileError = "empty file";

    // Opens the file through the opener at the graph's sample rate. Opening
    // errors come back as they are; a file without a single frame is refused
    // with emptyFileError. The queue must be serial and labelled queueLabel;
    // the streamer owns it.
    static std::expected<std::unique_ptr<LoopStreamer>, std::string> make(const std::filesystem::path& url,
                                                                          const AudioFileOpener& open,
                                                                          double sampleRate,
                                                                          std::unique_ptr<SerialQueue> queue);
    // The same, over a file already open.
    static std::expected<std::unique_ptr<LoopStreamer>, std::string> make(const std::filesystem::path& url,
                                                                          std::unique_ptr<AudioFile> file,
                                                                          std::unique_ptr<SerialQueue> queue);
    ~LoopStreamer();
    LoopStreamer(const LoopStreamer&) = delete;
    LoopStreamer& operator=(const LoopStreamer&) = delete;

    const std::filesystem::path& url() const { return url_; }
    // The file's processing format; the node is connected in it.
    const AudioFormat& format() const { return format_; }
    std::int64_t length() const { return length_; }
    // Frames per buffer: the smaller of bufferSeconds of sound and the length.
    std::uint32_t capacity() const { return capacity_; }
    // Memory held by the buffers' samples.
    std::int64_t residentBytes() const;

    // Synchronous. Fills the three buffers ahead from the frame (clamped into
    // the file) so that a start from the same frame begins at once. False,
    // keeping nothing, when a buffer cannot be made or a read fails.
    bool prime(std::int64_t frame);
    // Asynchronous, on the queue: begins feeding the node from the frame.
    void start(std::weak_ptr<AudioPlayer> node, std::int64_t frame);
    // Synchronous. Ends the run: its pending completions and reads change
    // nothing. Stopping the node is the owner's business.
    void stop();
    // Synchronous. The frame the listener is at: where the oldest buffer not
    // yet played out begins.
    std::int64_t resumeFrame() const;
    // Called on the streamer's queue when the stream cannot go on; at most
    // once per run, after which nothing more is scheduled in that run.
    void setFailureHandler(std::function<void()> handler);

    // Diagnostics, synchronous.
    int scheduledCount() const;
    int underrunCount() const;
    int readErrorCount() const;
    bool hasFailed() const;
    // Frame counts of the scheduled buffers not yet played out, oldest first.
    std::vector<std::uint32_t> inFlight() const;

private:
    using BufferPtr = std::shared_ptr<PCMBuffer>;

    // Buffers played out per run; the run's token says which run is counted.
    struct Consumed {
        std::mutex mutex;
        int token = 0;
        int count = 0;
    };

    LoopStreamer(std::filesystem::path url, std::unique_ptr<AudioFile> file, std::unique_ptr<SerialQueue> queue);

    // All of these run with mutex_ held.
    bool read(PCMBuffer& buffer);
    void enqueue(const BufferPtr& buffer, int token);
    bool scheduleNext(int token);
    void bufferConsumed(const BufferPtr& buffer, int token);
    std::vector<BufferPtr> makeBuffers();
    // Calls the failure handler noted by scheduleNext, after mutex_ is let go.
    void reportFailure(std::unique_lock<std::mutex>& lock);

    const std::filesystem::path url_;
    const std::string name_; // the file name, for the log
    const AudioFormat format_;
    const std::int64_t length_;
    const std::unique_ptr<AudioFile> file_;
    const std::uint32_t capacity_;

    mutable std::mutex mutex_;
    std::vector<BufferPtr> free_;
    std::vector<BufferPtr> primed_;
    std::int64_t primedStart_ = 0;
    std::int64_t primedPosition_ = 0;
    std::int64_t position_ = 0;
    std::weak_ptr<AudioPlayer> node_;
    int generation_ = 0;
    std::vector<std::uint32_t> inFlight_; // oldest first
    std::function<void()> failureHandler_;
    bool failed_ = false;
    bool failurePending_ = false;
    bool recoveredOnce_ = false;
    int scheduledCount_ = 0;
    int scheduledThisRun_ = 0;
    const std::shared_ptr<Consumed> consumed_;
    int underrunCount_ = 0;
    int readErrorCount_ = 0;

    // Lets completions and queued work that outlive the streamer find it gone.
    std::shared_ptr<LoopStreamer*> self_;
    // Last, so that it goes first: its running work still sees every member.
    std::unique_ptr<SerialQueue> queue_;
};

} // namespace hushmeadows
