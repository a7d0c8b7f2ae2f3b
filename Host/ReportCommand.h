// kestrin-capture report: what a take holds and what its signal suffered, said and drawn.
#pragma once

#include <string>

namespace KTN {

// The exit status of a report that could not be made: the movie is not there, not a regular
// file, not a movie, being written or unreadable, or its picture could not be written.
constexpr int kReportNotMade = 6;

// Runs `report MOVIE [-o PNG] [--json]`; argv[0] is "report" and the rest its arguments. 0
// with the report on standard output (as text, or with --json as one JSON object on one
// line), and the picture written with -o; kReportNotMade, or 2 for a
// bad option, with one line on standard error.
int RunReport(int argc, char** argv);

// The report picture of the finished take at moviePath written beside it
// (MovieSidecars::Report): its path, or "" with *problem saying why not.
std::string WriteReportBeside(const std::string& moviePath, std::string* problem);

}  // namespace KTN
