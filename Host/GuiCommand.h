// kestrin-capture gui: the capture window.
#pragma once

namespace KTN {

// Runs the capture window; argc/argv are the options after "gui". Returns the exit status.
int RunCaptureWindow(int argc, char** argv);

}  // namespace KTN
