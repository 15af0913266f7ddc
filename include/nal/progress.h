/// Progress of long operations: signing, verifying, encrypting and decrypting files.
#pragma once

#include <cstdint>

#include "nal/export.h"

/// Called on the thread that runs the operation, after each piece of work.
///
/// It must not throw; the library's own functions may be called from it.
///
/// @param bytesDone   bytes of content processed so far
/// @param bytesInAll  bytes of content that the operation will process, 0 when that is not known
/// @param context     the pointer given with the handler
/// @return true to go on; false to cancel: the operation then fails with status 14 and leaves no output behind
using NALProgressHandler = bool (*)(std::uint64_t bytesDone, std::uint64_t bytesInAll, void* context);

/// Sets the calling thread's progress handler until the next call; null removes it. Never fails.
///
/// Each thread has a handler of its own, null at first; without one an operation pays nothing.
///
/// @param context  handed to the handler as it is; not owned
NAL_EXPORT void NALSetProgressHandler(NALProgressHandler handler, void* context);
