// The user's remembered choices: registration, validation and the values of this process.
#include "Settings/UserDefaults.h"

#include "Util/Log.h"

namespace KTN {

UserDefaults::UserDefaults(std::string path) : mPath(std::move(path)) {}

UserDefaults::~UserDefaults() = default;

void UserDefaults::RegisterDefaults(const Registration* registrations, size_t count) {
  std::lock_guard<std::mutex> guard(mLock);
  for (size_t i = 0; i < count; ++i) mRegistered[registrations[i].key] = registrations[i];
}

int UserDefaults::IntegerForKey(const char* key) {
  std::lock_guard<std::mutex> guard(mLock);
  auto registered = mRegistered.find(key);
  auto pending = mPending.find(key);
  int value = 0;
  bool found = pending != mPending.end() ? (value = pending->second, true) : ReadStored(key, value);
  if (found) {
    if (registered == mRegistered.end() || !registered->second.validator || registered->second.validator(value)) {
      return value;
    }
    KTN_LOG("Ignoring %s = %d in %s: not a valid value", key, value, mPath.c_str());
  }
  return registered != mRegistered.end() ? registered->second.defaultValue : 0;
}

void UserDefaults::SetInteger(const char* key, int value) {
  std::lock_guard<std::mutex> guard(mLock);
  mPending[key] = value;
}

long UserDefaults::Synchronize() {
  std::lock_guard<std::mutex> guard(mLock);
  if (mPending.empty()) return 0;
  if (long rc = WriteStored(mPending)) return rc;
  mPending.clear();
  return 0;
}

}  // namespace KTN
