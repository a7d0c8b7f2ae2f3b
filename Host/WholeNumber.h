// Whole numbers the user types on the command line.
#pragma once

namespace KTN {

// Reads text as a decimal whole number from minimum to maximum: true with value set, or
// false (value untouched) for an empty text, trailing characters or a number out of range.
bool ParseWhole(const char* text, long minimum, long maximum, long& value);

}  // namespace KTN
