// A command's options read from its command line by the table of CommandOptions.
#include "Host/OptionParser.h"

#include <getopt.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

namespace KTN {

namespace {

// getopt_long's value for an option without a short name: above every character.
constexpr int kLongOnly = 0x100;

int OptionValue(const CommandOption& option, size_t index) {
  return option.shortName ? static_cast<unsigned char>(option.shortName) : kLongOnly + static_cast<int>(index);
}

const CommandOption* ByValue(const CommandDescription& command, int value) {
  for (size_t i = 0; i < command.options.size(); ++i) {
    if (OptionValue(command.options[i], i) == value) return &command.options[i];
  }
  return nullptr;
}

// The long names that begin with what was typed after "--", when more than one does.
std::string Ambiguous(const CommandDescription& command, const std::string& typed) {
  if (typed.compare(0, 2, "--") != 0) return "";
  const std::string name = typed.substr(2, typed.find('=') == std::string::npos ? std::string::npos : typed.find('=') - 2);
  std::string matches;
  int count = 0;
  for (const CommandOption& option : command.options) {
    if (!name.empty() && strncmp(option.longName, name.c_str(), name.size()) == 0) {
      matches += (count++ ? ", --" : "--") + std::string(option.longName);
    }
  }
  return count > 1 ? matches : "";
}

}  // namespace

size_t OptionParser::EditDistance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

namespace {

// Of names, the one nearest to name when it is near enough to be a slip of the fingers (two
// edits, or a third of a long name); nullptr otherwise.
const char* NearestName(const std::string& name, const std::vector<const char*>& names) {
  const char* nearest = nullptr;
  size_t best = 0;
  for (const char* candidate : names) {
    const size_t distance = OptionParser::EditDistance(name, candidate);
    if (!nearest || distance < best) {
      nearest = candidate;
      best = distance;
    }
  }
  if (!nearest || (best > 2 && best * 3 > strlen(nearest))) return nullptr;
  return nearest;
}

}  // namespace

std::string OptionParser::Nearest(const CommandDescription& command, const std::string& typed) {
  std::string name = typed.substr(std::min(typed.find_first_not_of('-'), typed.size()));
  name = name.substr(0, name.find('='));
  if (name.empty()) return "";
  std::vector<const char*> names;
  for (const CommandOption& option : command.options) names.push_back(option.longName);
  const char* nearest = NearestName(name, names);
  return nearest ? std::string("--") + nearest : std::string();
}

std::string OptionParser::NearestCommand(const std::string& typed) {
  if (typed.empty() || typed[0] == '-') return "";
  std::vector<const char*> names;
  for (const CommandDescription& command : CommandOptions::Commands()) names.push_back(command.name);
  const char* nearest = NearestName(typed, names);
  return nearest ? nearest : "";
}

bool OptionParser::Read(const char* name, int argc, char** argv, ParsedOptions& parsed, int* status,
                        const std::function<int(const std::string& problem)>& refuse) {
  const CommandDescription& command = *CommandOptions::Find(name);
  switch (Parse(command, argc, argv, parsed)) {
    case Result::kParsed:
      return true;
    case Result::kHelp:
      fputs(CommandOptions::Help(command).c_str(), stdout);
      *status = 0;
      return false;
    case Result::kBad:
      break;
  }
  *status = refuse(parsed.problem);
  return false;
}

OptionParser::Result OptionParser::Parse(const CommandDescription& command, int argc, char** argv, ParsedOptions& parsed) {
  parsed = ParsedOptions();
  std::vector<struct option> longOptions;
  // '-' first: each operand is handed over in its place (1), so options may follow operands
  // even where POSIXLY_CORRECT would stop at the first; then ':': a missing value is told
  // apart from an unknown option, and getopt says nothing.
  std::string shortOptions = "-:";
  for (size_t i = 0; i < command.options.size(); ++i) {
    const CommandOption& option = command.options[i];
    const bool takesValue = *option.valueName != '\0';
    longOptions.push_back({option.longName, takesValue ? required_argument : no_argument, nullptr, OptionValue(option, i)});
    if (option.shortName) shortOptions += std::string(1, option.shortName) + (takesValue ? ":" : "");
  }
  longOptions.push_back({nullptr, 0, nullptr, 0});

  const std::string name = command.name;
  opterr = 0;
  optind = 0;  // glibc starts afresh, its reordering state included
  auto bad = [&parsed](const std::string& problem) {
    parsed.problem = problem;
    return Result::kBad;
  };
  for (int got; (got = getopt_long(argc, argv, shortOptions.c_str(), longOptions.data(), nullptr)) != -1;) {
    // What was typed: the word getopt_long just read, or the one short option of a cluster.
    const std::string word = argv[optind - 1] ? argv[optind - 1] : "";
    if (got == 1) {
      parsed.operands.push_back(optarg);
      continue;
    }
    if (got == ':') {
      const CommandOption* option = ByValue(command, optopt);
      if (!option) return bad(name + ": an option needs a value");
      const std::string typed = word.compare(0, 2, "--") == 0 || !option->shortName ? std::string("--") + option->longName
                                                                                      : std::string("-") + option->shortName;
      return bad(*option->missing ? std::string(option->missing) : typed + " needs a value");
    }
    if (got == '?') {
      // A switch given a value ("--verify=yes"): getopt_long names the switch in optopt.
      const CommandOption* known = ByValue(command, optopt);
      if (known && !*known->valueName && word.compare(0, 2, "--") == 0 && word.find('=') != std::string::npos) {
        return bad(name + ": --" + known->longName + " takes no value");
      }
      // An unknown short option is optopt itself; an unknown long one, or a switch given a
      // value ("--verify=yes"), is the word as typed.
      const bool shortUnknown = optopt > 0 && optopt < kLongOnly && !ByValue(command, optopt);
      const std::string typed = shortUnknown ? std::string("-") + static_cast<char>(optopt) : word;
      const std::string ambiguous = Ambiguous(command, typed);
      if (!ambiguous.empty()) return bad(name + ": option " + typed + " is ambiguous (" + ambiguous + ")");
      const std::string nearest = shortUnknown ? "" : Nearest(command, typed);
      return bad(name + ": unknown option " + typed + (nearest.empty() ? "" : " (did you mean " + nearest + "?)"));
    }
    const CommandOption* option = ByValue(command, got);
    if (!option) return bad(name + ": unknown option " + word);
    if (strcmp(option->longName, "help") == 0) return Result::kHelp;
    parsed.given.push_back({option->longName, optarg ? optarg : ""});
  }
  for (int i = optind; i < argc; ++i) parsed.operands.push_back(argv[i]);  // those after "--"
  return Result::kParsed;
}

}  // namespace KTN
