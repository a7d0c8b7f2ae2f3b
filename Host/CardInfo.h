// What the installed card receives: its modes, and the formats it can record per standard.
#pragma once

#include <stdio.h>

namespace KTN {

// Prints the card's description to out; returns 0, or 3 with one line on error when there is
// no card.
int PrintCardInfo(FILE* out);

}  // namespace KTN
