// The host program's output for scripts, run as a script runs it: info --json against info, a take recorded with --progress json line by line against its movie, and report --json against report.
#include <gtest/gtest.h>

#include <stdio.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include <string>
#include <vector>

#include "Movie/MovieSummary.h"
#include "Testing/MovieProbe.h"
#include "tests/HostProgramProcess.h"
#include "tests/HostProgramTest.h"

namespace KTN {
namespace {

// One line as a JSON object; a line that is not one fails the test that reads it.
QJsonObject Parsed(const std::string& line) {
  QJsonParseError error;
  const QJsonDocument document = QJsonDocument::fromJson(QByteArray::fromStdString(line), &error);
  EXPECT_EQ(QJsonParseError::NoError, error.error) << error.errorString().toStdString() << " in: " << line;
  EXPECT_TRUE(document.isObject()) << line;
  return document.object();
}

std::string Text(const QJsonValue& value) { return value.toString().toStdString(); }

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  size_t from = 0;
  for (size_t end; (end = text.find('\n', from)) != std::string::npos; from = end + 1) lines.push_back(text.substr(from, end - from));
  return lines;
}

bool Exists(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0;
}

// "%.1f dBFS" of a JSON level, "-inf dBFS" for null, as the text report says it.
std::string Db(const QJsonValue& value) {
  if (value.isNull()) return "-inf dBFS";
  char text[32];
  snprintf(text, sizeof text, "%.1f dBFS", value.toDouble());
  return text;
}

class JsonOutputTest : public HostProgramTest {
 protected:
  // Runs the host program to its end (within a minute): its exit status, and its standard
  // output and error.
  int Run(const std::vector<std::string>& arguments, std::string& output, std::string& error) {
    const int status = RunHostProgram(arguments, mFolder, 60, output, error);
    EXPECT_NE(-1, status) << "the host program hung: " << error;
    EXPECT_TRUE(WIFEXITED(status)) << error;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
};

// The same card in both: every mode the text lists, and every standard's recordable formats
// by the names and rows record takes.
TEST_F(JsonOutputTest, InfoAsJsonListsWhatTheTextLists) {
  std::string text, json, error;
  ASSERT_EQ(0, Run({"info"}, text, error)) << error;
  ASSERT_EQ(0, Run({"info", "--json"}, json, error)) << error;
  const std::vector<std::string> jsonLines = Lines(json);
  ASSERT_EQ(1u, jsonLines.size()) << json;
  const QJsonObject card = Parsed(jsonLines[0]);

  const std::vector<std::string> lines = Lines(text);
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines[0], "Card: " + Text(card["card"]));
  std::vector<std::string> modes, standards;
  for (const std::string& line : lines) {
    if (line.rfind("  '", 0) == 0) modes.push_back(line);
    if (line.size() > 5 && line.rfind("  ", 0) == 0 && line[2] != '\'') standards.push_back(line);
  }
  const QJsonArray jsonModes = card["modes"].toArray();
  ASSERT_FALSE(modes.empty()) << text;
  ASSERT_EQ(modes.size(), static_cast<size_t>(jsonModes.size())) << text;
  for (int i = 0; i < jsonModes.size(); ++i) {
    const QJsonObject mode = jsonModes[i].toObject();
    char line[160];
    snprintf(line, sizeof line, "  '%s' %-26s %4dx%-4d %7.3f fps", Text(mode["code"]).c_str(), Text(mode["name"]).c_str(),
             mode["width"].toInt(), mode["height"].toInt(),
             static_cast<double>(mode["timescale"].toInteger()) / static_cast<double>(mode["frame_duration"].toInteger()));
    EXPECT_EQ(modes[static_cast<size_t>(i)], line);
  }
  const QJsonArray jsonStandards = card["standards"].toArray();
  ASSERT_EQ(standards.size(), static_cast<size_t>(jsonStandards.size())) << text;
  for (int i = 0; i < jsonStandards.size(); ++i) {
    const QJsonObject standard = jsonStandards[i].toObject();
    std::string formats;
    for (const QJsonValue& format : standard["formats"].toArray()) {
      formats += (formats.empty() ? "" : ", ") + Text(format.toObject()["name"]);
    }
    char line[200];
    snprintf(line, sizeof line, "  %2d %-18s %s", standard["row"].toInt(), Text(standard["name"]).c_str(),
             formats.empty() ? "(not received by this card)" : formats.c_str());
    EXPECT_EQ(standards[static_cast<size_t>(i)], line);
  }
}

// A three-second take of DV PAL with black scripted in it: standard output is JSON lines
// only, progress at most four a second with its slots growing, the black as an event, and an
// end that says what the finished movie holds; then its report, as text and as JSON.
TEST_F(JsonOutputTest, ATakeToldInJsonLinesEndsWithWhatItsMovieHolds) {
  SetSimulatedCardEnvironment({{"VELDRAN_SIM_SPEED", "1"}, {"VELDRAN_SIM_EVENTS", "black@25+10"}});
  const std::string movie = mFolder + "/take.mov";
  std::string output, error;
  ASSERT_EQ(0, Run({"record", "-o", movie, "--standard", "PAL 4x3", "--format", "DV PAL", "--frames", "75", "--progress",
                    "json", "--verify"},
                   output, error))
      << error;
  const std::vector<std::string> lines = Lines(output);
  ASSERT_GE(lines.size(), 2u) << output;
  std::vector<QJsonObject> progress, events;
  QJsonObject end;
  for (size_t i = 0; i < lines.size(); ++i) {
    const QJsonObject object = Parsed(lines[i]);
    const std::string type = Text(object["type"]);
    if (type == "progress") progress.push_back(object);
    else if (type == "event") events.push_back(object);
    else if (type == "end") end = object;
    else ADD_FAILURE() << "a line of no known type: " << lines[i];
    if (type == "end") {
      EXPECT_EQ(lines.size() - 1, i) << "the end comes last";
    }
  }

  ASSERT_GE(progress.size(), 2u) << output;
  for (size_t i = 1; i < progress.size(); ++i) {
    EXPECT_GE(progress[i]["slots"].toInteger(), progress[i - 1]["slots"].toInteger()) << lines[i];
    // At most four a second of the take's own time (a thousandth for the rounding).
    EXPECT_GE(progress[i]["elapsed_seconds"].toDouble() - progress[i - 1]["elapsed_seconds"].toDouble(), 0.249)
        << "progress " << i;
  }
  EXPECT_GT(progress.back()["slots"].toInteger(), progress.front()["slots"].toInteger()) << "the slots grow over the take";
  // Levels for each channel once the first sound slot is measured (none before it).
  size_t withLevels = 0;
  for (const QJsonObject& object : progress) {
    EXPECT_FALSE(object["waiting"].toBool());
    const qsizetype channels = object["peak_dbfs"].toArray().size();
    EXPECT_TRUE(channels == 2 || (channels == 0 && withLevels == 0)) << channels;
    withLevels += channels == 2;
    EXPECT_EQ(75, object["expected_frames"].toInteger());
  }
  EXPECT_GT(withLevels, 0u);

  ASSERT_EQ(1u, events.size()) << output;
  EXPECT_EQ("black", Text(events[0]["kind"]));
  EXPECT_NEAR(10, events[0]["frames"].toInteger(), 1);
  EXPECT_TRUE(events[0]["timecode"].isString()) << "the take has timecode";

  ASSERT_FALSE(end.isEmpty()) << output;
  EXPECT_EQ(0, end["status"].toInt());
  EXPECT_FALSE(Text(end["meaning"]).empty());
  EXPECT_TRUE(end["error"].isNull());
  EXPECT_EQ(movie, Text(end["movie"]));
  MovieSummary summary;
  ASSERT_EQ(0, summary.Read(movie));
  EXPECT_EQ(static_cast<qint64>(summary.pictureSlots), end["slots"].toInteger());
  EXPECT_EQ(static_cast<qint64>(summary.pictures), end["pictures"].toInteger());
  EXPECT_EQ(static_cast<qint64>(summary.EmptySlots()), end["dropped"].toInteger());
  EXPECT_EQ(75, end["frames"].toInteger());
  EXPECT_EQ(summary.startTimecode, Text(end["start_timecode"]));
  const ProbedMovie probed = ProbeMovie(movie, false);
  ASSERT_TRUE(probed.opened);
  EXPECT_EQ(static_cast<int64_t>(summary.pictures), probed.video.packets) << "as FFmpeg counts the pictures";
  const QJsonObject sidecars = end["sidecars"].toObject();
  for (const char* name : {"frame_hashes", "levels", "events", "verification", "report_picture"}) {
    ASSERT_TRUE(sidecars[name].isString()) << name;
    EXPECT_TRUE(Exists(Text(sidecars[name]))) << Text(sidecars[name]);
  }
  EXPECT_EQ("verified", Text(end["verification"].toObject()["result"]));
  EXPECT_TRUE(end["verification"].toObject()["passed"].toBool());

  // The report, said both ways from the same figures.
  std::string text, json;
  ASSERT_EQ(0, Run({"report", movie}, text, error)) << error;
  ASSERT_EQ(0, Run({"report", "--json", movie}, json, error)) << error;
  ASSERT_EQ(1u, Lines(json).size()) << json;
  const QJsonObject report = Parsed(Lines(json)[0]);
  EXPECT_EQ("Movie: " + movie + "\n", text.substr(0, text.find('\n') + 1));
  EXPECT_NE(std::string::npos, text.find("\nSlots: " + std::to_string(report["slots"].toInteger()) + " at 25 fps, from " +
                                         Text(report["start_timecode"]) + "\n"))
      << text;
  EXPECT_NE(std::string::npos, text.find("\nPictures: " + std::to_string(report["pictures"].toInteger()) + "\n")) << text;
  EXPECT_NE(std::string::npos, text.find("\nDropped slots: " + std::to_string(report["dropped"].toInteger()) + "\n"));
  const QJsonArray reported = report["events"].toArray();
  EXPECT_NE(std::string::npos, text.find("\nEvents: " + std::to_string(reported.size()) + "\n")) << text;
  for (const QJsonValue& value : reported) {
    const QJsonObject event = value.toObject();
    EXPECT_NE(std::string::npos, text.find("\n" + Text(event["timecode"]) + "  " + Text(event["sentence"]) + "\n")) << text;
  }
  const QJsonArray channels = report["channels"].toArray();
  ASSERT_EQ(2, channels.size());
  for (const QJsonValue& value : channels) {
    const QJsonObject channel = value.toObject();
    EXPECT_NE(std::string::npos, text.find("\nChannel " + std::to_string(channel["channel"].toInt()) + ": peak " +
                                           Db(channel["peak_dbfs"]) + ", RMS " + Db(channel["rms_dbfs"]) + "\n"))
        << text;
  }
  EXPECT_EQ("verified", Text(report["verification"].toObject()["result"]));
  EXPECT_NE(std::string::npos, text.find("\nverify: passed (")) << text;
  EXPECT_EQ(Text(sidecars["report_picture"]), Text(report["sidecars"].toObject()["report_picture"]));
}

// A take that cannot start still ends its JSON lines with its end, and its line on standard error.
TEST_F(JsonOutputTest, ATakeRefusedEndsWithItsStatusAndTheLineSaid) {
  const std::string movie = mFolder + "/there.mov";
  FILE* file = fopen(movie.c_str(), "w");
  ASSERT_NE(nullptr, file);
  fclose(file);
  file = fopen((movie + ".framehash").c_str(), "w");
  ASSERT_NE(nullptr, file);
  fclose(file);
  std::string output, error;
  ASSERT_EQ(5, Run({"record", "-o", movie, "--frames", "5", "--progress", "json"}, output, error)) << error;
  const std::vector<std::string> lines = Lines(output);
  ASSERT_EQ(1u, lines.size()) << output;
  const QJsonObject end = Parsed(lines[0]);
  EXPECT_EQ("end", Text(end["type"]));
  EXPECT_EQ(5, end["status"].toInt());
  EXPECT_NE(std::string::npos, error.find("kestrin-capture: " + Text(end["error"]) + "\n")) << error;
  // The file there, and its frame hashes, are another take's: nothing of them is this take's.
  EXPECT_TRUE(end["slots"].isNull());
  EXPECT_TRUE(end["sidecars"].toObject()["frame_hashes"].isNull());

  // A command line refused once its options were read ends with its object too.
  ASSERT_EQ(2, Run({"record", "-o", mFolder + "/new.mov", "--frames", "5", "--seconds", "1", "--progress", "json"}, output,
                   error))
      << error;
  const std::vector<std::string> refused = Lines(output);
  ASSERT_EQ(1u, refused.size()) << output;
  EXPECT_EQ(2, Parsed(refused[0])["status"].toInt());
  EXPECT_EQ("give --frames or --seconds, not both", Text(Parsed(refused[0])["error"]));
}

}  // namespace
}  // namespace KTN
