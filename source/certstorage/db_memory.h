// The memory that Berkeley DB works in.
#pragma once

namespace nal {

/// Makes Berkeley DB take memory that is zeroed and wipe what it gives back. To be called before any other call of it; costs
/// nothing when that was done.
///
/// It writes whole pages to files, with whatever lay in their unused parts: without this, that is what the process had on its heap
/// before, which may be keys. And a PIN that a memory store held would stay behind when the store is closed. The setting is
/// process-wide and does no harm to another user of the library.
void PrepareDbMemory();

}  // namespace nal
