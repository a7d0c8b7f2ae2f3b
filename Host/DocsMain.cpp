// kestrin-capture-docs: writes kestrin-capture's man page and bash completion, made from its option table.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "Host/BashCompletion.h"
#include "Host/ManPage.h"
#include "Util/FileIo.h"
#include "Util/Log.h"

namespace {

// Writes text to path whole: into a file beside it first, renamed over it once written, so
// that a build that stops half-way never leaves a cut page that looks up to date.
long WriteFile(const std::string& path, const std::string& text) {
  const std::string partial = path + ".partial";
  int fd = open(partial.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) {
    long rc = errno;
    KTN_LOG("open %s: %s", partial.c_str(), strerror(static_cast<int>(rc)));
    return rc;
  }
  long rc = KTN::Util::FileIo::WriteAll(fd, text.data(), text.size());
  if (rc) KTN_LOG("write %s: %s", partial.c_str(), strerror(static_cast<int>(rc)));
  if (close(fd) != 0 && !rc) {
    rc = errno;
    KTN_LOG("close %s: %s", partial.c_str(), strerror(static_cast<int>(rc)));
  }
  if (!rc && rename(partial.c_str(), path.c_str()) != 0) {
    rc = errno;
    KTN_LOG("rename %s to %s: %s", partial.c_str(), path.c_str(), strerror(static_cast<int>(rc)));
  }
  if (rc) unlink(partial.c_str());
  return rc;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: kestrin-capture-docs MAN-PAGE COMPLETION\n");
    return 2;
  }
  if (WriteFile(argv[1], KTN::ManPage::Text(KTN_VERSION))) return 1;
  if (WriteFile(argv[2], KTN::BashCompletion::Script())) return 1;
  return 0;
}
