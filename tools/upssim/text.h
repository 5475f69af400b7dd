// Small text helpers shared by the simulator and the test fixture that drives it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace upssim {

// The value of a hexadecimal digit, or -1.
int HexDigit(char c);

// Printable ASCII stays as it is; backslash, control and 8-bit bytes become \\ \n \r \t \xHH.
std::string Escape(std::string_view bytes);
// The bytes Escape wrote; nullopt for a malformed escape.
std::optional<std::string> Unescape(std::string_view text);

// Takes the next blank-separated word off the front of rest; empty at the end.
std::string_view NextWord(std::string_view &rest);

}  // namespace upssim
