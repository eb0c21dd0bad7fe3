#include "PSCDurationLogger.h"

#include <cstring>
#include <ctime>
#include <string>

bool PSCDurationLogger::sm_bIsLogging = false;
FILE* PSCDurationLogger::sm_pzLogFile = nullptr;

namespace {

struct LocalTimeMs {
  int year, month, day, hour, minute, second, milliseconds;  // month 1..12
};

LocalTimeMs localTimeNow() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  std::tm local{};
  localtime_r(&now.tv_sec, &local);
  return {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
          local.tm_min, local.tm_sec, static_cast<int>(now.tv_nsec / 1000000)};
}

// Day of the week (0 = Sunday) by Sakamoto's rule.
int weekdayOf(int year, int month, int day) {
  static const int kMonthOffset[12] = {0, 3, 2, 5, 0, 3, 5, 1, 4, 6, 2, 4};
  if (month < 3) year -= 1;
  return (year + year / 4 - year / 100 + year / 400 + kMonthOffset[month - 1] + day) % 7;
}

// "Sat Nov 14 21:20:10:123 202": ctime's text with the milliseconds written
// over the blank before the year and the year written again after them; the
// final character (meant to be ctime's newline) is then dropped, which takes
// the year's last digit. Readers of these logs expect exactly this form.
std::string durationStamp(const LocalTimeMs& t) {
  std::tm calendar{};
  calendar.tm_sec = t.second;
  calendar.tm_min = t.minute;
  calendar.tm_hour = t.hour;
  calendar.tm_mday = t.day;
  calendar.tm_mon = t.month - 1;
  calendar.tm_year = t.year - 1900;
  calendar.tm_wday = weekdayOf(t.year, t.month, t.day);
  calendar.tm_yday = 0;
  calendar.tm_isdst = 0;
  const std::time_t seconds = std::mktime(&calendar);
  char text[32] = {};
  char buffer[64] = {};
  std::snprintf(buffer, sizeof buffer, "%s", ctime_r(&seconds, text));
  std::snprintf(buffer + 19, sizeof buffer - 19, ":%03d", t.milliseconds);
  std::snprintf(buffer + 23, sizeof buffer - 23, " %d", t.year);
  const std::size_t length = std::strlen(buffer);
  return std::string(buffer, length > 0 ? length - 1 : 0);
}

}  // namespace

PSCDurationLogger::PSCDurationLogger(const char* name) {
  std::snprintf(m_name, sizeof m_name, "%s", name ? name : "");
  LogStartTime(m_name);
}

PSCDurationLogger::~PSCDurationLogger() { LogEndTime(m_name); }

PSCDurationLogger& PSCDurationLogger::operator=(const PSCDurationLogger& other) {
  std::memcpy(m_name, other.m_name, sizeof m_name);
  return *this;
}

void PSCDurationLogger::StartLogging() { IsLogging(true); }
void PSCDurationLogger::EndLogging() { IsLogging(false); }
void PSCDurationLogger::IsLogging(bool isLogging) { sm_bIsLogging = isLogging; }
bool PSCDurationLogger::IsLogging() { return sm_bIsLogging; }
void PSCDurationLogger::SetLogFile(FILE* logFile) { sm_pzLogFile = logFile; }
void PSCDurationLogger::LogStartTime(const char* name) { LogTime(name, "START"); }
void PSCDurationLogger::LogEndTime(const char* name) { LogTime(name, "END"); }

void PSCDurationLogger::LogTime(const char* name, const char* kind) {
  if (sm_pzLogFile == nullptr || !IsLogging()) return;
  const std::string stamp = durationStamp(localTimeNow());
  const std::string label = std::string(name ? name : "") + "_" + (kind ? kind : "");
  std::fprintf(sm_pzLogFile, "#%-30s: (Time=%s)\n", label.c_str(), stamp.c_str());
}
