// The manual page kestrin-capture(1), made from the host program's option table.
#pragma once

#include <string>

namespace KTN {

// The page is roff text in the man macros: its synopsis, commands, options and exit statuses
// all come from CommandOptions, so it never says less or other than --help does. It holds no
// date or build path, so the same table and version make the same bytes. No state; any thread.
class ManPage {
 public:
  // The whole page; version (e.g. "1.0.0") is shown on its title line.
  static std::string Text(const std::string& version);

  // text as roff reads it back unchanged on a text line: backslashes doubled as \e, every
  // dash of a word that starts with one (an option: "--seconds", "-y") written \- so that it
  // copies as the ASCII dash a shell needs, `quoted` words in bold, and a line that would
  // start with a control character ('.' or '\'') guarded by \&.
  static std::string Escaped(const std::string& text);
};

}  // namespace KTN
