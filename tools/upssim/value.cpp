#include "value.h"

#include <arpa/inet.h>

#include <charconv>
#include <limits>

#include "text.h"

namespace upssim {
namespace {

template <typename Number>
std::optional<Number> ParseNumber(std::string_view text) {
  Number number{};
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::optional<std::string> ParseHex(std::string_view text) {
  std::string bytes;
  int high = -1;
  for (char c : text) {
    if (c == ' ' || c == ':') continue;
    int digit = HexDigit(c);
    if (digit < 0) return std::nullopt;
    if (high < 0) {
      high = digit;
    } else {
      bytes.push_back(static_cast<char>(high * 16 + digit));
      high = -1;
    }
  }
  if (high >= 0) return std::nullopt;
  return bytes;
}

}  // namespace

std::optional<Value> ParseValue(const ObjectDef &object, char letter, std::string_view text,
                                std::string &error) {
  if (letter == '=') letter = static_cast<char>(object.type);
  if (letter != 's') {  // blanks only matter inside strings
    std::size_t first = text.find_first_not_of(" \t");
    text = first == std::string_view::npos
               ? std::string_view()
               : text.substr(first, text.find_last_not_of(" \t") - first + 1);
  }
  Value value;
  switch (letter) {
    case 'i': {
      value.type = Type::kInteger;
      if (auto named = EnumLookup(object.values, text)) {
        value.number = *named;
        return value;
      }
      auto number = ParseNumber<std::int32_t>(text);
      if (!number) {
        error = "'" + std::string(text) + "' is not a 32-bit integer" +
                (object.values.empty() ? "" : " nor a value name of " + std::string(object.name));
        return std::nullopt;
      }
      value.number = *number;
      return value;
    }
    case 'u':
    case 't': {
      value.type = letter == 'u' ? Type::kGauge32 : Type::kTimeTicks;
      auto number = ParseNumber<std::uint32_t>(text);
      if (!number) {
        error = "'" + std::string(text) + "' is not an unsigned 32-bit number";
        return std::nullopt;
      }
      value.number = *number;
      return value;
    }
    case 'a': {
      value.type = Type::kIpAddress;
      in_addr address{};
      if (inet_pton(AF_INET, std::string(text).c_str(), &address) != 1) {
        error = "'" + std::string(text) + "' is not an IPv4 address";
        return std::nullopt;
      }
      value.number = ntohl(address.s_addr);
      return value;
    }
    case 's': {
      value.type = Type::kOctetString;
      auto bytes = Unescape(text);
      if (!bytes) {
        error = "bad escape in '" + std::string(text) + "' (use \\\\ \\n \\r \\t \\xHH)";
        return std::nullopt;
      }
      value.octets = std::move(*bytes);
      return value;
    }
    case 'x': {
      value.type = Type::kOctetString;
      auto bytes = ParseHex(text);
      if (!bytes) {
        error = "'" + std::string(text) + "' is not hexadecimal bytes";
        return std::nullopt;
      }
      value.octets = std::move(*bytes);
      return value;
    }
    default:
      error = std::string("unknown type letter '") + letter + "' (i u t a s x, or =)";
      return std::nullopt;
  }
}

std::string FormatValue(const Value &value) {
  switch (value.type) {
    case Type::kOctetString:
      return Escape(value.octets);
    case Type::kIpAddress: {
      in_addr address{htonl(static_cast<std::uint32_t>(value.number))};
      char text[INET_ADDRSTRLEN] = {};
      inet_ntop(AF_INET, &address, text, sizeof text);
      return text;
    }
    default:
      return std::to_string(value.number);
  }
}

}  // namespace upssim
