#include "SceneCore/Sound/AudioPlayer.h"

#include "SceneCore/Runtime/Precondition.h"

#include <algorithm>

namespace hushmeadows {

void AudioPlayer::Finished::take(std::list<Entry>& from, std::list<Entry>::iterator first, std::list<Entry>::iterator last)
{
    std::lock_guard lock(mutex);
    entries.splice(entries.end(), from, first, last);
    any.store(true, std::memory_order_release);
}

void AudioPlayer::Finished::drain()
{
    std::list<Entry> done;
    {
        std::lock_guard lock(mutex);
        done.splice(done.end(), entries);
        any.store(false, std::memory_order_relaxed);
    }
    for (Entry& entry : done) {
        entry.buffer.reset(); // let go first, so that the completion may reuse or free it
        if (entry.completion)
            entry.completion();
    }
}

AudioPlayer::AudioPlayer(std::shared_ptr<Finished> finished)
    : finished_(std::move(finished))
{
    HM_PRECONDITION(finished_ != nullptr, "a player belongs to a mixer");
}

void AudioPlayer::append(Entry entry)
{
    std::list<Entry> one;
    one.push_back(std::move(entry));
    std::lock_guard lock(mutex_);
    pending_.splice(pending_.end(), one);
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
    std::lock_guard lock(mutex_);
    playing_ = true;
}

void AudioPlayer::stop()
{
    std::lock_guard lock(mutex_);
    playing_ = false;
    cursor_ = 0;
    if (!pending_.empty())
        finished_->take(pending_, pending_.begin(), pending_.end());
}

bool AudioPlayer::isPlaying() const
{
    std::lock_guard lock(mutex_);
    return playing_;
}

void AudioPlayer::mixInto(float* interleaved, int frames) noexcept
{
    std::lock_guard lock(mutex_);
    float target = volume();
    float from = heardGain_ < 0 ? target : heardGain_;
    heardGain_ = target;
    if (!playing_ || frames <= 0)
        return;
    float step = (target - from) / static_cast<float>(frames);
    int done = 0;
    while (done < frames && !pending_.empty()) {
        Entry& entry = pending_.front();
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
                finished_->take(pending_, pending_.begin(), std::next(pending_.begin()));
        }
    }
}

} // namespace hushmeadows
