// The bash completion of kestrin-capture, made from the host program's option table.
#include "Host/BashCompletion.h"

#include <string.h>

#include <vector>

#include "Host/CommandOptions.h"
#include "Settings/CaptureTables.h"

namespace KTN {

namespace {

// The words of a value name that lists what may be typed ("tt|bb|progressive", "2|8|16");
// none for a name that stands for what the user chooses ("NAME|ROW", "HH:MM:SS:FF").
std::vector<std::string> ListedWords(const std::string& valueName) {
  const std::vector<ValueWord> parts = CommandOptions::ValueWords(valueName);
  std::vector<std::string> words;
  for (const ValueWord& part : parts) {
    if (parts.size() < 2 || !part.typed) return {};
    words.push_back(part.text);
  }
  return words;
}

const char* KindWord(BashCompletion::Values values) {
  switch (values) {
    case BashCompletion::Values::kNone:
      return "any";
    case BashCompletion::Values::kSwitch:
      return "";
    case BashCompletion::Values::kList:
      return "list";
    case BashCompletion::Values::kStandard:
      return "standard";
    case BashCompletion::Values::kFormat:
      return "format";
    case BashCompletion::Values::kFile:
      return "file";
    case BashCompletion::Values::kFolder:
      return "folder";
  }
  return "any";
}

// Reads the line up to the cursor itself, as readline does, rather than from COMP_WORDS:
// bash splits those at every character of COMP_WORDBREAKS ('=' and ':' among them), which
// would cut "--format=Uncompressed 10-bit 4:2:2" into five words. What the reply replaces
// is readline's word, though: the text after an opening quote still open, otherwise after
// the last unquoted break character. So every candidate is made whole (the option, its
// value) and cut where readline's word starts.
const char* const kCompletionFunction = R"BASH(
# Completes the word before the cursor: the command, an option, an option's value or an
# operand, in COMPREPLY as readline inserts it.
_kestrin_capture() {
  local line=${COMP_LINE:0:COMP_POINT}
  local breaks=${COMP_WORDBREAKS-$' \t\n"\'><=;|&(:'}
  local -a words=() candidates=() longs=() shorts=() choices=()
  local word= quote= inword= atQuote=0 atBreak=0 c i
  for ((i = 0; i < ${#line}; i++)); do
    c=${line:i:1}
    if [[ -n $quote ]]; then
      if [[ $c == "$quote" ]]; then
        quote=
      elif [[ $quote == '"' && $c == '\' && ${line:i+1:1} == [\$\`\"\\] ]]; then
        ((i++))
        word+=${line:i:1}
      else
        word+=$c
      fi
    elif [[ $c == '\' ]]; then
      ((i++))
      word+=${line:i:1}
      inword=1
    elif [[ $c == [[:space:]] ]]; then
      [[ -n $inword ]] && words+=("$word")
      word= inword= atBreak=0
    elif [[ $c == [\"\'] ]]; then
      quote=$c inword=1 atQuote=${#word}
    else
      word+=$c
      inword=1
      [[ $breaks == *"$c"* ]] && atBreak=${#word}
    fi
  done
  local cur=$word from=$atBreak
  [[ -n $quote ]] && from=$atQuote
  COMPREPLY=()
  (( ${#words[@]} >= 1 )) || return 0

  local prefix= value=$cur kind= operand= files= long=
  if (( ${#words[@]} == 1 )); then
    _kestrin_capture_commands
  else
    local command=${words[1]} expect= rest= w j
    _kestrin_capture_command "$command" || return 0
    # What the words between the command and the cursor leave the cursor's word to be.
    for w in "${words[@]:2}"; do
      if [[ -n $expect ]]; then
        expect=
      elif [[ -n $rest ]]; then
        :
      elif [[ $w == -- ]]; then
        rest=1
      elif [[ $w == --*=* ]]; then
        :
      elif [[ $w == --* ]]; then
        _kestrin_capture_long "$command" "$w" && [[ -n $kind ]] && expect=$long
      elif [[ $w == -?* ]]; then
        # Short switches together, up to one that takes a value: the rest of the word, or
        # the next word when it is last.
        for ((j = 1; j < ${#w}; j++)); do
          _kestrin_capture_kind "$command" "-${w:j:1}" || break
          if [[ -n $kind ]]; then
            (( j == ${#w} - 1 )) && expect=-${w:j:1}
            break
          fi
        done
      fi
    done
    kind=
    if [[ -n $expect ]]; then
      _kestrin_capture_kind "$command" "$expect"
    elif [[ -z $rest && $cur == --*=* ]]; then
      _kestrin_capture_long "$command" "${cur%%=*}" || return 0
      prefix=${cur%%=*}= value=${cur#*=}
    elif [[ -z $rest && $cur == -* ]]; then
      candidates=("${longs[@]}")
      [[ $cur == --* ]] || candidates+=("${shorts[@]}")
    else
      kind=$operand
    fi
    case $kind in
      list | standard | format) candidates=("${choices[@]}") ;;
      file) files=1 && mapfile -t candidates < <(compgen -f -- "$value") ;;
      folder) files=1 && mapfile -t candidates < <(compgen -d -- "$value") ;;
    esac
  fi

  for c in "${candidates[@]}"; do
    c=$prefix$c
    [[ $c == "$cur"* ]] || continue
    c=${c:from}
    if [[ -z $files && -n $c ]]; then
      if [[ $quote == '"' ]]; then
        c=${c//\\/\\\\} c=${c//\"/\\\"} c=${c//\$/\\\$} c=${c//\`/\\\`}
      elif [[ -z $quote ]]; then
        printf -v c %q "$c"
      fi
    fi
    COMPREPLY+=("$c")
  done
  # Paths are quoted by readline itself, and a folder is given its slash.
  [[ -n $files ]] && compopt -o filenames 2>/dev/null
  return 0
}

# The long option of command $1 that $2 names, whole or shortened as getopt_long takes it,
# in long, with its kind as _kestrin_capture_kind says; false for none, or more than one.
_kestrin_capture_long() {
  local name
  long=
  for name in "${longs[@]}"; do
    [[ $name == "$2" ]] && long=$name
  done
  if [[ -z $long ]]; then
    for name in "${longs[@]}"; do
      if [[ $name == "$2"* ]]; then
        [[ -n $long ]] && return 1
        long=$name
      fi
    done
  fi
  [[ -n $long ]] && _kestrin_capture_kind "$1" "$long"
}

complete -F _kestrin_capture kestrin-capture
)BASH";

}  // namespace

std::string BashCompletion::Quoted(const std::string& text) {
  std::string out = "'";
  for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

BashCompletion::Values BashCompletion::ValuesOf(const char* longName, const char* valueName) {
  const std::string value = valueName;
  if (value.empty()) return Values::kSwitch;
  if (strcmp(longName, "standard") == 0) return Values::kStandard;
  if (strcmp(longName, "format") == 0) return Values::kFormat;
  if (!ListedWords(value).empty()) return Values::kList;
  if (value == "MOVIE" || value == "PNG" || value == "FILE") return Values::kFile;
  if (value == "BUNDLE") return Values::kFolder;
  return Values::kNone;
}

std::string BashCompletion::Script() {
  const std::vector<CommandDescription>& commands = CommandOptions::Commands();
  std::string script =
      "# bash completion for kestrin-capture(1), made by kestrin-capture-docs from the host program's\n"
      "# option table, as its --help and man page are. Needs nothing but bash: source it, or let\n"
      "# bash-completion load it from its completions folder.\n";

  script += "\n# The commands and the program's own options, in candidates.\n_kestrin_capture_commands() {\n  candidates=(";
  for (const CommandDescription& command : commands) script += std::string(command.name) + " ";
  script += "--help --version -h)\n}\n";

  script +=
      "\n# The options of command $1 in longs and shorts, and the kind of its operands in operand\n"
      "# (\"\" when it takes none); false for no such command.\n"
      "_kestrin_capture_command() {\n  case $1 in\n";
  for (const CommandDescription& command : commands) {
    std::string longs, shorts;
    for (const CommandOption& option : command.options) {
      longs += std::string(longs.empty() ? "" : " ") + "--" + option.longName;
      if (option.shortName) shorts += std::string(shorts.empty() ? "" : " ") + "-" + option.shortName;
    }
    const char* operand = *command.operands ? KindWord(ValuesOf("", command.operands)) : "";
    script += std::string("    ") + command.name + ")\n      longs=(" + longs + ")\n      shorts=(" + shorts +
              ")\n      operand=" + operand + "\n      ;;\n";
  }
  script += "    *) return 1 ;;\n  esac\n}\n";

  script +=
      "\n# The kind of value option $2 (--name or -x) of command $1 takes, in kind: \"\" for a switch,\n"
      "# any (nothing to offer), file, folder, or list, standard and format with its words in\n"
      "# choices; false for no such option.\n"
      "_kestrin_capture_kind() {\n  kind= choices=()\n  case \"$1 $2\" in\n";
  for (const CommandDescription& command : commands) {
    for (const CommandOption& option : command.options) {
      const Values values = ValuesOf(option.longName, option.valueName);
      std::string names = std::string("\"") + command.name + " --" + option.longName + "\"";
      if (option.shortName) names += std::string(" | \"") + command.name + " -" + option.shortName + "\"";
      std::string set = std::string("kind=") + (values == Values::kSwitch ? "''" : KindWord(values));
      if (values == Values::kList) {
        set += " choices=(";
        for (const std::string& word : ListedWords(option.valueName)) set += " " + Quoted(word);
        set += " )";
      } else if (values == Values::kStandard || values == Values::kFormat) {
        set += std::string(" && _kestrin_capture_") + KindWord(values) + "s";
      }
      script += "    " + names + ") " + set + " ;;\n";
    }
  }
  script += "    *) return 1 ;;\n  esac\n}\n";

  script += "\n# The names of the video standards, in choices.\n_kestrin_capture_standards() {\n  choices=(\n";
  for (size_t i = 0; i < kSupportedStandardCount; ++i) {
    if (IsNamedStandardIndex(static_cast<int>(i))) script += "    " + Quoted(gSupportedStandards[i].name) + "\n";
  }
  script += "  )\n}\n";
  script += "\n# The names of the picture formats, in choices.\n_kestrin_capture_formats() {\n  choices=(\n";
  for (size_t i = 0; i < kSupportedPixelFormatCount; ++i) {
    script += "    " + Quoted(gSupportedPixelFormats[i].name) + "\n";
  }
  script += "  )\n}\n";

  return script + kCompletionFunction;
}

}  // namespace KTN
