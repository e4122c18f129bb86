// Running an external program that is cancelled when it takes too long.
//
//   run_program_example SECONDS COMMAND_LINE
//   run_program_example 2 "sleep 10"       (Windows: "ping -n 10 127.0.0.1")

#include <Core/Logging/CoutLogger.h>
#include <Core/Logging/LoggingCallback.h>
#include <Core/Process/CancelationToken.h>
#include <Core/Process/System.h>

#include <chrono>
#include <condition_variable>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

int main(int argc, char** argv)
{
  if (argc != 3) {
    std::cerr << "usage: run_program_example SECONDS COMMAND_LINE\n";
    return 2;
  }
  const std::chrono::seconds allowed(std::stoi(argv[1]));
  const std::string command = argv[2];

  // The runner logs every step through the facade.
  auto logger = std::make_shared<Orvan::Core::Logging::CoutLogger>();
  Orvan::Core::Logging::setLogger(logger);

  // Another thread decides when to give up; the runner notices within one
  // second and terminates the program.
  Orvan::Core::Process::CancelationToken token;
  std::mutex mutex;
  std::condition_variable finished;
  bool done = false;
  std::thread watchdog([&] {
    std::unique_lock<std::mutex> lock(mutex);
    if (!finished.wait_for(lock, allowed, [&] { return done; })) {
      token.requestCancel();
    }
  });

  const std::optional<unsigned long long> code = Orvan::Core::System::run(command, "", &token);
  {
    std::lock_guard<std::mutex> lock(mutex);
    done = true;
  }
  finished.notify_all();
  watchdog.join();

  if (!code) {
    std::cout << "cancelled after " << allowed.count() << " s\n";
    return 130;
  }
  std::cout << "exit code " << *code << '\n';
  return static_cast<int>(*code);
}
