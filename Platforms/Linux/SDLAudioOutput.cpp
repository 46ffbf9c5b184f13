#include "Platforms/Linux/SDLAudioOutput.h"

#include <SDL.h>

#include <cstring>

namespace hushmeadows {

SDLAudioOutput::SDLAudioOutput()
{
    // Failure is reported by start(), which tries again.
    initialised_ = SDL_InitSubSystem(SDL_INIT_AUDIO) == 0;
    SDL_AddEventWatch(&SDLAudioOutput::watchEvents, this);
}

SDLAudioOutput::~SDLAudioOutput()
{
    SDL_DelEventWatch(&SDLAudioOutput::watchEvents, this);
    close();
    if (initialised_)
        SDL_QuitSubSystem(SDL_INIT_AUDIO);
}

void SDLAudioOutput::callback(void* userdata, std::uint8_t* stream, int length)
{
    auto* output = static_cast<SDLAudioOutput*>(userdata);
    int frames = length / static_cast<int>(2 * sizeof(float));
    if (output->source_)
        output->source_->render(reinterpret_cast<float*>(stream), frames);
    else
        std::memset(stream, 0, static_cast<std::size_t>(length));
}

int SDLAudioOutput::watchEvents(void* userdata, SDL_Event* event)
{
    auto* output = static_cast<SDLAudioOutput*>(userdata);
    const SDL_Event& sdlEvent = *event;
    if (sdlEvent.type == SDL_AUDIODEVICEREMOVED && !sdlEvent.adevice.iscapture
        && sdlEvent.adevice.which == output->watchedDevice_.load()) {
        std::function<void()> handler;
        {
            std::lock_guard lock(output->handlerMutex_);
            handler = output->handler_;
        }
        if (handler)
            handler();
    }
    return 1;
}

std::expected<void, std::string> SDLAudioOutput::start(AudioRenderSource& source, double sampleRate)
{
    if (!initialised_) {
        initialised_ = SDL_InitSubSystem(SDL_INIT_AUDIO) == 0;
        if (!initialised_)
            return std::unexpected(std::string("cannot start SDL audio: ") + SDL_GetError());
        // Events may have stopped with audio, and their watches with them: watch once again.
        SDL_DelEventWatch(&SDLAudioOutput::watchEvents, this);
        SDL_AddEventWatch(&SDLAudioOutput::watchEvents, this);
    }
    // A lost device stays open in the stopped state until closed.
    if (device_ != 0 && (SDL_GetAudioDeviceStatus(device_) == SDL_AUDIO_STOPPED || openRate_ != sampleRate))
        close();
    if (device_ == 0) {
        SDL_AudioSpec wanted{};
        wanted.freq = static_cast<int>(sampleRate);
        wanted.format = AUDIO_F32SYS;
        wanted.channels = 2;
        wanted.samples = framesPerCallback;
        wanted.callback = &SDLAudioOutput::callback;
        wanted.userdata = this;
        SDL_AudioSpec obtained{};
        SDL_AudioDeviceID device = SDL_OpenAudioDevice(nullptr, 0, &wanted, &obtained, 0);
        if (device == 0) {
            std::string error = std::string("cannot open an audio device: ") + SDL_GetError();
            // SDL chose its driver when audio started; the next attempt
            // chooses again, since the one that was missing may be back.
            SDL_QuitSubSystem(SDL_INIT_AUDIO);
            initialised_ = false;
            return std::unexpected(error);
        }
        device_ = device;
        openRate_ = sampleRate;
        watchedDevice_.store(device);
    } else {
        SDL_PauseAudioDevice(device_, 1);
    }
    SDL_LockAudioDevice(device_);
    source_ = &source;
    SDL_UnlockAudioDevice(device_);
    SDL_PauseAudioDevice(device_, 0);
    return {};
}

void SDLAudioOutput::pause()
{
    if (device_ != 0)
        SDL_PauseAudioDevice(device_, 1);
}

void SDLAudioOutput::stop() { close(); }

void SDLAudioOutput::close()
{
    if (device_ == 0)
        return;
    watchedDevice_.store(0);
    // Waits for the device's thread: the source is not called after this.
    SDL_CloseAudioDevice(device_);
    device_ = 0;
    source_ = nullptr;
}

void SDLAudioOutput::setDeviceChangeHandler(std::function<void()> handler)
{
    std::lock_guard lock(handlerMutex_);
    handler_ = std::move(handler);
}

std::string SDLAudioOutput::driverName() const
{
    const char* name = device_ != 0 ? SDL_GetCurrentAudioDriver() : nullptr;
    return name ? name : "";
}

} // namespace hushmeadows
