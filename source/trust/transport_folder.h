// Paths under the transport folder.
#pragma once

#include "too/string.h"

namespace nal {

/// The folder `d_station` of a transport folder, which may be written with backslashes.
CTOOString StationFolder(const CTOOString& transportFolder);

/// The transport folder that is set. Loads the trust storages first, so that what a host has set counts from the first use on:
/// the exported getter knows the folder only afterwards.
CTOOString CurrentTransportFolder();

}  // namespace nal
