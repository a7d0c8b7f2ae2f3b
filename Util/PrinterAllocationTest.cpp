// Proves that the Printer allocates nothing per formatted string after a thread's first request.
// Counts every malloc, calloc and realloc of this process by standing in for them.
#include <gtest/gtest.h>

#include <stdlib.h>

#include <atomic>
#include <thread>

#include "Util/FourCC.h"
#include "Util/Printer.h"

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
}

namespace {
std::atomic<long> gAllocations{0};
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
extern "C" void* malloc(size_t size) {
  gAllocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(size);
}
extern "C" void* calloc(size_t count, size_t size) {
  gAllocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_calloc(count, size);
}
extern "C" void* realloc(void* block, size_t size) {
  gAllocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_realloc(block, size);
}
#endif

namespace KTN {
namespace Util {
namespace {

// Formats with every Printer function; returns a checksum so nothing is optimised away.
size_t FormatEverything(int i) {
  size_t sum = 0;
  sum += Printer::Unknown(i)[0];
  sum += Printer::PixelFormat(FourCC("v210"))[0];
  sum += Printer::PixelFormat(i)[0];
  sum += Printer::Mode(FourCC("Hp25"))[0];
  sum += Printer::Mode(i)[0];
  sum += Printer::BundleName("/a/b/VeldranAPI.bundle")[0];
  sum += Printer::StringList("a\0bc\0")[0];
  sum += Printer::FixedShort(static_cast<unsigned short>(i))[0];
  sum += Printer::Fcc(i)[0];
  sum += Printer::Fcc(static_cast<int>(FourCC("2vuy")))[0];
  return sum;
}

TEST(PrinterAllocationTest, NoAllocationAfterAThreadsFirstRequest) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer owns malloc";
#endif
  long firstRequest = 0, afterwards = 0;
  size_t sum = 0;
  std::thread fresh([&] {
    long before = gAllocations.load();
    sum += FormatEverything(0);
    firstRequest = gAllocations.load() - before;
    before = gAllocations.load();
    for (int i = 1; i < 20000; ++i) sum += FormatEverything(i);
    afterwards = gAllocations.load() - before;
  });
  fresh.join();
  EXPECT_NE(0u, sum);
  EXPECT_GE(firstRequest, 2) << "the first request allocates the block and its offset";
  EXPECT_EQ(0, afterwards) << "allocations while formatting 200000 strings";
}

TEST(PrinterAllocationTest, TheCounterSeesAllocations) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer owns malloc";
#endif
  void* (*volatile allocate)(size_t) = malloc;
  long before = gAllocations.load();
  free(allocate(32));
  EXPECT_EQ(1, gAllocations.load() - before);
}

}  // namespace
}  // namespace Util
}  // namespace KTN
