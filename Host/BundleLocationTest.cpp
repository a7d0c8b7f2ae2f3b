// The plug-in bundle found beside the program in a build tree, and in lib/kestrin-capture/ of an installed tree.
#include "Host/BundleLocation.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "Util/ScratchFolder.h"

namespace KTN {
namespace {

namespace fs = std::filesystem;

TEST(BundleLocationTest, TheBundleBesideTheProgramComesFirst) {
  Util::ScratchFolder folder;
  fs::create_directories(folder.File("build/KestrinCapture.bundle"));
  fs::create_directories(folder.File("lib/kestrin-capture/KestrinCapture.bundle"));
  EXPECT_EQ(folder.File("build/KestrinCapture.bundle"),
            BundleLocation::ForProgram(folder.File("build/kestrin-capture")));
}

TEST(BundleLocationTest, AnInstalledProgramFindsTheBundleUnderLib) {
  Util::ScratchFolder folder;
  fs::create_directories(folder.File("usr/bin"));
  fs::create_directories(folder.File("usr/lib/kestrin-capture/KestrinCapture.bundle"));
  const std::string found = BundleLocation::ForProgram(folder.File("usr/bin/kestrin-capture"));
  EXPECT_EQ(folder.File("usr/bin/../lib/kestrin-capture/KestrinCapture.bundle"), found);
  EXPECT_TRUE(fs::is_directory(found));
}

TEST(BundleLocationTest, WithNoBundleAnywhereTheBuildTreePlaceIsNamed) {
  Util::ScratchFolder folder;
  fs::create_directories(folder.File("usr/bin"));
  EXPECT_EQ(folder.File("usr/bin/KestrinCapture.bundle"),
            BundleLocation::ForProgram(folder.File("usr/bin/kestrin-capture")));
}

TEST(BundleLocationTest, ThisProgramsOwnPathIsRead) {
  // The test program lies in the build tree, where no bundle is beside it.
  const std::string found = BundleLocation::ForThisProgram();
  EXPECT_NE("KestrinCapture.bundle", found);
  EXPECT_EQ('/', found.front());
}

}  // namespace
}  // namespace KTN
