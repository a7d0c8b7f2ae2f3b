// Movie paths: relative ones are made absolute against the current folder; unwritable ones are named.
#include "Host/MoviePath.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "Util/ScratchFolder.h"

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

}  // namespace
}  // namespace KTN
