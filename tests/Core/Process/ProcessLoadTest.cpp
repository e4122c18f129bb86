// The process runner under load: a thousand runs and a hundred cancellations,
// after which the process holds no more children, threads or descriptors than
// before.
#include <ProcessResources.h>

#include <ChildProcesses_posix.h>
#include <Core/Logging/Logger.h>
#include <Core/Logging/LoggingCallback.h>
#include <Core/Process/CancelationToken.h>
#include <Core/Process/System.h>
#include <FacadeReset.h>
#include <WaitFor.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <sys/wait.h>

namespace Logging = Orvan::Core::Logging;
namespace System = Orvan::Core::System;
namespace ProcessResources = Orvan::Testing::ProcessResources;
using Orvan::Core::Process::CancelationToken;
using Orvan::Testing::hasNoChild;
using Orvan::Testing::threadCount;
using namespace std::chrono_literals;

namespace {

// What a process holds that a run could leave behind.
struct Holdings {
  std::size_t descriptors = ProcessResources::openHandleCount().value_or(0);
  std::size_t threads = threadCount();
};

// Tells the test, through the runner's own log line, that the program of
// the run on this thread has started.
class StartSignal : public Logging::Logger {
public:
  static thread_local std::atomic<bool>* started;

  void info(const std::string& message) override
  {
    if (started != nullptr && message.rfind("CreateProcess successful", 0) == 0) {
      started->store(true);
    }
  }
  void warning(const std::string&) override {}
  void error(const std::string&) override {}
  void debug(const std::string&) override {}
  void verbose(const std::string&) override {}
  void triggerLogMemory() override {}
};

thread_local std::atomic<bool>* StartSignal::started = nullptr;

class ProcessLoad : public Orvan::Testing::FacadeReset {};

// A first run, on a thread of its own: it sets up what stays for the
// process's life, such as the helper thread that ThreadSanitizer starts with
// the process's second thread. Answers whether the run gave 0.
bool warmUp()
{
  bool succeeded = false;
  std::thread([&] { succeeded = System::run("true", "", nullptr) == 0ULL; }).join();
  return succeeded;
}

// Runs `work(thread, round)` for `rounds` rounds on each of `threads` threads
// at once.
template<class Work>
void onThreads(int threads, int rounds, Work work)
{
  std::vector<std::thread> workers;
  for (int t = 0; t < threads; ++t) {
    workers.emplace_back([&work, t, rounds] {
      for (int round = 0; round < rounds; ++round) {
        work(t, round);
      }
    });
  }
  for (std::thread& worker : workers) {
    worker.join();
  }
}

} // namespace

TEST_F(ProcessLoad, ThousandRunsLeaveNoChildThreadOrDescriptor)
{
  constexpr int THREADS = 4;
  constexpr int ROUNDS = 250;
  ASSERT_TRUE(warmUp());
  // Programs killed by earlier tests may still be on their way out.
  ASSERT_TRUE(Orvan::Testing::waitFor(hasNoChild));
  const Holdings before;

  std::atomic<int> wrong{0};
  onThreads(THREADS, ROUNDS, [&](int, int round) {
    const bool succeed = round % 2 == 0;
    if (System::run(succeed ? "true" : "false", "", nullptr) != (succeed ? 0ULL : 1ULL)) {
      ++wrong;
    }
  });

  const Holdings after;
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_TRUE(hasNoChild());
  EXPECT_EQ(after.descriptors, before.descriptors);
  EXPECT_EQ(after.threads, before.threads);
}

TEST_F(ProcessLoad, HundredCancellationsLeaveNoChildThreadOrDescriptor)
{
  // Each cancellation takes one wait cycle (a second): ten threads at once
  // keep the test near ten seconds.
  constexpr int THREADS = 10;
  constexpr int ROUNDS = 10;
  auto signal = std::make_shared<StartSignal>();
  Logging::setLogger(signal);
  ASSERT_TRUE(warmUp());
  // Programs killed by earlier tests may still be on their way out.
  ASSERT_TRUE(Orvan::Testing::waitFor(hasNoChild));
  const Holdings before;

  std::atomic<int> notCancelled{0};
  std::atomic<int> slow{0};
  onThreads(THREADS, ROUNDS, [&](int, int round) {
    CancelationToken token;
    std::atomic<bool> started{false};
    StartSignal::started = &started;
    std::thread canceller;
    if (round % 2 == 0) {
      // Cancelled before the call: the program starts, then is terminated.
      token.requestCancel();
    } else {
      // Cancelled from another thread while the program runs.
      canceller = std::thread([&] {
        Orvan::Testing::waitFor([&] { return started.load(); });
        token.requestCancel();
      });
    }
    const auto start = std::chrono::steady_clock::now();
    const std::optional<unsigned long long> result = System::run("sleep 30", "", &token);
    const auto elapsed = std::chrono::steady_clock::now() - start;
    if (canceller.joinable()) {
      canceller.join();
    }
    StartSignal::started = nullptr;
    if (result.has_value()) {
      ++notCancelled;
    }
    // Seen within a wait cycle or two, never after the program's 30 seconds.
    if (elapsed > 20s) {
      ++slow;
    }
  });

  // The killed programs are reaped in the background, by a thread that ends
  // with the last of them.
  EXPECT_TRUE(Orvan::Testing::waitFor(hasNoChild));
  EXPECT_TRUE(Orvan::Testing::waitFor([&before] { return threadCount() == before.threads; }));
  const Holdings after;
  Logging::setLogger({});
  EXPECT_EQ(notCancelled.load(), 0);
  EXPECT_EQ(slow.load(), 0);
  EXPECT_EQ(after.descriptors, before.descriptors);
  EXPECT_EQ(after.threads, before.threads);
}
