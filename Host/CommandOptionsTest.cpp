// The host program's options: the table's help, getopt_long's forms of an option, and the
// nearest option suggested for one mistyped.
#include "Host/CommandOptions.h"

#include <gtest/gtest.h>

#include <stdlib.h>

#include <string>
#include <vector>

#include "Host/OptionParser.h"

namespace KTN {
namespace {

// A command line as main hands it on: the command's name first. getopt_long reorders the
// pointers, so the words are kept apart from them.
class CommandLine {
 public:
  CommandLine(const std::string& command, std::vector<std::string> arguments) : mWords(std::move(arguments)) {
    mWords.insert(mWords.begin(), command);
    for (std::string& word : mWords) mPointers.push_back(&word[0]);
    mPointers.push_back(nullptr);
  }
  OptionParser::Result Parse(ParsedOptions& parsed) {
    const CommandDescription* command = CommandOptions::Find(mWords[0]);
    EXPECT_NE(nullptr, command) << mWords[0];
    return OptionParser::Parse(*command, static_cast<int>(mWords.size()), mPointers.data(), parsed);
  }

 private:
  std::vector<std::string> mWords;
  std::vector<char*> mPointers;
};

TEST(CommandOptionsTest, EveryCommandsHelpListsItsOptions) {
  ASSERT_EQ(6u, CommandOptions::Commands().size());
  for (const CommandDescription& command : CommandOptions::Commands()) {
    for (const char* asked : {"--help", "-h"}) {
      ParsedOptions parsed;
      EXPECT_EQ(OptionParser::Result::kHelp, CommandLine(command.name, {asked}).Parse(parsed)) << command.name << " " << asked;
    }
    const std::string help = CommandOptions::Help(command);
    EXPECT_EQ(0u, help.find(std::string("usage: kestrin-capture ") + command.name)) << help;
    for (const CommandOption& option : command.options) {
      EXPECT_NE(std::string::npos, help.find(CommandOptions::Shown(option) + "  ")) << command.name << " --" << option.longName << "\n" << help;
      EXPECT_NE(std::string::npos, help.find(option.help)) << command.name << " --" << option.longName;
    }
  }
  const std::string program = CommandOptions::ProgramHelp();
  for (const CommandDescription& command : CommandOptions::Commands()) {
    EXPECT_NE(std::string::npos, program.find(std::string("  ") + command.name + " ")) << program;
  }
}

TEST(CommandOptionsTest, UsageLinesStayNarrowAndNameEveryOption) {
  for (const CommandDescription& command : CommandOptions::Commands()) {
    const std::string usage = CommandOptions::UsageLine(command, "usage: ");
    for (size_t start = 0, end; (end = usage.find('\n', start)) != std::string::npos; start = end + 1) {
      EXPECT_LE(end - start, 100u) << usage;
    }
    for (const CommandOption& option : command.options) {
      if (std::string(option.longName) == "help") continue;
      EXPECT_NE(std::string::npos, usage.find(std::string("--") + option.longName)) << usage;
    }
  }
  const std::string all = CommandOptions::ProgramUsage();
  for (size_t start = 0, end; (end = all.find('\n', start)) != std::string::npos; start = end + 1) {
    EXPECT_LE(end - start, 100u) << all;
  }
  EXPECT_NE(std::string::npos, CommandOptions::ProgramUsage().find("-o|--output MOVIE [--standard NAME|ROW]"));
}

TEST(CommandOptionsTest, AValueGivenWithEqualsOrApartIsTheSame) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"--seconds=5", "-o", "t.mov"}, std::vector<std::string>{"--seconds", "5", "-o", "t.mov"},
        std::vector<std::string>{"-ot.mov", "--seconds", "5"}, std::vector<std::string>{"--output=t.mov", "--sec=5"}}) {
    ParsedOptions parsed;
    ASSERT_EQ(OptionParser::Result::kParsed, CommandLine("record", arguments).Parse(parsed)) << parsed.problem;
    ASSERT_EQ(2u, parsed.given.size());
    for (const GivenOption& given : parsed.given) {
      if (given.name == "seconds") {
        EXPECT_EQ("5", given.value);
      } else {
        EXPECT_EQ("output", given.name);
        EXPECT_EQ("t.mov", given.value);
      }
    }
    EXPECT_TRUE(parsed.operands.empty());
  }
}

TEST(CommandOptionsTest, OptionsMayFollowTheOperandAndDoubleDashEndsThem) {
  ParsedOptions parsed;
  ASSERT_EQ(OptionParser::Result::kParsed, CommandLine("repair", {"take.mov", "--fields", "tt"}).Parse(parsed));
  ASSERT_EQ(1u, parsed.given.size());
  EXPECT_EQ("fields", parsed.given[0].name);
  EXPECT_EQ("tt", parsed.given[0].value);
  EXPECT_EQ(std::vector<std::string>{"take.mov"}, parsed.operands);

  ASSERT_EQ(OptionParser::Result::kParsed, CommandLine("repair", {"--timecode", "01:00:00:00", "--", "--fields", "-"}).Parse(parsed));
  ASSERT_EQ(1u, parsed.given.size());
  EXPECT_EQ("timecode", parsed.given[0].name);
  EXPECT_EQ((std::vector<std::string>{"--fields", "-"}), parsed.operands);

  ASSERT_EQ(OptionParser::Result::kParsed, CommandLine("verify", {"--", "--help"}).Parse(parsed)) << "a movie named --help";
  EXPECT_EQ(std::vector<std::string>{"--help"}, parsed.operands);
  // POSIXLY_CORRECT makes getopt stop at the first operand; the options after it still count.
  setenv("POSIXLY_CORRECT", "1", 1);
  const OptionParser::Result result = CommandLine("verify", {"take.mov", "--write"}).Parse(parsed);
  unsetenv("POSIXLY_CORRECT");
  ASSERT_EQ(OptionParser::Result::kParsed, result);
  ASSERT_EQ(1u, parsed.given.size());
  EXPECT_EQ("write", parsed.given[0].name);
  EXPECT_EQ(std::vector<std::string>{"take.mov"}, parsed.operands);
}

TEST(CommandOptionsTest, AnUnknownOptionIsNamedWithTheNearestKnownOne) {
  struct Case {
    const char* command;
    std::vector<std::string> arguments;
    const char* problem;
  } cases[] = {
      {"record", {"-o", "t.mov", "--secnds", "5"}, "record: unknown option --secnds (did you mean --seconds?)"},
      {"record", {"--overwirte"}, "record: unknown option --overwirte (did you mean --overwrite?)"},
      {"record", {"--verify=yes"}, "record: --verify takes no value"},
      {"record", {"--overwrite=yes"}, "record: --overwrite takes no value"},
      {"verify", {"--write=no", "x.mov"}, "verify: --write takes no value"},
      {"record", {"--colour"}, "record: unknown option --colour"},
      {"record", {"-q"}, "record: unknown option -q"},
      {"record", {"--s", "5"}, "record: option --s is ambiguous (--standard, --seconds)"},
      {"repair", {"--colour", "x.mov"}, "repair: unknown option --colour"},
      {"gui", {"--screenshot-prevew", "p.png"}, "gui: unknown option --screenshot-prevew (did you mean --screenshot-preview?)"},
      {"report", {"x.mov", "--ouput", "p.png"}, "report: unknown option --ouput (did you mean --output?)"},
      {"verify", {"--wirte", "x.mov"}, "verify: unknown option --wirte (did you mean --write?)"},
      {"info", {"--hlep"}, "info: unknown option --hlep (did you mean --help?)"},
  };
  for (const Case& c : cases) {
    ParsedOptions parsed;
    EXPECT_EQ(OptionParser::Result::kBad, CommandLine(c.command, c.arguments).Parse(parsed)) << c.problem;
    EXPECT_EQ(c.problem, parsed.problem);
  }
}

TEST(CommandOptionsTest, AnUnknownCommandIsNamedWithTheNearestKnownOne) {
  EXPECT_EQ("record", OptionParser::NearestCommand("recrd"));
  EXPECT_EQ("report", OptionParser::NearestCommand("reprot"));
  EXPECT_EQ("verify", OptionParser::NearestCommand("verfy"));
  EXPECT_EQ("", OptionParser::NearestCommand("replay"));
  EXPECT_EQ("", OptionParser::NearestCommand("--record"));
  EXPECT_EQ("", OptionParser::NearestCommand(""));
}

// A bad command line is answered with the problem, the command's own usage and where its help
// is; without a command, with every command's usage.
TEST(CommandOptionsTest, ARefusalSaysTheProblemThenTheUsageOfItsCommand) {
  const CommandDescription& report = *CommandOptions::Find("report");
  EXPECT_EQ("kestrin-capture: report needs a MOVIE\nusage: kestrin-capture report [-o|--output PNG] [--json] MOVIE\n"
            "kestrin-capture report --help says every option.\n",
            CommandOptions::Refusal("report needs a MOVIE", &report));
  EXPECT_EQ("kestrin-capture report [-o|--output PNG] [--json] MOVIE", CommandOptions::Synopsis(report));
  const std::string program = CommandOptions::Refusal("unknown command x", nullptr);
  EXPECT_EQ(0u, program.find("kestrin-capture: unknown command x\nusage: kestrin-capture record ")) << program;
  for (const CommandDescription& command : CommandOptions::Commands()) {
    EXPECT_NE(std::string::npos, program.find(std::string("kestrin-capture ") + command.name + " ")) << program;
  }
  EXPECT_EQ(0u, CommandOptions::Refusal("", nullptr).find("usage: "));
}

TEST(CommandOptionsTest, AMissingValueIsSaidAsTheCommandAlwaysSaidIt) {
  struct Case {
    const char* command;
    std::vector<std::string> arguments;
    const char* problem;
  } cases[] = {
      {"record", {"-o"}, "-o needs a movie path"},
      {"record", {"-o", "t.mov", "--plugin"}, "--plugin needs a bundle path"},
      {"record", {"-o", "t.mov", "--seconds"}, "--seconds must be a number of seconds above 0, at most a day"},
      {"repair", {"--timecode"}, "--timecode needs a value"},
      {"gui", {"--grey"}, "--grey needs a value"},
      {"gui", {"-o"}, "-o needs a value"},
  };
  for (const Case& c : cases) {
    ParsedOptions parsed;
    EXPECT_EQ(OptionParser::Result::kBad, CommandLine(c.command, c.arguments).Parse(parsed)) << c.problem;
    EXPECT_EQ(c.problem, parsed.problem);
  }
}

TEST(CommandOptionsTest, EditDistanceCountsInsertionsRemovalsAndReplacements) {
  EXPECT_EQ(0u, OptionParser::EditDistance("seconds", "seconds"));
  EXPECT_EQ(1u, OptionParser::EditDistance("secnds", "seconds"));
  EXPECT_EQ(2u, OptionParser::EditDistance("overwirte", "overwrite"));
  EXPECT_EQ(3u, OptionParser::EditDistance("kitten", "sitting"));
  EXPECT_EQ(5u, OptionParser::EditDistance("", "fives"));
  EXPECT_EQ("", OptionParser::Nearest(*CommandOptions::Find("repair"), "--colour"));
}

}  // namespace
}  // namespace KTN
