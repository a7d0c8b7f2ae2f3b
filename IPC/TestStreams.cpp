// Test support: temporary-file streams.
#include "IPC/TestStreams.h"

#include <stdlib.h>

namespace KTN {

FILE* InputStream(const std::string& text) {
  FILE* stream = tmpfile();
  if (!stream) abort();
  fwrite(text.data(), 1, text.size(), stream);
  rewind(stream);
  return stream;
}

FILE* OutputStream() {
  FILE* stream = tmpfile();
  if (!stream) abort();
  return stream;
}

std::string WrittenText(FILE* stream) {
  fflush(stream);
  long end = ftell(stream);
  std::string text(static_cast<size_t>(end), '\0');
  rewind(stream);
  size_t read = fread(&text[0], 1, text.size(), stream);
  text.resize(read);
  fseek(stream, 0, SEEK_END);
  return text;
}

}  // namespace KTN
