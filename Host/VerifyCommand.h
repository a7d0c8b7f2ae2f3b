// kestrin-capture verify: a take checked against its frame-hash sidecar, read from the disk.
#pragma once

namespace KTN {

// The exit status of a check that could not be made: no sidecar, not a finished movie,
// being written, unreadable, a bad option.
constexpr int kVerifyCouldNotCheck = 6;

// Runs `verify [--write] MOVIE`; argv[0] is "verify" and the rest its arguments. 0 when the
// movie matches its sidecar (or, with --write, its sidecar was written), its line on
// standard output; 1 when it differs, kVerifyCouldNotCheck when nothing was checked, each
// with one line on standard error.
int RunVerify(int argc, char** argv);

}  // namespace KTN
