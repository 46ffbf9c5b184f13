#include "Apps/hushmeadows/CheckCommand.h"
#include "Platforms/Linux/FFmpegMediaInspector.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr const char* usage = "usage: hushmeadows COMMAND [ARGUMENTS]\n"
                              "commands:\n"
                              "  check [--media] PATH...   check world packages as the saver would load them\n";

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fputs(usage, stderr);
        return 2;
    }
    std::string command = argv[1];
    std::vector<std::string> arguments(argv + 2, argv + argc);

    if (command == "check") {
        hushmeadows::FFmpegMediaInspector media;
        return hushmeadows::runCheckCommand(arguments, media, stdout, stderr);
    }
    if (command == "--help" || command == "-h" || command == "help") {
        std::fputs(usage, stdout);
        return 0;
    }
    std::fprintf(stderr, "hushmeadows: unknown command %s\n%s", command.c_str(), usage);
    return 2;
}
