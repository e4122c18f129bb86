// The typed way in: results instead of log lines, bounded and cancellable
// waits, nothing written to the host's standard streams by the library.
//
//   host_api_example DESCRIPTOR PROGRAM [ARGUMENTS...]
//   host_api_example 'data.bin@127.0.0.1:4000&timeout=5' ls -l
//
// Reads the file the descriptor names (giving up after 5 s without data),
// then runs PROGRAM with a 10 s limit and prints what it wrote, then the
// memory line.

#include <Core/FileInfo.h>
#include <Core/Logging/MemorySpy.h>
#include <Core/Process/CancelationToken.h>
#include <Core/Process/Execute.h>
#include <Core/StreamDiagnostics.h>

#include <chrono>
#include <iostream>
#include <iterator>
#include <string>
#include <system_error>

namespace Process = Orvan::Core::Process;

int main(int argc, char** argv)
{
  if (argc < 3) {
    std::cerr << "usage: host_api_example DESCRIPTOR PROGRAM [ARGUMENTS...]\n";
    return 2;
  }
  // The stream reports nothing on the console; this host has no logger, so
  // its reports go nowhere.
  Orvan::Core::setStreamDiagnostics(Orvan::Core::StreamDiagnostics::Silent);

  Process::CancelationToken token; // another thread could cancel both steps
  try {
    Orvan::Core::FileInfo::StreamOptions options;
    options.mode = static_cast<int>(std::ios::binary);
    options.idleTimeout = std::chrono::seconds(5);
    options.token = &token;
    const auto stream = Orvan::Core::FileInfo(std::string(argv[1])).makeStream(options);
    stream->exceptions(std::ios::badbit);
    const std::string data(std::istreambuf_iterator<char>(*stream), {});
    std::cout << "read " << data.size() << " bytes from " << argv[1] << '\n';
  } catch (const std::system_error& error) {
    std::cout << "could not read " << argv[1] << ": " << error.what() << '\n';
  } catch (const std::exception& error) {
    std::cout << "bad descriptor " << argv[1] << ": " << error.what() << '\n';
  }

  Process::ExecuteOptions run;
  run.arguments.assign(argv + 2, argv + argc);
  run.standardOutput = Process::StreamMode::Capture;
  run.standardError = Process::StreamMode::Capture;
  run.timeLimit = std::chrono::seconds(10);
  run.token = &token;
  const Process::ExecuteResult result = Process::execute(run);
  switch (result.outcome) {
  case Process::ExecuteResult::Outcome::NotStarted:
    std::cout << "could not start " << argv[2] << ": " << result.error.message() << '\n';
    break;
  case Process::ExecuteResult::Outcome::Exited:
    std::cout << argv[2] << " exited with " << result.exitCode << " after " << result.elapsed.count()
              << " ms and wrote " << result.standardOutput.size() << " bytes:\n"
              << result.standardOutput;
    break;
  case Process::ExecuteResult::Outcome::Signalled:
    std::cout << argv[2] << " was ended by signal " << result.signal << '\n';
    break;
  case Process::ExecuteResult::Outcome::Cancelled:
  case Process::ExecuteResult::Outcome::TimedOut:
    std::cout << argv[2] << " was stopped\n";
    break;
  }

  std::cout << Orvan::Core::Logging::MEMORY_LEGEND << '\n'
            << Orvan::Core::Logging::formatMemoryUsage(Orvan::Core::Logging::MemorySpy::captureMemoryUsage()) << '\n';
  return result.outcome == Process::ExecuteResult::Outcome::Exited ? result.exitCode : 1;
}
