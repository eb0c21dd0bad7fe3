#include "PSCLog.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ax_Message.h"
#include "ax_MessageCatalogue.h"

namespace {

constexpr int kLogCannotOpen = 1021;
constexpr int kLogCannotClose = 1022;
constexpr int kTranscriptLevel = 10;
constexpr int kHighestLevel = 19;

struct LogState {
  int debugLevel = 0;
  int consoleEcho = 0;
  FILE* stream = nullptr;
  const char* fileName = nullptr;  // the caller's pointer, not a copy
  PSCLogFilterHook filter = nullptr;
  PSCLogObserverHook observer = nullptr;
};

LogState g_log;

// Reads two variables that set one value; the later one wins when both are set.
void readSetting(const char* first, const char* second, int& value) {
  if (const char* text = std::getenv(first)) value = std::atoi(text);
  if (const char* text = std::getenv(second)) value = std::atoi(text);
}

int writeTranscript(unsigned messageId, const char* text) {
  char buffer[kAxMessageBufferSize] = {};
  if (text != nullptr) std::strncpy(buffer, text, kAxMessageBufferSize - 1);
  if (messageId != 0) ax_GetMessageFormat(messageId, 1, buffer);
  return PSCLogWriteText(buffer);
}

}  // namespace

int PSCInitializeLog(const char* logFileName, const char* messageCatalogue) {
  g_log.fileName = (logFileName != nullptr && logFileName[0] != '\0') ? logFileName : "ps_trans.out";
  if (messageCatalogue != nullptr && messageCatalogue[0] != '\0') {
    ax_OpenMessageCatalogue(messageCatalogue);  // a missing catalogue only loses formats
  }
  readSetting("AXDBG", "VTDBG", g_log.debugLevel);
  readSetting("QUIL_DBG_PRINT", "VTX_DBG_PRINT", g_log.consoleEcho);
  if (g_log.stream != nullptr) {
    std::printf("/PSCInitializeLog/ log file already opend !!\n");
  }
  g_log.stream = std::fopen(g_log.fileName, "w");
  return g_log.stream != nullptr ? 0 : kLogCannotOpen;
}

int PSCWriteLog(int level, unsigned messageId, const char* text) {
  if (g_log.filter != nullptr && g_log.filter(level, messageId, text)) return 0;
  if (level < kTranscriptLevel || level > kHighestLevel) {
    std::printf("/PSCWriteLog/ Invalid call PSCWriteLog for 'iMessageLevel'=%ld !!\n",
                static_cast<long>(level));
    return 1;
  }
  if (g_log.observer != nullptr) g_log.observer(level, text);
  int rc = 0;
  if (level == kTranscriptLevel) {
    rc = writeTranscript(messageId, text);
  } else {
    if (level - kTranscriptLevel > g_log.debugLevel) return 0;
    rc = PSCLogWriteText(text);
  }
  if (rc != 0) {
    std::printf("/PSCWriteLog/ error occur sub function!!\n");
    return 2;
  }
  return 0;
}

int PSCGetLogLevel() { return g_log.debugLevel; }

int PSCTerminateLog() {
  g_log.debugLevel = 0;
  int rc = 0;
  if (g_log.stream != nullptr && std::fclose(g_log.stream) != 0) rc = kLogCannotClose;
  g_log.stream = nullptr;
  ax_CloseMessageCatalogue();
  return rc;
}

int PSCLogWriteText(const char* text) {
  if (text == nullptr) return 0;
  if (g_log.stream != nullptr) {
    std::fprintf(g_log.stream, "%s", text);
    std::fflush(g_log.stream);  // on disk before the caller goes on, even if it crashes later
    if (g_log.consoleEcho > 0) std::printf("%s", text);
  }
  ax_ShowMessageString(0, 1, text);
  return 0;
}

PSCLogFilterHook PSCSetLogFilterHook(PSCLogFilterHook hook) {
  PSCLogFilterHook previous = g_log.filter;
  g_log.filter = hook;
  return previous;
}

PSCLogObserverHook PSCSetLogObserverHook(PSCLogObserverHook hook) {
  PSCLogObserverHook previous = g_log.observer;
  g_log.observer = hook;
  return previous;
}
