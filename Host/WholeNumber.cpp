// Whole numbers the user types on the command line.
#include "Host/WholeNumber.h"

#include <stdlib.h>

namespace KTN {

bool ParseWhole(const char* text, long minimum, long maximum, long& value) {
  char* end = nullptr;
  long parsed = strtol(text, &end, 10);
  if (!*text || *end || parsed < minimum || parsed > maximum) return false;
  value = parsed;
  return true;
}

}  // namespace KTN
