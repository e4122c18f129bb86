// How execute waits: from a cancellation to its return, and how often it
// wakes its calling thread while the program sleeps, each beside a reference
// loop of the design it replaced, which looked at the token every 10 ms.
//
// Reference loop: the program in a group of its own; waitpid(WNOHANG) and a
// look at the token, then a 10 ms sleep, until either; on cancellation the
// group gets SIGTERM and is looked at every 10 ms until it is gone.
#include "Comparison.h"

#include <Core/Process/CancelationToken.h>
#include <Core/Process/Execute.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include <poll.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

using Orvan::Core::Process::CancelationToken;
using Orvan::Core::Process::execute;
using Orvan::Core::Process::ExecuteOptions;
using Clock = std::chrono::steady_clock;

constexpr int CANCELLATIONS = 100;
// The idle run: the program sleeps this long, under a longer time limit.
constexpr int IDLE_SECONDS = 10;

// Starts `sleep SECONDS` in a process group of its own; -1 on failure.
pid_t startSleepInItsGroup(int seconds)
{
  std::string duration = std::to_string(seconds);
  char program[] = "sleep";
  char* arguments[] = {program, duration.data(), nullptr};
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setpgroup(&attributes, 0);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  pid_t pid = -1;
  const int result = posix_spawnp(&pid, program, nullptr, &attributes, arguments, environ);
  posix_spawnattr_destroy(&attributes);
  return result == 0 ? pid : -1;
}

// The replaced design's wait: the program's end and the token looked at
// every 10 ms; once cancelled, the group asked to end and looked at every
// 10 ms until none of it is left.
void waitTheOldWay(pid_t pid, const CancelationToken& token)
{
  int status = 0;
  for (;;) {
    if (::waitpid(pid, &status, WNOHANG) == pid) {
      return;
    }
    if (token.isCancelRequested()) {
      break;
    }
    ::poll(nullptr, 0, 10);
  }
  ::kill(-pid, SIGTERM);
  bool reaped = false;
  for (;;) {
    reaped = reaped || ::waitpid(pid, &status, WNOHANG) == pid;
    if (reaped && ::kill(-pid, 0) != 0 && errno == ESRCH) {
      return;
    }
    ::poll(nullptr, 0, 10);
  }
}

// The time from the cancellation to the return of `run`, for each of
// CANCELLATIONS runs of a program that sleeps and honours SIGTERM.
template<class Run>
std::vector<double> cancellationLatencies(Run run)
{
  std::vector<double> latencies;
  for (int index = 0; index < CANCELLATIONS; ++index) {
    CancelationToken token;
    Clock::time_point cancelled;
    std::thread canceller([&] {
      // Long enough for the program to be running.
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      cancelled = Clock::now();
      token.requestCancel();
    });
    run(token);
    const Clock::time_point returned = Clock::now();
    canceller.join();
    latencies.push_back(std::chrono::duration<double, std::milli>(returned - cancelled).count());
  }
  std::sort(latencies.begin(), latencies.end());
  return latencies;
}

void report(benchmark::State& state, const char* prefix, const std::vector<double>& latencies)
{
  state.counters[std::string(prefix) + "_median_ms"] = latencies[latencies.size() / 2];
  state.counters[std::string(prefix) + "_worst_ms"] = latencies.back();
}

void ExecuteCancelToReturn(benchmark::State& state)
{
  std::vector<double> latencies;
  for (auto _ : state) {
    latencies = cancellationLatencies([](const CancelationToken& token) {
      ExecuteOptions options;
      options.arguments = {"sleep", "10"};
      options.token = &token;
      execute(options);
    });
  }
  report(state, "execute", latencies);
}
BENCHMARK(ExecuteCancelToReturn)->Iterations(1)->Repetitions(1)->UseRealTime();

void OldDesignCancelToReturn(benchmark::State& state)
{
  std::vector<double> latencies;
  for (auto _ : state) {
    latencies = cancellationLatencies([](const CancelationToken& token) {
      const pid_t pid = startSleepInItsGroup(10);
      if (pid > 0) {
        waitTheOldWay(pid, token);
      }
    });
  }
  report(state, "old_design", latencies);
}
BENCHMARK(OldDesignCancelToReturn)->Iterations(1)->Repetitions(1)->UseRealTime();

// The calling thread's voluntary context switches: each is a wake-up after
// a wait.
long voluntarySwitches()
{
  rusage usage{};
  ::getrusage(RUSAGE_THREAD, &usage);
  return usage.ru_nvcsw;
}

void IdleExecuteWakeUps(benchmark::State& state)
{
  long wakeUps = 0;
  for (auto _ : state) {
    CancelationToken token;
    ExecuteOptions options;
    options.arguments = {"sleep", std::to_string(IDLE_SECONDS)};
    options.token = &token;
    options.timeLimit = std::chrono::seconds(IDLE_SECONDS * 6);
    const long before = voluntarySwitches();
    execute(options);
    wakeUps = voluntarySwitches() - before;
  }
  state.counters["wakeups"] = static_cast<double>(wakeUps);
}
BENCHMARK(IdleExecuteWakeUps)->Iterations(1)->Repetitions(1)->UseRealTime()->Unit(benchmark::kSecond);

void OldDesignIdleWakeUps(benchmark::State& state)
{
  long wakeUps = 0;
  for (auto _ : state) {
    CancelationToken token;
    const long before = voluntarySwitches();
    const pid_t pid = startSleepInItsGroup(IDLE_SECONDS);
    if (pid > 0) {
      waitTheOldWay(pid, token);
    }
    wakeUps = voluntarySwitches() - before;
  }
  state.counters["wakeups"] = static_cast<double>(wakeUps);
}
BENCHMARK(OldDesignIdleWakeUps)->Iterations(1)->Repetitions(1)->UseRealTime()->Unit(benchmark::kSecond);

} // namespace

int main(int argc, char** argv)
{
  return Orvan::Bench::runAndCompare(argc, argv, {});
}
