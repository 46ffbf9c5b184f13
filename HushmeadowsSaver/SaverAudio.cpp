#include "HushmeadowsSaver/SaverAudio.h"

#include "SceneCore/Runtime/Log.h"
#include "SceneCore/Runtime/Precondition.h"

#include <string>

namespace hushmeadows {

namespace {

// The engine's entry points: those of the studio overlays the arbiter has
// loaded, else whatever the host's own lookup gives.
AmbientAudioEngine::Services withStudioEntryPoints(
    AmbientAudioEngine::Services services,
    std::shared_ptr<const std::map<std::filesystem::path, std::vector<std::int64_t>>> known)
{
    services.entryPoints = [known = std::move(known), given = std::move(services.entryPoints)](const std::filesystem::path& music) {
        if (auto it = known->find(music); it != known->end() && !it->second.empty())
            return it->second;
        return given ? given(music) : std::vector<std::int64_t>{};
    };
    return services;
}

} // namespace

SaverAudio::SaverAudio(Services services)
    : powerEvents_(services.powerEvents)
    , loadOverlay_(std::move(services.loadOverlay))
    , now_(std::move(services.now))
    , calendar_(services.calendar)
    , entryPoints_(std::make_shared<std::map<std::filesystem::path, std::vector<std::int64_t>>>())
    , engine_(std::make_unique<AmbientAudioEngine>(withStudioEntryPoints(std::move(services.engine), entryPoints_)))
    , self_(std::make_shared<SaverAudio*>(this))
{
    HM_PRECONDITION(now_ != nullptr, "the saver's audio needs a clock for the day phase");
}

SaverAudio::~SaverAudio()
{
    self_.reset();
}

void SaverAudio::acquire(const void* client, const WorldPackage& world, const HushmeadowsSettings& settings)
{
    acquire(client, world, settings, acquireFadeIn, std::nullopt);
}

void SaverAudio::acquire(const void* client, const WorldPackage& world, const HushmeadowsSettings& settings, double fadeIn,
                         std::optional<DayPhase> requestedPhase)
{
    clients_.insert(client);
    if (!observing_)
        observeSystem();

    double music = settings.musicLevel(world.manifest());
    double ambience = settings.ambienceLevel(world.manifest());
    engine_->setMusicVolume(static_cast<float>(music));
    engine_->setAmbienceVolume(static_cast<float>(ambience));
    engine_->setIsMuted(false);

    DayPhase phase = requestedPhase.value_or(settings.timeOfDay.phase(now_(), calendar_));
    auto choice = MusicSelection::choose(world, settings, phase, [this](const WorldPackage& package) -> std::optional<StudioMusic> {
        if (!loadOverlay_)
            return std::nullopt;
        auto overlay = loadOverlay_(package);
        if (overlay)
            for (const auto& [file, frames] : overlay->entryPoints)
                (*entryPoints_)[file] = frames;
        return overlay;
    });

    engine_->start(world, choice ? std::optional(choice->url) : std::nullopt, fadeIn);
    std::string style = choice ? std::string(choice->style.rawValue()) : std::string("none");
    Log::saver.notice("audio acquired music=%f ambience=%f style=%{public}s", music, ambience, style);
}

void SaverAudio::release(const void* client, bool immediately)
{
    if (clients_.erase(client) == 0)
        return;
    if (!clients_.empty())
        return; // the sound belongs to the views still claiming it
    if (immediately)
        engine_->stopImmediately();
    else
        engine_->stop(releaseFadeOut);
    Log::saver.notice("audio released immediately=%{bool}d", immediately);
}

AudioArbiter::Diagnostics SaverAudio::diagnostics(const void* client) const
{
    Diagnostics values;
    values.clients = static_cast<int>(clients_.size());
    values.state = std::string(rawValue(engine_->state()));
    values.ownsAudio = clients_.contains(client);
    values.musicVolume = engine_->musicVolume();
    values.ambienceVolume = engine_->ambienceVolume();
    values.activeEngines = AmbientAudioEngine::activeEngineCount();
    return values;
}

void SaverAudio::observeSystem()
{
    observing_ = true;
    powerEvents_.observe([weak = std::weak_ptr<SaverAudio*>(self_)](const std::string& name) {
        auto self = weak.lock();
        if (!self)
            return;
        Log::saver.notice("audio stopped: %{public}s", name);
        (*self)->engine_->stopImmediately();
    });
}

} // namespace hushmeadows
