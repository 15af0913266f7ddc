/// Process-wide settings: the application flags, the transport folder, the certificate number.
///
/// None of these functions takes a lock: a host sets them before it uses the library from several threads.
#pragma once

#include "nal/export.h"
#include "too/string.h"
#include "too/types.h"

/// Bits of the application flags.
#define NAL_APP_IGNORE_MISSING_CRL 0x1          ///< chains report neither unknown revocation nor revocation where there is no CRL
#define NAL_APP_UNTRUSTED_SYSTEM_STORES 0x4     ///< roots of the system stores "Root" and "CA" are not trusted
#define NAL_APP_EXTENDED_STORAGES 0x20000000    ///< certificates are sought in the lists of all networks

extern "C" {
/// The application flags; 0 when the library is loaded.
extern NAL_EXPORT DWORD gApplicationFlag;
}

/// Replaces all application flags.
NAL_EXPORT void NALSetAplicationFlag(unsigned int flags);
NAL_EXPORT unsigned int GetAplicationFlag();

/// Sets the transport folder, the folder through which requests, certificates and lists travel.
///
/// The folder that is set already, whatever the case of its letters, changes nothing once the trust storages are loaded. Any
/// other makes them load again at their next use, and sets the application flags to 2, whatever they were: who needs flags
/// sets them afterwards.
/// @param dir  with slashes or backslashes
NAL_EXPORT void NALSetTransDir(const CTOOString& dir);

/// @return the transport folder as it was set; ".\\" as long as the trust storages are not loaded
NAL_EXPORT CTOOString GetCurrentTransDir();
/// The older name of GetCurrentTransDir.
NAL_EXPORT CTOOString GetCurrentTrunsDir();

/// @return whether the trust storages are loaded
NAL_EXPORT bool NALIsTrustStorageInit();

/// The number for the next certificate request.
///
/// The first call reads it from the request storages of the transport folder: one above the highest number in them, 0 when no
/// request carries a number above 0. A storage that does not open is passed over. Later calls read nothing.
NAL_EXPORT unsigned int NALGetCurrentCertNumber();
/// Adds 1 to the number, whatever it holds: one that was never asked for becomes 0.
NAL_EXPORT void NALAddCurrentCertNumber();

/// Gives the trust storages up, as CNALCertStorageCollection::Reset. They are loaded again at the next use.
NAL_EXPORT void NALFreeRootStorage();
