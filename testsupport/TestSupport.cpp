#include "TestSupport.h"

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace fs = std::filesystem;

namespace meldtest {

fs::path sourceDir() {
  const char* dir = std::getenv("MELD_SOURCE_DIR");
  return dir ? fs::path(dir) : fs::current_path();
}

std::optional<fs::path> corpusDir() {
  const char* dir = std::getenv("MELD_CORPUS_DIR");
  fs::path path = dir && *dir ? fs::path(dir) : sourceDir() / ".." / "shared" / "corpus";
  std::error_code ec;
  if (fs::is_regular_file(path / "MANIFEST.tsv", ec)) return fs::canonical(path, ec);
  return std::nullopt;
}

std::string readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

void writeFile(const fs::path& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

ScopedEnv::ScopedEnv(const char* name, const char* value) : m_name(name) {
  if (const char* old = std::getenv(name)) m_old = old;
  if (value)
    ::setenv(name, value, 1);
  else
    ::unsetenv(name);
}

ScopedEnv::~ScopedEnv() {
  if (m_old)
    ::setenv(m_name.c_str(), m_old->c_str(), 1);
  else
    ::unsetenv(m_name.c_str());
}

ScopedWorkDir::ScopedWorkDir() : m_old(fs::current_path()) {
  static std::atomic<int> counter{0};
  m_dir = fs::temp_directory_path() /
          ("meldtest-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
  fs::remove_all(m_dir);
  fs::create_directories(m_dir);
  fs::current_path(m_dir);
}

ScopedWorkDir::~ScopedWorkDir() {
  std::error_code ec;
  fs::current_path(m_old, ec);
  fs::remove_all(m_dir, ec);
}

}  // namespace meldtest
