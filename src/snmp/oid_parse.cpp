// OID texts to sub-identifiers: net-snmp's parser, or the library's own for scalar instances
// when conversion mode is on or net-snmp refuses the text.
#include <cctype>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <type_traits>

#include "powernet.h"
#include "runtime/log_line.h"
#include "snmp/netsnmp.h"
#include "snmplumi.h"

static_assert(std::is_same_v<oid, unsigned long>, "the header declares net-snmp's oid so");

char OIDdat[32][256];
signed char OIDdatc;

namespace snmplumi {
namespace {

constexpr int kRingSlots = 32;
constexpr int kSlotWords = 64;
constexpr int kMaxStored = kSlotWords - 1;

// Guards OIDdat and OIDdatc: host threads parse at the same time.
std::mutex g_ring_mutex;

void StoreWord(char *slot, int index, uint32_t word) {
  for (int byte = 0; byte < 4; ++byte) {
    slot[index * 4 + byte] = static_cast<char>((word >> (8 * byte)) & 0xff);  // little-endian
  }
}

uint32_t LoadWord(const char *slot, int index) {
  uint32_t word = 0;
  for (int byte = 0; byte < 4; ++byte) {
    word |= static_cast<uint32_t>(static_cast<unsigned char>(slot[index * 4 + byte])) << (8 * byte);
  }
  return word;
}

// Only scalar instances parse: the text's last sub-identifier is never stored and must be 0,
// standing for the zero the cleared slot already holds.
oid *OwnParse(const char *text, oid *name, size_t *name_length) {
  if (text[0] != '.' || !std::isdigit(static_cast<unsigned char>(text[1]))) return nullptr;
  std::lock_guard<std::mutex> lock(g_ring_mutex);
  // A host may have written any value into the exported index.
  if (OIDdatc > kRingSlots - 1 || OIDdatc < 0) OIDdatc = 0;
  char *slot = OIDdat[static_cast<int>(OIDdatc)];
  std::memset(slot, 0, sizeof OIDdat[0]);
  uint32_t accumulator = 0;
  int stored = 0;
  for (const char *p = text + 1; stored < kMaxStored; ++p) {
    if (std::isdigit(static_cast<unsigned char>(*p))) {
      accumulator = accumulator * 10 + static_cast<uint32_t>(*p - '0');  // wraps at 32 bits
    } else if (*p == '.') {
      StoreWord(slot, stored++, accumulator);
      accumulator = 0;
    } else {
      if (accumulator != 0) return nullptr;
      break;
    }
  }
  size_t length = static_cast<size_t>(stored) + 1;
  if (length > *name_length) return nullptr;
  // The whole slot is copied, as far as the caller's array reaches.
  size_t words = *name_length < kSlotWords ? *name_length : kSlotWords;
  for (size_t i = 0; i < words; ++i) name[i] = LoadWord(slot, static_cast<int>(i));
  *name_length = length;
  ++OIDdatc;
  return name;
}

// Only numbers and names go to net-snmp's parser: the library's OIDs are numeric, and without MIB
// files net-snmp knows no names beyond its roots. Other texts cost there: a module name sends it
// looking for a file (and printing that there is none), a quoted index is read past its end,
// and a text it cannot read it compiles as an extended regular expression, whose repetitions
// take memory exponential in their number ("+++..."). The own parser takes those.
bool NetSnmpMayRead(const char *text) {
  for (const char *p = text; *p != '\0'; ++p) {
    const char c = *p;
    if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' ||
          c == '-' || c == '_')) {
      return false;
    }
  }
  return true;
}

}  // namespace
}  // namespace snmplumi

unsigned long *xp_snmp_parse_oid(const char *OID, unsigned long *name, size_t *name_length) {
  if (OID == nullptr || name == nullptr || name_length == nullptr) return nullptr;
  if (g_bAC_MIBConvertMode != 1 && snmplumi::NetSnmpMayRead(OID)) {
    std::lock_guard<std::mutex> lock(snmplumi::NetSnmpMutex());
    snmplumi::EnsureNetSnmp();
    size_t length = *name_length;
    if (snmp_parse_oid(OID, name, &length) != nullptr) {
      *name_length = length;
      return name;
    }
  }
  if (std::strcmp(OID, snmplumi::mib::upsCommStatus) == 0) {
    snmplumi::LogLine(0, "!!!!!! **** SnmpMgrStrToOid error!! 64bit!? **** !!!!!!");
  }
  return snmplumi::OwnParse(OID, name, name_length);
}
