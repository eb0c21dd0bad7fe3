// Drives the frustrum slots the way the kernel calls them, with plain values
// instead of pointers, for the frustrum and header tests.
#pragma once

#include <string>

#include "PSCFileHelpers.h"
#include "PSCFrustrum.h"
#include "TestSupport.h"

namespace frutest {

constexpr int kTransmit = PK_FR_guise_transmit;
constexpr int kText = PK_FR_format_text;
constexpr int kBinary = PK_FR_format_binary;

struct Opened {
  int strid;
  int ifail;
};

inline Opened openWrite(int guise, int format, const std::string& key,
                        const std::string& pd2 = "") {
  int namlen = static_cast<int>(key.size());
  int pd2len = static_cast<int>(pd2.size());
  Opened result{0, 0};
  FFOPWR(&guise, &format, key.c_str(), &namlen, pd2.c_str(), &pd2len, &result.strid,
         &result.ifail);
  return result;
}

inline Opened openRead(int guise, int format, const std::string& key, int skipHeader = 1) {
  int namlen = static_cast<int>(key.size());
  Opened result{0, 0};
  FFOPRD(&guise, &format, key.c_str(), &namlen, &skipHeader, &result.strid, &result.ifail);
  return result;
}

inline Opened openRollback(int maxsize = 4096, int* actsize = nullptr) {
  int guise = PK_FR_guise_rollback, minsize = 16, granted = 0;
  Opened result{0, 0};
  FFOPRB(&guise, &minsize, &maxsize, &granted, &result.strid, &result.ifail);
  if (actsize != nullptr) *actsize = granted;
  return result;
}

inline int write(int guise, int strid, const std::string& bytes) {
  int nchars = static_cast<int>(bytes.size()), ifail = -1;
  FFWRIT(&guise, &strid, &nchars, bytes.data(), &ifail);
  return ifail;
}

// One read of at most `nmax` bytes; `out` gets exactly what the slot returned.
inline int read(int guise, int strid, int nmax, std::string& out) {
  std::string buffer(static_cast<size_t>(nmax), '\0');
  int nactual = -1, ifail = -1;
  FFREAD(&guise, &strid, &nmax, buffer.data(), &nactual, &ifail);
  out.assign(buffer.data(), nactual > 0 ? static_cast<size_t>(nactual) : 0);
  return ifail;
}

// One read as text, or ifailText(ifail) when the slot failed.
inline std::string ifailText(int ifail) { return "<ifail " + std::to_string(ifail) + ">"; }
inline std::string readPiece(int guise, int strid, int nmax) {
  std::string out;
  const int ifail = read(guise, strid, nmax, out);
  return ifail == 0 ? out : ifailText(ifail);
}

// Everything left in the stream, read in `nmax`-sized calls until end of file.
inline std::string readToEnd(int guise, int strid, int nmax, int* lastIfail) {
  std::string all, piece;
  while ((*lastIfail = read(guise, strid, nmax, piece)) == 0) all += piece;
  return all;
}

inline int close(int guise, int strid, int action = PK_FR_close_normal) {
  int ifail = -1;
  FFCLOS(&guise, &strid, &action, &ifail);
  return ifail;
}

inline int start() {
  int ifail = -1;
  FSTART(&ifail);
  return ifail;
}

inline int stop() {
  int ifail = -1;
  FSTOP(&ifail);
  return ifail;
}

// A started frustrum in a fresh working directory, with the driver's settings
// reset; every start is undone at the end, whatever the test left open.
class FrustrumTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char key[301];
    PSCSetTransmitExtension(".x_t");
    PSCSetOutputFile("result", key);
    PSCSetSchemaDirectory(nullptr);
    ASSERT_EQ(start(), 0);
  }
  void TearDown() override {
    while (stop() == 0) {
    }
  }
  std::string fileText(const std::string& name) { return meldtest::readFile(m_dir.path() / name); }
  bool exists(const std::string& name) { return std::filesystem::exists(m_dir.path() / name); }

  meldtest::ScopedEnv m_noSchemaVariable{"P_SCHEMA", nullptr};
  meldtest::ScopedEnv m_tmpdir{"TMPDIR", nullptr};
  meldtest::ScopedWorkDir m_dir;
};

}  // namespace frutest
