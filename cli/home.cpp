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

bool ParseFlags(const std::string& text, unsigned& flags) {
    if (text.empty() || text[0] < '0' || text[0] > '9') return false;
    char* end = nullptr;
    const unsigned long long value = std::strtoull(text.c_str(), &end, 0);
    if (*end != '\0' || value > 0xFFFFFFFFULL) return false;
    flags = static_cast<unsigned>(value);
    return true;
}

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
    if (!flags.empty() && !ParseFlags(flags, settings.flags)) settings.badFlags = flags;
    return settings;
}

void SaveSettings(const SavedSettings& settings) {
    CTOOFolder::MakeFolder(TOOGetHomePath(), 0700);
    CTOOConfigInfoFile file(SettingsPath().c_str());
    char flags[16];
    std::snprintf(flags, sizeof flags, "0x%X", settings.flags);
    file.PutSection(kSection, {{"transport", settings.transport}, {"store", settings.store}, {"flags", flags}});
}

void UseHome(const std::string& transport, bool tolerant) {
    const SavedSettings settings = LoadSettings();
    if (!settings.badFlags.empty() && !tolerant) {
        throw Fault(kInput, SettingsPath() + ": \"flags\" is no number: " + settings.badFlags, "Set them anew: nal settings --set-flags 0");
    }
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
