#include "Apps/hushmeadows/CheckCommand.h"
#include "Apps/hushmeadows/HelpText.h"
#include "Apps/hushmeadows/InstallXScreenSaverCommand.h"
#include "Apps/hushmeadows/ListCommand.h"
#include "Apps/hushmeadows/PlayCommand.h"
#include "Apps/hushmeadows/RenderAudioCommand.h"
#include "Apps/hushmeadows/SaverCommand.h"
#include "Apps/hushmeadows/SettingsCommand.h"
#include "Platforms/Linux/FFmpegMediaProbe.h"
#include "Platforms/Linux/LinuxEnvironment.h"
#include "Platforms/Posix/PosixFileAccess.h"
#include "SceneCore/Runtime/Log.h"

extern "C" {
#include <libavutil/log.h>
}

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

constexpr const char* usage = hushmeadows::HelpText::program;

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fputs(usage, stderr);
        return 2;
    }
    hushmeadows::LinuxEnvironment::install();
    hushmeadows::PosixFileAccess::install();
    // FFmpeg's own chatter only when debugging; our log says what matters.
    if (std::getenv("HUSHMEADOWS_DEBUG")) {
        hushmeadows::Log::setRevealsPrivate(true);
    } else {
        av_log_set_level(AV_LOG_QUIET);
    }
    std::string command = argv[1];
    std::vector<std::string> arguments(argv + 2, argv + argc);
    if (command == "--version") {
        std::printf("hushmeadows %s\n", HUSHMEADOWS_VERSION);
        return 0;
    }
    // "help COMMAND" is "COMMAND --help".
    if (command == "help" && !arguments.empty() && arguments.front() != "help") {
        command = arguments.front();
        arguments = {"--help"};
    }
    hushmeadows::FFmpegMediaProbe media;

    if (command == "check")
        return hushmeadows::runCheckCommand(arguments, media, stdout, stderr);
    if (command == "list")
        return hushmeadows::runListCommand(arguments, media, stdout, stderr);
    if (command == "play")
        return hushmeadows::runPlayCommand(arguments, media, stdout, stderr);
    if (command == "saver")
        return hushmeadows::runSaverCommand(arguments, media, stdout, stderr);
    if (command == "install-xscreensaver")
        return hushmeadows::runInstallXScreenSaverCommand(arguments, stdout, stderr);
    if (command == "render-audio")
        return hushmeadows::runRenderAudioCommand(arguments, media, stdout, stderr);
    if (command == "settings")
        return hushmeadows::runSettingsCommand(arguments, stdout, stderr);
    if (command == "--help" || command == "-h" || command == "help") {
        std::fputs(usage, stdout);
        return 0;
    }
    std::fprintf(stderr, "hushmeadows: unknown command %s\n%s", command.c_str(), usage);
    return 2;
}
