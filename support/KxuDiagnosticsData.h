// The process-wide diagnostics data block and the provider that hands it out.
//
// The error stack keeps its records here rather than in its own library so that
// a host embedding several of our libraries can supply one shared block
// through its own provider.
#pragma once

#include <cstdint>

constexpr int kErrorStackCapacity = 50;
constexpr int kErrorFunctionNameSize = 35;  // 34 characters and a NUL
constexpr int kErrorCommentSize = 300;      // 299 characters and a NUL
constexpr int kErrorStatusFileNameSize = 256;

struct ErrorRecord {
  char functionName[kErrorFunctionNameSize];
  std::int32_t returnCode;
  char comment[kErrorCommentSize];
};

// Receives every status-file line (without its newline) before it is written.
using ErrorLineCallback = void (*)(void* userValue, const char* line);

struct ErrorStackArea {
  // Used by the echoing erPush/erClear and by the argument-less erPrint;
  // empty means nothing is written.
  char statusFileName[kErrorStatusFileNameSize];
  std::int32_t count;
  ErrorRecord records[kErrorStackCapacity];  // oldest first
  ErrorLineCallback lineCallback;
  void* callbackUserValue;
  std::int32_t echo;  // non-zero: erPush and erClear write at once
};

struct KxuDiagnosticsData {
  ErrorStackArea errorStack;
};

class KxuDiagnosticsProvider {
 public:
  virtual ~KxuDiagnosticsProvider() = default;
  virtual KxuDiagnosticsData* diagnosticsData() = 0;
};

// Installs the provider that hands out the block and returns the previous one.
// nullptr puts back the built-in provider (one static, zeroed block).
KxuDiagnosticsProvider* KxuRegisterDiagnosticsProvider(KxuDiagnosticsProvider* provider);

// The block of the current provider.
KxuDiagnosticsData* KxuGetDiagnosticsData();
