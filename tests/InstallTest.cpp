// The installed tree: cmake --install of this build into a staging DESTDIR, whose host program finds its installed bundle by itself, lists the card and records a take; and the Debian package of the same tree.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Util/FourCC.h"
#include "Testing/MovieProbe.h"
#include "Testing/ProgramRun.h"
#include "tests/HostProgramProcess.h"
#include "tests/HostProgramTest.h"

namespace KTN {
namespace {

namespace fs = std::filesystem;

// Runs program (a path, or a name looked up in PATH) with arguments, and DESTDIR set when
// destdir is not empty, for two minutes at most; what it said is kept in files of folder.
ProgramRun RunProgram(const std::string& program, std::vector<std::string> arguments, const std::string& folder,
               const std::string& destdir = std::string()) {
  arguments.insert(arguments.begin(), program);
  std::vector<std::string> settings;
  if (!destdir.empty()) settings.push_back("DESTDIR=" + destdir);
  return ProgramRun::Of(arguments, settings, folder, 120);
}

// The scratch folder (removed after the test however it ends) holds the staging DESTDIR.
class InstallTest : public HostProgramTest {
 protected:
  // Installs this build under mFolder/stage/usr; false (with a test failure) when it did not.
  bool Install() {
    mStage = mFolder + "/stage";
    ProgramRun ran = RunProgram(CMAKE_COMMAND, {"--install", BUILD_DIR, "--prefix", "/usr"}, mFolder, mStage);
    EXPECT_EQ(0, ran.status) << ran.output << ran.error;
    return ran.status == 0;
  }
  std::string Installed(const std::string& path) const { return mStage + "/usr/" + path; }

  // Every file and link the install laid out, as absolute paths on the machine ("/usr/bin/...").
  std::set<std::string> InstalledFiles() const {
    std::set<std::string> files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(mStage)) {
      if (!entry.is_directory() || entry.is_symlink()) files.insert(entry.path().string().substr(mStage.size()));
    }
    return files;
  }

  // Makes the Debian package of this build in mFolder/package with CPack, as scripts/package
  // does; its path, or "" (with a test failure).
  std::string MakePackage() {
    const std::string folder = mFolder + "/package";
    ProgramRun ran = RunProgram(CPACK_COMMAND, {"--config", std::string(BUILD_DIR) + "/CPackConfig.cmake", "-B", folder}, mFolder);
    EXPECT_EQ(0, ran.status) << ran.output << ran.error;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
      if (entry.path().extension() == ".deb") return entry.path().string();
    }
    ADD_FAILURE() << "no .deb in " << folder << "\n" << ran.output;
    return std::string();
  }

  std::string mStage;
};

TEST_F(InstallTest, TheInstallLaysOutTheProgramAndBothBundles) {
  ASSERT_TRUE(Install());
  for (const char* program : {"bin/kestrin-capture", "sbin/install-simulated-card",
                              "lib/kestrin-capture/KestrinCapture.bundle/Contents/Resources/QTRecordServer"}) {
    EXPECT_TRUE(fs::is_regular_file(Installed(program))) << program;
    EXPECT_EQ(0, access(Installed(program).c_str(), X_OK)) << program;
  }
  for (const char* file : {"lib/kestrin-capture/KestrinCapture.bundle/Contents/Linux/KestrinCapture.so",
                           "lib/kestrin-capture/KestrinCapture.bundle/Contents/Resources/Settings.ui",
                           "lib/kestrin-capture/VeldranAPI.bundle/Contents/Linux/VeldranAPI.so"}) {
    EXPECT_TRUE(fs::is_regular_file(Installed(file))) << file;
  }
  // Nothing is installed beside the program: it has to find the bundle under lib/.
  EXPECT_FALSE(fs::exists(Installed("bin/KestrinCapture.bundle")));
}

// man finds the installed page under the prefix, and bash takes the installed completion.
TEST_F(InstallTest, TheInstallHoldsTheManPageAndTheCompletion) {
  ASSERT_TRUE(Install());
  ASSERT_TRUE(fs::is_regular_file(Installed("share/man/man1/kestrin-capture.1.gz")));
  ProgramRun man = RunProgram("man", {"-M", Installed("share/man"), "kestrin-capture"}, mFolder);
  ASSERT_EQ(0, man.status) << man.error;
  EXPECT_NE(std::string::npos, man.output.find("EXIT STATUS")) << man.output;
  EXPECT_NE(std::string::npos, man.output.find("--progress")) << man.output;
  const std::string completion = Installed("share/bash-completion/completions/kestrin-capture");
  ASSERT_TRUE(fs::is_regular_file(completion));
  ProgramRun bash = RunProgram("bash", {"--norc", "-c", "source \"$0\" && complete -p kestrin-capture", completion}, mFolder);
  ASSERT_EQ(0, bash.status) << bash.error;
  EXPECT_NE(std::string::npos, bash.output.find("kestrin-capture")) << bash.output;
}

TEST_F(InstallTest, TheInstalledProgramListsTheCardWithItsInstalledBundle) {
  ASSERT_TRUE(Install());
  ProgramRun ran = RunProgram(Installed("bin/kestrin-capture"), {"info"}, mFolder);
  ASSERT_EQ(0, ran.status) << ran.error;
  EXPECT_NE(std::string::npos, ran.output.find("Card: Kestrin Veldran")) << ran.output;
  EXPECT_NE(std::string::npos, ran.output.find("PAL 4x3")) << ran.output;
}

TEST_F(InstallTest, TheInstalledProgramRecordsATakeWithItsInstalledBundle) {
  ASSERT_TRUE(Install());
  const std::string movie = mFolder + "/take.mov";
  ProgramRun ran = RunProgram(Installed("bin/kestrin-capture"),
                {"record", "-o", movie, "--frames", "5", "--standard", "PAL 4x3", "--format",
                 "Uncompressed 8-bit 4:2:2"},
                mFolder);
  ASSERT_EQ(0, ran.status) << ran.error;
  // How many of the five slots had their picture depends on the machine's load: not asserted.
  const std::vector<std::string> closing = LinesWith(ran.output, " frames to " + movie);
  ASSERT_EQ(1u, closing.size()) << ran.output;
  EXPECT_EQ(0u, closing[0].find("Recorded ")) << closing[0];
  ProbedMovie probed = ProbeMovie(movie, false);
  ASSERT_TRUE(probed.opened);
  EXPECT_EQ(Util::FourCC("2vuy"), probed.video.codecTag);
  EXPECT_EQ(720, probed.video.width);
  EXPECT_EQ(576, probed.video.height);
  // Five slots; a loaded machine may leave some without their picture, never with more.
  EXPECT_GE(probed.video.packets, 1);
  EXPECT_LE(probed.video.packets, 5);
  EXPECT_TRUE(probed.audio.present);
  // The installed recording server wrote the take's frame hashes beside it.
  EXPECT_TRUE(fs::is_regular_file(movie + ".framehash"));
}

// The package holds exactly the files the install lays out, at the same places under /usr.
TEST_F(InstallTest, TheDebianPackageHoldsWhatTheInstallLaysOut) {
  ASSERT_TRUE(Install());
  const std::string deb = MakePackage();
  ASSERT_FALSE(deb.empty());
  ProgramRun listed = RunProgram("dpkg-deb", {"--contents", deb}, mFolder);
  ASSERT_EQ(0, listed.status) << listed.error;
  // "-rwxr-xr-x root/root 642848 2026-11-24 19:31 ./usr/bin/kestrin-capture": files and links
  // (a link's line ends "PATH -> TARGET"), not folders.
  std::set<std::string> packaged;
  std::istringstream lines(listed.output);
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line[0] == 'd') continue;
    size_t at = line.find(" ./");
    ASSERT_NE(std::string::npos, at) << line;
    std::string path = line.substr(at + 2);
    path = path.substr(0, path.find(" -> "));
    packaged.insert(path);
  }
  const std::set<std::string> installed = InstalledFiles();
  EXPECT_FALSE(installed.empty());
  EXPECT_EQ(installed, packaged) << listed.output;
  EXPECT_NE(0u, packaged.count("/usr/bin/kestrin-capture"));
}

// The package names, among its dependencies, the Debian package of every library its programs
// and bundles load, so that apt brings them onto a fresh machine.
TEST_F(InstallTest, TheDebianPackageDependsOnThePackageOfEveryLibraryItLinks) {
  ASSERT_TRUE(Install());
  const std::string deb = MakePackage();
  ASSERT_FALSE(deb.empty());
  ProgramRun control = RunProgram("dpkg-deb", {"--field", deb, "Depends"}, mFolder);
  ASSERT_EQ(0, control.status) << control.error;
  // "libavcodec59 (>= 7:5.0), libc6 (>= 2.34), ...": the names.
  std::set<std::string> depends;
  std::istringstream items(control.output);
  for (std::string item; std::getline(items, item, ',');) {
    item.erase(0, item.find_first_not_of(" \n"));
    depends.insert(item.substr(0, item.find_first_of(" (\n")));
  }
  size_t libraries = 0;
  for (const std::string& file : InstalledFiles()) {
    if (file.find("/bin/kestrin-capture") == std::string::npos && file.find(".so") == std::string::npos &&
        file.find("/QTRecordServer") == std::string::npos) {
      continue;
    }
    // The libraries it names itself; those they load in turn are their packages' to depend on.
    ProgramRun dynamic = RunProgram("readelf", {"--dynamic", mStage + file}, mFolder);
    ASSERT_EQ(0, dynamic.status) << file << ": " << dynamic.error;
    std::set<std::string> needed;
    std::istringstream entries(dynamic.output);
    for (std::string line; std::getline(entries, line);) {
      // " 0x0000000000000001 (NEEDED)             Shared library: [libavformat.so.59]"
      size_t open = line.find("(NEEDED)"), name = line.find('[');
      if (open != std::string::npos && name != std::string::npos) needed.insert(line.substr(name + 1, line.find(']') - name - 1));
    }
    EXPECT_FALSE(needed.empty()) << file;
    ProgramRun ldd = RunProgram("ldd", {mStage + file}, mFolder);
    ASSERT_EQ(0, ldd.status) << file << ": " << ldd.error;
    // "\tlibavformat.so.59 => /lib/x86_64-linux-gnu/libavformat.so.59 (0x...)"
    std::istringstream linked(ldd.output);
    for (std::string line; std::getline(linked, line);) {
      size_t arrow = line.find(" => /");
      if (arrow == std::string::npos) continue;
      const std::string name = line.substr(line.find_first_not_of(" \t"), arrow - line.find_first_not_of(" \t"));
      if (!needed.count(name)) continue;
      const std::string library = line.substr(arrow + 4, line.find(" (", arrow) - arrow - 4);
      // dpkg knows a library by the path its package put it at, which merged /usr may hide.
      std::string owner;
      for (const std::string& path : {library, fs::canonical(library).string(), "/usr" + library,
                                      library.rfind("/usr/", 0) == 0 ? library.substr(4) : library}) {
        ProgramRun searched = RunProgram("dpkg", {"--search", path}, mFolder);
        if (searched.status == 0) {
          owner = searched.output.substr(0, searched.output.find(':'));
          break;
        }
      }
      ASSERT_FALSE(owner.empty()) << library << ", linked by " << file << ", belongs to no Debian package";
      EXPECT_NE(0u, depends.count(owner)) << file << " links " << library << " of " << owner << ", not among: " << control.output;
      ++libraries;
    }
  }
  EXPECT_GE(libraries, 10u);
}

}  // namespace
}  // namespace KTN
