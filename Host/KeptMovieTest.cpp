// What an ended take's movie holds: a lost take says where it went; a file that is no movie says so.
#include "Host/KeptMovie.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "Util/ScratchFolder.h"

namespace KTN {
namespace {

namespace fs = std::filesystem;

TEST(KeptMovieTest, ATakeWhoseFolderOrFileWasRemovedIsLostAndSaysWhy) {
  Util::ScratchFolder folder;
  fs::create_directories(folder.File("day 1"));
  EXPECT_EQ("the take is lost: " + folder.File("day 1/take.mov") + " was removed while it was recorded",
            KeptMovie(folder.File("day 1/take.mov"), "").Incomplete());
  fs::remove_all(folder.File("day 1"));
  EXPECT_EQ("the take is lost: its folder " + folder.File("day 1") + " was removed while it was recorded",
            KeptMovie(folder.File("day 1/take.mov"), "01:00:00:00").Incomplete());
}

TEST(KeptMovieTest, AFileThatIsNoMovieIsNotComplete) {
  Util::ScratchFolder folder;
  { std::ofstream(folder.File("take.mov")) << "not a movie"; }
  EXPECT_EQ("the movie was not written: it has no movie header", KeptMovie(folder.File("take.mov"), "").Incomplete());
  EXPECT_EQ("the movie holds no frame", KeptMovie(folder.File("take.mov"), "").WhatIsKept(true));
}

}  // namespace
}  // namespace KTN
