#include "Apps/hushmeadows/InstallXScreenSaverCommand.h"

#include "Apps/hushmeadows/HelpText.h"
#include "Apps/hushmeadows/XScreenSaverPrograms.h"

#include "SceneCore/Runtime/PrintableText.h"
#include "SceneCore/Settings/Environment.h"
#include "SceneCore/Settings/SettingsStore.h"

#include <filesystem>
#include <fstream>
#include <system_error>

namespace hushmeadows {

namespace {

namespace fs = std::filesystem;

constexpr const char* usage = HelpText::installXscreensaver;

// A preferences file is a few kilobytes; anything far larger is not one.
constexpr std::uintmax_t maximumFileSize = 4 * 1024 * 1024;

// The hack has no options in XScreenSaver's dialog: say where it is set up.
void printWhereSettingsLive(std::FILE* out)
{
    std::fprintf(out, "the saver's settings live in %s; change them with hushmeadows settings set KEY VALUE (hushmeadows help settings)\n",
                 printable(SettingsStore::sharedFileURL().string()).c_str());
}

} // namespace

int runInstallXScreenSaverCommand(const std::vector<std::string>& arguments, std::FILE* out, std::FILE* err)
{
    std::optional<fs::path> file;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == "--file" && i + 1 < arguments.size()) {
            file = arguments[++i];
        } else if (arguments[i] == "--help" || arguments[i] == "-h") {
            std::fputs(usage, out);
            return 0;
        } else {
            std::fprintf(err, "hushmeadows install-xscreensaver: unknown argument %s\n%s", arguments[i].c_str(), usage);
            return 2;
        }
    }
    if (!file) {
        auto home = Environment::current().processHome;
        if (!home) {
            std::fprintf(err, "hushmeadows install-xscreensaver: no home folder (HOME is not set)\n");
            return 1;
        }
        file = *home / ".xscreensaver";
    }
    std::error_code error;
    fs::path program = fs::read_symlink("/proc/self/exe", error);
    if (error) {
        std::fprintf(err, "hushmeadows install-xscreensaver: cannot tell where this program is: %s\n", error.message().c_str());
        return 1;
    }
    const std::string entry = "\"Hushmeadows\" " + program.string() + " saver --root";

    std::string text;
    const bool existed = fs::exists(*file, error);
    if (existed) {
        auto size = fs::file_size(*file, error);
        if (error || size > maximumFileSize) {
            std::fprintf(err, "hushmeadows install-xscreensaver: %s is not a preferences file this program can read\n", file->c_str());
            return 1;
        }
        std::ifstream in(*file, std::ios::binary);
        text.assign(std::istreambuf_iterator<char>(in), {});
        if (!in.good() && !in.eof()) {
            std::fprintf(err, "hushmeadows install-xscreensaver: cannot read %s\n", file->c_str());
            return 1;
        }
    } else {
        // A new file runs this hack alone.
        text = "mode: one\nselected: 0\n";
    }
    std::string updated = withHackListed(text, entry);
    if (updated == text) {
        std::fprintf(out, "%s already lists %s; nothing changed\n", file->c_str(), program.c_str());
        printWhereSettingsLive(out);
        return 0;
    }
    // Written beside and renamed over, so a running daemon never reads half a file.
    fs::path temporary = file->string() + ".hushmeadows-new";
    {
        std::ofstream outFile(temporary, std::ios::binary | std::ios::trunc);
        outFile << updated;
        if (!outFile.flush()) {
            std::fprintf(err, "hushmeadows install-xscreensaver: cannot write %s\n", temporary.c_str());
            return 1;
        }
    }
    if (existed)
        fs::permissions(temporary, fs::status(*file, error).permissions(), error);
    fs::rename(temporary, *file, error);
    if (error) {
        std::fprintf(err, "hushmeadows install-xscreensaver: cannot replace %s: %s\n", file->c_str(), error.message().c_str());
        fs::remove(temporary, error);
        return 1;
    }
    if (existed)
        std::fprintf(out, "added Hushmeadows (%s saver --root) to the programs: list of %s; choose it in xscreensaver-settings\n",
                     program.c_str(), file->c_str());
    else
        std::fprintf(out, "wrote %s: XScreenSaver now runs Hushmeadows (%s saver --root) alone\n", file->c_str(), program.c_str());
    printWhereSettingsLive(out);
    return 0;
}

} // namespace hushmeadows
