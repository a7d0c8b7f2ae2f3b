// The user's remembered choices: integer values under string keys, kept per user.
#pragma once

#include <stddef.h>

#include <map>
#include <mutex>
#include <string>

namespace KTN {

// A store of integer values that outlives the program. Values set in this process are seen
// at once and reach the file on Synchronize; values the user never set fall back to the
// registered defaults, kept in memory only. A stored value that its key's validator refuses
// (a hand-edited file) reads as unset. Safe from any thread.
class UserDefaults {
 public:
  // Accepts or refuses a stored value for one key.
  using Validator = bool (*)(int value);

  struct Registration {
    const char* key;
    int defaultValue;
    Validator validator;  // null: every integer is accepted
  };

  // The current user's store. Its file lies in the user's configuration directory
  // (see UserDefaultsLinux.cpp for where); returns a borrowed, process-wide instance.
  static UserDefaults& Standard();

  // A store kept in the file at path.
  explicit UserDefaults(std::string path);
  ~UserDefaults();

  UserDefaults(const UserDefaults&) = delete;
  UserDefaults& operator=(const UserDefaults&) = delete;

  // Registers fallback values (and validators) for keys; later registrations of a key win.
  void RegisterDefaults(const Registration* registrations, size_t count);
  // The value set in this process, else the stored one the key's validator accepts, else
  // the registered default, else 0.
  int IntegerForKey(const char* key);
  // Sets a value; it reaches the file on the next Synchronize.
  void SetInteger(const char* key, int value);
  // Writes the values set since the last Synchronize to the file. Returns 0, or an errno
  // value with one failure line naming the file.
  long Synchronize();

  const std::string& Path() const { return mPath; }

 private:
  // Reads the stored value of key; false when absent or not a 32-bit integer.
  bool ReadStored(const std::string& key, int& value);
  // Writes values to the file and flushes it; 0 or an errno value.
  long WriteStored(const std::map<std::string, int>& values);

  const std::string mPath;

  // Protects mRegistered and mPending.
  std::mutex mLock;
  std::map<std::string, Registration> mRegistered;
  std::map<std::string, int> mPending;  // set in this process, not yet synchronized
};

}  // namespace KTN
