// Per-thread scratch memory for the Printer: a 2048-byte wrapping bump allocator per thread.
#pragma once

namespace KTN {
namespace Util {

// Size of each thread's scratch block in bytes.
constexpr unsigned long kPerThreadBufferSize = 2048;

// Returns size writable bytes in the calling thread's block, or null (with an unprefixed
// diagnostic line) when size exceeds the block or memory runs out. The bytes stay intact
// until the same thread's later requests wrap around the block and reach them; nothing is
// freed individually. Allocates only on a thread's first request; blocks are freed when
// their thread ends. Safe from any thread; takes no lock.
void* GetPerThreadBuffer(unsigned long size);

// Creates the two thread-specific keys. Run once per process through the Printer's Once
// by the first GetPerThreadBuffer call.
void InitPerThreadBuffers();

}  // namespace Util
}  // namespace KTN
