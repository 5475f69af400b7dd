// A typed SNMP value as a card holds and answers it, and its text forms: the control channel, the
// scenario file and the journal all write values the same way.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "mib.h"
#include "text.h"

namespace upssim {

struct Value {
  Type type = Type::kInteger;
  // INTEGER (signed 32-bit), Gauge32 and TimeTicks (unsigned 32-bit), IpAddress (host order).
  std::int64_t number = 0;
  std::string octets;  // OCTET STRING

  bool operator==(const Value &) const = default;
};

inline Value NumberValue(Type type, std::int64_t number) {
  Value value;
  value.type = type;
  value.number = number;
  return value;
}

// Parses `text` as a value of type `letter`: i (INTEGER, or an enumeration name of `object`),
// u (Gauge32), t (TimeTicks), a (IpAddress), s (OCTET STRING, escapes as Escape writes them),
// x (OCTET STRING in hexadecimal), or '=' for the object's own MIB type. Returns nullopt and an
// explanation in `error` when the text does not fit.
std::optional<Value> ParseValue(const ObjectDef &object, char letter, std::string_view text,
                                std::string &error);

// The value as text; strings escaped.
std::string FormatValue(const Value &value);

}  // namespace upssim
