// JSON text built member by member.
#include "Util/JsonWriter.h"

#include <math.h>
#include <stdio.h>

#include <algorithm>

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

JsonWriter& JsonWriter::Integer(int64_t value) {
  Separate();
  mText += std::to_string(static_cast<long long>(value));
  return *this;
}

JsonWriter& JsonWriter::Double(double value, int decimals) {
  if (!isfinite(value)) return Null();
  Separate();
  char text[400];
  const int n = snprintf(text, sizeof text, "%.*f", std::max(0, std::min(17, decimals)), value);
  std::string number(text, n > 0 ? std::min(static_cast<size_t>(n), sizeof text - 1) : 0);
  // A locale that writes a decimal comma (one a Qt application may have set) is not JSON's.
  std::replace(number.begin(), number.end(), ',', '.');
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

std::string JsonWriter::Quoted(const std::string& text) {
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
