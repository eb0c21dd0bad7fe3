// The executable meld-solids.
#include <clocale>

#include "MeldSolids.h"

int main(int argc, char** argv) {
  // Names from part files are shown in the user's character encoding; numbers
  // keep the C locale's format.
  std::setlocale(LC_CTYPE, "");
  return MeldSolidsMain(argc, argv);
}
