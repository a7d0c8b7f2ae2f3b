// The host program's commands and their options, as one table of data.
#include "Host/CommandOptions.h"

#include <ctype.h>
#include <string.h>

#include <algorithm>

namespace KTN {

namespace {

constexpr size_t kUsageWidth = 100;

// Every command's own --help, last among its options.
const CommandOption kHelpOption = {"help", 'h', "", "say this help and exit", "", false};

std::vector<CommandDescription> MakeCommands() {
  std::vector<CommandDescription> commands = {
      {"record", "", "record a take from the card into a movie, as the editor does",
       {
           {"output", 'o', "MOVIE", "the movie to record into (a new file, unless -y)", "-o needs a movie path", true},
           {"standard", 0, "NAME|ROW", "the video standard, by its name or row in `kestrin-capture info`",
            "--standard needs a name or row", false},
           {"format", 0, "NAME|ROW", "the picture format, by its name or row in `kestrin-capture info`",
            "--format needs a name or row", false},
           {"channels", 0, "2|8|16", "sound channels", "--channels must be 2, 8 or 16", false},
           {"bits", 0, "16|24|32", "bits of each sound sample", "--bits must be 16, 24 or 32", false},
           {"frames", 0, "N", "stop after N frames (above 30 fps, N frame pairs)",
            "--frames must be a whole number from 1", false},
           {"seconds", 0, "SECONDS", "stop after SECONDS seconds (not with --frames)",
            "--seconds must be a number of seconds above 0, at most a day", false},
           {"in", 0, "HH:MM:SS:FF", "start at this timecode of the card (with --frames or --seconds)",
            "--in needs a timecode HH:MM:SS:FF", false},
           {"abort-on-drop", 0, "", "end the take at the first dropped frame", "", false},
           {"no-audio", 0, "", "record pictures only", "", false},
           {"overwrite", 'y', "", "replace a movie that exists already", "", false},
           {"plugin", 0, "BUNDLE", "the plug-in bundle to load", "--plugin needs a bundle path", false},
           {"verify", 0, "", "read the take again from the disk and check it against its frame hashes", "", false},
           {"progress", 0, "line|json",
            "show the progress as a status line on standard error (line, the default) or as JSON lines on "
            "standard output (json)",
            "--progress must be line or json", false},
       }},
      {"info", "", "list what the installed card receives: its standards and formats",
       {
           {"json", 0, "", "say it as one JSON object on standard output", "", false},
       }},
      {"repair", "MOVIE", "give a take that was cut off its ordinary index, in place",
       {
           {"timecode", 0, "HH:MM:SS:FF", "the timecode of its first frame, for its timecode track", "", false},
           {"fields", 0, "tt|bb|progressive", "its field order, when the movie does not say it", "", false},
       }},
      {"verify", "MOVIE", "check a finished take, read from the disk, against its frame hashes",
       {
           {"write", 0, "", "write the frame hashes of a movie that has none", "", false},
       }},
      {"report", "MOVIE", "say what a take holds and what its signal suffered",
       {
           {"output", 'o', "PNG", "draw the report into this picture too", "report: -o needs a PNG path", false},
           {"json", 0, "", "say the report as one JSON object on standard output", "", false},
       }},
      {"gui", "", "the capture window",
       {
           {"output", 'o', "MOVIE", "the movie to record into (capture.mov by default)", "", false},
           {"plugin", 0, "BUNDLE", "the plug-in bundle to load", "", false},
           {"grey", 0, "LEVEL", "the window's grey, 0 to 255", "", false},
           {"screenshot-preview", 0, "PNG", "save the preview after 1.5 s", "", false},
           {"screenshot-options", 0, "PNG", "save the options dialog, then cancel it", "", false},
           {"quit-after", 0, "SECONDS", "close the window after SECONDS seconds", "", false},
           {"record-frames", 0, "N", "record N frames unattended", "", false},
           {"screenshot-recording", 0, "PNG", "save the window while the unattended take runs", "", false},
           {"screenshot-window", 0, "PNG", "save the window once the unattended take ended", "", false},
           {"labels", 0, "FILE", "write the window's labels to FILE once the unattended take ended", "", false},
           {"verify", 0, "", "check each take against its frame hashes once it stops", "", false},
       }},
  };
  for (CommandDescription& command : commands) command.options.push_back(kHelpOption);
  return commands;
}

// What each exit status of the program means, in the order of their numbers.
const std::vector<ExitStatusMeaning> kExitStatuses = {
    {0, "the take was recorded and its movie is complete (or, stopped before its first frame, nothing was recorded "
        "and no movie was left); the command did what was asked"},
    {1, "repair could not repair the file (not a movie, not a regular file, being written, unreadable); verify: the "
        "movie differs from its frame hashes"},
    {2, "a bad option or value (verify: 6), or stored settings that cannot be recorded with (the line names the "
        "file)"},
    {3, "no plug-in, or no capture card"},
    {4, "the capture input could not start"},
    {5, "the movie cannot be written there: no such folder, not a regular file, it exists (without -y), another "
        "process is writing it"},
    {6, "verify could not check the movie, or was given a bad option; report could not report on it or write its "
        "picture"},
    {7, "aborted: frames were dropped and --abort-on-drop was given"},
    {8, "the recording failed mid-take (the server died or hung, the disk is full): the line says what the movie "
        "holds and how to finish it"},
    {9, "timed out: the in-point never came, or the card stopped delivering"},
    {10, "stopping the recording failed"},
    {11, "the signal was already past the in-point: nothing was recorded"},
    {12, "the take was recorded but its movie is not complete: the line says what it holds and the repair command"},
};

// "[-y|--overwrite]", "-o|--output MOVIE", "[--seconds SECONDS]": an option in a usage line.
std::string InUsage(const CommandOption& option) {
  std::string text;
  if (option.shortName) text += std::string("-") + option.shortName + "|";
  text += std::string("--") + option.longName;
  if (*option.valueName) text += std::string(" ") + option.valueName;
  return option.required ? text : "[" + text + "]";
}

}  // namespace

const std::vector<CommandDescription>& CommandOptions::Commands() {
  static const std::vector<CommandDescription> commands = MakeCommands();
  return commands;
}

const std::vector<ExitStatusMeaning>& CommandOptions::ExitStatuses() { return kExitStatuses; }

const char* CommandOptions::ExitMeaning(int status) {
  for (const ExitStatusMeaning& exit : kExitStatuses) {
    if (exit.status == status) return exit.meaning;
  }
  return "";
}

const CommandDescription* CommandOptions::Find(const std::string& name) {
  for (const CommandDescription& command : Commands()) {
    if (name == command.name) return &command;
  }
  return nullptr;
}

const CommandOption* CommandOptions::FindOption(const CommandDescription& command, const std::string& longName) {
  for (const CommandOption& option : command.options) {
    if (longName == option.longName) return &option;
  }
  return nullptr;
}

namespace {

// lead, "kestrin-capture", the command's name, its options and operands, with a line broken
// before a word that would reach past width columns (0: never).
std::string UsageWords(const CommandDescription& command, const std::string& lead, size_t width) {
  std::string line = lead + "kestrin-capture " + command.name;
  const std::string indent(line.size() + 1, ' ');
  std::vector<std::string> words;
  for (const CommandOption& option : command.options) {
    if (strcmp(option.longName, "help") != 0) words.push_back(InUsage(option));
  }
  if (*command.operands) words.push_back(command.operands);
  std::string text;
  for (const std::string& word : words) {
    if (width && line.size() > indent.size() && line.size() + 1 + word.size() > width) {
      text += line + "\n";
      line = indent + word;
    } else {
      line += " " + word;
    }
  }
  return text + line;
}

}  // namespace

std::string CommandOptions::UsageLine(const CommandDescription& command, const std::string& lead) {
  return UsageWords(command, lead, kUsageWidth) + "\n";
}

std::string CommandOptions::Synopsis(const CommandDescription& command) { return UsageWords(command, "", 0); }

std::string CommandOptions::Refusal(const std::string& problem, const CommandDescription* command) {
  std::string text = problem.empty() ? std::string() : "kestrin-capture: " + problem + "\n";
  if (!command) return text + ProgramUsage() + "kestrin-capture --help lists the commands.\n";
  return text + UsageLine(*command, "usage: ") + "kestrin-capture " + command->name + " --help says every option.\n";
}

std::string CommandOptions::ProgramUsage() {
  std::string text;
  for (const CommandDescription& command : Commands()) text += UsageLine(command, text.empty() ? "usage: " : "       ");
  return text;
}

std::vector<ValueWord> CommandOptions::ValueWords(const std::string& valueName) {
  std::vector<ValueWord> words;
  for (size_t start = 0;;) {
    const size_t bar = valueName.find('|', start);
    ValueWord word{valueName.substr(start, bar == std::string::npos ? std::string::npos : bar - start), false};
    word.typed = !word.text.empty();
    for (char c : word.text) word.typed = word.typed && (islower(static_cast<unsigned char>(c)) || isdigit(static_cast<unsigned char>(c)));
    words.push_back(word);
    if (bar == std::string::npos) return words;
    start = bar + 1;
  }
}

std::string CommandOptions::Shown(const CommandOption& option) {
  std::string text = option.shortName ? std::string("-") + option.shortName + ", " : std::string("    ");
  text += std::string("--") + option.longName;
  if (*option.valueName) text += std::string(" ") + option.valueName;
  return text;
}

std::string CommandOptions::Help(const CommandDescription& command) {
  std::string text = UsageLine(command, "usage: ");
  text += std::string("\n") + command.purpose + "\n\noptions:\n";
  size_t width = 0;
  for (const CommandOption& option : command.options) width = std::max(width, Shown(option).size());
  for (const CommandOption& option : command.options) {
    const std::string shown = Shown(option);
    text += "  " + shown + std::string(width - shown.size() + 2, ' ') + option.help + "\n";
  }
  return text;
}

std::string CommandOptions::ProgramHelp() {
  std::string text = "usage: kestrin-capture COMMAND [OPTION...]\n\ncommands:\n";
  size_t width = 0;
  for (const CommandDescription& command : Commands()) width = std::max(width, strlen(command.name));
  for (const CommandDescription& command : Commands()) {
    text += std::string("  ") + command.name + std::string(width - strlen(command.name) + 2, ' ') + command.purpose + "\n";
  }
  text += "\noptions:\n"
          "  -h, --help     say this help and exit\n"
          "      --version  say the versions of the program, FFmpeg and Qt, and exit\n"
          "\nkestrin-capture COMMAND --help says a command's options.\n";
  return text;
}

}  // namespace KTN
