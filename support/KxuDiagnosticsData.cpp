#include "KxuDiagnosticsData.h"

namespace {

class StaticDiagnosticsProvider final : public KxuDiagnosticsProvider {
 public:
  KxuDiagnosticsData* diagnosticsData() override { return &m_data; }

 private:
  KxuDiagnosticsData m_data{};  // zeroed: empty name, no records, no callback, echo off
};

StaticDiagnosticsProvider& builtInProvider() {
  static StaticDiagnosticsProvider provider;
  return provider;
}

KxuDiagnosticsProvider*& currentProvider() {
  static KxuDiagnosticsProvider* provider = &builtInProvider();
  return provider;
}

}  // namespace

KxuDiagnosticsProvider* KxuRegisterDiagnosticsProvider(KxuDiagnosticsProvider* provider) {
  KxuDiagnosticsProvider* previous = currentProvider();
  currentProvider() = provider ? provider : &builtInProvider();
  return previous;
}

KxuDiagnosticsData* KxuGetDiagnosticsData() { return currentProvider()->diagnosticsData(); }
