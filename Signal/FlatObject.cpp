// A flat JSON object of one sidecar line, read and its strings written.
#include "Signal/FlatObject.h"

#include <errno.h>
#include <stdlib.h>

#include "Util/JsonWriter.h"

namespace KTN {
namespace {

// Walks one line's text; each step either takes what it expects or leaves the position.
class Cursor {
 public:
  explicit Cursor(const std::string& text) : mText(text) {}

  char Peek() const { return mAt < mText.size() ? mText[mAt] : '\0'; }
  bool Take(char c) {
    if (Peek() != c) return false;
    ++mAt;
    return true;
  }
  void Skip() {
    while (mAt < mText.size() && (mText[mAt] == ' ' || mText[mAt] == '\t')) ++mAt;
  }
  bool AtEnd() {
    Skip();
    if (Peek() == '\r') ++mAt;
    if (Peek() == '\n') ++mAt;
    return mAt == mText.size();
  }
  bool ReadString(std::string* out) {
    if (!Take('"')) return false;
    while (mAt < mText.size()) {
      char c = mText[mAt++];
      if (c == '"') return true;
      if (c == '\\') {
        if (mAt >= mText.size()) return false;
        c = mText[mAt++];
        if (c != '"' && c != '\\' && c != '/') return false;
      }
      if (static_cast<unsigned char>(c) < 0x20) return false;
      out->push_back(c);
    }
    return false;
  }
  bool ReadNumber(long long* out) {
    const char* start = mText.c_str() + mAt;
    if (*start != '-' && (*start < '0' || *start > '9')) return false;
    char* end = nullptr;
    errno = 0;
    long long value = strtoll(start, &end, 10);
    if (errno || end == start) return false;
    if (*end == '.' || *end == 'e' || *end == 'E') return false;
    mAt += static_cast<size_t>(end - start);
    *out = value;
    return true;
  }

 private:
  const std::string& mText;
  size_t mAt = 0;
};

// Reads the whole of at's text as one object into read's members.
bool ReadObject(Cursor& at, FlatObject* read) {
  at.Skip();
  if (!at.Take('{')) return false;
  at.Skip();
  if (at.Take('}')) return at.AtEnd();
  for (;;) {
    std::string key;
    if (!at.ReadString(&key)) return false;
    at.Skip();
    if (!at.Take(':')) return false;
    at.Skip();
    if (at.Peek() == '"') {
      std::string value;
      if (!at.ReadString(&value)) return false;
      read->strings[key] = value;
    } else {
      long long number = 0;
      if (!at.ReadNumber(&number)) return false;
      read->numbers[key] = number;
    }
    at.Skip();
    if (at.Take('}')) break;
    if (!at.Take(',')) return false;
    at.Skip();
  }
  return at.AtEnd();
}

}  // namespace

bool FlatObject::Read(const std::string& line) {
  // Read into a fresh object, so that a line refused part way keeps none of its members.
  Cursor at(line);
  FlatObject read;
  const bool whole = ReadObject(at, &read);
  *this = whole ? std::move(read) : FlatObject();
  return whole;
}

std::string FlatObject::String(const std::string& name, const std::string& fallback) const {
  auto found = strings.find(name);
  return found == strings.end() ? fallback : found->second;
}

long long FlatObject::Number(const std::string& name, long long fallback) const {
  auto found = numbers.find(name);
  return found == numbers.end() ? fallback : found->second;
}

std::string FlatObject::Flat(const std::string& text) {
  std::string flat = Util::JsonWriter::WellFormed(text);
  for (char& c : flat) {
    if (static_cast<unsigned char>(c) < 0x20) c = ' ';
  }
  return flat;
}

std::string FlatObject::Quoted(const std::string& text) { return Util::JsonWriter::Quoted(Flat(text)); }

}  // namespace KTN
