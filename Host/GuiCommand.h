// kestrin-capture gui: the capture window.
#pragma once

namespace KTN {

// Runs the capture window; argv[0] is "gui" and the rest its options. Returns the exit status.
int RunCaptureWindow(int argc, char** argv);

}  // namespace KTN
