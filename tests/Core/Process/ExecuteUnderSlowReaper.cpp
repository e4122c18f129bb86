// Runs execute below a subreaper that is slow to reap, as on a host whose
// init reaps every few seconds: the orphans of the program's group come to
// this process, which reaps nothing in its first five seconds.
//   ExecuteUnderSlowReaper LIMIT_MS PROGRAM ARGUMENT...
// The child that calls execute prints "OUTCOME ELAPSED_MS" (the outcome's
// number, execute's own elapsed time) as soon as execute returns.
#include <Core/Process/Execute.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char** argv)
{
  if (argc < 3 || ::prctl(PR_SET_CHILD_SUBREAPER, 1) != 0) {
    return 100;
  }
  const pid_t runner = ::fork();
  if (runner < 0) {
    return 101;
  }
  if (runner == 0) {
    Orvan::Core::Process::ExecuteOptions options;
    options.arguments.assign(argv + 2, argv + argc);
    options.standardOutput = Orvan::Core::Process::StreamMode::Capture;
    options.timeLimit = std::chrono::milliseconds(std::atol(argv[1]));
    const auto start = std::chrono::steady_clock::now();
    const auto result = Orvan::Core::Process::execute(options);
    const auto elapsed =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    std::printf("%d %lld\n", static_cast<int>(result.outcome), static_cast<long long>(elapsed.count()));
    std::fflush(stdout);
    ::_exit(0);
  }
  // Reaps nothing for five seconds, then every child as it ends, the runner
  // included.
  std::this_thread::sleep_for(std::chrono::seconds(5));
  int status = 0;
  while (::waitpid(-1, &status, 0) > 0 || errno == EINTR) {
  }
  return 0;
}
