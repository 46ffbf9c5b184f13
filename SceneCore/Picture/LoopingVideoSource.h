#pragma once

#include "SceneCore/Picture/VariationOrder.h"
#include "SceneCore/Picture/VideoFile.h"
#include "SceneCore/Runtime/RunLoop.h"
#include "SceneCore/Runtime/SerialQueue.h"

#include <cstddef>
#include <deque>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

namespace hushmeadows {

// Turns a world's video files (the main video first, then its variations)
// into an endless stream of decoded frames that the scene view pulls on every
// frame tick. One playable file loops seamlessly: the frame after the last is
// the first, on time. Several play as an endless playlist in the order of a
// VariationOrder, never the same one twice in a row.
//
// Files are checked and decoded on the source's serial queue, a few frames
// ahead of the picture, so the first frame after a loop point is ready before
// it is due. Everything else belongs to the main thread (the run loop given).
// invalidate() never waits for the queue; work that finishes afterwards does
// nothing.
//
// A file that stops being playable while it plays (deleted, replaced, no
// frame decodes any more) is dropped with its message and the rest play on;
// when none is left the source fails, as when none was playable at first.
class LoopingVideoSource {
public:
    static constexpr const char* queueLabel = "app.hushmeadows.video";
    // Items prepared at once in a playlist: the one showing and two after it.
    static constexpr std::size_t maxQueuedItems = 3;
    // Frames decoded ahead of the one showing: at most framesAhead, and no
    // more once they take bytesAhead, but always at least one. A 4096 × 4096
    // frame alone takes 64 MiB.
    static constexpr std::size_t framesAhead = 4;
    static constexpr std::size_t bytesAhead = 48 * 1024 * 1024;

    // Starts checking the files on the queue and returns at once.
    LoopingVideoSource(std::vector<std::filesystem::path> urls, RunLoop& mainLoop, std::unique_ptr<SerialQueue> decodeQueue,
                       VideoFileOpener open);
    ~LoopingVideoSource();

    LoopingVideoSource(const LoopingVideoSource&) = delete;
    LoopingVideoSource& operator=(const LoopingVideoSource&) = delete;

    const std::vector<std::filesystem::path>& urls() const { return urls_; }
    const std::filesystem::path& url() const { return urls_.front(); }
    double nominalFrameRate() const { return nominalFrameRate_; }
    // The index into urls() of every item that became current, in order; the
    // most recent historyLimit of them over a long run.
    const std::deque<int>& variationsPlayed() const { return variationsPlayed_; }
    static constexpr std::size_t historyLimit = 4096;
    bool didFail() const { return didFail_; }
    // Items played to their end: passes of a single file, or playlist items.
    long loopCount() const { return completedItems_; }
    bool isPlaying() const { return prepared_ && wantsPlay_ && !isInvalidated_ && !didFail_; }
    bool isPrepared() const { return prepared_; }
    // Playlist items prepared at once (never above maxQueuedItems).
    std::size_t queuedItemCount() const { return queue_.size(); }
    // Live sources in the process, for diagnostics.
    static int liveCount();

    // Plays as soon as the source is prepared.
    void play();
    void pause();
    // The newest frame due at hostTime (seconds on the run loop's media
    // clock) that has not been handed out yet, or nullptr: the caller then
    // keeps showing its last frame.
    std::shared_ptr<const Image> copyNewFrame(double hostTime);
    // Of the last frame copyNewFrame handed out: the host time it was due,
    // and how many due frames before it were passed over for it.
    double lastFrameDueTime() const { return lastDueTime_; }
    long lastFramesPassedOver() const { return lastPassedOver_; }
    // When the next decoded frame falls due (a time already past when the
    // first frame waits), or nothing while none is decoded or the source
    // does not play: the owner's cue to pull again.
    std::optional<double> nextFrameDueTime() const;
    // Stops everything for good; every later call is ignored.
    void invalidate();

private:
    struct Pipeline;

    void prepare(const std::vector<int>& playable, double frameRate);
    void choosePlayback();
    void fileFailed(int urlIndex);
    void topUpQueue();
    void currentItemChanged(int urlIndex);
    void scheduleDecoding();

    std::vector<std::filesystem::path> urls_;
    RunLoop& mainLoop_;
    double nominalFrameRate_ = 48;
    std::deque<int> variationsPlayed_;
    bool didFail_ = false;
    bool prepared_ = false;
    bool isInvalidated_ = false;
    bool wantsPlay_ = false;
    // The playable files (indices into urls_); in playlist mode also their
    // order and the items queued, the current one first.
    std::vector<int> playlist_;
    std::optional<VariationOrder<>> order_;
    std::deque<int> queue_;
    std::optional<long> lastCurrentItem_;
    long completedItems_ = 0;
    // Playback clock: the host time of timeline position 0 while playing, and
    // the position reached when paused (or of the first frame before it).
    std::optional<double> anchor_;
    std::optional<double> position_;
    double lastDueTime_ = 0;
    long lastPassedOver_ = 0;

    std::shared_ptr<Pipeline> pipeline_;
    // Lets loads that finish after the source has gone find it gone.
    std::shared_ptr<LoopingVideoSource*> self_;
    // Last: destroyed first. Queued work holds the pipeline and this source
    // weakly, so a queue that lets it finish later is safe too, as long as
    // the run loop given outlives that work.
    std::unique_ptr<SerialQueue> decodeQueue_;
};

} // namespace hushmeadows
