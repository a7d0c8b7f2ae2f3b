// The bash completion the build wrote, run in a bare bash as readline runs it: commands,
// options, listed values, standard and format names with their spaces, and paths.
#include "Host/BashCompletion.h"

#include <ctype.h>
#include <string.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "Host/CommandOptions.h"
#include "Testing/ProgramRun.h"
#include "Settings/CaptureTables.h"
#include "Util/ScratchFolder.h"

namespace KTN {
namespace {

using Words = std::set<std::string>;

// What the completion answers for the command line typed up to the cursor at its end, run
// in a bash without any start-up file, in folder: COMP_LINE and COMP_POINT as readline sets
// them, COMP_WORDS and COMP_CWORD split at blanks, and the function called as complete -F
// calls it. Files are completed from working (folder when empty).
Words Completed(const std::string& typed, const std::string& folder, const std::string& working = "") {
  static const char* const kScript =
      "source \"$1\" || exit 3\n"
      "COMP_LINE=$2 COMP_POINT=${#2}\n"
      "read -ra COMP_WORDS <<< \"$COMP_LINE\"\n"
      "[[ $COMP_LINE == *' ' ]] && COMP_WORDS+=('')\n"
      "COMP_CWORD=$(( ${#COMP_WORDS[@]} - 1 ))\n"
      "_kestrin_capture kestrin-capture \"${COMP_WORDS[COMP_CWORD]}\" \"${COMP_WORDS[COMP_CWORD-1]}\" || exit 4\n"
      "(( ${#COMPREPLY[@]} )) && printf '%s\\n' \"${COMPREPLY[@]}\"\n"
      "exit 0\n";
  ProgramRun run = ProgramRun::Of({"bash", "--norc", "--noprofile", "-c", kScript, "bash", KTN_BASH_COMPLETION, typed},
                                  {}, folder, 60, working);
  EXPECT_EQ(0, run.status) << typed << "\n" << run.error;
  EXPECT_EQ("", run.error) << typed;
  Words words;
  for (size_t start = 0, end; (end = run.output.find('\n', start)) != std::string::npos; start = end + 1) {
    words.insert(run.output.substr(start, end - start));
  }
  return words;
}

// text as bash's printf %q writes it: a backslash before every character a shell would
// read as its own.
std::string ShellEscaped(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (!isalnum(static_cast<unsigned char>(c)) && !strchr(",._+:@%/-", c)) out += '\\';
    out += c;
  }
  return out;
}

std::vector<std::string> StandardNames() {
  std::vector<std::string> names;
  for (size_t i = 0; i < kSupportedStandardCount; ++i) {
    if (IsNamedStandardIndex(static_cast<int>(i))) names.push_back(gSupportedStandards[i].name);
  }
  return names;
}

std::vector<std::string> FormatNames() {
  std::vector<std::string> names;
  for (size_t i = 0; i < kSupportedPixelFormatCount; ++i) names.push_back(gSupportedPixelFormats[i].name);
  return names;
}

TEST(BashCompletionTest, CompletesTheCommandsAndTheProgramsOptions) {
  Util::ScratchFolder folder;
  Words expected = {"--help", "--version", "-h"};
  for (const CommandDescription& command : CommandOptions::Commands()) expected.insert(command.name);
  EXPECT_EQ(expected, Completed("kestrin-capture ", folder.Path()));
  EXPECT_EQ((Words{"record", "repair", "report"}), Completed("kestrin-capture re", folder.Path()));
  EXPECT_EQ(Words{"--version"}, Completed("kestrin-capture --v", folder.Path()));
  EXPECT_EQ(Words{}, Completed("kestrin-capture recorder --", folder.Path()));
}

TEST(BashCompletionTest, OffersEveryLongOptionOfEveryCommand) {
  Util::ScratchFolder folder;
  for (const CommandDescription& command : CommandOptions::Commands()) {
    Words longs, all;
    for (const CommandOption& option : command.options) {
      longs.insert(std::string("--") + option.longName);
      all.insert(std::string("--") + option.longName);
      if (option.shortName) all.insert(std::string("-") + option.shortName);
    }
    EXPECT_EQ(longs, Completed(std::string("kestrin-capture ") + command.name + " --", folder.Path())) << command.name;
    EXPECT_EQ(all, Completed(std::string("kestrin-capture ") + command.name + " -", folder.Path())) << command.name;
  }
  const Words seconds = Completed("kestrin-capture record --s", folder.Path());
  EXPECT_EQ((Words{"--seconds", "--standard"}), seconds);
}

TEST(BashCompletionTest, CompletesStandardNamesWithTheirSpacesEscapedOrInTheOpenQuote) {
  Util::ScratchFolder folder;
  Words escaped, quoted, afterEquals;
  for (const std::string& name : StandardNames()) {
    if (name.compare(0, 7, "HD 1080") != 0) continue;
    escaped.insert(ShellEscaped(name));
    quoted.insert(name);
  }
  ASSERT_FALSE(escaped.empty());
  EXPECT_NE(escaped.end(), escaped.find("HD\\ 1080i\\ 50"));
  EXPECT_EQ(escaped, Completed("kestrin-capture record --standard HD\\ 1080", folder.Path()));
  EXPECT_EQ(escaped, Completed("kestrin-capture record --standard=HD\\ 1080", folder.Path()));
  EXPECT_EQ(escaped, Completed("kestrin-capture record -y --stand HD\\ 1080", folder.Path()));
  EXPECT_EQ(quoted, Completed("kestrin-capture record --standard \"HD 1080", folder.Path()));
  EXPECT_EQ(quoted, Completed("kestrin-capture record --standard 'HD 1080", folder.Path()));
  EXPECT_EQ(quoted, Completed("kestrin-capture record --standard=\"HD 1080", folder.Path()));
  EXPECT_EQ(StandardNames().size(), Completed("kestrin-capture record --standard ", folder.Path()).size());
}

TEST(BashCompletionTest, CompletesFormatNamesAfterAnEqualsSignAndAColon) {
  Util::ScratchFolder folder;
  Words escaped;
  for (const std::string& name : FormatNames()) escaped.insert(ShellEscaped(name));
  EXPECT_NE(escaped.end(), escaped.find("ProRes\\ 422\\ \\(HQ\\)"));
  // Readline replaces the text after the '=' (a word break of bash's), so the names come alone.
  EXPECT_EQ(escaped, Completed("kestrin-capture record --format=", folder.Path()));
  EXPECT_EQ(escaped, Completed("kestrin-capture record --format ", folder.Path()));
  // and after the last ':', another word break, only what follows it.
  EXPECT_EQ(Words{"2"}, Completed("kestrin-capture record --format=Uncompressed\\ 10-bit\\ 4:2:", folder.Path()));
  EXPECT_EQ(Words{"Uncompressed 10-bit 4:2:2"},
            Completed("kestrin-capture record --format \"Uncompressed 10-bit 4:2:", folder.Path()));
}

TEST(BashCompletionTest, CompletesTheListedValuesOfAnOption) {
  Util::ScratchFolder folder;
  EXPECT_EQ((Words{"line", "json"}), Completed("kestrin-capture record --progress ", folder.Path()));
  EXPECT_EQ(Words{"json"}, Completed("kestrin-capture record --progress=j", folder.Path()));
  EXPECT_EQ((Words{"2", "8", "16"}), Completed("kestrin-capture record --channels ", folder.Path()));
  EXPECT_EQ((Words{"16", "24", "32"}), Completed("kestrin-capture record --no-audio --bits=", folder.Path()));
  EXPECT_EQ((Words{"tt", "bb", "progressive"}), Completed("kestrin-capture repair --fields ", folder.Path()));
  // A value with nothing to offer is not completed with options or files.
  EXPECT_EQ(Words{}, Completed("kestrin-capture record --seconds ", folder.Path()));
}

TEST(BashCompletionTest, CompletesPathsForMoviesAndFoldersForBundles) {
  Util::ScratchFolder folder;
  const std::string takes = folder.File("takes");
  ASSERT_EQ(0, mkdir(takes.c_str(), 0755));
  for (const char* name : {"take one.mov", "take.mov"}) std::ofstream(takes + "/" + name) << "";
  ASSERT_EQ(0, mkdir((takes + "/Capture.bundle").c_str(), 0755));
  const Words everything = {"take one.mov", "take.mov", "Capture.bundle"};
  EXPECT_EQ(everything, Completed("kestrin-capture report ", folder.Path(), takes));
  EXPECT_EQ((Words{"take one.mov", "take.mov"}), Completed("kestrin-capture verify --write ta", folder.Path(), takes));
  EXPECT_EQ(everything, Completed("kestrin-capture record -yo ", folder.Path(), takes));
  EXPECT_EQ(everything, Completed("kestrin-capture report --output=", folder.Path(), takes));
  EXPECT_EQ(Words{"Capture.bundle"}, Completed("kestrin-capture record --plugin ", folder.Path(), takes));
  // After --, every word is an operand, even one with a dash.
  std::ofstream(takes + "/-dash.mov") << "";
  EXPECT_EQ(Words{"-dash.mov"}, Completed("kestrin-capture report -- -", folder.Path(), takes));
}

}  // namespace
}  // namespace KTN
