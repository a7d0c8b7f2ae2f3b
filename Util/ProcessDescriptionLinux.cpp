// Who a process is, in the user's words: its short name and its user, read from /proc.
#include "Util/ProcessDescription.h"

#include <pwd.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

namespace KTN {
namespace Util {

namespace {

// The short name of process pid ("" when it has gone).
std::string ProcessName(long pid) {
  char path[64];
  snprintf(path, sizeof path, "/proc/%ld/comm", pid);
  FILE* file = fopen(path, "re");
  if (!file) return std::string();
  char name[64] = "";
  if (!fgets(name, sizeof name, file)) name[0] = '\0';
  fclose(file);
  name[strcspn(name, "\n")] = '\0';
  return name;
}

// The user running process pid: its name, or its number when it has none.
std::string ProcessUser(long pid) {
  char path[64];
  snprintf(path, sizeof path, "/proc/%ld", pid);
  struct stat info;
  if (stat(path, &info) != 0) return std::string();
  struct passwd entry, *found = nullptr;
  char names[1024];
  if (getpwuid_r(info.st_uid, &entry, names, sizeof names, &found) == 0 && found) return found->pw_name;
  return std::to_string(info.st_uid);
}

}  // namespace

std::string ProcessDescription::Of(long pid) {
  std::string name = ProcessName(pid);
  std::string user = ProcessUser(pid);
  return "process " + std::to_string(pid) + (name.empty() ? std::string() : " (" + name + ")") +
         (user.empty() ? std::string() : " of user " + user);
}

}  // namespace Util
}  // namespace KTN
