/// Store files that are damaged, or may be: what is wrong with one, and what can be brought back from it.
///
/// Both functions read the file page by page by themselves, so nothing in it can mislead the database; their time and memory are
/// bounded by its size. Threads: any; a change of the store by another waits meanwhile when the store has its lock file beside it.
#pragma once

#include <list>

#include "nal/export.h"
#include "too/string.h"
#include "too/types.h"

/// What was found in a store's file.
struct NALStoreReport {
    unsigned certificates = 0;
    unsigned crls = 0;
    unsigned properties = 0;
    unsigned damaged = 0;            ///< records and pages that cannot be read, do not decode or lie under another's key
    std::list<CTOOString> findings;  ///< what is wrong, a line each, at most 100; empty for a sound store
};

/// Checks a store's file: its pages, and that every record decodes and lies under its own key. Changes nothing.
///
/// @param path    the file; it may be in use
/// @param report  receives what was found
/// @param err     receives 0, 5 for a damaged store or a file that is none (the report says how), 4 when there is no file, else
///                what the system's error means
/// @param msg     receives the text, if not null
/// @return TRUE exactly when the store is sound
/// @throws XTOOStatus(status, text) when `err` is null
NAL_EXPORT BOOL NALCheckStoreFile(const CTOOString& path, NALStoreReport& report, int* err, CTOOString* msg = nullptr);

/// Reads every record whose pages are whole out of a store's file, however damaged, into a new store.
///
/// Pages are read without the file's own index, so that one page lost costs the records in it and no others. A certificate or CRL whose
/// key was lost with a page, but whose encoding is whole, comes back too, under the key that it names; its properties do not.
///
/// @param path    the damaged file; not changed
/// @param target  the new store, mode 0640; must not exist. Appears whole or not at all
/// @param report  receives what was brought back, and what was not
/// @param err     receives 0, 5 when nothing could be read, 8 when the target exists, 4 when there is no file, else what the system's
///                error means
/// @param msg     receives the text, if not null
/// @return TRUE when the target was written
/// @throws XTOOStatus(status, text) when `err` is null
NAL_EXPORT BOOL NALSalvageStoreFile(const CTOOString& path, const CTOOString& target, NALStoreReport& report, int* err,
                                    CTOOString* msg = nullptr);
