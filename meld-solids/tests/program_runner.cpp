#include "program_runner.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "TestSupport.h"

extern char** environ;

namespace e2e {
namespace {

// Every variable the program or its layers read: none may come from the
// shell that started the tests.
const char* const kProgramVariables[] = {
    "P_SCHEMA", "VTX_PSC_USE_SHORT_NAME_SCHEMA", "VTDBG_FRUSTRUM", "NUMBER_OF_PROCESSORS",
    "ROLBK", "QUIL_ROLBK_FILE", "VTX_ROLBK_FILE", "AXDBG", "VTDBG", "QUIL_DBG_PRINT",
    "VTX_DBG_PRINT", "VTX_ALWAYS_DEBUG_STAT_DIR", "ER_OUTFILE", "VTX_ER_STAT_ADD_MODE",
    "VTX_PSC_ANALYZE_PERFORMANCE", "LC_ALL", "LC_CTYPE", "LANG"};

bool isProgramVariable(const std::string& entry) {
  for (const char* name : kProgramVariables) {
    const std::size_t n = std::strlen(name);
    if (entry.compare(0, n, name) == 0 && entry.size() > n && entry[n] == '=') return true;
  }
  return false;
}

std::vector<std::string> environmentFor(const std::map<std::string, std::string>& extra) {
  std::vector<std::string> entries;
  for (char** e = environ; *e; ++e)
    if (!isProgramVariable(*e)) entries.emplace_back(*e);
  for (const auto& [name, value] : extra) entries.push_back(name + "=" + value);
  return entries;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> out;
  for (std::string& t : texts) out.push_back(t.data());
  out.push_back(nullptr);
  return out;
}

}  // namespace

RunResult run(const std::string& program, const std::vector<std::string>& args,
              const std::filesystem::path& workDir, const std::map<std::string, std::string>& env) {
  const std::filesystem::path outPath = workDir / ".run.stdout";
  const std::filesystem::path errPath = workDir / ".run.stderr";
  std::vector<std::string> argv{program};
  argv.insert(argv.end(), args.begin(), args.end());
  std::vector<std::string> envp = environmentFor(env);
  std::vector<char*> argvPtr = pointers(argv), envPtr = pointers(envp);
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    const int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (out < 0 || err < 0 || chdir(workDir.c_str()) != 0) _exit(127);
    dup2(out, 1);
    dup2(err, 2);
    execve(program.c_str(), argvPtr.data(), envPtr.data());
    _exit(127);
  }
  RunResult result;
  int status = 0;
  if (pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status))
    result.exitCode = WEXITSTATUS(status);
  result.out = meldtest::readFile(outPath);
  result.err = meldtest::readFile(errPath);
  std::filesystem::remove(outPath);
  std::filesystem::remove(errPath);
  return result;
}

}  // namespace e2e
