#include "NPRollBack.h"

#include <cstdint>
#include <cstdlib>

#include "NPOptions.h"
#include "PSCLog.h"
#include "PSCReport.h"
#include "pk.h"

namespace {

const char kSource[] = "kernel_layer\\src\\nut2ps\\NPRollBack";
const char kRule[] = "-------------------------------------------------\n";
constexpr int kDefaultFileSize = 1024000000;

bool g_initialisationTried = false;

bool rollbackWithMarks() { return NPGetOption(NP_OPTION_ROLLBACK_WITH_MARKS) == 1; }

void messageBox(unsigned messageId, const char* text) {
  PSCWriteLog(10, 0, "\n");
  PSCWriteLog(10, 0, "\n");
  PSCWriteLog(10, 1004, kRule);
  PSCWriteLog(10, messageId, text);
  PSCWriteLog(10, 1004, kRule);
  PSCWriteLog(10, 0, "\n");
}

}  // namespace

void NPRollBackSizeMessage() {
  messageBox(3040,
             "   Rollback file size is too large or too small !\n"
             "   Please set up the environment variable        \n"
             "   `ROLBK' (default 1024), and execute this       \n"
             "   Translator Program again.                     \n");
}

void NPRollBackOpenMessage() {
  messageBox(3034,
             "   Rollback file can't be opened !               \n"
             "   Please check the environment variable         \n"
             "   `VTX_ROLBK_FILE'  (default : rollback).       \n");
}

int NPRollBackFileSize() {
  const char* value = std::getenv("ROLBK");
  if (!value) return kDefaultFileSize;
  // Millions of bytes in 32-bit arithmetic: large values wrap, and the
  // kernel's own size check is what refuses them.
  std::uint32_t product = static_cast<std::uint32_t>(std::atoi(value)) * 1000000u;
  return static_cast<int>(product);
}

int st_RollBackInit() {
  int ifail = 0;
  if (rollbackWithMarks()) return 0;
  const int code = KI_param_rollback_size;
  const int size = NPRollBackFileSize();
  const double unused = 0.0;
  KI_SEINTP(&code, &size, &unused, &ifail);
  if (ifail == KI_rollback_size_bad) NPRollBackSizeMessage();
  if (ifail == KI_cant_open_rollback) NPRollBackOpenMessage();
  if (ifail == 0) return 0;
  PSCReportFailure("st_RollBackInit", 2110, "KI_SEINTP", ifail, kSource, 74);
  return 2110;
}

int NPRollBackSetMark() {
  if (!g_initialisationTried) {
    g_initialisationTried = true;
    if (int rc = st_RollBackInit()) {
      PSCReportFailure("NPRollBackSetMark", 2010, "st_RollBackInit", rc, kSource, 105);
      return 2010;
    }
  }
  if (rollbackWithMarks()) return 0;
  int ifail = 0;
  KI_ROLSMK(&ifail);
  if (ifail == 0) return 0;
  // The file size is the only remedy the user has, whatever the kernel said.
  NPRollBackSizeMessage();
  PSCReportFailure("NPRollBackSetMark", 2110, "KI_ROLSMK", ifail, kSource, 123);
  return 2110;
}

int NPRollBack() {
  if (rollbackWithMarks()) return 0;
  int ifail = 0;
  KI_ROLBLM(&ifail);
  if (ifail == 0) return 0;
  NPRollBackSizeMessage();
  PSCReportFailure("NPRollBack", 2110, "KI_ROLBLM", ifail, kSource, 155);
  return 2110;
}

void NPRollBackResetForTesting() { g_initialisationTried = false; }
