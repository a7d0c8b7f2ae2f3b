// Test support: every test program, and every process it starts, writes no file beyond 2 GiB.
#include <sys/resource.h>

namespace {

// A recording that ran away (or a test gone wrong) meets this bound instead of filling the
// disk: the writer's next write fails (EFBIG) and the recording ends with that error.
constexpr rlim_t kLargestTestFile = 2ull << 30;

struct FileSizeLimit {
  FileSizeLimit() {
    struct rlimit limit;
    if (getrlimit(RLIMIT_FSIZE, &limit) != 0) return;
    if (limit.rlim_cur != RLIM_INFINITY && limit.rlim_cur <= kLargestTestFile) return;
    limit.rlim_cur = kLargestTestFile;
    setrlimit(RLIMIT_FSIZE, &limit);
  }
} gFileSizeLimit;

}  // namespace
