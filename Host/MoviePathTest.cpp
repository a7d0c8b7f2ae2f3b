// Movie paths: relative ones are made absolute against the current folder; unwritable ones are named.
#include "Host/MoviePath.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "Util/ScratchFolder.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "Movie/MovieLock.h"

namespace KTN {
namespace {

namespace fs = std::filesystem;

TEST(MoviePathTest, ARelativePathIsMadeAbsoluteAgainstTheCurrentFolder) {
  Util::ScratchFolder folder;
  const fs::path before = fs::current_path();
  fs::current_path(folder.Path());
  std::string path = "take 1.mov", problem;
  EXPECT_TRUE(MoviePath::MakeAbsolute(path, &problem));
  fs::current_path(before);
  EXPECT_EQ(fs::canonical(folder.Path()).string() + "/take 1.mov", path);
  EXPECT_EQ("", problem);
  std::string absolute = "/already/there.mov";
  EXPECT_TRUE(MoviePath::MakeAbsolute(absolute, nullptr));
  EXPECT_EQ("/already/there.mov", absolute);
}

TEST(MoviePathTest, EachPathAMovieCannotBeWrittenAtHasItsReason) {
  Util::ScratchFolder folder;
  fs::create_directories(folder.File("a folder.mov"));
  { std::ofstream(folder.File("a file")) << "x"; }
  struct Case {
    std::string path;
    std::string reason;
  } cases[] = {
      {folder.File("take.mov"), ""},
      {folder.File("a folder.mov"), "it is a folder"},
      {folder.File("missing/take.mov"), "there is no folder " + folder.File("missing")},
      {folder.File("a file/take.mov"), folder.File("a file") + " is not a folder"},
      {folder.File("line\nbreak.mov"), "a movie path cannot hold a line break"},
      {"", "no movie path was given"},
  };
  for (const Case& c : cases) EXPECT_EQ(c.reason, MoviePath::Problem(c.path)) << c.path;
  if (geteuid() != 0) {  // root writes anywhere
    fs::permissions(folder.Path(), fs::perms::owner_write, fs::perm_options::remove);
    EXPECT_EQ("cannot write in " + folder.Path() + ": Permission denied", MoviePath::Problem(folder.File("take.mov")));
    fs::permissions(folder.Path(), fs::perms::owner_write, fs::perm_options::add);
  }
}

TEST(MoviePathTest, OnlyARegularFileNobodyWritesCanBeRecordedOver) {
  Util::ScratchFolder folder;
  ASSERT_EQ(0, mkfifo(folder.File("fifo.mov").c_str(), 0644));
  EXPECT_EQ("it is a FIFO, not a regular file", MoviePath::Problem(folder.File("fifo.mov")));
  EXPECT_FALSE(MoviePath::Exists(folder.File("fifo.mov")));
  EXPECT_EQ("it is a character device, not a regular file", MoviePath::Problem("/dev/null"));
  EXPECT_FALSE(MoviePath::Exists("/dev/null"));
  // An earlier take is there: it may be written over once the user says so.
  { std::ofstream(folder.File("earlier.mov")) << "x"; }
  EXPECT_EQ("", MoviePath::Problem(folder.File("earlier.mov")));
  EXPECT_TRUE(MoviePath::Exists(folder.File("earlier.mov")));
  EXPECT_FALSE(MoviePath::Exists(folder.File("new.mov")));
  // A take another process is writing never is, and the writer is named.
  int ready[2];
  ASSERT_EQ(0, pipe(ready));
  pid_t writer = fork();
  if (writer == 0) {
    int fd = open(folder.File("earlier.mov").c_str(), O_RDWR);
    char locked = fd >= 0 && MovieLock::TryLock(fd) == 0 ? 'y' : 'n';
    if (write(ready[1], &locked, 1) != 1) _exit(1);
    pause();
    _exit(0);
  }
  char locked = 0;
  ASSERT_EQ(1, read(ready[0], &locked, 1));
  EXPECT_EQ('y', locked);
  std::string problem = MoviePath::Problem(folder.File("earlier.mov"));
  kill(writer, SIGKILL);
  waitpid(writer, nullptr, 0);
  close(ready[0]);
  close(ready[1]);
  EXPECT_EQ(0u, problem.find("it is being written by process " + std::to_string(writer))) << problem;
}

}  // namespace
}  // namespace KTN
