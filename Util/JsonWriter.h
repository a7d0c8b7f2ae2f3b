// JSON text built member by member: the one writer of every JSON the host program and the sidecars say.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace KTN {
namespace Util {

// Builds one JSON text in memory, compactly (no spaces, no line feeds), in the order it is
// called: objects, arrays, keys, strings, whole numbers, doubles, booleans and null. Commas
// and the quotes of keys are its business; the caller keeps the nesting right (each Begin
// closed by its End, a Key before each value in an object). Strings are escaped as JSON
// requires: '"' and '\' with a backslash, \b \f \n \r \t by name, any other control
// character (below 0x20) as \u00XX; well-formed UTF-8 is passed through as it is, and a byte
// that is not part of it (a path may hold any bytes) is written as U+FFFD, so that the text
// is always valid JSON. Doubles are written with a fixed number of decimals (std::to_chars:
// a '.' whatever the locale); NaN and the infinities, which JSON cannot hold, as null. A value
// type; one thread at a time.
class JsonWriter {
 public:
  JsonWriter& BeginObject();
  JsonWriter& EndObject();
  JsonWriter& BeginArray();
  JsonWriter& EndArray();
  // An object member's name; the value follows with the next call.
  JsonWriter& Key(const std::string& name);

  JsonWriter& String(const std::string& text);
  // String(text), or null when text is empty (a value not known).
  JsonWriter& StringOrNull(const std::string& text);
  JsonWriter& Integer(int64_t value);
  // decimals: digits after the point, 0 to 17.
  JsonWriter& Double(double value, int decimals = kDecimals);
  JsonWriter& Bool(bool value);
  JsonWriter& Null();

  // The text so far.
  const std::string& Text() const { return mText; }

  // text as a JSON string, quotes included, escaped as above.
  static std::string Quoted(const std::string& text);
  // text with each byte that is not part of well-formed UTF-8 replaced by U+FFFD (as UTF-8):
  // what Quoted writes of it.
  static std::string WellFormed(const std::string& text);

  // Decimals of a double unless told otherwise: a thousandth of a second, of a dB.
  static constexpr int kDecimals = 3;

 private:
  // Writes the comma before a value or a key that follows another in its object or array.
  void Separate();
  void Open(char bracket);
  void Close(char bracket);

  std::string mText;
  std::vector<bool> mHasMember;  // per open object or array: something is in it already
  bool mAfterKey = false;        // a key was written: its value takes no comma
};

}  // namespace Util
}  // namespace KTN
