// The installed tree: cmake --install of this build into a staging DESTDIR, whose host program finds its installed bundle by itself, lists the card and records a take.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "Util/FourCC.h"
#include "Testing/MovieProbe.h"
#include "tests/HostProgramProcess.h"
#include "tests/HostProgramTest.h"

namespace KTN {
namespace {

namespace fs = std::filesystem;

// What a program said and how it ended.
struct Ran {
  int status = -1;
  std::string out, err;
  int Exit() const { return status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1; }
};

// Runs program with arguments (and DESTDIR set when destdir is not empty), its output and
// standard error kept in files of folder, for two minutes at most: one still running then is
// killed and its status is -1.
Ran RunProgram(const std::string& program, const std::vector<std::string>& arguments, const std::string& folder,
               const std::string& destdir = std::string()) {
  const std::string outFile = folder + "/stdout.txt", errFile = folder + "/stderr.txt";
  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(program.c_str()));
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    int out = open(outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    int err = open(errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(out, 1);
    dup2(err, 2);
    if (!destdir.empty()) setenv("DESTDIR", destdir.c_str(), 1);
    execv(program.c_str(), argv.data());
    _exit(127);
  }
  Ran ran;
  ran.status = WaitFor(pid, 120);
  if (ran.status == -1) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }
  ran.out = ReadText(outFile);
  ran.err = ReadText(errFile);
  return ran;
}

// The scratch folder (removed after the test however it ends) holds the staging DESTDIR.
class InstallTest : public HostProgramTest {
 protected:
  // Installs this build under mFolder/stage/usr; false (with a test failure) when it did not.
  bool Install() {
    mStage = mFolder + "/stage";
    Ran ran = RunProgram(CMAKE_COMMAND, {"--install", BUILD_DIR, "--prefix", "/usr"}, mFolder, mStage);
    EXPECT_EQ(0, ran.Exit()) << ran.out << ran.err;
    return ran.Exit() == 0;
  }
  std::string Installed(const std::string& path) const { return mStage + "/usr/" + path; }

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

TEST_F(InstallTest, TheInstalledProgramListsTheCardWithItsInstalledBundle) {
  ASSERT_TRUE(Install());
  Ran ran = RunProgram(Installed("bin/kestrin-capture"), {"info"}, mFolder);
  ASSERT_EQ(0, ran.Exit()) << ran.err;
  EXPECT_NE(std::string::npos, ran.out.find("Card: Kestrin Veldran")) << ran.out;
  EXPECT_NE(std::string::npos, ran.out.find("PAL 4x3")) << ran.out;
}

TEST_F(InstallTest, TheInstalledProgramRecordsATakeWithItsInstalledBundle) {
  ASSERT_TRUE(Install());
  const std::string movie = mFolder + "/take.mov";
  Ran ran = RunProgram(Installed("bin/kestrin-capture"),
                {"record", "-o", movie, "--frames", "5", "--standard", "PAL 4x3", "--format",
                 "Uncompressed 8-bit 4:2:2"},
                mFolder);
  ASSERT_EQ(0, ran.Exit()) << ran.err;
  // How many of the five slots had their picture depends on the machine's load: not asserted.
  const std::vector<std::string> closing = LinesWith(ran.out, " frames to " + movie);
  ASSERT_EQ(1u, closing.size()) << ran.out;
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

}  // namespace
}  // namespace KTN
