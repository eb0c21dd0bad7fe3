// Helpers for the unit tests: environment and working-directory guards, file
// reading, and the location of the real-file corpus.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include <gtest/gtest.h>

namespace meldtest {

// The repository's root (from MELD_SOURCE_DIR, set by CTest).
std::filesystem::path sourceDir();

// The folder of real XT files, or nothing when it is absent on this machine.
std::optional<std::filesystem::path> corpusDir();

// Whole file as bytes; empty when it cannot be read.
std::string readFile(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, const std::string& bytes);

// Sets (or, with nullptr, unsets) one environment variable for a scope.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value);
  ~ScopedEnv();
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string m_name;
  std::optional<std::string> m_old;
};

// Creates a fresh empty directory and makes it the working directory for a
// scope; the old working directory comes back and the directory is removed.
class ScopedWorkDir {
 public:
  ScopedWorkDir();
  ~ScopedWorkDir();
  ScopedWorkDir(const ScopedWorkDir&) = delete;
  ScopedWorkDir& operator=(const ScopedWorkDir&) = delete;
  const std::filesystem::path& path() const { return m_dir; }

 private:
  std::filesystem::path m_old;
  std::filesystem::path m_dir;
};

}  // namespace meldtest

// Skips the current test when the corpus is not on this machine.
#define MELD_REQUIRE_CORPUS(var)                                   \
  auto var##_opt = ::meldtest::corpusDir();                        \
  if (!var##_opt) GTEST_SKIP() << "corpus folder not present";     \
  const std::filesystem::path var = *var##_opt
