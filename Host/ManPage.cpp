// The manual page kestrin-capture(1), made from the host program's option table.
#include "Host/ManPage.h"

#include <string.h>

#include "Host/CommandOptions.h"

namespace KTN {

namespace {

// Text that copies back as typed: its dashes as \- (ASCII dashes in every output). A word
// holding one is started with \% by its caller, so that it is never hyphenated.
std::string Literal(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (c == '-') {
      out += "\\-";
    } else if (c == '\\') {
      out += "\\e";
    } else {
      out += c;
    }
  }
  return out;
}

std::string Bold(const std::string& text) { return "\\fB" + Literal(text) + "\\fR"; }
std::string Italic(const std::string& text) { return "\\fI" + Literal(text) + "\\fR"; }

// "NAME|ROW" in italics (words to replace), "line|json" and "2|8|16" in bold (words to type).
std::string ValueShown(const std::string& valueName) {
  std::string out;
  for (const ValueWord& word : CommandOptions::ValueWords(valueName)) {
    out += (out.empty() ? "" : "|") + (word.typed ? Bold(word.text) : Italic(word.text));
  }
  return out;
}

// "-o|--output MOVIE" as a usage line shows it, in brackets unless it is required; the
// spaces inside are unbreakable so that a line breaks only between options.
std::string InSynopsis(const CommandOption& option) {
  std::string text;
  if (option.shortName) text += Bold(std::string("-") + option.shortName) + "|";
  text += Bold(std::string("--") + option.longName);
  if (*option.valueName) text += "\\ " + ValueShown(option.valueName);
  return "\\%" + (option.required ? text : "[" + text + "]");
}

// "-o, --output MOVIE" as --help shows it, for the option's .TP tag.
std::string InList(const CommandOption& option) {
  std::string text = "\\%";
  if (option.shortName) text += Bold(std::string("-") + option.shortName) + ", \\%";
  text += Bold(std::string("--") + option.longName);
  if (*option.valueName) text += " " + ValueShown(option.valueName);
  return text;
}

// A one-line purpose from the table as a sentence.
std::string Sentence(const char* purpose) {
  std::string text = purpose;
  if (!text.empty()) text[0] = static_cast<char>(toupper(static_cast<unsigned char>(text[0])));
  return ManPage::Escaped(text + ".");
}

// One file or variable of the FILES and ENVIRONMENT sections.
void Entry(std::string& page, const std::string& tag, const std::string& text) {
  page += ".TP\n\\%" + tag + "\n" + ManPage::Escaped(text) + "\n";
}

}  // namespace

std::string ManPage::Escaped(const std::string& text) {
  std::string out;
  bool inQuote = false;  // within `...`
  for (size_t start = 0; start < text.size();) {
    // One word at a time, with the white space after it.
    size_t end = text.find_first_of(" \t\n", start);
    if (end == std::string::npos) end = text.size();
    std::string word;
    bool literal = inQuote;  // a word typed as it is: never hyphenated, its dashes ASCII
    bool inOption = false;   // from a dash that starts an option ("-y", "(--frames")
    char before = ' ';
    for (size_t i = start; i < end; ++i) {
      const char c = text[i];
      if (c == '`') {
        word += inQuote ? "\\fR" : "\\fB";
        inQuote = !inQuote;
        literal = literal || inQuote;
      } else if (c == '-' && (inQuote || inOption || before == ' ' || before == '(' || before == '[' || before == '`')) {
        word += "\\-";
        inOption = !inQuote;
        literal = true;
      } else if (c == '\\') {
        word += "\\e";
      } else {
        word += c;
      }
      before = c;
    }
    out += (literal ? "\\%" : "") + word;
    start = end;
    while (start < text.size() && (text[start] == ' ' || text[start] == '\t' || text[start] == '\n')) out += text[start++];
  }
  if (inQuote) out += "\\fR";
  // A text line that starts with a control character would be read as a request.
  std::string guarded;
  for (size_t start = 0; start < out.size();) {
    size_t end = out.find('\n', start);
    if (end == std::string::npos) end = out.size();
    if (out[start] == '.' || out[start] == '\'') guarded += "\\&";
    guarded += out.substr(start, end - start);
    if (end < out.size()) guarded += "\n";
    start = end + 1;
  }
  return guarded;
}

std::string ManPage::Text(const std::string& version) {
  const std::vector<CommandDescription>& commands = CommandOptions::Commands();
  std::string page =
      ".\\\" kestrin-capture(1), made by kestrin-capture-docs from the host program's option table.\n"
      ".TH KESTRIN\\-CAPTURE 1 \"\" \"Kestrin Capture " + version + "\" \"User Commands\"\n"
      ".SH NAME\n"
      "kestrin\\-capture \\- record a Kestrin Veldran card's picture and sound into QuickTime movies\n"
      ".SH SYNOPSIS\n";
  for (const CommandDescription& command : commands) {
    page += ".SY kestrin\\-capture\n" + Bold(command.name) + "\n";
    for (const CommandOption& option : command.options) {
      if (strcmp(option.longName, "help") != 0) page += InSynopsis(option) + "\n";
    }
    if (*command.operands) page += Italic(command.operands) + "\n";
    page += ".YS\n";
  }
  page += ".SY kestrin\\-capture\n" + Italic("COMMAND") + " \\%" + Bold("--help") + "\n.YS\n";
  page += ".SY kestrin\\-capture\n\\%" + Bold("--help") + "|" + Bold("--version") + "\n.YS\n";

  page += ".SH DESCRIPTION\n" +
          Escaped("`kestrin-capture` loads the Kestrin Capture plug-in bundle and drives it the way the video editor "
                  "does: it records takes from the card into QuickTime movies, lists what the card receives, "
                  "gives a take that was cut off its index, checks a finished take against its frame hashes, "
                  "says what a take holds, and opens the capture window.") +
          "\n.PP\n" +
          Escaped("Without --plugin it finds its bundle beside itself first, then at "
                  "`../lib/kestrin-capture/KestrinCapture.bundle` from its own folder. Options are read by "
                  "getopt_long: a value is given as `--seconds 5` or `--seconds=5`, a long option may be "
                  "shortened while it stays unique, options may follow the movie, and -- ends them.") +
          "\n.PP\n" +
          Escaped("Every failure is said in one line on standard error, and the exit status says what it was "
                  "(see EXIT STATUS).") +
          "\n";

  page += ".SH COMMANDS\n";
  for (const CommandDescription& command : commands) {
    page += ".SS " + std::string(command.name) + "\n" + Sentence(command.purpose) + "\n";
    for (const CommandOption& option : command.options) {
      page += ".TP\n" + InList(option) + "\n" + Escaped(option.help) + "\n";
    }
  }
  page += ".SS \"Options of the program\"\n.TP\n\\%" + Bold("-h") + ", \\%" + Bold("--help") + "\n" +
          Escaped("say the commands with their purposes, and exit") + "\n.TP\n\\%" + Bold("--version") + "\n" +
          Escaped("say the versions of the program, FFmpeg and Qt, and exit") + "\n";

  page += ".SH \"EXIT STATUS\"\n";
  for (const ExitStatusMeaning& exit : CommandOptions::ExitStatuses()) {
    page += ".TP\n" + Bold(std::to_string(exit.status)) + "\n" + Escaped(exit.meaning) + "\n";
  }

  page += ".SH FILES\n";
  Entry(page, Italic("$XDG_CONFIG_HOME/kestrin-design/kestrin-capture.settings"),
        "the settings `record` records with, which its --standard, --format, --channels and --bits change");
  Entry(page, Italic("$XDG_CONFIG_HOME/kestrin-design/KestrinCapture.ini"),
        "the plug-in's user defaults, as its settings dialog leaves them");
  Entry(page, Italic("MOVIE.framehash"),
        "beside each movie: one line per packet of its pictures and sound, the frame hashes `verify` checks "
        "the movie against (`verify --write` makes it for a movie that has none)");
  Entry(page, Italic("MOVIE.levels"), "beside each movie: each picture's luma and each sound channel's peak and RMS");
  Entry(page, Italic("MOVIE.events"),
        "beside each movie: the signal's events as they were found, one JSON line each (black, freeze, silence, "
        "clipping, dropped frames and timecode breaks)");
  Entry(page, Italic("MOVIE.verify"),
        "beside each movie: the outcome of its last check by `verify`, `record --verify` or the capture window");
  Entry(page, Italic("MOVIE.report.png"), "beside each movie `record` makes: its report, drawn");
  Entry(page, Italic("/Library/Application Support/Kestrin Design/Kestrin Veldran/VeldranAPI.bundle"),
        "the card's device API, where the plug-in looks for it");

  page += ".SH ENVIRONMENT\n";
  Entry(page, Bold("XDG_CONFIG_HOME"),
        "the folder of the settings files above; $HOME/.config when it is unset or empty");
  Entry(page, Bold("DISPLAY"), "the X display the capture window (`gui`) opens on; it needs OpenGL");

  page += ".SH \"SEE ALSO\"\n.BR ffprobe (1)\n";
  return page;
}

}  // namespace KTN
