#pragma once

#include <cstdio>

namespace snmplumi {

// Writes line to out the way printf(line) with no arguments would look on this platform, without
// reading a single argument: "%%" prints "%", a numeric conversion prints as if given 0, a text
// conversion (%s, %c) prints as if given "", %m prints the text of errno as it was when the call
// began, %n prints and stores nothing, and text that is no conversion at all is copied as it
// stands. Width and precision above 4096 are cut to 4096.
// Profile rewrites copy their lines this way, so a '%' in a profile file is interpreted.
void WriteLineAsFormat(std::FILE *out, const char *line);

}  // namespace snmplumi
