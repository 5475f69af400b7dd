#pragma once

namespace snmplumi {

// strerror for any thread: the text lives in a buffer of the calling thread.
const char *ErrnoText(int error_number);

}  // namespace snmplumi
