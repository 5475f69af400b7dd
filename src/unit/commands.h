// What the unit's command handlers share: the retry loops over the UPS table and the host's
// three-hex-digit lengths.
#pragma once

#include <cstddef>
#include <cstdio>

#include "snmplumi.h"

namespace snmplumi {

inline constexpr int kNoUps = SNMPLUMI_UPS_SLOTS;  // "no configured UPS"

// The first slot whose address is not the unused marker, or kNoUps.
int FirstConfiguredUps();

// A GET of one object of slot index, tried up to GetRetryMax times; no-server and no-access end
// the tries at once, logging error_line (printf: the number given, the counter) with the result
// as code. 1 when no try was made.
DWORD GetWithRetries(int index, int shown, const char *oid_text, char letter, void *value,
                     std::size_t value_size, const char *error_line);

// The same for a SET, up to SetRetryMax times.
DWORD SetWithRetries(int index, int shown, const char *oid_text, char letter, const void *value,
                     const char *error_line);

// A SET to slot 0, whatever it holds, then to every configured slot 1 to 129, each with its own
// tries; the result of the last one.
DWORD SetOnEveryUps(const char *oid_text, char letter, const void *value, const char *first_line,
                    const char *other_line);

// Writes an answer and its length ("%03x") into the handler's strings.
void Answer(char *Data, char *DataLen, const char *text);

}  // namespace snmplumi
