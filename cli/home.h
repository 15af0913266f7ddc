// Where things are kept, and the settings that outlive a run of the program.
#pragma once

#include <string>

namespace cli {

/// Makes the settings count in this process: the application flags and the transport folder.
/// @param transport  the folder that the command line names; empty for none
/// @param tolerant   flags that are no number count as none
/// @throws Fault that tells how to set them
void UseHome(const std::string& transport, bool tolerant);

/// The settings file, `nal.conf` in the home folder: what `nal settings` sets.
struct SavedSettings {
    std::string transport;  ///< empty: none
    std::string store;      ///< empty: the default
    unsigned flags = 0;     ///< application flags, NAL_APP_*
    std::string badFlags;   ///< what stands there in their place and is no number
};
/// Reads flags: a number of 32 bits, with a prefix as in C. @return whether it is one
bool ParseFlags(const std::string& text, unsigned& flags);
std::string SettingsPath();
SavedSettings LoadSettings();
void SaveSettings(const SavedSettings& settings);

/// The user's certificate store when no other is named.
std::string DefaultStorePath();
/// The main trust storage.
std::string TrustStorePath();
/// The folder of accepted trust lists.
std::string TrustFolder();
/// The transport folder in use; empty when there is none.
std::string TransportFolder();
/// The same. @throws Fault that tells how to set one
std::string RequireTransportFolder();

}  // namespace cli
