// The cost of running a program that ends at once: System::run with no
// logger installed, against the bare system calls that start a program and
// wait for it (posix_spawnp and waitpid). Both notice the end as soon as it
// happens, so the ratio shows what the runner adds around them.
#include "Comparison.h"

#include <Core/Logging/LoggingCallback.h>
#include <Core/Process/System.h>

#include <spawn.h>
#include <sys/wait.h>

extern char** environ;

namespace {

namespace Logging = Orvan::Core::Logging;
namespace System = Orvan::Core::System;

constexpr int REPETITIONS = 5;

void RunProgram(benchmark::State& state)
{
  Logging::setLogger({});
  Logging::sLoggingFunction = nullptr;
  for (auto _ : state) {
    const auto code = System::run("true", "", nullptr);
    if (code != 0ULL) {
      state.SkipWithError("true did not give 0");
      break;
    }
  }
}
BENCHMARK(RunProgram)->Repetitions(REPETITIONS)->ReportAggregatesOnly(true)->UseRealTime();

void SpawnAndWait(benchmark::State& state)
{
  char program[] = "true";
  char* arguments[] = {program, nullptr};
  for (auto _ : state) {
    pid_t pid = 0;
    int status = 0;
    if (posix_spawnp(&pid, program, nullptr, nullptr, arguments, environ) != 0 || waitpid(pid, &status, 0) != pid ||
        !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      state.SkipWithError("true could not be run");
      break;
    }
  }
}
BENCHMARK(SpawnAndWait)->Repetitions(REPETITIONS)->ReportAggregatesOnly(true)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
  return Orvan::Bench::runAndCompare(argc, argv, {{"RunProgram", "SpawnAndWait", 1.15}});
}
