// A scratch working directory with the message log open at a chosen debug
// level, and the modeller started, for tests of session-layer code that
// reports through the log and the status file.
#pragma once

#include <string>

#include "PSCFileHelpers.h"
#include "PSCLog.h"
#include "PSCModeller.h"
#include "TestSupport.h"
#include "erutil.h"
#include "pk.h"

namespace sessiontest {

class LoggedWorkDir {
 public:
  explicit LoggedWorkDir(const char* debugLevel = "1")
      : m_axdbg("AXDBG", nullptr), m_vtdbg("VTDBG", debugLevel) {
    PSCInitializeLog("session.log", nullptr);
  }
  ~LoggedWorkDir() {
    PSCTerminateLog();
    erClear();
  }
  LoggedWorkDir(const LoggedWorkDir&) = delete;
  LoggedWorkDir& operator=(const LoggedWorkDir&) = delete;

  std::string log() const { return meldtest::readFile(m_dir.path() / "session.log"); }
  std::string statusFile() const { return meldtest::readFile(m_dir.path() / "erutil.stat"); }
  const std::filesystem::path& path() const { return m_dir.path(); }

 private:
  meldtest::ScopedWorkDir m_dir;
  meldtest::ScopedEnv m_axdbg;
  meldtest::ScopedEnv m_vtdbg;
};

// The modeller started as the driver starts it, stopped at scope exit.
class RunningModeller : public LoggedWorkDir {
 public:
  explicit RunningModeller(const char* debugLevel = "1") : LoggedWorkDir(debugLevel) {
    PSCSetSchemaDirectory(nullptr);
    startResult = PSCStartModeller(false, true);
  }
  ~RunningModeller() { PSCEndModeller(); }
  int startResult;
};

inline PK_BODY_t makeBlock(double size = 0.01) {
  PK_BODY_t body = PK_ENTITY_null;
  EXPECT_EQ(PK_BODY_create_solid_block(size, size, size, nullptr, &body), 0);
  return body;
}

inline bool exists(PK_ENTITY_t entity) {
  PK_LOGICAL_t is = PK_LOGICAL_false;
  EXPECT_EQ(PK_ENTITY_is(entity, &is), 0);
  return is == PK_LOGICAL_true;
}

// The error record that the session layer writes at level 11.
inline std::string errorRecord(const std::string& function, int code, const std::string& callee,
                               int result, const std::string& source, int line) {
  return function + " = " + std::to_string(code) + " : " + callee + " = " +
         std::to_string(result) + " \n      [" + source + "],[" + std::to_string(line) + "]\n";
}

}  // namespace sessiontest
