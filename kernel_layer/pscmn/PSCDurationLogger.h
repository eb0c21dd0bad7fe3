// Time-stamped START/END lines for named phases, written to a stream the host
// provides. Off until the host switches it on and sets a stream.
//
//   PSCDurationLogger::SetLogFile(stream);
//   PSCDurationLogger::StartLogging();
//   { PSCDurationLogger phase("Receive"); ... }   // "#Receive_START ..." / "#Receive_END ..."
#pragma once

#include <cstdio>

class PSCDurationLogger {
 public:
  // Names of 1024 characters or more are cut to 1023.
  explicit PSCDurationLogger(const char* name);
  ~PSCDurationLogger();
  PSCDurationLogger& operator=(const PSCDurationLogger& other);

  static void StartLogging();
  static void EndLogging();
  static void IsLogging(bool isLogging);
  static bool IsLogging();
  // The stream is the host's: never opened or closed here. nullptr silences the logger.
  static void SetLogFile(FILE* logFile);

  static void LogStartTime(const char* name);
  static void LogEndTime(const char* name);
  // Writes "#<name>_<kind padded to 30>: (Time=<stamp>)" when logging is on
  // and a stream is set. No flush.
  static void LogTime(const char* name, const char* kind);

 private:
  static constexpr int kNameSize = 1024;
  char m_name[kNameSize];

  static bool sm_bIsLogging;
  static FILE* sm_pzLogFile;
};
