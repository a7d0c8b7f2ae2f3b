// The host program's copy of the settings blob.
#include "Host/HostSettingsFile.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <filesystem>

namespace KTN {

std::string HostSettingsPath() {
  const char* config = getenv("XDG_CONFIG_HOME");
  std::string base = config && *config ? config : std::string(getenv("HOME") ? getenv("HOME") : ".") + "/.config";
  return base + "/kestrin-design/kestrin-capture.settings";
}

bool LoadHostSettings(CaptureSettings& settings) {
  FILE* file = fopen(HostSettingsPath().c_str(), "rb");
  if (!file) return false;
  CaptureSettings read;
  size_t got = fread(&read, 1, sizeof read, file);
  bool whole = got == sizeof read && fgetc(file) == EOF;
  fclose(file);
  if (!whole) return false;
  settings = read;
  return true;
}

CaptureSettings HostSettingsOrDefaults(std::string* problem) {
  CaptureSettings settings;
  const std::string path = HostSettingsPath();
  struct stat info;
  const bool there = stat(path.c_str(), &info) == 0;
  if (LoadHostSettings(settings) && settings.IsRecordable()) return settings;
  if (there && problem) {
    *problem = "the settings in " + path + " are not valid (" +
               (!S_ISREG(info.st_mode) || info.st_size != static_cast<off_t>(sizeof settings)
                    ? "it is not a " + std::to_string(sizeof settings) + "-byte settings record"
                    : settings.signature != kCaptureSettingsSignature || settings.version != kCaptureSettingsVersion
                          ? std::string("it is not signed as settings of this version")
                          : std::string("no standard and format make its values")) +
               ")";
  }
  settings.SetDefaults();
  return settings;
}

std::string SaveHostSettings(const CaptureSettings& settings) {
  std::string path = HostSettingsPath();
  std::error_code error;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
  std::string temporary = path + ".new";
  FILE* file = fopen(temporary.c_str(), "wb");
  if (!file) return "cannot write " + temporary + ": " + strerror(errno);
  bool written = fwrite(&settings, 1, sizeof settings, file) == sizeof settings;
  written = fclose(file) == 0 && written;
  if (!written || rename(temporary.c_str(), path.c_str()) != 0) return "cannot write " + path + ": " + strerror(errno);
  return std::string();
}

}  // namespace KTN
