// The user defaults file on Linux: an INI file kept with QSettings in the user's config directory.
#include <errno.h>

#include <QSettings>
#include <QStandardPaths>
#include <QString>
#include <QVariant>

#include "Settings/UserDefaults.h"
#include "Util/Log.h"

namespace KTN {

namespace {

const char kDefaultsFile[] = "/kestrin-design/KestrinCapture.ini";

QString Key(const std::string& key) {
  return QString::fromStdString(key);
}

}  // namespace

// $XDG_CONFIG_HOME (or ~/.config)/kestrin-design/KestrinCapture.ini, fixed at first use.
UserDefaults& UserDefaults::Standard() {
  static UserDefaults* sStandard = new UserDefaults(
      QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation).toStdString() + kDefaultsFile);
  return *sStandard;
}

// The file is read afresh on every lookup, so another host process's choices are seen
// and nothing is cached that could go stale.
bool UserDefaults::ReadStored(const std::string& key, int& value) {
  QSettings file(QString::fromStdString(mPath), QSettings::IniFormat);
  QVariant stored = file.value(Key(key));
  if (!stored.isValid()) return false;
  bool ok = false;
  int number = stored.toString().trimmed().toInt(&ok);
  if (!ok) {
    KTN_LOG("Ignoring %s = \"%s\" in %s: not an integer", key.c_str(),
            stored.toString().toUtf8().constData(), mPath.c_str());
    return false;
  }
  value = number;
  return true;
}

// QSettings writes to a temporary file and renames it over the old one, so a crash while
// saving leaves either the old or the new choices, never a torn file.
long UserDefaults::WriteStored(const std::map<std::string, int>& values) {
  QSettings file(QString::fromStdString(mPath), QSettings::IniFormat);
  for (const auto& entry : values) file.setValue(Key(entry.first), entry.second);
  file.sync();
  switch (file.status()) {
    case QSettings::NoError:
      return 0;
    case QSettings::AccessError:
      KTN_LOG("QSettings::sync(%s) failed: the file cannot be written", mPath.c_str());
      return EACCES;
    case QSettings::FormatError:
      KTN_LOG("QSettings::sync(%s) failed: the file is not in INI form", mPath.c_str());
      return EINVAL;
  }
  return EIO;
}

}  // namespace KTN
