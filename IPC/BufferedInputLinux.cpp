// Buffered input of a GNU C library stream: the bytes between its read pointer and read end.
#include "IPC/BufferedInput.h"

namespace KTN {

bool HasBufferedInput(FILE* stream) {
  return stream && stream->_IO_read_ptr < stream->_IO_read_end;
}

}  // namespace KTN
