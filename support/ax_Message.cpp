#include "ax_Message.h"

#include <cstdio>
#include <cstdlib>
#include <exception>

#include "KxuLocale.h"

namespace {

void discardMessage(int, int, const KxuString&) {}

AxDisplayCallback g_displayCallback = nullptr;
AxMessageWriter g_messageWriter = discardMessage;
bool g_alwaysWrite = false;

void reportException(const char* function, const char* what) {
  std::fprintf(stderr, "%s : %s\n", function, what);
}

void showMessage(int kind, int flag, const char* text) {
  if (std::getenv("VTX_ALWAYS_DEBUG_STAT_DIR") != nullptr) g_alwaysWrite = true;
  if (g_displayCallback != nullptr) {
    {
      // The host formats with its own locale, not with our "C" one.
      KxuTempRollbackLocale userLocale;
      g_displayCallback(kind, flag, text);
    }
    if (!g_alwaysWrite) return;
  }
  // The default writer drops the text: no copy and no locale switch for it.
  if (g_messageWriter == discardMessage) return;
  KxuString message(text);
  KxuAutoRestoreLocale classicLocale;
  g_messageWriter(kind, flag, message);
}

}  // namespace

AxDisplayCallback ax_RegisterDisplayCallback(AxDisplayCallback callback) {
  AxDisplayCallback previous = g_displayCallback;
  g_displayCallback = callback;
  return previous;
}

AxMessageWriter ax_SetMessageWriter(AxMessageWriter writer) {
  AxMessageWriter previous = g_messageWriter;
  g_messageWriter = writer ? writer : discardMessage;
  return previous;
}

void ax_ShowMessageString(int kind, int flag, const char* text) {
  try {
    showMessage(kind, flag, text);
  } catch (...) {
    // Whatever went wrong in a host's callback must not reach the logging caller.
    reportException("ax_ShowMessageString", "unknown exception");
  }
}

bool ax_IsAlwaysWriteOn() { return g_alwaysWrite; }
