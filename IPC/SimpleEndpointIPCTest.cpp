// Tests of line reading and acknowledgements.
#include <gtest/gtest.h>

#include <string>

#include "IPC/SimpleEndpointIPC.h"
#include "IPC/TestStreams.h"

namespace KTN {
namespace {

struct LineCase {
  const char* line;
  const char* command;
  const char* argument;  // null: no argument
};

const LineCase kLineCases[] = {
    {"SetFilePath /Volumes/My Disk/clip.mov\n", "SetFilePath", "/Volumes/My Disk/clip.mov"},
    {"Begin\n", "Begin", nullptr},
    {"Begin \n", "Begin", ""},
    {"MapVideo 8294400\n", "MapVideo", "8294400"},
    {"Stop", "Stop", nullptr},
    {"Stop 0\r\n", "Stop", "0\r"},
    {"\n", "", nullptr},
};

TEST(SimpleEndpointIPCTest, LinesSplitAtTheFirstSpace) {
  for (const LineCase& c : kLineCases) {
    FILE* input = InputStream(c.line);
    SimpleEndpointIPC endpoint;
    ASSERT_EQ(0, endpoint.Init(input, nullptr));
    const char* command = "x";
    const char* argument = "x";
    ASSERT_EQ(0, endpoint.ReadLine(command, argument)) << c.line;
    EXPECT_STREQ(c.command, command) << c.line;
    if (c.argument) {
      ASSERT_NE(nullptr, argument) << c.line;
      EXPECT_STREQ(c.argument, argument) << c.line;
    } else {
      EXPECT_EQ(nullptr, argument) << c.line;
    }
    fclose(input);
  }
}

TEST(SimpleEndpointIPCTest, EndOfStreamIs5AndClearsThePointers) {
  FILE* input = InputStream("");
  SimpleEndpointIPC endpoint;
  endpoint.Init(input, nullptr);
  const char* command = "x";
  const char* argument = "x";
  EXPECT_EQ(5, endpoint.ReadLine(command, argument));
  EXPECT_EQ(nullptr, command);
  EXPECT_EQ(nullptr, argument);
  fclose(input);
}

TEST(SimpleEndpointIPCTest, OverlongLineComesBackInTwoPieces) {
  std::string first(4129, 'a');
  std::string rest = "bcd";
  FILE* input = InputStream(first + rest + "\nNext\n");
  SimpleEndpointIPC endpoint;
  endpoint.Init(input, nullptr);
  const char* command;
  const char* argument;
  ASSERT_EQ(0, endpoint.ReadLine(command, argument));
  EXPECT_EQ(first, command);
  EXPECT_EQ(nullptr, argument);
  ASSERT_EQ(0, endpoint.ReadLine(command, argument));
  EXPECT_EQ(rest, command);
  ASSERT_EQ(0, endpoint.ReadLine(command, argument));
  EXPECT_STREQ("Next", command);
  fclose(input);
}

TEST(SimpleEndpointIPCTest, AcknowledgementLines) {
  FILE* output = OutputStream();
  SimpleEndpointIPC endpoint;
  endpoint.Init(nullptr, output);
  EXPECT_EQ(0, endpoint.Acknowledge("Stop", 0));
  EXPECT_EQ(0, endpoint.Acknowledge("MapVideo", 7));
  EXPECT_EQ(0, endpoint.Acknowledge("Prepare", -1));
  EXPECT_EQ("Stop 0\nMapVideo 7\nPrepare -1\n", WrittenText(output));
  fclose(output);
}

}  // namespace
}  // namespace KTN
