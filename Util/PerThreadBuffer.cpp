// Per-thread scratch blocks held in thread-specific storage.
#include "Util/PerThreadBuffer.h"

#include <pthread.h>
#include <stdint.h>
#include <stdlib.h>

#include "Core/Once.h"
#include "Util/Log.h"

namespace KTN {
namespace Util {

namespace {

pthread_key_t sPerThreadBufferKey;
pthread_key_t sPerThreadBufferOffsetKey;
// Whether each key was created. A key that was not holds no number of ours: asked with it,
// pthread_getspecific would hand out what another library keeps under that number. Set
// once by InitPerThreadBuffers and read only after sUtilPrinterOnce has run it.
bool sPerThreadBufferKeyCreated = false;
bool sPerThreadBufferOffsetKeyCreated = false;

// Constant-initialised, so it is ready even for callers in other static initialisers; its
// destructor runs at exit.
Core::Once sUtilPrinterOnce(InitPerThreadBuffers);

void* ThreadIdentifier() {
  return reinterpret_cast<void*>(pthread_self());
}

}  // namespace

void InitPerThreadBuffers() {
  // The second key is created even if the first failed: each Printer call falls back
  // on its own when its key is missing.
  if (int rc = pthread_key_create(&sPerThreadBufferKey, free)) {
    LogRaw("pthread_key_create returned %d\n", rc);
  } else {
    sPerThreadBufferKeyCreated = true;
  }
  if (int rc = pthread_key_create(&sPerThreadBufferOffsetKey, free)) {
    LogRaw("pthread_key_create returned %d\n", rc);
  } else {
    sPerThreadBufferOffsetKeyCreated = true;
  }
}

void* GetPerThreadBuffer(unsigned long size) {
  if (size > kPerThreadBufferSize) {
    LogRaw("Per-thread buffer of %lu requested but limit is %lu\n", size, kPerThreadBufferSize);
    return nullptr;
  }
  if (long rc = sUtilPrinterOnce.Call()) {
    LogRaw("Once::Call returned %d\n", static_cast<int>(rc));
    return nullptr;
  }
  // Without both keys there is no block to hand out; their creation has said why, once.
  if (!sPerThreadBufferKeyCreated || !sPerThreadBufferOffsetKeyCreated) return nullptr;
  char* block = static_cast<char*>(pthread_getspecific(sPerThreadBufferKey));
  if (!block) {
    block = static_cast<char*>(malloc(kPerThreadBufferSize));
    if (!block) {
      LogRaw("Failed to allocate %lu byte buffer for thread %p\n", kPerThreadBufferSize, ThreadIdentifier());
      return nullptr;
    }
    if (int rc = pthread_setspecific(sPerThreadBufferKey, block)) {
      LogRaw("pthread_setspecific returned %d\n", rc);
      return nullptr;
    }
  }
  uint64_t* offset = static_cast<uint64_t*>(pthread_getspecific(sPerThreadBufferOffsetKey));
  if (!offset) {
    offset = static_cast<uint64_t*>(calloc(1, sizeof *offset));
    if (!offset) {
      LogRaw("Failed to allocate %lu byte offset buffer for thread %p\n",
             static_cast<unsigned long>(sizeof *offset), ThreadIdentifier());
      return nullptr;
    }
    if (int rc = pthread_setspecific(sPerThreadBufferOffsetKey, offset)) {
      LogRaw("pthread_setspecific returned %d\n", rc);
      return nullptr;
    }
  }
  if (*offset + size > kPerThreadBufferSize) *offset = 0;
  char* result = block + *offset;
  *offset += size;
  return result;
}

}  // namespace Util
}  // namespace KTN
