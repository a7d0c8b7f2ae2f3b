// One end of the line protocol.
#include "IPC/SimpleEndpointIPC.h"

#include <errno.h>
#include <string.h>

#include "Util/Log.h"

namespace KTN {

long SimpleEndpointIPC::Init(FILE* readStream, FILE* writeStream) {
  mReadStream = readStream;
  mWriteStream = writeStream;
  return 0;
}

long SimpleEndpointIPC::ReadLine(const char*& command, const char*& argument) {
  command = nullptr;
  argument = nullptr;
  // fgets ends what it read with a terminator: in the last byte only when it filled the
  // buffer, which tells a cut line even when the line holds a NUL of its own.
  mLineBuffer[kLineBufferSize - 1] = 'x';
  if (!mReadStream || !fgets(mLineBuffer, sizeof mLineBuffer, mReadStream)) return EIO;
  mLineCut = mLineBuffer[kLineBufferSize - 1] == '\0' && mLineBuffer[kLineBufferSize - 2] != '\n';
  command = mLineBuffer;
  size_t length = strlen(mLineBuffer);
  if (length > 0 && mLineBuffer[length - 1] == '\n') mLineBuffer[length - 1] = '\0';
  // Split at the first space only: the argument keeps any further spaces.
  char* space = strchr(mLineBuffer, ' ');
  if (!space) return 0;
  *space = '\0';
  argument = space + 1;
  return 0;
}

long SimpleEndpointIPC::Acknowledge(const char* command, long status) {
  if (fprintf(mWriteStream, "%s %ld\n", command, status) < 0 && errno != 0) {
    long error = errno;
    KTN_LOG("fprintf returned %ld (%s)", error, strerror(errno));
    return error;
  }
  if (fflush(mWriteStream) != 0 && errno != 0) {
    long error = errno;
    KTN_LOG("fflush returned %ld (%s)", error, strerror(errno));
    return error;
  }
  return 0;
}

}  // namespace KTN
