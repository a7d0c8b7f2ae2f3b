// Tests of the JSON writer: nesting and commas, escaping, numbers and what JSON cannot hold.
#include "Util/JsonWriter.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace KTN {
namespace Util {
namespace {

TEST(JsonWriterTest, ObjectsAndArraysNestWithCommasBetweenTheirMembers) {
  JsonWriter json;
  json.BeginObject();
  json.Key("type").String("progress");
  json.Key("slots").Integer(250);
  json.Key("peak_dbfs").BeginArray().Double(-20.0, 1).Null().Double(-3.25, 2).EndArray();
  json.Key("empty").BeginArray().EndArray();
  json.Key("inner").BeginObject().Key("a").Bool(true).Key("b").Bool(false).Key("c").Null().EndObject();
  json.Key("list").BeginArray().BeginObject().EndObject().BeginObject().Key("x").Integer(-1).EndObject().EndArray();
  json.EndObject();
  EXPECT_EQ("{\"type\":\"progress\",\"slots\":250,\"peak_dbfs\":[-20.0,null,-3.25],\"empty\":[],"
            "\"inner\":{\"a\":true,\"b\":false,\"c\":null},\"list\":[{},{\"x\":-1}]}",
            json.Text());
}

TEST(JsonWriterTest, StringsAreEscapedAsJsonRequiresAndUtf8PassesThrough) {
  EXPECT_EQ("\"plain\"", JsonWriter::Quoted("plain"));
  EXPECT_EQ("\"say \\\"hi\\\" \\\\ there\"", JsonWriter::Quoted("say \"hi\" \\ there"));
  EXPECT_EQ("\"\\b\\f\\n\\r\\t\"", JsonWriter::Quoted("\b\f\n\r\t"));
  EXPECT_EQ("\"\\u0000\\u0001\\u001f \x7f\"", JsonWriter::Quoted(std::string("\0\x01\x1f \x7f", 5)));
  EXPECT_EQ("\"/take/Aufnahme \xc3\xbc\xe2\x80\x94\xf0\x9f\x8e\xac.mov\"",
            JsonWriter::Quoted("/take/Aufnahme \xc3\xbc\xe2\x80\x94\xf0\x9f\x8e\xac.mov"))
      << "UTF-8 is passed through as it is; '/' needs no escape";
  const std::string r = "\xef\xbf\xbd";  // U+FFFD
  EXPECT_EQ("\"caf" + r + ".mov\"", JsonWriter::Quoted("caf\xe9.mov")) << "a Latin-1 byte in a path";
  EXPECT_EQ("\"" + r + r + "|" + r + r + r + "|" + r + "(|" + r + "\"",
            JsonWriter::Quoted("\xc0\xaf|\xed\xa0\x80|\xc3(|\xf4"))
      << "an overlong '/', a surrogate, a sequence cut by another byte, one cut by the end";
  EXPECT_EQ("\"\xf4\x8f\xbf\xbf\"", JsonWriter::Quoted("\xf4\x8f\xbf\xbf")) << "U+10FFFF, the last there is";
  JsonWriter json;
  json.BeginObject().Key("a\"b").String("line\n").EndObject();
  EXPECT_EQ("{\"a\\\"b\":\"line\\n\"}", json.Text()) << "keys are escaped as strings are";
}

TEST(JsonWriterTest, WholeNumbersAreWrittenWhole) {
  JsonWriter json;
  json.BeginArray()
      .Integer(0)
      .Integer(-7)
      .Integer(std::numeric_limits<int64_t>::max())
      .Integer(std::numeric_limits<int64_t>::min())
      .EndArray();
  EXPECT_EQ("[0,-7,9223372036854775807,-9223372036854775808]", json.Text());
}

TEST(JsonWriterTest, DoublesHaveAFixedPrecisionAndNonFiniteOnesAreNull) {
  JsonWriter json;
  json.BeginArray()
      .Double(25.0)
      .Double(1.0 / 3.0)
      .Double(-20.04, 1)
      .Double(2.5, 0)
      .Double(-0.0001)
      .Double(std::numeric_limits<double>::infinity())
      .Double(-std::numeric_limits<double>::infinity())
      .Double(std::numeric_limits<double>::quiet_NaN())
      .EndArray();
  EXPECT_EQ("[25.000,0.333,-20.0,2,0.000,null,null,null]", json.Text());
}

}  // namespace
}  // namespace Util
}  // namespace KTN
