// A command's options read from its command line by the table of CommandOptions.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Host/CommandOptions.h"

namespace KTN {

// One option as given: its long name (whatever form was typed) and its value ("" for a switch).
struct GivenOption {
  std::string name;
  std::string value;
};

// What a command line held: the options in the order given, the operands in order, and when
// the line was refused, the one line that says why ("record: unknown option --secnds (did
// you mean --seconds?)").
struct ParsedOptions {
  std::vector<GivenOption> given;
  std::vector<std::string> operands;
  std::string problem;

  // Whether the option of that long name was given.
  bool Has(const char* longName) const {
    for (const GivenOption& option : given) {
      if (option.name == longName) return true;
    }
    return false;
  }
  // The value it was last given; "" when it was not.
  std::string Value(const char* longName) const {
    std::string value;
    for (const GivenOption& option : given) {
      if (option.name == longName) value = option.value;
    }
    return value;
  }
};

// Reads options with glibc's getopt_long, so that they behave as every Linux user expects:
// "--seconds 5" and "--seconds=5" alike, "-yo MOVIE", a unique abbreviation of a long name,
// options after operands, and "--" ending the options. getopt_long keeps its state in
// globals: call it from one thread at a time (the program's main thread).
class OptionParser {
 public:
  enum class Result { kParsed, kHelp, kBad };

  // argv[0] is the command's name and argv[1..argc-1] its arguments; getopt_long reorders
  // argv (options first). kHelp as soon as --help or -h is read (what follows is not checked), kBad
  // with parsed.problem set for an unknown option, a value missing or given to a switch.
  static Result Parse(const CommandDescription& command, int argc, char** argv, ParsedOptions& parsed);

  // What each command does first: parses argv for the command named name (one of
  // CommandOptions::Commands()). True when the command goes on with parsed. False when it is
  // done, with its exit status in *status: 0 once its --help was said on standard output, or
  // what refuse returned once it said parsed.problem in the command's own way.
  static bool Read(const char* name, int argc, char** argv, ParsedOptions& parsed, int* status,
                   const std::function<int(const std::string& problem)>& refuse);

  // The long option of command nearest to what was typed ("--secnds", "--verify=yes"), as
  // "--seconds", when it is near enough to be what was meant; "" otherwise.
  static std::string Nearest(const CommandDescription& command, const std::string& typed);

  // The command nearest to what was typed ("recrd": "record"), when it is near enough to be
  // what was meant; "" otherwise.
  static std::string NearestCommand(const std::string& typed);

  // The least number of characters inserted, removed or replaced to turn a into b.
  static size_t EditDistance(const std::string& a, const std::string& b);
};

}  // namespace KTN
