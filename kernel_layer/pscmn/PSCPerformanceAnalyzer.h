// Per-function statistics for the session layer: calls, elapsed time, and the
// growth of the working set and of committed private memory.
//
// Functions open one analyzer at their top with their own name. Analysis is
// switched on by "VTX_PSC_ANALYZE_PERFORMANCE" (non-zero), read once per
// process; when off, an analyzer costs one test.
#pragma once

#include <cstdint>
#include <map>
#include <string>

class PSCPerformanceAnalyzer {
 public:
  // Totals for one function name.
  class EachLog {
   public:
    virtual ~EachLog() = default;
    std::int32_t m_calls = 0;
    double m_seconds = 0.0;
    std::int32_t m_workingSetGrowth = 0;  // bytes
    std::int32_t m_pageFileGrowth = 0;    // bytes
  };
  using Table = std::map<std::string, EachLog>;

  // `functionName` is kept as a pointer and must outlive the analyzer.
  explicit PSCPerformanceAnalyzer(const char* functionName);
  virtual ~PSCPerformanceAnalyzer();
  PSCPerformanceAnalyzer(const PSCPerformanceAnalyzer&) = delete;
  PSCPerformanceAnalyzer& operator=(const PSCPerformanceAnalyzer&) = delete;

  // A copy of the table as it is now (the program itself never prints it).
  static Table Statistics();

  // For tests: forget the cached switch so that the next query reads the
  // variable again, and empty the table.
  static void ResetForTesting();

 private:
  std::int32_t m_startTicks = 0;
  std::uint32_t m_startWorkingSet = 0;
  std::uint32_t m_startPageFile = 0;
  const char* m_name;
};

bool PSCIsPerformanceAnalysisOn();
