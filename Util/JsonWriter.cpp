// JSON text built member by member.
#include "Util/JsonWriter.h"

#include <math.h>
#include <stdio.h>

#include <algorithm>
#include <charconv>
#include <system_error>

namespace KTN {
namespace Util {

void JsonWriter::Separate() {
  if (mAfterKey) {
    mAfterKey = false;
    return;
  }
  if (!mHasMember.empty()) {
    if (mHasMember.back()) mText.push_back(',');
    mHasMember.back() = true;
  }
}

void JsonWriter::Open(char bracket) {
  Separate();
  mText.push_back(bracket);
  mHasMember.push_back(false);
}

void JsonWriter::Close(char bracket) {
  mText.push_back(bracket);
  if (!mHasMember.empty()) mHasMember.pop_back();
  mAfterKey = false;
}

JsonWriter& JsonWriter::BeginObject() {
  Open('{');
  return *this;
}

JsonWriter& JsonWriter::EndObject() {
  Close('}');
  return *this;
}

JsonWriter& JsonWriter::BeginArray() {
  Open('[');
  return *this;
}

JsonWriter& JsonWriter::EndArray() {
  Close(']');
  return *this;
}

JsonWriter& JsonWriter::Key(const std::string& name) {
  Separate();
  mText += Quoted(name);
  mText.push_back(':');
  mAfterKey = true;
  return *this;
}

JsonWriter& JsonWriter::String(const std::string& text) {
  Separate();
  mText += Quoted(text);
  return *this;
}

JsonWriter& JsonWriter::StringOrNull(const std::string& text) { return text.empty() ? Null() : String(text); }

JsonWriter& JsonWriter::Integer(int64_t value) {
  Separate();
  mText += std::to_string(static_cast<long long>(value));
  return *this;
}

JsonWriter& JsonWriter::Double(double value, int decimals) {
  if (!isfinite(value)) return Null();
  Separate();
  // std::to_chars ignores the locale, which a Qt application sets from the user's (a decimal
  // comma is not JSON's). The largest double has 309 digits before its point.
  char text[400];
  const std::to_chars_result written =
      std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, std::max(0, std::min(17, decimals)));
  if (written.ec != std::errc()) return Null();
  std::string number(text, written.ptr);
  // "-0.000": a value that rounds to nothing has no sign.
  if (number.find_first_of("123456789") == std::string::npos && !number.empty() && number[0] == '-') number.erase(0, 1);
  mText += number;
  return *this;
}

JsonWriter& JsonWriter::Bool(bool value) {
  Separate();
  mText += value ? "true" : "false";
  return *this;
}

JsonWriter& JsonWriter::Null() {
  Separate();
  mText += "null";
  return *this;
}

namespace {

// The length of the well-formed UTF-8 sequence at text[at] (1 to 4), or 0 when the bytes there
// are not one: a stray continuation byte, a sequence cut short, an overlong form, a surrogate
// or a value past U+10FFFF.
size_t Utf8Length(const std::string& text, size_t at) {
  const unsigned char lead = static_cast<unsigned char>(text[at]);
  if (lead < 0x80) return 1;
  size_t length = 0;
  unsigned value = 0, least = 0;
  if ((lead & 0xE0) == 0xC0) {
    length = 2, value = lead & 0x1F, least = 0x80;
  } else if ((lead & 0xF0) == 0xE0) {
    length = 3, value = lead & 0x0F, least = 0x800;
  } else if ((lead & 0xF8) == 0xF0) {
    length = 4, value = lead & 0x07, least = 0x10000;
  } else {
    return 0;
  }
  if (at + length > text.size()) return 0;
  for (size_t i = 1; i < length; ++i) {
    const unsigned char next = static_cast<unsigned char>(text[at + i]);
    if ((next & 0xC0) != 0x80) return 0;
    value = (value << 6) | (next & 0x3F);
  }
  if (value < least || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) return 0;
  return length;
}

}  // namespace

std::string JsonWriter::WellFormed(const std::string& text) {
  std::string formed;
  formed.reserve(text.size());
  for (size_t at = 0; at < text.size();) {
    const size_t length = Utf8Length(text, at);
    if (length == 0) {
      formed += "\xEF\xBF\xBD";  // U+FFFD, the replacement character
      ++at;
    } else {
      formed.append(text, at, length);
      at += length;
    }
  }
  return formed;
}

std::string JsonWriter::Quoted(const std::string& raw) {
  // A path or a card's name may hold any bytes; JSON text is UTF-8.
  const std::string text = WellFormed(raw);
  std::string quoted = "\"";
  for (char c : text) {
    const unsigned char byte = static_cast<unsigned char>(c);
    switch (c) {
      case '"':
        quoted += "\\\"";
        break;
      case '\\':
        quoted += "\\\\";
        break;
      case '\b':
        quoted += "\\b";
        break;
      case '\f':
        quoted += "\\f";
        break;
      case '\n':
        quoted += "\\n";
        break;
      case '\r':
        quoted += "\\r";
        break;
      case '\t':
        quoted += "\\t";
        break;
      default:
        if (byte < 0x20) {
          char escape[8];
          snprintf(escape, sizeof escape, "\\u%04x", byte);
          quoted += escape;
        } else {
          quoted.push_back(c);
        }
    }
  }
  return quoted + "\"";
}

}  // namespace Util
}  // namespace KTN
