#include "SceneCore/Sound/AudioPlayer.h"

#include "SceneCore/Runtime/Precondition.h"

#include <algorithm>
#include <iterator>

namespace hushmeadows {

AudioPlayer::AudioPlayer(std::shared_ptr<std::atomic<bool>> finished)
    : finished_(std::move(finished))
{
    HM_PRECONDITION(finished_ != nullptr, "a player belongs to a mixer");
}

void AudioPlayer::append(Entry entry)
{
    std::lock_guard lock(mutex_);
    overflow_.push_back(std::move(entry));
    refill();
}

void AudioPlayer::refill()
{
    std::uint64_t written = written_.load(std::memory_order_relaxed);
    while (!overflow_.empty() && written - reclaimed_ < slotCount) {
        slots_[written % slotCount] = std::move(overflow_.front());
        overflow_.pop_front();
        ++written;
    }
    written_.store(written, std::memory_order_release);
}

void AudioPlayer::scheduleBuffer(std::shared_ptr<const PCMBuffer> buffer, std::function<void()> completion)
{
    HM_PRECONDITION(buffer != nullptr, "a player schedules a buffer, not nothing");
    std::uint32_t frames = buffer->frameLength();
    append(Entry{std::move(buffer), std::move(completion), frames, false});
}

void AudioPlayer::scheduleBuffer(std::shared_ptr<const PCMBuffer> buffer, Loops)
{
    HM_PRECONDITION(buffer != nullptr, "a player schedules a buffer, not nothing");
    std::uint32_t frames = buffer->frameLength();
    append(Entry{std::move(buffer), {}, frames, true});
}

void AudioPlayer::play()
{
    playing_.store(true, std::memory_order_release);
}

void AudioPlayer::stop()
{
    std::lock_guard lock(mutex_);
    playing_.store(false, std::memory_order_release);
    // Sequentially consistent, as the mixer's render announcement: a render
    // that the main loop does not see under way is sure to see the drop.
    dropTo_.store(written_.load(std::memory_order_relaxed), std::memory_order_seq_cst);
    std::ranges::move(overflow_, std::back_inserter(droppedOverflow_));
    overflow_.clear();
    finished_->store(true, std::memory_order_release);
}

bool AudioPlayer::reclaim(bool renderCannotReach, std::vector<Entry>& done)
{
    std::lock_guard lock(mutex_);
    std::uint64_t drop = dropTo_.load(std::memory_order_relaxed);
    std::uint64_t upTo = std::max(read_.load(std::memory_order_acquire), reclaimed_);
    if (renderCannotReach)
        upTo = std::max(upTo, drop);
    for (; reclaimed_ < upTo; ++reclaimed_) {
        Entry& slot = slots_[reclaimed_ % slotCount];
        done.push_back(std::move(slot));
        slot = Entry{};
    }
    std::ranges::move(droppedOverflow_, std::back_inserter(done));
    droppedOverflow_.clear();
    refill();
    return reclaimed_ >= drop;
}

void AudioPlayer::mixInto(float* interleaved, int frames) noexcept
{
    float target = volume();
    float from = heardGain_ < 0 ? target : heardGain_;
    heardGain_ = target;
    std::uint64_t first = next_;
    if (std::uint64_t drop = dropTo_.load(std::memory_order_seq_cst); drop > next_) {
        next_ = drop;
        cursor_ = 0;
    }
    if (playing_.load(std::memory_order_acquire) && frames > 0) {
        std::uint64_t written = written_.load(std::memory_order_acquire);
        float step = (target - from) / static_cast<float>(frames);
        int done = 0;
        while (done < frames && next_ < written) {
            const Entry& entry = slots_[next_ % slotCount];
            if (cursor_ < entry.frames) {
                auto count = static_cast<int>(std::min<std::uint32_t>(static_cast<std::uint32_t>(frames - done), entry.frames - cursor_));
                const PCMBuffer& buffer = *entry.buffer;
                const float* left = buffer.channelData(0) + cursor_;
                const float* right = buffer.channelCount() > 1 ? buffer.channelData(1) + cursor_ : left;
                float* out = interleaved + 2 * done;
                if (step == 0.0f) {
                    for (int i = 0; i < count; ++i) {
                        out[2 * i] += left[i] * target;
                        out[2 * i + 1] += right[i] * target;
                    }
                } else {
                    // Gain at frame n of the quantum is from + step × (n + 1): exact at its end.
                    for (int i = 0; i < count; ++i) {
                        float gain = from + step * static_cast<float>(done + i + 1);
                        out[2 * i] += left[i] * gain;
                        out[2 * i + 1] += right[i] * gain;
                    }
                }
                done += count;
                cursor_ += static_cast<std::uint32_t>(count);
            }
            if (cursor_ >= entry.frames) {
                cursor_ = 0;
                // A looping buffer with no frames would spin here: it ends like any other.
                if (!entry.loops || entry.frames == 0)
                    ++next_;
            }
        }
    }
    if (next_ != first) {
        read_.store(next_, std::memory_order_release);
        finished_->store(true, std::memory_order_release);
    }
}

} // namespace hushmeadows
