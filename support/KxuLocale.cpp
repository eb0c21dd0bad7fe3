#include "KxuLocale.h"

#include <clocale>
#include <cstring>

namespace {

constexpr std::size_t kSavedLocaleLength = 128;

int g_guardDepth = 0;
// The LC_NUMERIC name in force when the outermost guard began.
char g_savedLocale[kSavedLocaleLength + 1] = "";

}  // namespace

KxuAutoRestoreLocale::KxuAutoRestoreLocale() {
  if (g_guardDepth != 0) {
    ++g_guardDepth;
    return;
  }
  const char* current = std::setlocale(LC_NUMERIC, nullptr);
  std::strncpy(g_savedLocale, current ? current : "C", kSavedLocaleLength);
  g_savedLocale[kSavedLocaleLength] = '\0';
  if (std::strcmp(g_savedLocale, "C") != 0) {
    std::setlocale(LC_NUMERIC, "C");
    m_changedLocale = true;
  }
  ++g_guardDepth;
}

KxuAutoRestoreLocale::~KxuAutoRestoreLocale() {
  --g_guardDepth;
  if (m_changedLocale) std::setlocale(LC_NUMERIC, g_savedLocale);
}

KxuTempRollbackLocale::KxuTempRollbackLocale() : m_savedDepth(g_guardDepth) {
  if (m_savedDepth >= 1) {
    std::setlocale(LC_NUMERIC, g_savedLocale);
    g_guardDepth = 0;
  }
}

KxuTempRollbackLocale::~KxuTempRollbackLocale() {
  if (m_savedDepth >= 1) {
    std::setlocale(LC_NUMERIC, "C");
    g_guardDepth = m_savedDepth;
  }
}

int KxuLocaleGuardDepth() { return g_guardDepth; }
