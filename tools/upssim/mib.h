// The MIB objects a simulated UPS network card serves: every PowerNet object the library reads or
// writes, plus MIB-II sysDescr. One row per object in mib.cpp.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "powernet_values.h"

namespace upssim {

// The ASN.1 types the PowerNet MIB uses for these objects; the letters are net-snmp's.
enum class Type : char {
  kInteger = 'i',
  kGauge32 = 'u',
  kTimeTicks = 't',
  kOctetString = 's',
  kIpAddress = 'a',
};

enum class Access { kReadOnly, kReadWrite };

using powernet_values::EnumValue;

struct ObjectDef {
  std::string_view oid;  // numeric, with the leading dot, instance ".0" included
  std::string_view name;
  Type type;
  Access access;
  std::string_view initial;           // value text at card start, as the type letter reads it
  std::span<const EnumValue> values;  // an enumeration's values; empty for plain numbers
};

using Oid = std::vector<std::uint32_t>;

std::span<const ObjectDef> Objects();

// Index into Objects() of the object named by OID text (".1.3..." or "1.3...") or by MIB name.
std::optional<std::size_t> FindObject(std::string_view oid_or_name);
// Index of the object with exactly this OID.
std::optional<std::size_t> FindObject(const Oid &oid);
// Index of the first object whose OID sorts after `oid` (GETNEXT order).
std::optional<std::size_t> NextObject(const Oid &oid);

const Oid &ObjectOid(std::size_t object);
std::optional<Oid> ParseOid(std::string_view text);
std::string FormatOid(std::span<const std::uint32_t> oid);

// The value whose MIB name or number is `text`, for enumerations.
std::optional<int> EnumLookup(std::span<const EnumValue> values, std::string_view text);
std::string_view EnumName(std::span<const EnumValue> values, long value);

// Enumerations the card's behaviour refers to.
namespace output_status {
inline constexpr int kOnLine = 2;
inline constexpr int kOnBattery = 3;
inline constexpr int kTimedSleeping = 5;
inline constexpr int kOff = 7;
inline constexpr int kSleepingUntilPowerReturn = 11;
}  // namespace output_status

namespace line_fail_cause {
inline constexpr int kBlackout = 4;
inline constexpr int kSelfTest = 9;
}  // namespace line_fail_cause

std::span<const EnumValue> LineFailCauses();

}  // namespace upssim
