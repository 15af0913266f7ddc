// nal settings
#include <unistd.h>

#include "cli/commands.h"
#include "cli/home.h"
#include "cli/interrupt.h"
#include "cli/program.h"

namespace cli {
namespace {

struct Settings {
    std::string transport;
    std::string store;
    std::string flags;
    CLI::Option* transportOption = nullptr;
    CLI::Option* storeOption = nullptr;

    void Define(Options& o) {
        transportOption = o.Value("--set-transport", transport, "DIR", "Sets the transport folder; an empty text takes it away");
        storeOption = o.Value("--set-store", store, "PATH", "Sets the user's certificate store; an empty text brings the default back");
        o.Value("--set-flags", flags, "NUMBER",
                "Sets the application flags: 1 a missing CRL is no fault, 4 roots of the system stores are not trusted, 0x20000000 certificates are sought in the lists of all networks");
        o.Note("Shows where everything is kept and what is set. What is set is kept in nal.conf in the home folder and counts for every later run.");
        o.Example("nal settings", "Shows all");
        o.Example("nal settings --set-transport /var/lib/vpn/transport", "Sets the transport folder once and for all");
    }

    Outcome Run(const Globals& globals) {
        SavedSettings saved = LoadSettings();
        bool change = false;
        const auto absolute = [](const std::string& path) {
            if (path.empty() || path[0] == '/') return path;
            char* full = ::realpath(".", nullptr);
            const std::string folder = full == nullptr ? "." : full;
            ::free(full);
            return folder + "/" + path;
        };
        if (transportOption->count() != 0) {
            if (!transport.empty() && !CTOOFolder::Exists(transport)) {
                throw Fault(kInput, transport + " is no folder", "Make it first, or check the path.", TOO_E_NOT_A_FOLDER);
            }
            saved.transport = absolute(transport);
            change = true;
        }
        if (storeOption->count() != 0) {
            saved.store = absolute(store);
            change = true;
        }
        if (!flags.empty()) {
            if (!ParseFlags(flags, saved.flags)) UsageFault("'" + flags + "' is not a number of 32 bits");
            saved.badFlags.clear();
            change = true;
        }
        if (!saved.badFlags.empty() && !globals.quiet) {
            WriteAll(STDERR_FILENO, "nal settings: the flags were no number (" + Printable(saved.badFlags) + "); they count as 0: set them with --set-flags\n");
        }
        if (change) {
            SaveSettings(saved);
            RecordEffect("the settings were changed");
        }
        char number[16];
        std::snprintf(number, sizeof number, "0x%X", saved.flags);
        const std::string folder = change && transportOption->count() != 0 ? saved.transport : TransportFolder();
        Outcome outcome;
        outcome.data = {{"version", NAL_PROGRAM_VERSION},
                        {"home", TOOGetHomePath().str()},
                        {"settings", SettingsPath()},
                        {"store", DefaultStorePath()},
                        {"containers", GetTarnCSPPath().str()},
                        {"trust", TrustStorePath()},
                        {"transport", folder.empty() ? Json() : Json(folder)},
                        {"flags", number}};
        return outcome;
    }
};

}  // namespace

void AddSettingsCommand(Program& program) { program.Command<Settings>("", "settings", "Shows and sets where things are kept"); }

}  // namespace cli
