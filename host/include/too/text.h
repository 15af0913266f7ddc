/// Bytes as text: hexadecimal and base64.
#pragma once

#include <cstddef>

#include "too/export.h"
#include "too/ident_obj.h"
#include "too/string.h"

/// Writes bytes as upper-case hexadecimal with a terminating zero.
///
/// @param bytes    the bytes, may be null when `count` is 0
/// @param count    how many
/// @param out      receives the text: 2 characters a byte, or 3 with `spaced`, where a blank stands between two bytes
/// @param outSize  the room at `out` in characters; 2 * count + 1, or 3 * count + 1 with `spaced`, is always enough
/// @param spaced   whether bytes are separated
/// @return the characters written without the zero; 0, and an empty text if there is room for one, when the room is too
///         small. Thread-safe, as all of this header.
NAL_HOST_EXPORT unsigned TOOBin2Hex(const void* bytes, unsigned count, char* out, unsigned outSize,
                                    bool spaced = false);

/// The same as an owned text.
NAL_HOST_EXPORT CTOOString TOOBin2Hex(const IdentObj& bytes, bool spaced = false);

/// Reads hexadecimal of either case; blanks, tabs and line ends between two bytes are passed over.
///
/// @param text   zero-terminated; reading stops at its end, at `count` bytes, or at the first character that does
///               not belong to a byte
/// @param out    receives the bytes
/// @param count  the room at `out` in bytes
/// @return the bytes read
NAL_HOST_EXPORT unsigned TOOHex2Bin(const char* text, void* out, unsigned count);

/// Reads a whole text of hexadecimal.
/// @return true when all of it was hexadecimal; otherwise false, and `out` is unchanged
NAL_HOST_EXPORT bool TOOHex2Bin(const CTOOString& text, IdentObj& out);

/// Decodes base64 as MIME writes it: line ends and blanks are passed over anywhere. Source: RFC 2045 section 6.8.
///
/// @param text    the characters
/// @param length  how many
/// @param out     receives the bytes
/// @return true; false, and `out` unchanged, for a character outside the alphabet, padding that is missing or too much,
///         bits that are set behind the last byte, or anything behind the padding
NAL_HOST_EXPORT bool TOO_MIMEBase64Decode(const char* text, std::size_t length, IdentObj& out);

/// Encodes base64.
/// @param lineLength  characters a line (a multiple of 4, at most 76 for MIME, 64 for PEM), each line ended by "\n";
///                    0 for one line without an end
/// @throws XTOOStatus 28 for another line length
NAL_HOST_EXPORT CTOOString TOO_MIMEBase64Encode(const void* bytes, unsigned count, unsigned lineLength = 0);
