// What the installed card receives: its modes, and the formats it can record per standard.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include <string>
#include <vector>

namespace KTN {

// The installed card as `kestrin-capture info` tells it, gathered once and said as text or
// as one JSON object: its model, every display mode it lists, and for each standard of the
// settings table (by its row and name, as `record --standard` takes them) the formats of the
// table (by row and name, as `record --format` takes them) that the card delivers in it. A
// value type; one thread at a time.
struct CardInfo {
  struct Mode {
    std::string code;  // the mode's four characters as the text shows them, e.g. "'Hi50'" ("Hi50" in JSON)
    std::string name;  // e.g. "HD 1080i 50"
    int width = 0;
    int height = 0;
    int64_t frameDuration = 0;  // one frame lasts frameDuration / timescale seconds
    int64_t timescale = 0;
    double Fps() const;  // 0 when the card gave no rate
  };
  struct Format {
    int row = 0;
    std::string name;
  };
  struct Standard {
    int row = 0;
    std::string name;
    std::vector<Format> formats;  // empty: the card does not receive this standard
  };

  std::string model;         // empty when the card did not say it
  bool modesListed = false;  // the card answered for its modes
  std::vector<Mode> modes;
  std::vector<Standard> standards;

  // Asks the installed card: 0, or 3 with one line on standard error (no card's device API,
  // no card, its input not available).
  int Read();
  // The text of `info`, each line ending in a line feed.
  std::string Text() const;
  // The same as one JSON object (without a line feed):
  //   {"card":"...","modes":[{"code":"Hi50","name":"HD 1080i 50","width":1920,"height":1080,
  //    "frame_duration":1,"timescale":25,"fps":25.000},...],
  //    "standards":[{"row":19,"name":"HD 1080i 50","formats":[{"row":1,"name":"..."}]},...]}
  std::string Json() const;
};

// Prints the card's description to out, as text or (json) as one JSON object on a line of
// its own; returns 0, or 3 with one line on standard error and nothing on out when there is
// no card.
int PrintCardInfo(FILE* out, bool json);

}  // namespace KTN
