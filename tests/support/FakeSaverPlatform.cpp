#include "tests/support/FakeSaverPlatform.h"

#include <algorithm>

namespace hushmeadows::testing {

std::shared_ptr<FakeProcess> FakeSession::launchEngine(std::optional<double> launchDate)
{
    auto process = std::make_shared<FakeProcess>();
    engines.push_back(EngineProcess{process, launchDate});
    return process;
}

void RecordingAudioArbiter::acquire(const void* client, const WorldPackage&, const HushmeadowsSettings&)
{
    calls.push_back({"acquire", client, false});
    if (std::find(clients.begin(), clients.end(), client) == clients.end())
        clients.push_back(client);
}

void RecordingAudioArbiter::release(const void* client, bool immediately)
{
    calls.push_back({"release", client, immediately});
    clients.erase(std::remove(clients.begin(), clients.end(), client), clients.end());
}

AudioArbiter::Diagnostics RecordingAudioArbiter::diagnostics(const void* client) const
{
    Diagnostics d;
    d.clients = static_cast<int>(clients.size());
    d.ownsAudio = std::find(clients.begin(), clients.end(), client) != clients.end();
    d.state = clients.empty() ? "idle" : "playing";
    return d;
}

FakeHost FakeHost::onScreen(const std::vector<ScreenInfo>& screens, std::size_t index)
{
    FakeHost host;
    host.screenList = screens;
    host.size = screens[index].frame.size;
    host.windowInfo = WindowInfo{screens[index].frame, 1000, screens[index]};
    return host;
}

} // namespace hushmeadows::testing
