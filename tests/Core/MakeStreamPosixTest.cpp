// What only POSIX systems show of makeStream: connection requests that the
// system drops, signals, closed standard streams and FIFOs.

#include <Core/Event/CoreEvents.h>
#include <Core/FileInfo.h>
#include <Core/Process/CancelationToken.h>
#include <Core/Process/TimeoutRetry.h>
#include <LoopbackFile.h>
#include <LoopbackServer.h>
#include <OutputCapture.h>
#include <RecordingTest.h>
#include <SilentListener_posix.h>
#include <TemporaryDirectory.h>
#include <Utils/Timer.h>
#include <WaitFor.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <future>
#include <istream>
#include <iterator>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

using Orvan::Core::FileInfo;
using Orvan::Core::Process::CancelationToken;
using Orvan::Core::Process::TimeoutRetry;
using Orvan::Testing::loopbackFile;
using Orvan::Testing::RecordingTest;
using Orvan::Testing::SilentListener;
using Orvan::Testing::TemporaryDirectory;
using namespace std::chrono_literals;
namespace Events = Orvan::Core::Event;
using Clock = std::chrono::steady_clock;

namespace {

class MakeStreamPosix : public RecordingTest {};

sockaddr_in loopback(unsigned short port)
{
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

// Connects to `finfo` and returns the code of the std::system_error it
// fails with (0 when it connects), and how long it took.
int failureCode(const FileInfo& finfo, Clock::duration& took)
{
  const Clock::time_point start = Clock::now();
  int code = 0;
  try {
    finfo.makeStream(std::ios::in);
  } catch (const std::system_error& error) {
    code = error.code().value();
  }
  took = Clock::now() - start;
  return code;
}

void ignoreSignal(int) {}

long long milliseconds(Clock::duration duration)
{
  return std::chrono::duration_cast<std::chrono::milliseconds>(duration).count();
}

} // namespace

TEST_F(MakeStreamPosix, AConnectionThatHangsEndsWhenTheTimeoutHasRunOut)
{
  SilentListener server(true);
  ASSERT_TRUE(server.isReady());
  TimeoutRetry policy;
  FileInfo finfo = loopbackFile("data.bin", server.port(), 1);
  finfo.retry = &policy;

  Clock::duration took{};
  EXPECT_EQ(failureCode(finfo, took), ETIMEDOUT);
  EXPECT_GE(took, 900ms);
  EXPECT_LT(took, 10s) << "the system's own connection time-out is over two minutes";
  const std::vector<std::uint32_t> ids = events->ids();
  ASSERT_GE(ids.size(), 3u);
  EXPECT_EQ(ids.front(), Events::CONNECTING);
  EXPECT_EQ(ids[ids.size() - 2], Events::TIMEOUT_REACHED);
  EXPECT_EQ(ids.back(), Events::FAILED_TO_CONNECT);
}

TEST_F(MakeStreamPosix, AConnectionThatHangsEndsSoonAfterItsTokenIsCancelled)
{
  SilentListener server(true);
  ASSERT_TRUE(server.isReady());
  CancelationToken token;
  TimeoutRetry policy(&token);
  FileInfo finfo = loopbackFile("data.bin", server.port(), 600);
  finfo.retry = &policy;

  // Cancelled once the attempt has begun: the Connecting event comes just
  // before it.
  Clock::time_point cancelled{};
  std::thread canceller([&] {
    Orvan::Testing::waitFor([&] { return events->count(Events::CONNECTING) > 0; });
    cancelled = Clock::now();
    token.requestCancel();
  });
  Clock::duration took{};
  const int code = failureCode(finfo, took);
  const Clock::time_point end = Clock::now();
  canceller.join();
  EXPECT_EQ(code, ECANCELED);
  EXPECT_LT(end - cancelled, 2s) << "a cancellation is noticed within 200 ms";
  EXPECT_EQ(events->ids(),
            (std::vector<std::uint32_t>{Events::CONNECTING, Events::CANCELLED_CONNECTION, Events::FAILED_TO_CONNECT}));
}

namespace {

// A host's own policy: says yes `times` times, whatever the timer says.
class SaysYes : public FileInfo::RetryInterface {
public:
  explicit SaysYes(int times)
      : left(times)
  {
  }
  bool operator()(const FileInfo&, const Orvan::Utils::Timer<std::chrono::system_clock>&) override
  {
    return left-- > 0;
  }

private:
  int left;
};

} // namespace

TEST_F(MakeStreamPosix, EveryAttemptUnderAHostsOwnPolicyWaitsTheWholeTimeout)
{
  SilentListener server(true);
  ASSERT_TRUE(server.isReady());
  SaysYes policy(3);
  FileInfo finfo = loopbackFile("data.bin", server.port(), 1);
  finfo.retry = &policy;

  Orvan::Testing::OutputCapture error(2);
  Clock::duration took{};
  const int code = failureCode(finfo, took);
  error.release();
  EXPECT_EQ(code, ETIMEDOUT) << std::system_category().message(code);
  const auto entries = events->entries();
  ASSERT_EQ(events->ids(), (std::vector<std::uint32_t>{Events::CONNECTING, Events::CONNECTING, Events::CONNECTING,
                                                       Events::CONNECTING, Events::FAILED_TO_CONNECT}));
  // Between two Connecting events: one attempt, then the 500 ms pause.
  for (std::size_t attempt = 0; attempt < 4; ++attempt) {
    const Clock::duration pause = attempt < 3 ? Clock::duration(500ms) : Clock::duration(0);
    const Clock::duration waited = entries[attempt + 1].when - entries[attempt].when - pause;
    EXPECT_GE(milliseconds(waited), 900) << "attempt " << attempt + 1;
    EXPECT_LT(milliseconds(waited), 5000) << "attempt " << attempt + 1;
  }
  EXPECT_LT(took, 30s);
}

TEST_F(MakeStreamPosix, AnAttemptEndedByACancellationKeepsTheErrorTheSystemGaveIt)
{
  // A refused connection on this machine's loopback has its error at once,
  // while the connection still counts as in progress.
  Orvan::Testing::RefusingPort refusing;
  CancelationToken token;
  token.requestCancel();
  TimeoutRetry policy(&token);
  FileInfo finfo = loopbackFile("data.bin", refusing.port(), 30);
  finfo.retry = &policy;

  Orvan::Testing::OutputCapture error(2);
  Clock::duration took{};
  const int code = failureCode(finfo, took);
  error.release();
  EXPECT_EQ(code, ECONNREFUSED) << std::system_category().message(code);
  EXPECT_EQ(events->ids(),
            (std::vector<std::uint32_t>{Events::CONNECTING, Events::CANCELLED_CONNECTION, Events::FAILED_TO_CONNECT}));
}

TEST_F(MakeStreamPosix, SignalsDuringAConnectionDoNotEndIt)
{
  SilentListener server(true);
  ASSERT_TRUE(server.isReady());
  // A handler installed without SA_RESTART interrupts blocking calls; an
  // interval timer raises its signal every 5 ms while the connection waits.
  struct sigaction handler {};
  handler.sa_handler = ignoreSignal;
  struct sigaction previous {};
  ASSERT_EQ(::sigaction(SIGALRM, &handler, &previous), 0);
  itimerval every5ms{};
  every5ms.it_interval.tv_usec = 5000;
  every5ms.it_value.tv_usec = 5000;
  ASSERT_EQ(::setitimer(ITIMER_REAL, &every5ms, nullptr), 0);

  TimeoutRetry policy;
  FileInfo finfo = loopbackFile("data.bin", server.port(), 1);
  finfo.retry = &policy;
  Clock::duration took{};
  const int code = failureCode(finfo, took);
  const itimerval stopped{};
  ::setitimer(ITIMER_REAL, &stopped, nullptr);
  ::sigaction(SIGALRM, &previous, nullptr);

  EXPECT_EQ(code, ETIMEDOUT) << std::system_category().message(code);
  EXPECT_LT(took, 10s);
}

TEST_F(MakeStreamPosix, AHostWithoutStandardOutputSendsNothingToTheServer)
{
  const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = loopback(0);
  socklen_t length = sizeof address;
  ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), length), 0);
  ASSERT_EQ(::listen(listener, 1), 0);
  ASSERT_EQ(::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length), 0);

  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // The host has closed its standard output: descriptor 1 is free.
    ::close(1);
    int status = 1;
    try {
      const auto stream = loopbackFile("data.bin", ntohs(address.sin_port), 0).makeStream(std::ios::in);
      const std::string data(std::istreambuf_iterator<char>(*stream), {});
      status = data == "payload" ? 0 : 1;
    } catch (...) {
      status = 2;
    }
    ::_exit(status);
  }

  pollfd waiting{listener, POLLIN, 0};
  ASSERT_EQ(::poll(&waiting, 1, 30000), 1);
  const int connection = ::accept(listener, nullptr, nullptr);
  ASSERT_GE(connection, 0);
  ASSERT_EQ(::send(connection, "payload", 7, MSG_NOSIGNAL), 7);
  ::shutdown(connection, SHUT_WR);
  std::string received;
  char buffer[256];
  for (ssize_t count = 0; (count = ::recv(connection, buffer, sizeof buffer, 0)) > 0;) {
    received.append(buffer, static_cast<std::size_t>(count));
  }
  ::close(connection);
  ::close(listener);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_EQ(received, "") << "the library's own output went into the connection";
}

namespace {

// Comes to a FIFO 300 ms after it is made: opens it for writing as soon as
// it has a reader (an open for writing that does not wait succeeds only
// then), writes `text` and closes it. Gives up when destroyed.
class LateWriter {
public:
  LateWriter(std::filesystem::path path, std::string text)
      : thread([this, path = std::move(path), text = std::move(text)] {
        std::this_thread::sleep_for(300ms);
        int descriptor = -1;
        Orvan::Testing::waitFor([&] {
          descriptor = ::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
          return descriptor >= 0 || stopping.load();
        });
        if (descriptor >= 0) {
          [[maybe_unused]] const ssize_t written = ::write(descriptor, text.data(), text.size());
          ::close(descriptor);
        }
      })
  {
  }
  ~LateWriter()
  {
    stopping = true;
    thread.join();
  }
  LateWriter(const LateWriter&) = delete;
  LateWriter& operator=(const LateWriter&) = delete;

private:
  std::atomic<bool> stopping{false};
  std::thread thread;
};

// Runs `opening` (which opens `fifo`) on a thread of its own; if it is still
// waiting after the test's deadline, a writer lets it go so that the test
// ends, and the test fails.
template<class Opening>
auto openedWithin(const std::filesystem::path& fifo, Opening opening)
{
  auto result = std::async(std::launch::async, opening);
  if (result.wait_for(Orvan::Testing::DEFAULT_DEADLINE) != std::future_status::ready) {
    ADD_FAILURE() << "opening the FIFO never ended";
    const int writer = ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    ::close(writer);
  }
  return result.get();
}

std::string readAll(std::istream& stream)
{
  return std::string(std::istreambuf_iterator<char>(stream), {});
}

} // namespace

TEST_F(MakeStreamPosix, AFifoWaitsForItsWriterAndReadsWhatItWrites)
{
  TemporaryDirectory directory;
  const auto path = directory / "fifo";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  LateWriter writer(path, "hello");
  EXPECT_EQ(openedWithin(path, [&path] { return readAll(*FileInfo(path).makeStream(std::ios::in)); }), "hello");
}

TEST_F(MakeStreamPosix, AFifoOpenedWithOptionsWaitsForAWriterThatComesInTime)
{
  TemporaryDirectory directory;
  const auto path = directory / "fifo";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  CancelationToken token;
  FileInfo::StreamOptions options;
  options.mode = std::ios::in;
  options.idleTimeout = 30s;
  options.token = &token;
  LateWriter writer(path, "hello");
  EXPECT_EQ(openedWithin(path, [&] { return readAll(*FileInfo(path).makeStream(options)); }), "hello");
}

namespace {

// Opens `path` with `options`, expecting a std::system_error; returns its
// code and text, and how long the opening took.
std::error_code fifoFailure(const std::filesystem::path& path, const FileInfo::StreamOptions& options,
                            std::string& text, Clock::duration& took)
{
  const Clock::time_point start = Clock::now();
  std::error_code code;
  try {
    FileInfo(path).makeStream(options);
    text = "<opened>";
  } catch (const std::system_error& error) {
    code = error.code();
    text = error.what();
  }
  took = Clock::now() - start;
  return code;
}

} // namespace

TEST_F(MakeStreamPosix, AFifoWithoutAWriterEndsTheTypedOpeningAfterTheIdleTimeout)
{
  TemporaryDirectory directory;
  const auto path = directory / "fifo";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  FileInfo::StreamOptions options;
  options.mode = std::ios::in;
  options.idleTimeout = 300ms;
  std::string text;
  Clock::duration took{};
  const std::error_code code = openedWithin(path, [&] { return fifoFailure(path, options, text, took); });
  EXPECT_EQ(code, std::make_error_code(std::errc::timed_out)) << text;
  EXPECT_EQ(text.rfind("Failed to open file '" + path.string() + "': no writer came within 300 ms", 0), 0u) << text;
  EXPECT_GE(milliseconds(took), 300);
}

TEST_F(MakeStreamPosix, CancellingTheTokenEndsTheTypedOpeningOfAFifoWithoutAWriter)
{
  TemporaryDirectory directory;
  const auto path = directory / "fifo";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  CancelationToken token;
  FileInfo::StreamOptions options;
  options.mode = std::ios::in;
  options.token = &token;
  // Cancelled once the opening is under way: its line is logged just before.
  std::atomic<Clock::rep> cancelledAt{0};
  std::thread canceller([&] {
    Orvan::Testing::waitFor([&] { return !logger->lines().empty(); });
    cancelledAt = Clock::now().time_since_epoch().count();
    token.requestCancel();
  });
  std::string text;
  Clock::duration took{};
  const std::error_code code = openedWithin(path, [&] { return fifoFailure(path, options, text, took); });
  const Clock::time_point ended = Clock::now();
  canceller.join();
  EXPECT_EQ(code, std::make_error_code(std::errc::operation_canceled)) << text;
  EXPECT_EQ(text.rfind("Failed to open file '" + path.string() + "': cancelled while waiting for a writer", 0), 0u)
      << text;
  EXPECT_LT(ended - Clock::time_point(Clock::duration(cancelledAt.load())), 2s) << "noticed within 100 ms";
}

TEST_F(MakeStreamPosix, AFifoIsReadAsAFileOnceItsWriterComes)
{
  TemporaryDirectory directory;
  const auto path = directory / "fifo";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  // The writer opens first, without waiting for a reader.
  const int keeper = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  const int writer = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
  ASSERT_GE(writer, 0);
  const auto stream = FileInfo(path).makeStream(std::ios::in);
  ::close(keeper);
  ASSERT_EQ(::write(writer, "through the fifo", 16), 16);
  ::close(writer);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(*stream), {}), "through the fifo");
}
