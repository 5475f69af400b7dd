// Single-variable GET and SET requests, for the rest of the library.
#pragma once

#include <cstddef>

#include "snmplumi.h"

namespace snmplumi {

// What the exported calls copy of a string value, having no buffer size to go by.
inline constexpr std::size_t kExportedValueLimit = 255;

// SnmpGetR with the size of the caller's buffer: a string or OID value is copied only as far
// as value_size reaches. Integer letters always write 4 bytes.
DWORD GetValue(const char *ip, const char *oid_text, char type, void *value, std::size_t value_size,
               int logflag);

// SnmpSetR: value is the text, or points to the 32-bit integer for 'i' and 't'.
DWORD SetValue(const char *ip, const char *oid_text, char type, const void *value);

// The address of slot index of UpsIp, or nullptr for an index outside the table.
const char *SlotAddress(int index);

}  // namespace snmplumi
