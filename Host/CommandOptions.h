// The host program's commands and their options, as one table of data.
#pragma once

#include <string>
#include <vector>

namespace KTN {

// One option of a command. Names are without their dashes; a value name is empty for an
// option that takes no value.
struct CommandOption {
  const char* longName;   // e.g. "seconds" for --seconds
  char shortName;         // e.g. 'o' for -o; 0 when there is none
  const char* valueName;  // e.g. "SECONDS"; "" for a switch
  const char* help;       // one line, for --help
  const char* missing;    // the line said when the value is missing; "" for "--NAME needs a value"
  bool required;          // shown without brackets in the usage line
};

// One command: its name, the operands it reads after its options, a one-line purpose and
// its options in the order they are shown.
struct CommandDescription {
  const char* name;      // e.g. "record"
  const char* operands;  // e.g. "MOVIE"; "" for none
  const char* purpose;
  std::vector<CommandOption> options;
};

// One word of an option's value name, split at '|': typed when it is what the user types as it
// stands ("json", "16", "progressive": lower case and digits only), not when it stands for what
// the user chooses ("NAME", "ROW", "HH:MM:SS:FF").
struct ValueWord {
  std::string text;
  bool typed;
};

// One exit status of the program and what it means, in one line for the man page and the
// last object of record --progress json.
struct ExitStatusMeaning {
  int status;
  const char* meaning;
};

// The table, and every text made from it: usage lines, --help and the program's help. The
// man page and the shell completion are made from Commands() too. Read only; safe from any
// thread.
class CommandOptions {
 public:
  // Every command, in the order the program's help lists them.
  static const std::vector<CommandDescription>& Commands();

  // Every exit status the program ends with, in order.
  static const std::vector<ExitStatusMeaning>& ExitStatuses();
  // What status means; "" for a status the program never ends with.
  static const char* ExitMeaning(int status);

  // The command named name, or nullptr.
  static const CommandDescription* Find(const std::string& name);

  // The option of command with that long name, or nullptr.
  static const CommandOption* FindOption(const CommandDescription& command, const std::string& longName);

  // lead and "kestrin-capture record -o|--output MOVIE [--standard NAME|ROW] ...", wrapped
  // at 100 columns with its continuation lines indented under the first option; ends in '\n'.
  static std::string UsageLine(const CommandDescription& command, const std::string& lead = "");

  // "kestrin-capture report [-o|--output PNG] [--json] MOVIE": the usage line unwrapped, for
  // a one-line answer.
  static std::string Synopsis(const CommandDescription& command);

  // "usage: " and every command's usage line.
  static std::string ProgramUsage();

  // What a bad command line is answered with on standard error: "kestrin-capture: " and
  // problem (no line when it is empty), then the usage of command, or of every command when
  // command is null, and where the help is.
  static std::string Refusal(const std::string& problem, const CommandDescription* command);

  // A command's --help: its usage line, its purpose and one line for each option.
  static std::string Help(const CommandDescription& command);

  // kestrin-capture --help: the commands with their purposes, and the program's options.
  static std::string ProgramHelp();

  // The words of a value name: "line|json" is two typed words, "NAME|ROW" two to replace.
  static std::vector<ValueWord> ValueWords(const std::string& valueName);

  // "--seconds SECONDS" or "-y, --overwrite": how an option is shown in --help.
  static std::string Shown(const CommandOption& option);
};

}  // namespace KTN
