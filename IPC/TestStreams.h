// Test support: real FILE streams preloaded with input, and the text written to an output stream.
#pragma once

#include <stdio.h>

#include <string>

namespace KTN {

// A temporary file holding text, positioned at its start. The caller closes it.
FILE* InputStream(const std::string& text);
// A fresh, empty temporary file for writing. The caller closes it.
FILE* OutputStream();
// Everything written to stream so far.
std::string WrittenText(FILE* stream);

}  // namespace KTN
