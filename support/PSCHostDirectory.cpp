#include "PSCHostDirectory.h"

#include <strings.h>
#include <unistd.h>

#include <array>

namespace {

constexpr std::size_t kMaxProgramPath = 260;

// Translator hosts that keep their schema folder beside the executable.
constexpr std::array<const char*, 4> kHostProgramNames = {
    "xtbatchtranslator", "xtbatchtranslator.exe", "solidexchangehost", "solidexchangehost.exe"};

bool isHostProgramName(const std::string& fileName) {
  for (const char* host : kHostProgramNames) {
    if (strcasecmp(fileName.c_str(), host) == 0) return true;
  }
  return false;
}

std::string runningProgramPath() {
  char path[kMaxProgramPath + 1] = {};
  const ssize_t length = readlink("/proc/self/exe", path, kMaxProgramPath);
  if (length <= 0) return "";
  return std::string(path, static_cast<std::size_t>(length));
}

}  // namespace

std::string PSCHostDirectoryOf(const std::string& programPath) {
  const std::string path = programPath.substr(0, kMaxProgramPath);
  const std::size_t slash = path.find_last_of('/');
  const std::string fileName = slash == std::string::npos ? path : path.substr(slash + 1);
  if (!isHostProgramName(fileName)) return "";
  return slash == std::string::npos ? "" : path.substr(0, slash + 1);
}

std::string PSCGetHostDirectory() { return PSCHostDirectoryOf(runningProgramPath()); }
