// What a take's picture and sound measured in one frame slot, and its lines in the take's levels sidecar.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace KTN {

// The recording server measures every frame slot it writes and appends the figures to the
// levels sidecar (MOVIE.levels) as it goes, so that the host can follow them live and draw
// them after the take. A text file: a header of lines starting with '#', then one line per
// picture and one per slot of sound, in the order the server wrote them, fields separated
// by one space:
//   # kestrin-capture levels 1
//   # rate 25/1               frame slots a second
//   # channels 2              sound channels (0: no sound)
//   P 0 34.1 0.0 100.0 -57.2  picture: slot, luma mean, minimum, maximum, change
//   S 0 -20.0 -23.0 -20.0 -23.0  sound: slot, then each channel's peak and RMS
// Luma is in percent from video black (0) to white (100), read from a sparse grid of the
// picture (every 8th row, about every 6th pixel); change is the mean absolute difference
// of that grid from the previous picture's, in dB of the full code range ("-inf" for the
// same picture, "-" for the first). Sound levels are in dBFS, "-inf" for digital silence.
// A slot without a picture (dropped) has no P line; a take without sound has no S lines.
// Plain data; any thread.
struct PictureLevels {
  int64_t slot = 0;
  float mean = 0, minimum = 0, maximum = 0;  // percent, black 0 to white 100
  float changeDb = 0;                        // -inf: unchanged
  bool hasChange = false;                    // false for the first picture
};

struct SoundLevels {
  int64_t slot = 0;
  std::vector<float> peakDb;  // dBFS, per channel (index 0 is channel 1)
  std::vector<float> rmsDb;
};

class SlotLevels {
 public:
  static constexpr const char* kFirstLine = "# kestrin-capture levels 1\n";

  // The header of a take of rateNumerator / rateDenominator slots a second and channels
  // sound channels.
  static std::string Header(int64_t rateNumerator, int64_t rateDenominator, int channels);
  static std::string Line(const PictureLevels& picture);
  static std::string Line(const SoundLevels& sound);

  // What one line of the file is.
  enum class LineKind { kNone, kRate, kChannels, kPicture, kSound };
  // Reads a line (with or without its feed): the header's rate and channels, a picture's or
  // a slot's sound levels; kNone for a comment, a blank or an unreadable line.
  static LineKind Parse(const std::string& line, int64_t* rateNumerator, int64_t* rateDenominator, int* channels,
                        PictureLevels* picture, SoundLevels* sound);
};

}  // namespace KTN
