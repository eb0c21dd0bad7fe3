#include "PSCPerformanceAnalyzer.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>

namespace {

constexpr std::uint32_t kUnavailable = 0xFFFFFFFFu;

enum class Switch { Unread, Off, On };
Switch g_switch = Switch::Unread;
bool g_memoryQueryAvailable = false;

const char* kStatusFile = "/proc/self/status";

// Function-local static: created once, safely against concurrent first use,
// and freed at exit.
PSCPerformanceAnalyzer::Table& statisticsTable() {
  static PSCPerformanceAnalyzer::Table table;
  return table;
}

// Elapsed time is wall time (as the analyzer has always measured it), not CPU
// time; milliseconds in 32 bits, so differences stay right across wrap-around.
std::int32_t wallTicksMs() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(ms));
}

// Reads one "<Key>   <n> kB" line's value in bytes, cut to 32 bits; `key`
// includes its colon.
bool readStatusValue(const std::string& line, std::string_view key, std::uint32_t& bytes) {
  if (line.compare(0, key.size(), key) != 0) return false;
  const unsigned long long kilobytes = std::strtoull(line.c_str() + key.size(), nullptr, 10);
  bytes = static_cast<std::uint32_t>(kilobytes * 1024u);
  return true;
}

// Working set = VmRSS, committed private memory = VmData. Values the status
// file does not give are left as they were.
void sampleMemory(std::uint32_t& workingSet, std::uint32_t& pageFile) {
  if (!g_memoryQueryAvailable) {
    workingSet = pageFile = kUnavailable;
    return;
  }
  std::ifstream status(kStatusFile);
  std::string line;
  bool haveWorkingSet = false, havePageFile = false;
  while (!(haveWorkingSet && havePageFile) && std::getline(status, line)) {
    haveWorkingSet = haveWorkingSet || readStatusValue(line, "VmRSS:", workingSet);
    havePageFile = havePageFile || readStatusValue(line, "VmData:", pageFile);
  }
}

Switch readSwitch() {
  const char* value = std::getenv("VTX_PSC_ANALYZE_PERFORMANCE");
  if (value == nullptr || std::atoi(value) == 0) return Switch::Off;
  g_memoryQueryAvailable = std::ifstream(kStatusFile).good();
  return Switch::On;
}

}  // namespace

bool PSCIsPerformanceAnalysisOn() {
  if (g_switch == Switch::Unread) g_switch = readSwitch();
  return g_switch == Switch::On;
}

PSCPerformanceAnalyzer::PSCPerformanceAnalyzer(const char* functionName) : m_name(functionName) {
  if (!PSCIsPerformanceAnalysisOn()) return;
  m_startTicks = wallTicksMs();
  sampleMemory(m_startWorkingSet, m_startPageFile);
}

PSCPerformanceAnalyzer::~PSCPerformanceAnalyzer() {
  if (!PSCIsPerformanceAnalysisOn()) return;
  const double elapsed = static_cast<std::int32_t>(wallTicksMs() - m_startTicks) / 1000.0;
  EachLog& entry = statisticsTable()[m_name ? m_name : ""];
  entry.m_calls += 1;
  entry.m_seconds += elapsed;
  std::uint32_t workingSet = 0;
  std::uint32_t pageFile = 0;
  sampleMemory(workingSet, pageFile);
  entry.m_workingSetGrowth += static_cast<std::int32_t>(workingSet - m_startWorkingSet);
  entry.m_pageFileGrowth += static_cast<std::int32_t>(pageFile - m_startPageFile);
}

PSCPerformanceAnalyzer::Table PSCPerformanceAnalyzer::Statistics() { return statisticsTable(); }

void PSCPerformanceAnalyzer::ResetForTesting() {
  g_switch = Switch::Unread;
  g_memoryQueryAvailable = false;
  statisticsTable().clear();
}
