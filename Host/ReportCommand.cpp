// Says a take's report on standard output and draws it into a PNG.
#include "Host/ReportCommand.h"

#include <stdio.h>

#include "Host/CommandOptions.h"
#include "Host/MoviePath.h"
#include "Host/OptionParser.h"
#include "Host/ReportPicture.h"
#include "Host/TakeReport.h"
#include "Movie/MovieSidecars.h"

namespace KTN {

namespace {

int NotMade(const std::string& line) {
  fprintf(stderr, "kestrin-capture: %s\n", line.c_str());
  return kReportNotMade;
}

int BadOption(const std::string& line) {
  fputs(CommandOptions::Refusal(line, CommandOptions::Find("report")).c_str(), stderr);
  return 2;
}

}  // namespace

int RunReport(int argc, char** argv) {
  std::string movie, picture;
  ParsedOptions parsed;
  int status = 0;
  if (!OptionParser::Read("report", argc, argv, parsed, &status,
                          [](const std::string& problem) { return BadOption(problem); })) {
    return status;
  }
  const bool json = parsed.Has("json");
  picture = parsed.Value("output");
  if (parsed.Has("output") && picture.empty()) return BadOption("report: -o needs a PNG path");
  if (parsed.operands.size() > 1) return BadOption("report needs exactly one MOVIE");
  if (!parsed.operands.empty()) movie = parsed.operands[0];
  if (movie.empty()) return BadOption("report needs a MOVIE");
  std::string problem;
  if (!MoviePath::MakeAbsolute(movie, &problem)) return NotMade("cannot report on " + movie + ": " + problem);
  TakeReport report;
  if (report.Read(movie, &problem)) return NotMade(problem);
  fputs(json ? (report.Json() + "\n").c_str() : report.Text().c_str(), stdout);
  fflush(stdout);
  if (!picture.empty() && ReportPicture::Write(report, picture, &problem)) return NotMade(problem);
  return 0;
}

std::string WriteReportBeside(const std::string& moviePath, std::string* problem) {
  TakeReport report;
  if (report.Read(moviePath, problem)) return std::string();
  const std::string path = MovieSidecars::Report(moviePath);
  if (ReportPicture::Write(report, path, problem)) return std::string();
  return path;
}

}  // namespace KTN
