// The run's settings, filled from the command line and read by the flows.
#pragma once

struct MeldSettings {
  double default_tol = 0.0;     // millimetres
  double max_tol = 0.01;        // millimetres
  int booleanFunction = -1;     // 0 unite, 1 subtract, 2 intersect; anything else unites
  int removeInnerShells = 1;    // cleared by -k
  int input_solid_num = -1;     // 0 or below: no solid-count check
};

// The source-file name that the driver's error records carry.
inline constexpr char kMeldSolidsSource[] = "meld-solids\\MeldSolids";
