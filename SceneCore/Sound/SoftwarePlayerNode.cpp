#include "SceneCore/Sound/SoftwarePlayerNode.h"

#include "SceneCore/Runtime/Precondition.h"

#include <algorithm>

namespace hushmeadows {

void SoftwarePlayerNode::Graph::drain()
{
    std::list<Entry> done;
    {
        std::lock_guard lock(mutex);
        done.splice(done.end(), finished);
        hasFinished.store(false, std::memory_order_relaxed);
    }
    for (Entry& entry : done) {
        entry.buffer.reset(); // let go first, so that the completion may reuse or free it
        if (entry.completion)
            entry.completion();
    }
}

void SoftwarePlayerNode::Graph::postDrain(const std::shared_ptr<Graph>& graph)
{
    if (graph->drainPosted.exchange(true))
        return;
    graph->mainLoop.post([weak = std::weak_ptr<Graph>(graph)] {
        if (auto graph = weak.lock()) {
            graph->drainPosted.store(false);
            graph->drain();
        }
    });
}

SoftwarePlayerNode::SoftwarePlayerNode(std::shared_ptr<Graph> graph)
    : graph_(std::move(graph))
{
    HM_PRECONDITION(graph_ != nullptr, "a player node belongs to a graph");
}

SoftwarePlayerNode::~SoftwarePlayerNode() = default;

void SoftwarePlayerNode::append(Entry entry)
{
    std::list<Entry> one;
    one.push_back(std::move(entry));
    std::lock_guard lock(graph_->mutex);
    pending_.splice(pending_.end(), one);
}

void SoftwarePlayerNode::scheduleBuffer(std::shared_ptr<const PCMBuffer> buffer, std::function<void()> completion)
{
    HM_PRECONDITION(buffer != nullptr, "a player node schedules a buffer, not nothing");
    std::uint32_t frames = buffer->frameLength();
    append(Entry{std::move(buffer), std::move(completion), frames, false});
}

void SoftwarePlayerNode::scheduleBuffer(std::shared_ptr<const PCMBuffer> buffer, Loops)
{
    HM_PRECONDITION(buffer != nullptr, "a player node schedules a buffer, not nothing");
    std::uint32_t frames = buffer->frameLength();
    append(Entry{std::move(buffer), {}, frames, true});
}

void SoftwarePlayerNode::play()
{
    std::lock_guard lock(graph_->mutex);
    playing_ = true;
}

void SoftwarePlayerNode::stop()
{
    bool dropped = false;
    {
        std::lock_guard lock(graph_->mutex);
        playing_ = false;
        cursor_ = 0;
        if (!pending_.empty()) {
            graph_->finished.splice(graph_->finished.end(), pending_);
            graph_->hasFinished.store(true, std::memory_order_relaxed);
            dropped = true;
        }
    }
    if (dropped)
        Graph::postDrain(graph_);
}

bool SoftwarePlayerNode::isPlaying() const
{
    std::lock_guard lock(graph_->mutex);
    return playing_;
}

void SoftwarePlayerNode::mixInto(float* interleaved, int frames, float gain) noexcept
{
    if (!playing_)
        return;
    int done = 0;
    while (done < frames && !pending_.empty()) {
        Entry& entry = pending_.front();
        if (cursor_ < entry.frames) {
            auto count = static_cast<int>(std::min<std::uint32_t>(static_cast<std::uint32_t>(frames - done), entry.frames - cursor_));
            const PCMBuffer& buffer = *entry.buffer;
            const float* left = buffer.channelData(0) + cursor_;
            const float* right = buffer.channelCount() > 1 ? buffer.channelData(1) + cursor_ : left;
            float* out = interleaved + 2 * done;
            for (int i = 0; i < count; ++i) {
                out[2 * i] += left[i] * gain;
                out[2 * i + 1] += right[i] * gain;
            }
            done += count;
            cursor_ += static_cast<std::uint32_t>(count);
        }
        if (cursor_ >= entry.frames) {
            cursor_ = 0;
            // A looping buffer with no frames would spin here: it ends like any other.
            if (!entry.loops || entry.frames == 0) {
                graph_->finished.splice(graph_->finished.end(), pending_, pending_.begin());
                graph_->hasFinished.store(true, std::memory_order_relaxed);
            }
        }
    }
}

} // namespace hushmeadows
