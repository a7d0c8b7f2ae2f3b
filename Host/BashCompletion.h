// The bash completion of kestrin-capture, made from the host program's option table.
#pragma once

#include <string>

namespace KTN {

// The script is plain bash (complete -F with a function of its own, none of the
// bash-completion package's helpers), so that sourcing it in a bare bash is enough. It
// completes the commands, each command's long and short options, the words of a value that
// is one of a list ("line|json"), the names of the standards and formats (spaces in them
// escaped, or left as they are inside a quote the user opened), and paths for the options
// and operands that name files, for "--opt value" and "--opt=value" alike. No state; any
// thread.
class BashCompletion {
 public:
  // What a value of an option, or an operand, is completed with.
  enum class Values { kNone, kSwitch, kList, kStandard, kFormat, kFile, kFolder };

  // The whole script.
  static std::string Script();

  // How the value of option is completed (kSwitch for an option without a value).
  static Values ValuesOf(const char* longName, const char* valueName);

  // text quoted for bash in single quotes: 'HD 1080i 50'.
  static std::string Quoted(const std::string& text);
};

}  // namespace KTN
