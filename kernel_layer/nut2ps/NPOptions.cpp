#include "NPOptions.h"

namespace {
double g_options[NP_OPTION_COUNT] = {};
}

void NPSetOption(int index, int value) {
  if (index < 0 || index >= NP_OPTION_COUNT) return;
  g_options[index] = static_cast<double>(value);
}

int NPGetOption(int index) {
  if (index < 0 || index >= NP_OPTION_COUNT) return 0;
  return static_cast<int>(g_options[index]);
}
