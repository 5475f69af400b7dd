// Helpers of the Win32-style calls that the rest of the library uses directly.
#pragma once

#include <cstddef>

namespace snmplumi {

// Bound on the search for a free temporary name: a missing or read-only directory fails instead
// of looping for ever.
inline constexpr unsigned int kTempNameAttempts = 65536;

// Creates the first free "<dir>/<prefix:3><counter:%4.4x>.TMP", counting up from the tick
// count, and leaves it empty and closed. False when no name could be created or the name does
// not fit dest.
bool CreateTempFile(const char *dir, const char *prefix, char *dest, std::size_t size,
                    unsigned int *counter_used);

}  // namespace snmplumi
