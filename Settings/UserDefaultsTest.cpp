// Tests of the user defaults store on its INI file.
#include <gtest/gtest.h>

#include <errno.h>
#include <stdio.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "Settings/FakeUserConfigDir.h"
#include "Settings/UserDefaults.h"
#include "Util/CapturedStderr.h"

namespace KTN {
namespace {

using Util::CapturedStderr;

bool IsSmall(int value) {
  return value >= 0 && value < 10;
}

class UserDefaultsTest : public testing::Test {
 protected:
  void SetUp() override {
    mPath = FakeUserConfigDir::Path() + "/store-test/defaults.ini";
    std::filesystem::remove_all(FakeUserConfigDir::Path() + "/store-test");
  }

  void WriteFile(const std::string& text) {
    std::filesystem::create_directories(FakeUserConfigDir::Path() + "/store-test");
    std::ofstream(mPath) << text;
  }

  std::string mPath;
};

TEST_F(UserDefaultsTest, StandardStoreLivesInTheUsersConfigDirectory) {
  EXPECT_EQ(FakeUserConfigDir::Path() + "/kestrin-design/KestrinCapture.ini", UserDefaults::Standard().Path());
}

TEST_F(UserDefaultsTest, UnsetKeysReadAsTheRegisteredDefaultOrZero) {
  UserDefaults store(mPath);
  EXPECT_EQ(0, store.IntegerForKey("a"));
  const UserDefaults::Registration registrations[] = {{"a", 42, nullptr}};
  store.RegisterDefaults(registrations, 1);
  EXPECT_EQ(42, store.IntegerForKey("a"));
  EXPECT_FALSE(std::filesystem::exists(mPath)) << "registered defaults stay in memory";
}

TEST_F(UserDefaultsTest, SetValuesAreSeenAtOnceAndPersistOnSynchronize) {
  UserDefaults store(mPath);
  store.SetInteger("a", -5);
  EXPECT_EQ(-5, store.IntegerForKey("a"));
  EXPECT_FALSE(std::filesystem::exists(mPath));
  EXPECT_EQ(0, store.Synchronize());
  UserDefaults reader(mPath);
  EXPECT_EQ(-5, reader.IntegerForKey("a"));
}

TEST_F(UserDefaultsTest, StoredValueTheValidatorRefusesReadsAsUnset) {
  WriteFile("[General]\nsmall=12\n");
  UserDefaults store(mPath);
  const UserDefaults::Registration registrations[] = {{"small", 3, IsSmall}};
  store.RegisterDefaults(registrations, 1);
  CapturedStderr captured;
  EXPECT_EQ(3, store.IntegerForKey("small"));
  EXPECT_EQ("*** IntegerForKey[#]: Ignoring small = 12 in " + mPath + ": not a valid value\n", captured.Text());
}

TEST_F(UserDefaultsTest, StoredTextThatIsNotAnIntegerReadsAsUnset) {
  WriteFile("[General]\nsmall=seven\nbig=99999999999\n");
  UserDefaults store(mPath);
  const UserDefaults::Registration registrations[] = {{"small", 3, IsSmall}, {"big", 4, nullptr}};
  store.RegisterDefaults(registrations, 2);
  CapturedStderr captured;
  EXPECT_EQ(3, store.IntegerForKey("small"));
  EXPECT_EQ(4, store.IntegerForKey("big"));
  EXPECT_EQ("*** ReadStored[#]: Ignoring small = \"seven\" in " + mPath +
                ": not an integer\n*** ReadStored[#]: Ignoring big = \"99999999999\" in " + mPath +
                ": not an integer\n",
            captured.Text());
}

TEST_F(UserDefaultsTest, AcceptedStoredValueIsReturned) {
  WriteFile("[General]\nsmall=7\n");
  UserDefaults store(mPath);
  const UserDefaults::Registration registrations[] = {{"small", 3, IsSmall}};
  store.RegisterDefaults(registrations, 1);
  EXPECT_EQ(7, store.IntegerForKey("small"));
}

TEST_F(UserDefaultsTest, SynchronizeFailureIsReportedAndKeepsTheValues) {
  // A regular file where the store's folder should be: the file cannot be written.
  std::filesystem::create_directories(FakeUserConfigDir::Path() + "/store-test");
  std::ofstream(FakeUserConfigDir::Path() + "/store-test/blocked") << "x";
  std::string path = FakeUserConfigDir::Path() + "/store-test/blocked/defaults.ini";
  UserDefaults store(path);
  store.SetInteger("a", 9);
  CapturedStderr captured;
  EXPECT_EQ(EACCES, store.Synchronize());
  EXPECT_EQ("*** WriteStored[#]: QSettings::sync(" + path + ") failed: the file cannot be written\n",
            captured.Text());
  EXPECT_EQ(9, store.IntegerForKey("a")) << "the value is kept for this process";
}

}  // namespace
}  // namespace KTN
