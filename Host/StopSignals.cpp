// The signals that end a take as the Stop button does, noted by a handler for the program to act on.
#include "Host/StopSignals.h"

#include <signal.h>

#include <initializer_list>

namespace KTN {

namespace {

std::atomic<bool> sReceived{false};

void Note(int) {
  sReceived = true;
}

}  // namespace

void StopSignals::Install() {
  struct sigaction action = {};
  action.sa_handler = Note;
  sigemptyset(&action.sa_mask);
  for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) sigaction(signal, &action, nullptr);
  signal(SIGPIPE, SIG_IGN);
}

const std::atomic<bool>& StopSignals::Received() {
  return sReceived;
}

}  // namespace KTN
