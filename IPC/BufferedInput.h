// Whether a read stream already holds input in its buffer, which polling its descriptor cannot see.
#pragma once

#include <stdio.h>

namespace KTN {

// True when the next read from stream will be served from its buffer, without reading its
// descriptor. Platform-specific: it looks into the C library's stream.
bool HasBufferedInput(FILE* stream);

}  // namespace KTN
