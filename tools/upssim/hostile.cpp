#include "hostile.h"

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace upssim {
namespace {

// Lengths around the buffers a manager is likely to have: 128, 256 and a datagram's worth.
constexpr std::size_t kOversizeLengths[] = {129, 130, 255, 256, 257, 260, 1024, 4096};
// net-snmp's encoder cuts integers to 32 bits: the extremes of 32 bits are the largest it sends.
constexpr long kHugeIntegers[] = {2147483647L, -2147483647L - 1, -1L};
constexpr u_long kHugeUnsigned[] = {4294967295UL, 2147483648UL, 4294967196UL};
constexpr u_char kUnsignedTypes[] = {ASN_GAUGE, ASN_TIMETICKS, ASN_COUNTER, ASN_UINTEGER};
constexpr u_char kExceptions[] = {SNMP_NOSUCHOBJECT, SNMP_NOSUCHINSTANCE, SNMP_ENDOFMIBVIEW};
constexpr std::size_t kObjectIdLength = 128;

// draw >> 8 picks within a kind.
template <typename T, std::size_t N>
const T &Pick(const T (&choices)[N], std::uint64_t draw) {
  return choices[(draw >> 8) % N];
}

void SetString(variable_list &var, const std::string &bytes) {
  snmp_set_var_typed_value(&var, ASN_OCTET_STR, bytes.data(), bytes.size());
}

void OtherType(variable_list &var, const Value &real, std::uint64_t) {
  if (real.type == Type::kOctetString) {
    long number = 2147483647L;
    snmp_set_var_typed_value(&var, ASN_INTEGER, &number, sizeof number);
  } else {
    SetString(var, FormatValue(real));
  }
}

void EmptyString(variable_list &var, const Value &, std::uint64_t) { SetString(var, ""); }

// The real text first, then format directives, a line end and a NUL among the filler.
void OversizeString(variable_list &var, const Value &real, std::uint64_t draw) {
  std::string bytes = FormatValue(real) + "%s%n%d\n";
  bytes.push_back('\0');
  bytes.resize(Pick(kOversizeLengths, draw), 'X');
  SetString(var, bytes);
}

void BinaryString(variable_list &var, const Value &, std::uint64_t draw) {
  std::string bytes;
  for (std::uint64_t x = draw; bytes.size() < 1 + (draw >> 8) % 64;
       x = x * 6364136223846793005ULL + 1) {
    bytes.push_back(static_cast<char>(x >> 56));
  }
  SetString(var, bytes);
}

void HugeInteger(variable_list &var, const Value &, std::uint64_t draw) {
  long number = Pick(kHugeIntegers, draw);
  snmp_set_var_typed_value(&var, ASN_INTEGER, &number, sizeof number);
}

void HugeUnsigned(variable_list &var, const Value &, std::uint64_t draw) {
  u_long number = Pick(kHugeUnsigned, draw);
  snmp_set_var_typed_value(&var, Pick(kUnsignedTypes, draw >> 4), &number, sizeof number);
}

void Counter64(variable_list &var, const Value &, std::uint64_t draw) {
  counter64 number{.high = 0xffffffffUL, .low = (draw >> 8) % 2 != 0 ? 0xffffffffUL : 0};
  snmp_set_var_typed_value(&var, ASN_COUNTER64, &number, sizeof number);
}

void ObjectId(variable_list &var, const Value &, std::uint64_t) {
  std::vector<oid> name(kObjectIdLength, 4294967295UL);
  name[0] = 1;
  name[1] = 3;
  snmp_set_var_typed_value(&var, ASN_OBJECT_ID, name.data(), name.size() * sizeof(oid));
}

void Null(variable_list &var, const Value &, std::uint64_t) {
  snmp_set_var_typed_value(&var, ASN_NULL, nullptr, 0);
}

void IpAddress(variable_list &var, const Value &, std::uint64_t) {
  const u_char address[4] = {255, 255, 255, 255};
  snmp_set_var_typed_value(&var, ASN_IPADDRESS, address, sizeof address);
}

void Opaque(variable_list &var, const Value &, std::uint64_t draw) {
  std::string bytes(1 + (draw >> 8) % 16, '\xff');
  snmp_set_var_typed_value(&var, ASN_OPAQUE, bytes.data(), bytes.size());
}

void Exception(variable_list &var, const Value &, std::uint64_t draw) {
  snmp_set_var_typed_value(&var, Pick(kExceptions, draw), nullptr, 0);
}

struct Kind {
  std::string_view name;
  void (*set)(variable_list &, const Value &, std::uint64_t);
};

constexpr std::array kKinds = {
    Kind{"other-type", OtherType},
    Kind{"empty-string", EmptyString},
    Kind{"oversize-string", OversizeString},
    Kind{"binary-string", BinaryString},
    Kind{"huge-integer", HugeInteger},
    Kind{"huge-unsigned", HugeUnsigned},
    Kind{"counter64", Counter64},
    Kind{"object-id", ObjectId},
    Kind{"null", Null},
    Kind{"ip-address", IpAddress},
    Kind{"opaque", Opaque},
    Kind{"exception", Exception},
};

}  // namespace

std::uint64_t HostileDraw(std::uint64_t seed, std::uint64_t count) {
  // splitmix64: consecutive counts give unrelated draws.
  std::uint64_t z = seed + (count + 1) * 0x9e3779b97f4a7c15ULL;
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
  return z ^ (z >> 31);
}

std::string_view SetHostileValue(variable_list &var, const Value &real, std::uint64_t draw) {
  const Kind &kind = kKinds[draw % kKinds.size()];
  kind.set(var, real, draw);
  return kind.name;
}

}  // namespace upssim
