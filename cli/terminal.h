// What reaches a terminal, and how.
#pragma once

#include <string>
#include <string_view>

namespace cli {

bool IsTerminal(int descriptor);

/// Whether text for this descriptor is coloured: only on terminals, and never when NO_COLOR is set (no-color.org).
bool UseColour(int descriptor);

/// Text from outside, made harmless: control characters, bytes that are no UTF-8, and invisible characters that turn or hide what
/// stands beside them become escapes such as \x1B and \u{202E}. Line ends too.
std::string Printable(std::string_view text);

/// JSON text with the same characters, which can only stand in its strings, as \uXXXX.
std::string PrintableJson(std::string_view json);

/// How many columns a printable text takes.
std::size_t Columns(std::string_view text);

enum class Colour { None, Good, Bad, Warning, Label };

/// The text in a colour, when `use`.
std::string Coloured(const std::string& text, Colour colour, bool use);

/// Writes all of a text to a descriptor.
/// @return 0, or the errno
int WriteAll(int descriptor, std::string_view text);

}  // namespace cli
