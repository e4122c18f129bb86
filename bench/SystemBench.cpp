// The cost of running a program that ends at once: System::run with no
// logger installed, and execute, against the bare system calls that start a
// program and wait for it (posix_spawnp and waitpid). All notice the end as
// soon as it happens, so the ratio shows what the runner adds around them.
// Then execute capturing 1 MiB of output against a hand-written spawn, pipe
// and read loop, and how long a cancellation takes to end a program.
#include "Comparison.h"

#include <Core/Logging/LoggingCallback.h>
#include <Core/Process/CancelationToken.h>
#include <Core/Process/Execute.h>
#include <Core/Process/System.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

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

void ExecuteTrue(benchmark::State& state)
{
  Orvan::Core::Process::ExecuteOptions options;
  options.arguments = {"true"};
  for (auto _ : state) {
    const auto result = Orvan::Core::Process::execute(options);
    if (result.outcome != Orvan::Core::Process::ExecuteResult::Outcome::Exited || result.exitCode != 0) {
      state.SkipWithError("true did not give 0");
      break;
    }
  }
}
BENCHMARK(ExecuteTrue)->Repetitions(REPETITIONS)->ReportAggregatesOnly(true)->UseRealTime();

// A child that writes 1 MiB to its standard output.
const char* const WRITE_A_MEBIBYTE = "head -c 1048576 /dev/zero";

void ExecuteCapturingAMebibyte(benchmark::State& state)
{
  Orvan::Core::Process::ExecuteOptions options;
  options.arguments = {"sh", "-c", WRITE_A_MEBIBYTE};
  options.standardOutput = Orvan::Core::Process::StreamMode::Capture;
  for (auto _ : state) {
    const auto result = Orvan::Core::Process::execute(options);
    if (result.standardOutput.size() != 1048576) {
      state.SkipWithError("the output did not come whole");
      break;
    }
  }
}
BENCHMARK(ExecuteCapturingAMebibyte)->Repetitions(REPETITIONS)->ReportAggregatesOnly(true)->UseRealTime();

void SpawnPipeAndRead(benchmark::State& state)
{
  char shell[] = "sh";
  char flag[] = "-c";
  std::string script = WRITE_A_MEBIBYTE;
  char* arguments[] = {shell, flag, script.data(), nullptr};
  std::vector<char> buffer(65536);
  for (auto _ : state) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
      state.SkipWithError("no pipe");
      break;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
    pid_t pid = 0;
    const int spawned = posix_spawnp(&pid, shell, &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    std::string output;
    for (ssize_t got = 0; spawned == 0 && (got = read(ends[0], buffer.data(), buffer.size())) > 0;) {
      output.append(buffer.data(), static_cast<std::size_t>(got));
    }
    close(ends[0]);
    int status = 0;
    if (spawned != 0 || waitpid(pid, &status, 0) != pid || output.size() != 1048576) {
      state.SkipWithError("the output did not come whole");
      break;
    }
  }
}
BENCHMARK(SpawnPipeAndRead)->Repetitions(REPETITIONS)->ReportAggregatesOnly(true)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
  return Orvan::Bench::runAndCompare(argc, argv,
                                     {{"RunProgram", "SpawnAndWait", 1.15},
                                      {"ExecuteTrue", "SpawnAndWait", 1.15},
                                      {"ExecuteCapturingAMebibyte", "SpawnPipeAndRead", 1.2}});
}
