// One flat JSON object a line, as the take's JSON sidecars hold them: string and whole-number members only.
#pragma once

#include <map>
#include <string>

namespace KTN {

// The events sidecar and the verification sidecar each hold flat JSON objects, one a line:
// members that are strings (escapes \" \\ \/ only, no control characters) or whole
// numbers. Read takes a whole line and refuses anything else (a line cut off mid-write
// included); members of names the reader does not know are kept, so a later writer may add
// some. Quoted writes a string member's value back in the same form. A value type; any thread.
class FlatObject {
 public:
  // Reads line (with or without its feed); false, with nothing kept, for anything but one
  // whole object.
  bool Read(const std::string& line);

  std::map<std::string, std::string> strings;
  std::map<std::string, long long> numbers;

  // A member's value, or fallback when the object has no such member of that type.
  std::string String(const std::string& name, const std::string& fallback = std::string()) const;
  long long Number(const std::string& name, long long fallback = 0) const;

  // text as these lines can hold it: control characters (which the reader refuses, and
  // which JSON would escape in a form it does not read) as spaces, and bytes that are not
  // UTF-8 as U+FFFD (Util::JsonWriter::WellFormed).
  static std::string Flat(const std::string& text);
  // Flat(text) as a JSON string, quotes included: '"' and '\' escaped (Util::JsonWriter).
  static std::string Quoted(const std::string& text);
};

}  // namespace KTN
