// The file server seen from raw sockets: how each connection ends (a clean end
// of file or a reset), what happens to the listener on stop, and the server
// under descriptor and thread exhaustion, in child processes of their own.
#include <Core/FileInfo.h>
#include <Core/FileServer.h>
#include <Core/StreamDiagnostics.h>
#include <RecordingTest.h>
#include <TemporaryDirectory.h>
#include <WaitFor.h>

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using Orvan::Core::FileServer;
using Orvan::Testing::RecordingTest;
using Orvan::Testing::TemporaryDirectory;
using namespace std::chrono_literals;

namespace {

class FileServerPosixTest : public RecordingTest {
protected:
  FileServerPosixTest() { Orvan::Core::setStreamDiagnostics(Orvan::Core::StreamDiagnostics::Silent); }
  ~FileServerPosixTest() override { Orvan::Core::setStreamDiagnostics(Orvan::Core::StreamDiagnostics::Console); }
};

// Connects `client` to 127.0.0.1:`port`; false with errno set when that fails.
bool connectSocket(int client, std::uint16_t port)
{
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return ::connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
}

int newSocket()
{
  return ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

// A connected client socket, or -1 with errno set.
int connectTo(std::uint16_t port)
{
  const int client = newSocket();
  if (!connectSocket(client, port)) {
    const int error = errno;
    ::close(client);
    errno = error;
    return -1;
  }
  return client;
}

enum class End { CleanEnd, Reset, OtherError, TimedOut };

struct Received {
  std::uint64_t bytes = 0;
  End end = End::TimedOut;
};

// Reads until the connection ends or nothing came for `quiet`.
Received readToEnd(int client, std::chrono::milliseconds quiet = 30s)
{
  Received received;
  std::vector<char> buffer(256 * 1024);
  for (;;) {
    pollfd watched{client, POLLIN, 0};
    if (::poll(&watched, 1, static_cast<int>(quiet.count())) == 0) {
      return received;
    }
    const ssize_t got = ::recv(client, buffer.data(), buffer.size(), 0);
    if (got > 0) {
      received.bytes += static_cast<std::uint64_t>(got);
      continue;
    }
    if (got < 0 && errno == EINTR) {
      continue;
    }
    received.end = got == 0 ? End::CleanEnd : errno == ECONNRESET ? End::Reset : End::OtherError;
    return received;
  }
}

void writeSized(const std::filesystem::path& path, std::size_t size, char fill = 'f')
{
  std::ofstream(path, std::ios::binary) << std::string(size, fill);
}

// Runs `work` on a thread of its own and says whether it returned within
// `limit`. One that does not return is left running and the test program
// ends at once with a failure, rather than hanging.
bool returnsWithin(std::function<void()> work, std::chrono::seconds limit = 30s)
{
  auto done = std::make_shared<std::promise<void>>();
  std::future<void> finished = done->get_future();
  std::thread([work = std::move(work), done] {
    work();
    done->set_value();
  }).detach();
  if (finished.wait_for(limit) == std::future_status::ready) {
    return true;
  }
  std::fprintf(stderr, "the call did not return within %lld s\n", static_cast<long long>(limit.count()));
  std::fflush(stderr);
  std::_Exit(1);
}

[[maybe_unused]] double cpuSeconds()
{
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

} // namespace

TEST_F(FileServerPosixTest, StopClosesTheListenerBeforeItReturns)
{
  TemporaryDirectory directory;
  writeSized(directory / "data.bin", 10);
  FileServer server(directory / "data.bin");
  const std::uint16_t port = server.port();
  server.stop();
  const int client = connectTo(port);
  EXPECT_EQ(client, -1) << "a connection after stop was accepted";
  EXPECT_EQ(errno, ECONNREFUSED);
  if (client >= 0) {
    ::close(client);
  }
}

TEST_F(FileServerPosixTest, StopResetsATransferUnderWay)
{
  TemporaryDirectory directory;
  writeSized(directory / "big.bin", 64 * 1024 * 1024);
  FileServer server(directory / "big.bin");
  const int client = connectTo(server.port());
  ASSERT_GE(client, 0);
  char first = 0;
  ASSERT_EQ(::recv(client, &first, 1, 0), 1);
  EXPECT_TRUE(returnsWithin([&server] { server.stop(); }));
  const Received received = readToEnd(client);
  ::close(client);
  EXPECT_LT(received.bytes, 64u * 1024 * 1024);
  EXPECT_EQ(received.end, End::Reset) << "a stopped transfer looked like a whole file";
}

TEST_F(FileServerPosixTest, StopFromManyThreadsAtOnceAndTheDestructorAllReturn)
{
  TemporaryDirectory directory;
  writeSized(directory / "big.bin", 64 * 1024 * 1024);
  for (int round = 0; round < 20; ++round) {
    auto server = std::make_unique<FileServer>(directory / "big.bin");
    const int client = connectTo(server->port());
    ASSERT_GE(client, 0);
    char first = 0;
    ASSERT_EQ(::recv(client, &first, 1, 0), 1);
    EXPECT_TRUE(returnsWithin([&server] {
      std::vector<std::thread> stoppers;
      for (int i = 0; i < 4; ++i) {
        stoppers.emplace_back([&server] { server->stop(); });
      }
      for (std::thread& stopper : stoppers) {
        stopper.join();
      }
      server.reset();
    }));
    ::close(client);
  }
}

TEST_F(FileServerPosixTest, AFileThatShrinksWhileServedEndsWithAReset)
{
  TemporaryDirectory directory;
  writeSized(directory / "big.bin", 64 * 1024 * 1024);
  FileServer server(directory / "big.bin");
  const int client = connectTo(server.port());
  ASSERT_GE(client, 0);
  char first = 0;
  ASSERT_EQ(::recv(client, &first, 1, 0), 1);
  std::filesystem::resize_file(directory / "big.bin", 1024 * 1024);
  const Received received = readToEnd(client);
  ::close(client);
  EXPECT_EQ(received.end, End::Reset) << "a shorter file looked whole (" << received.bytes + 1 << " bytes)";
  EXPECT_EQ(server.clientsServed(), 0u);
}

TEST_F(FileServerPosixTest, AClientThatSendsBytesGetsTheWholeFileAndACleanEnd)
{
  TemporaryDirectory directory;
  writeSized(directory / "data.bin", 4 * 1024 * 1024);
  FileServer server(directory / "data.bin");
  for (int round = 0; round < 10; ++round) {
    const int client = connectTo(server.port());
    ASSERT_GE(client, 0);
    const std::string request = "GET /data.bin HTTP/1.0\r\n\r\n";
    ASSERT_EQ(::send(client, request.data(), request.size(), MSG_NOSIGNAL), static_cast<ssize_t>(request.size()));
    const Received received = readToEnd(client);
    ::close(client);
    EXPECT_EQ(received.bytes, 4u * 1024 * 1024);
    EXPECT_EQ(received.end, End::CleanEnd);
  }
}

TEST_F(FileServerPosixTest, TheFileIsTheOneNamedAtConstructionWhateverTheWorkingDirectory)
{
  TemporaryDirectory first;
  TemporaryDirectory second;
  writeSized(first / "data.bin", 1000, 'a');
  writeSized(second / "data.bin", 2000, 'b');
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(first.path());
  FileServer server("data.bin");
  std::filesystem::current_path(second.path());
  const int client = connectTo(server.port());
  const Received received = readToEnd(client);
  std::filesystem::current_path(before);
  ::close(client);
  EXPECT_EQ(received.bytes, 1000u);
}

TEST_F(FileServerPosixTest, AServerOnEveryAddressHandsOutADescriptorThatConnects)
{
  TemporaryDirectory directory;
  writeSized(directory / "data.bin", 1000);
  FileServer::Options options;
  options.bindAddress = "0.0.0.0";
  FileServer server(directory / "data.bin", options);
  const Orvan::Core::FileInfo descriptor = server.descriptor();
  EXPECT_EQ(toString(descriptor), "data.bin@127.0.0.1:" + std::to_string(server.port()));
  const auto stream = descriptor.makeStream(static_cast<int>(std::ios::binary));
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(*stream), {}).size(), 1000u);
}

TEST_F(FileServerPosixTest, NoClientSlotIsRefusedWithInvalidArgument)
{
  TemporaryDirectory directory;
  writeSized(directory / "data.bin", 10);
  FileServer::Options options;
  options.maxClients = 0;
  EXPECT_THROW(FileServer(directory / "data.bin", options), std::invalid_argument);
}

namespace {

// A logger that throws on every message.
class ThrowingLogger : public Orvan::Core::Logging::LevelLogger {
public:
  void triggerLogMemory() override {}

protected:
  void write(Orvan::Core::Logging::LoggingType, const std::string&) override
  {
    throw std::runtime_error("the log is full");
  }
};

} // namespace

TEST_F(FileServerPosixTest, ALoggerThatThrowsOnAClientThreadDoesNotEndTheHost)
{
  TemporaryDirectory directory;
  writeSized(directory / "data.bin", 1000);
  FileServer server(directory / "data.bin");
  const auto throwing = std::make_shared<ThrowingLogger>();
  Orvan::Core::Logging::setLogger(throwing);
  const int client = connectTo(server.port());
  const Received refused = readToEnd(client);
  ::close(client);
  EXPECT_NE(refused.end, End::TimedOut);
  // The logger is replaced once the client's thread is done with it.
  EXPECT_TRUE(Orvan::Testing::waitFor([&server] { return server.stats().failed == 1; }));
  Orvan::Core::Logging::setLogger(logger);
  const int next = connectTo(server.port());
  const Received served = readToEnd(next);
  ::close(next);
  EXPECT_EQ(served.bytes, 1000u);
  EXPECT_EQ(served.end, End::CleanEnd);
}

// The two tests below take every descriptor, or cap the address space, of a
// child process, and the sanitizers' runtimes need both for themselves (under
// AddressSanitizer's stack-use-after-return checks the child aborts without a
// word): they belong to the plain builds only.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#  define ORVAN_TEST_SANITIZED 1
#elif defined(__has_feature)
#  if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#    define ORVAN_TEST_SANITIZED 1
#  endif
#endif
#if !defined(ORVAN_TEST_SANITIZED)

// With every descriptor taken, the connections waiting in the queue cannot
// be accepted: the server must turn them away rather than spin on a queue
// that stays readable, and serve again once descriptors are free.
TEST_F(FileServerPosixTest, OutOfDescriptorsTheServerShedsWaitingClientsWithoutSpinning)
{
  TemporaryDirectory directory;
  writeSized(directory / "data.bin", 1000);
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto run = [&directory] {
    const rlimit low{256, 256};
    if (::setrlimit(RLIMIT_NOFILE, &low) != 0) {
      std::_Exit(10);
    }
    FileServer server(directory / "data.bin");
    // The clients' sockets are made first: connecting takes no descriptor.
    std::vector<int> clients;
    for (int i = 0; i < 4; ++i) {
      clients.push_back(newSocket());
    }
    // The descriptors left are taken: the server's accept fails with EMFILE.
    std::vector<int> fillers;
    for (int filler = ::open("/dev/null", O_RDONLY | O_CLOEXEC); filler >= 0;
         filler = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) {
      fillers.push_back(filler);
    }
    const double cpuBefore = cpuSeconds();
    const auto wallBefore = std::chrono::steady_clock::now();
    for (int i = 0; i < 3; ++i) {
      if (!connectSocket(clients[i], server.port()) || readToEnd(clients[i], 10s).end != End::Reset) {
        std::_Exit(11);
      }
    }
    // A second more of exhaustion, with a client arriving meanwhile.
    std::this_thread::sleep_for(500ms);
    if (!connectSocket(clients[3], server.port())) {
      std::_Exit(12);
    }
    std::this_thread::sleep_for(500ms);
    const double cpu = cpuSeconds() - cpuBefore;
    const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - wallBefore).count();
    if (cpu > 0.25 * wall) {
      std::fprintf(stderr, "%.3f s of CPU in %.3f s\n", cpu, wall);
      std::_Exit(13);
    }
    if (readToEnd(clients[3], 10s).end != End::Reset) {
      std::_Exit(14);
    }
    for (const int filler : fillers) {
      ::close(filler);
    }
    const int after = connectTo(server.port());
    const Received received = readToEnd(after, 10s);
    if (received.bytes != 1000 || received.end != End::CleanEnd) {
      std::_Exit(15);
    }
    std::_Exit(0);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

namespace {

// The address space the process maps now, in bytes.
rlim_t mappedBytes()
{
  unsigned long pages = 0;
  if (FILE* statm = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(statm, "%lu", &pages) != 1) {
      pages = 0;
    }
    std::fclose(statm);
  }
  return static_cast<rlim_t>(pages) * static_cast<rlim_t>(::sysconf(_SC_PAGESIZE));
}

} // namespace

// With the address space capped just above what the process maps, no thread
// stack can be mapped: the client is turned away and the server goes on.
TEST_F(FileServerPosixTest, AThreadThatCannotBeStartedRefusesTheClientAndTheServerGoesOn)
{
  TemporaryDirectory directory;
  writeSized(directory / "data.bin", 1000);
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto run = [&directory] {
    std::atomic<int> refused{0};
    FileServer::Options options;
    options.onClientEnd = [&refused](const FileServer::ClientReport& report) {
      if (report.outcome == FileServer::ClientOutcome::Refused) {
        ++refused;
      }
    };
    FileServer server(directory / "data.bin", options);
    const int client = newSocket();
    rlimit before{};
    ::getrlimit(RLIMIT_AS, &before);
    const rlimit capped{mappedBytes() + 2 * 1024 * 1024, before.rlim_max};
    if (::setrlimit(RLIMIT_AS, &capped) != 0) {
      std::_Exit(10);
    }
    if (!connectSocket(client, server.port()) || readToEnd(client, 10s).end != End::Reset) {
      std::_Exit(11);
    }
    ::setrlimit(RLIMIT_AS, &before);
    // The count follows the reset the client saw.
    if (!Orvan::Testing::waitFor([&] { return server.stats().failed == 1 && refused == 1; }, 10s)) {
      std::_Exit(12);
    }
    const int next = connectTo(server.port());
    const Received received = readToEnd(next, 10s);
    if (received.bytes != 1000 || received.end != End::CleanEnd) {
      std::_Exit(13);
    }
    std::_Exit(0);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

#endif
