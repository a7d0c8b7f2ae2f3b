// The man page the build wrote: rendered by man and groff without a warning, naming every
// command, option and exit status of the option table.
#include "Host/ManPage.h"

#include <gtest/gtest.h>

#include <string.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "Host/CommandOptions.h"
#include "Testing/ProgramRun.h"
#include "Util/ScratchFolder.h"

namespace KTN {
namespace {

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// The page as a user reads it in a terminal 100 columns wide, as man renders it for a pipe.
ProgramRun Rendered(const std::string& page, const Util::ScratchFolder& folder) {
  return ProgramRun::Of({"man", "--warnings", "-l", page},
                        {"MANPAGER=cat", "PAGER=cat", "MANWIDTH=100", "LANG=C.UTF-8", "LC_ALL=C.UTF-8"}, folder.Path(),
                        60);
}

// text without white space, dashes of any kind and backquotes: what stays when a rendered
// line is broken, hyphenated or justified, and a `quoted` word is set in bold.
std::string Letters(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (c == ' ' || c == '\n' || c == '\t' || c == '-' || c == '`') continue;
    // U+2010 hyphen and U+2212 minus sign, as groff may render - and \-.
    if (c == 0xe2 && i + 2 < text.size() &&
        ((text[i + 1] == '\x80' && text[i + 2] == '\x90') || (text[i + 1] == '\x88' && text[i + 2] == '\x92'))) {
      i += 2;
      continue;
    }
    out += text[i];
  }
  return out;
}

// The lines of text from the one that is heading up to the next heading at the same or a
// lesser indent.
std::string Section(const std::string& text, const std::string& heading) {
  const size_t indent = heading.find_first_not_of(' ');
  size_t start = text.find("\n" + heading + "\n");
  if (start == std::string::npos) return "";
  start += 1;
  size_t end = text.find('\n', start);
  while (end != std::string::npos && end + 1 < text.size()) {
    const size_t lineStart = end + 1;
    const size_t lineEnd = text.find('\n', lineStart);
    const std::string line = text.substr(lineStart, lineEnd == std::string::npos ? std::string::npos : lineEnd - lineStart);
    const size_t at = line.find_first_not_of(' ');
    if (at != std::string::npos && at <= indent) return text.substr(start, lineStart - start);
    end = lineEnd;
  }
  return text.substr(start);
}

// "-o, --output MOVIE" or "--seconds SECONDS": an option's tag as the page shows it.
std::string Tag(const CommandOption& option) {
  std::string tag = option.shortName ? std::string("-") + option.shortName + ", " : std::string();
  tag += std::string("--") + option.longName;
  if (*option.valueName) tag += std::string(" ") + option.valueName;
  return tag;
}

TEST(ManPageTest, ManRendersItWithoutAWarning) {
  Util::ScratchFolder folder;
  ProgramRun run = Rendered(KTN_MAN_PAGE, folder);
  EXPECT_EQ(0, run.status) << run.error;
  EXPECT_EQ("", run.error);
  EXPECT_NE(std::string::npos, run.output.find("KESTRIN-CAPTURE(1)")) << run.output;
}

TEST(ManPageTest, GroffFindsNothingToWarnAbout) {
  Util::ScratchFolder folder;
  ProgramRun run = ProgramRun::Of({"groff", "-man", "-ww", "-z", KTN_MAN_PAGE}, {}, folder.Path(), 60);
  EXPECT_EQ(0, run.status) << run.error;
  EXPECT_EQ("", run.error);
}

TEST(ManPageTest, TheInstalledPageIsTheSamePageCompressed) {
  Util::ScratchFolder folder;
  ProgramRun page = Rendered(KTN_MAN_PAGE, folder);
  ProgramRun compressed = Rendered(std::string(KTN_MAN_PAGE) + ".gz", folder);
  EXPECT_EQ(0, compressed.status) << compressed.error;
  EXPECT_FALSE(page.output.empty());
  EXPECT_EQ(page.output, compressed.output);
}

TEST(ManPageTest, TheBuiltPageIsTheTablesPageOfThisVersion) {
  const std::string built = ReadFile(KTN_MAN_PAGE);
  EXPECT_EQ(ManPage::Text(KTN_VERSION), built);
  EXPECT_NE(std::string::npos, built.find(".TH KESTRIN\\-CAPTURE 1 \"\" \"Kestrin Capture " KTN_VERSION "\"")) << built;
}

TEST(ManPageTest, NamesEveryCommandOptionAndExitStatusOfTheTable) {
  Util::ScratchFolder folder;
  ProgramRun run = Rendered(KTN_MAN_PAGE, folder);
  ASSERT_EQ(0, run.status) << run.error;
  const std::string& page = run.output;

  const std::string synopsis = Section(page, "SYNOPSIS");
  const std::string commands = Section(page, "COMMANDS");
  ASSERT_FALSE(synopsis.empty()) << page;
  ASSERT_FALSE(commands.empty()) << page;
  for (const CommandDescription& command : CommandOptions::Commands()) {
    EXPECT_NE(std::string::npos, synopsis.find(std::string("       kestrin-capture ") + command.name + " ")) << synopsis;
    const std::string section = Section(commands, std::string("   ") + command.name);
    ASSERT_FALSE(section.empty()) << command.name << "\n" << commands;
    // The purpose is a sentence there, with a capital.
    EXPECT_NE(std::string::npos, Letters(section).find(Letters(command.purpose).substr(1))) << command.name << "\n" << section;
    for (const CommandOption& option : command.options) {
      // Each option is a tag at the start of its line, in ASCII dashes that paste into a shell.
      EXPECT_NE(std::string::npos, section.find("\n       " + Tag(option))) << command.name << " " << Tag(option) << "\n" << section;
      EXPECT_NE(std::string::npos, Letters(section).find(Letters(option.help))) << command.name << " --" << option.longName;
      if (option.required || strcmp(option.longName, "help") == 0) continue;
      std::string inSynopsis = std::string("[") + (option.shortName ? std::string("-") + option.shortName + "|" : "") +
                               "--" + option.longName;
      EXPECT_NE(std::string::npos, synopsis.find(inSynopsis)) << inSynopsis;
    }
  }

  const std::string statuses = Section(page, "EXIT STATUS");
  ASSERT_FALSE(statuses.empty()) << page;
  ASSERT_FALSE(CommandOptions::ExitStatuses().empty());
  for (const ExitStatusMeaning& exit : CommandOptions::ExitStatuses()) {
    const std::string number = std::to_string(exit.status);
    EXPECT_NE(std::string::npos, statuses.find("\n       " + number + std::string(7 - number.size(), ' ')))
        << exit.status << "\n" << statuses;
    EXPECT_NE(std::string::npos, Letters(statuses).find(Letters(number + exit.meaning))) << exit.status;
  }

  const std::string files = Section(page, "FILES");
  for (const char* sidecar : {"MOVIE.framehash", "MOVIE.levels", "MOVIE.events", "MOVIE.verify", "MOVIE.report.png",
                              "$XDG_CONFIG_HOME/kestrin-design/kestrin-capture.settings"}) {
    EXPECT_NE(std::string::npos, files.find(sidecar)) << sidecar << "\n" << files;
  }
  EXPECT_NE(std::string::npos, Section(page, "SEE ALSO").find("ffprobe(1)")) << page;
}

TEST(ManPageTest, EscapesWhatRoffWouldReadAsItsOwn) {
  // Dashes that start an option copy as ASCII and are never hyphenated; others stay hyphens.
  EXPECT_EQ("unless \\%\\-y, a 10-bit take \\%(\\-\\-abort\\-on\\-drop)", ManPage::Escaped("unless -y, a 10-bit take (--abort-on-drop)"));
  EXPECT_EQ("a \\e b", ManPage::Escaped("a \\ b"));
  // A line that would start with a request's dot or quote is guarded.
  EXPECT_EQ("\\&.framehash\n\\&'quoted'", ManPage::Escaped(".framehash\n'quoted'"));
  EXPECT_EQ("in \\%\\fBkestrin\\-capture \\%info\\fR", ManPage::Escaped("in `kestrin-capture info`"));
}

}  // namespace
}  // namespace KTN
