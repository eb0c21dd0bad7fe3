// Runs a built program as a user would: in a folder of its own, with a chosen
// environment, capturing its console output and exit code.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace e2e {

struct RunResult {
  int exitCode = -1;  // -1: did not exit normally
  std::string out;
  std::string err;
};

// Runs `program` with `args` in `workDir`. The environment is the test's own,
// minus the variables the program reads (so that the caller's shell does not
// leak in), plus `env`.
RunResult run(const std::string& program, const std::vector<std::string>& args,
              const std::filesystem::path& workDir,
              const std::map<std::string, std::string>& env = {});

}  // namespace e2e
