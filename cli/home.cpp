#include "cli/home.h"

#include <cstdio>
#include <cstdlib>

#include "cli/program.h"

namespace cli {
namespace {

constexpr char kSection[] = "nal";
std::string g_transport;

}  // namespace

std::string SettingsPath() { return TOOGetHomePath().str() + "/nal.conf"; }

SavedSettings LoadSettings() {
    const CTOOConfigInfoFile file(SettingsPath().c_str());
    const auto get = [&](const char* key) {
        CTOOString value;
        file.GetValue(kSection, key, &value);
        return value.str();
    };
    SavedSettings settings;
    settings.transport = get("transport");
    settings.store = get("store");
    const std::string flags = get("flags");
    char* end = nullptr;
    settings.flags = static_cast<unsigned>(std::strtoul(flags.c_str(), &end, 0));
    if (*end != '\0') throw Fault(kInput, SettingsPath() + ": \"flags\" is no number: " + flags, "Set it anew: nal settings --flags 0");
    return settings;
}

void SaveSettings(const SavedSettings& settings) {
    CTOOFolder::MakeFolder(TOOGetHomePath(), 0700);
    CTOOConfigInfoFile file(SettingsPath().c_str());
    char flags[16];
    std::snprintf(flags, sizeof flags, "0x%X", settings.flags);
    file.PutSection(kSection, {{"transport", settings.transport}, {"store", settings.store}, {"flags", flags}});
}

void UseHome(const std::string& transport) {
    const SavedSettings settings = LoadSettings();
    g_transport = transport.empty() ? settings.transport : transport;
    // Setting the folder replaces the flags, so they come afterwards.
    if (!g_transport.empty()) NALSetTransDir(g_transport);
    if (settings.flags != 0) NALSetAplicationFlag(settings.flags);
}

std::string DefaultStorePath() {
    const std::string store = LoadSettings().store;
    return store.empty() ? GetTarnCSPPath().str() + "/ormatek/storage/cstore.dat" : store;
}

std::string TrustFolder() { return TOOGetHomePath().str() + "/trust"; }
std::string TrustStorePath() { return TrustFolder() + "/trusted.dat"; }

std::string TransportFolder() { return g_transport; }

std::string RequireTransportFolder() {
    if (g_transport.empty()) {
        throw Fault(kUsage, "no transport folder is set", "Name it with --transport DIR, or once and for all: nal settings --set-transport DIR");
    }
    return g_transport;
}

}  // namespace cli
