
#include <AssertRecorder.h>
#include <Core/Event/CoreEvents.h>
#include <Core/FileInfo.h>
#include <Core/Process/TimeoutRetry.h>
#include <LoopbackFile.h>
#include <LoopbackServer.h>
#include <OutputCapture.h>
#include <RecordingTest.h>
#include <TemporaryDirectory.h>
#include <Utils/FileHelper.h>
#include <WaitFor.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

using Orvan::Core::FileInfo;
using Orvan::Core::Logging::LoggingType;
using Orvan::Core::Process::CancelationToken;
using Orvan::Core::Process::TimeoutRetry;
using Orvan::Testing::AssertRecorder;
using Orvan::Testing::loopbackFile;
using Orvan::Testing::LoopbackServer;
using Orvan::Testing::OutputCapture;
using Orvan::Testing::Peer;
using Orvan::Testing::RecordingLogger;
using Orvan::Testing::RecordingTest;
using Orvan::Testing::RefusingPort;
using Orvan::Testing::TemporaryDirectory;
using Orvan::Testing::withPlainLineEnds;
using namespace std::chrono_literals;
namespace Events = Orvan::Core::Event;

namespace {

class MakeStream : public RecordingTest {};

std::string readAll(std::istream& stream)
{
  return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

// Runs `action`, expecting a std::system_error, and returns it.
template<class Action>
std::system_error expectSystemError(Action action)
{
  try {
    action();
  } catch (const std::system_error& error) {
    return error;
  } catch (const std::exception& other) {
    ADD_FAILURE() << "unexpected exception: " << other.what();
    return std::system_error(std::error_code(), "unexpected exception");
  }
  ADD_FAILURE() << "no exception";
  return std::system_error(std::error_code(), "no exception");
}

std::vector<std::uint32_t> connectingIds(int attempts)
{
  return std::vector<std::uint32_t>(static_cast<std::size_t>(attempts), Events::CONNECTING);
}

// A 64-bit digest of a byte stream fed in pieces of any size.
class Checksum {
public:
  void add(const char* data, std::size_t size)
  {
    std::size_t i = 0;
    // Whole words at once while no partial word is pending.
    for (; filled == 0 && i + 8 <= size; i += 8) {
      std::memcpy(&word, data + i, 8);
      filled = 8;
      mix();
    }
    for (; i < size; ++i) {
      word |= static_cast<std::uint64_t>(static_cast<unsigned char>(data[i])) << (8 * filled);
      if (++filled == 8) {
        mix();
      }
    }
  }

  std::uint64_t value()
  {
    if (filled > 0) {
      mix();
    }
    return state ^ count;
  }

private:
  void mix()
  {
    state = (state ^ word) * 0x100000001b3ULL;
    state ^= state >> 29;
    count += filled;
    word = 0;
    filled = 0;
  }

  std::uint64_t state = 0xcbf29ce484222325ULL;
  std::uint64_t word = 0;
  std::uint64_t count = 0;
  unsigned filled = 0;
};

// Fills `block` with the next pseudo-random bytes of a fixed sequence.
void fillBlock(std::vector<char>& block, std::uint64_t& seed)
{
  for (std::size_t i = 0; i + 8 <= block.size(); i += 8) {
    seed ^= seed << 13;
    seed ^= seed >> 7;
    seed ^= seed << 17;
    std::memcpy(block.data() + i, &seed, 8);
  }
}

} // namespace

// Local files.

TEST_F(MakeStream, LocalFileIsReadableAndTheOpeningIsLogged)
{
  TemporaryDirectory directory;
  const auto path = directory / "data.bin";
  Orvan::Testing::writeFile(path, std::string("local\0bytes", 11));
  const FileInfo finfo(path);

  const auto stream = finfo.makeStream(std::ios::in | std::ios::binary);
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(readAll(*stream), std::string("local\0bytes", 11));
  EXPECT_EQ(logger->lines(), (std::vector<RecordingLogger::Line>{
                                 {LoggingType::Info, "Opening '" + Orvan::Utils::FileHelper::toString(path) + "'\n"}}));
  EXPECT_TRUE(events->entries().empty());
}

TEST_F(MakeStream, OpeningWithoutLoggerOrCallbackDoesNothing)
{
  RecordingTest::clear();
  TemporaryDirectory directory;
  const auto path = directory / "quiet.txt";
  Orvan::Testing::writeFile(path, "quiet");
  OutputCapture output(1);
  const auto stream = FileInfo(path).makeStream(std::ios::in);
  EXPECT_EQ(readAll(*stream), "quiet");
  EXPECT_EQ(output.release(), "");
}

TEST_F(MakeStream, LocalFileStaysOpenToOtherWritersAndToDeletion)
{
  TemporaryDirectory directory;
  const auto path = directory / "shared.bin";
  Orvan::Testing::writeFile(path, "first");
  auto stream = FileInfo(path).makeStream(std::ios::in | std::ios::binary);
  char head[2] = {};
  stream->read(head, 2);
  EXPECT_EQ(std::string(head, 2), "fi");

  {
    std::ofstream writer(path, std::ios::binary | std::ios::app);
    ASSERT_TRUE(writer.is_open());
    writer << "second";
  }
  const auto renamed = directory / "renamed.bin";
  std::error_code error;
  std::filesystem::rename(path, renamed, error);
  EXPECT_FALSE(error) << error.message();
  std::filesystem::remove(renamed, error);
  EXPECT_FALSE(error) << error.message();
  EXPECT_TRUE(stream->good());
  // Windows removes a file that is still open once its last opener closes it.
  stream.reset();
  EXPECT_FALSE(std::filesystem::exists(renamed));
}

TEST_F(MakeStream, MissingLocalFileThrowsWithItsName)
{
  TemporaryDirectory directory;
  const auto path = directory / "missing.bin";
  const FileInfo finfo(path);
  const std::system_error error = expectSystemError([&] { finfo.makeStream(std::ios::in); });
  const std::string head = "Failed to open file '" + toString(finfo) + "': ";
  EXPECT_EQ(std::string(error.what()).substr(0, head.size()), head);
  EXPECT_NE(error.code().value(), 0);
  // Only the opening line is logged.
  EXPECT_EQ(logger->lines().size(), 1u);
  EXPECT_TRUE(events->entries().empty());
}

TEST_F(MakeStream, DirectoryIsNoFileToRead)
{
  TemporaryDirectory directory;
  const FileInfo finfo(directory.path());
  const std::system_error error = expectSystemError([&] { finfo.makeStream(std::ios::in); });
  const std::string head = "Failed to open file '" + toString(finfo) + "': ";
  EXPECT_EQ(std::string(error.what()).substr(0, head.size()), head);
}

TEST_F(MakeStream, LocalFileWithoutModeIsReported)
{
  AssertRecorder recorder;
  TemporaryDirectory directory;
  const auto path = directory / "nomode.txt";
  Orvan::Testing::writeFile(path, "text");
  const auto stream = FileInfo(path).makeStream(std::nullopt);
  EXPECT_EQ(recorder.messages(), std::vector<std::string>{"CORE_ASSERT failed: 'mode'"});
  ASSERT_NE(stream, nullptr);
}

// Remote files.

TEST_F(MakeStream, RemoteFileIsReadUntilTheServerCloses)
{
  LoopbackServer server([](Peer& peer) { peer.send("remote content"); });
  const FileInfo finfo = loopbackFile("data.bin", server.port());
  OutputCapture output(1);
  const auto stream = finfo.makeStream(std::nullopt);
  EXPECT_EQ(readAll(*stream), "remote content");
  output.release();

  const std::string target = toString(finfo);
  EXPECT_EQ(events->ids(), (std::vector<std::uint32_t>{Events::CONNECTING, Events::CONNECTED}));
  EXPECT_EQ(events->texts(),
            (std::vector<std::string>{"Connecting to: '" + target + "'...", "Connected to: '" + target + "'."}));
  for (const auto& entry : events->entries()) {
    EXPECT_EQ(entry.info.level, LoggingType::Info);
    EXPECT_EQ(entry.info.package, Orvan::Utils::ErrorManagement::PackageIdentifier::Core);
  }
  EXPECT_EQ(logger->lines(),
            (std::vector<RecordingLogger::Line>{{LoggingType::Info, "Opening '" + target + "'\n"},
                                                {LoggingType::Info, "Connecting to: '" + target + "'..."},
                                                {LoggingType::Info, "Connected to: '" + target + "'."}}));
}

TEST_F(MakeStream, ServerDownWithoutPolicyFailsAfterOneAttempt)
{
  RefusingPort refusing;
  FileInfo finfo = loopbackFile("data.bin", refusing.port(), 30);
  finfo.retry = nullptr;
  OutputCapture error(2);
  const std::system_error thrown = expectSystemError([&] { finfo.makeStream(std::nullopt); });
  const std::string written = error.release();

  EXPECT_EQ(thrown.code().value(), Orvan::Testing::Loopback::connectionRefusedCode());
  EXPECT_EQ(std::string(thrown.what()).rfind("Failed to connect to server., error #", 0), 0u);
  EXPECT_EQ(written.rfind("Failed to connect to server., error #", 0), 0u);
  const std::string target = toString(finfo);
  EXPECT_EQ(events->ids(), (std::vector<std::uint32_t>{Events::CONNECTING, Events::FAILED_TO_CONNECT}));
  EXPECT_EQ(events->texts().back(), "Failed to connected to: '" + target + "'!");
  EXPECT_EQ(events->entries().back().info.level, LoggingType::Error);
  EXPECT_EQ(logger->lines().back(),
            (RecordingLogger::Line{LoggingType::Error, "Failed to connected to: '" + target + "'!"}));
}

TEST_F(MakeStream, ZeroTimeoutUnderThePolicyIsASingleAttempt)
{
  RefusingPort refusing;
  TimeoutRetry policy;
  FileInfo finfo = loopbackFile("data.bin", refusing.port());
  finfo.retry = &policy;
  OutputCapture error(2);
  expectSystemError([&] { finfo.makeStream(std::nullopt); });
  error.release();
  EXPECT_EQ(events->ids(), (std::vector<std::uint32_t>{Events::CONNECTING, Events::FAILED_TO_CONNECT}));
}

TEST_F(MakeStream, RefusedConnectionIsRetriedEveryHalfSecondUntilTheTimeout)
{
  RefusingPort refusing;
  TimeoutRetry policy;
  FileInfo finfo = loopbackFile("data.bin", refusing.port(), 3);
  finfo.retry = &policy;
  OutputCapture error(2);
  const auto started = std::chrono::steady_clock::now();
  const std::system_error thrown = expectSystemError([&] { finfo.makeStream(std::nullopt); });
  const auto elapsed = std::chrono::steady_clock::now() - started;
  error.release();

  EXPECT_EQ(thrown.code().value(), Orvan::Testing::Loopback::connectionRefusedCode());
  const auto entries = events->entries();
  const std::vector<std::uint32_t> ids = events->ids();
  ASSERT_GE(ids.size(), 4u);
  const int attempts = static_cast<int>(ids.size()) - 2;
  // About one attempt every 500 ms for 3 s (fewer where a refusal is slow).
  EXPECT_GE(attempts, 2);
  EXPECT_LE(attempts, 8);
  std::vector<std::uint32_t> expected = connectingIds(attempts);
  expected.push_back(Events::TIMEOUT_REACHED);
  expected.push_back(Events::FAILED_TO_CONNECT);
  EXPECT_EQ(ids, expected);
  for (int i = 1; i < attempts; ++i) {
    EXPECT_GE(entries[static_cast<std::size_t>(i)].when - entries[static_cast<std::size_t>(i) - 1].when, 490ms);
  }
  EXPECT_GE(elapsed, 3s);
  EXPECT_EQ(events->texts()[static_cast<std::size_t>(attempts)],
            "Timeout reached while connecting to: '" + toString(finfo) + "'");
}

TEST_F(MakeStream, CancellationFromAnotherThreadEndsTheRetriesWithinOneAttempt)
{
  RefusingPort refusing;
  CancelationToken token;
  TimeoutRetry policy(&token);
  FileInfo finfo = loopbackFile("data.bin", refusing.port(), 60);
  finfo.retry = &policy;

  std::size_t attemptsBeforeCancel = 0;
  std::thread canceller([&] {
    Orvan::Testing::waitFor([&] { return events->count(Events::CONNECTING) >= 2; });
    attemptsBeforeCancel = static_cast<std::size_t>(events->count(Events::CONNECTING));
    token.requestCancel();
  });
  OutputCapture error(2);
  const auto started = std::chrono::steady_clock::now();
  expectSystemError([&] { finfo.makeStream(std::nullopt); });
  const auto elapsed = std::chrono::steady_clock::now() - started;
  canceller.join();
  error.release();

  const std::vector<std::uint32_t> ids = events->ids();
  ASSERT_GE(ids.size(), 4u);
  const std::size_t attempts = ids.size() - 2;
  EXPECT_GE(attempts, attemptsBeforeCancel);
  EXPECT_LE(attempts, attemptsBeforeCancel + 1);
  std::vector<std::uint32_t> expected = connectingIds(static_cast<int>(attempts));
  expected.push_back(Events::CANCELLED_CONNECTION);
  expected.push_back(Events::FAILED_TO_CONNECT);
  EXPECT_EQ(ids, expected);
  EXPECT_LT(elapsed, 60s);
}

TEST_F(MakeStream, RetriesReachAServerThatStartsLate)
{
  LoopbackServer server([](Peer& peer) { peer.send("late"); }, false);
  TimeoutRetry policy;
  FileInfo finfo = loopbackFile("data.bin", server.port(), 60);
  finfo.retry = &policy;
  std::thread starter([&] {
    Orvan::Testing::waitFor([&] { return events->count(Events::CONNECTING) >= 2; });
    server.listen();
  });
  OutputCapture output(1);
  OutputCapture error(2);
  std::unique_ptr<std::istream> stream;
  EXPECT_NO_THROW(stream = finfo.makeStream(std::nullopt));
  starter.join();
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(readAll(*stream), "late");
  error.release();
  output.release();
  const std::vector<std::uint32_t> ids = events->ids();
  ASSERT_GE(ids.size(), 3u);
  EXPECT_EQ(ids.back(), Events::CONNECTED);
  EXPECT_EQ(events->count(Events::FAILED_TO_CONNECT), 0);
  EXPECT_EQ(events->count(Events::CONNECTING), static_cast<int>(ids.size()) - 1);
}

namespace {

// Reads `stream` to its end with get(), which turns an error of the read
// into the stream's bad state instead of an exception.
std::string readRest(std::istream& stream)
{
  std::string received;
  for (char byte = 0; stream.get(byte);) {
    received += byte;
  }
  return received;
}

// A server that sends `head`, waits until released, then sends `tail` and
// closes the connection.
class TwoPartServer {
public:
  TwoPartServer(std::string head, std::string tail)
      : server([this, head = std::move(head), tail = std::move(tail)](Peer& peer) {
        peer.send(head);
        Orvan::Testing::waitFor([this] { return released.load(); }, 120s);
        peer.send(tail);
      })
  {
  }
  ~TwoPartServer() { release(); }
  TwoPartServer(const TwoPartServer&) = delete;
  TwoPartServer& operator=(const TwoPartServer&) = delete;

  void release() { released = true; }
  unsigned short port() const { return server.port(); }

private:
  std::atomic<bool> released{false};
  LoopbackServer server;
};

} // namespace

// The policy's token bounds connecting; an open stream reads until the
// server closes, whatever becomes of that token.
TEST_F(MakeStream, CancellingThePolicysTokenLeavesAnOpenStreamReading)
{
  TwoPartServer server("first part, ", "second part");
  CancelationToken token;
  TimeoutRetry policy(&token);
  FileInfo finfo = loopbackFile("data.bin", server.port(), 30);
  finfo.retry = &policy;
  OutputCapture output(1);
  OutputCapture error(2);
  const auto stream = finfo.makeStream(std::ios::in);
  std::string head(12, '\0');
  stream->read(head.data(), static_cast<std::streamsize>(head.size()));
  token.requestCancel();
  server.release();
  const std::string rest = readRest(*stream);
  const std::string written = error.release();
  output.release();

  EXPECT_EQ(head + rest, "first part, second part");
  EXPECT_TRUE(stream->eof());
  EXPECT_FALSE(stream->bad()) << written;
  EXPECT_EQ(written, "");
}

// The same through the typed form: only its own token ends its reads.
TEST_F(MakeStream, CancellingThePolicysTokenLeavesAStreamOpenedWithOptionsReading)
{
  TwoPartServer server("first part, ", "second part");
  CancelationToken token;
  TimeoutRetry policy(&token);
  FileInfo finfo = loopbackFile("data.bin", server.port(), 30);
  finfo.retry = &policy;
  OutputCapture output(1);
  FileInfo::StreamOptions options;
  options.idleTimeout = 60s;
  const auto stream = finfo.makeStream(options);
  std::string head(12, '\0');
  stream->read(head.data(), static_cast<std::streamsize>(head.size()));
  token.requestCancel();
  server.release();
  const std::string rest = readRest(*stream);
  output.release();

  EXPECT_EQ(head + rest, "first part, second part");
  EXPECT_TRUE(stream->eof());
  EXPECT_FALSE(stream->bad());
}

namespace {

// Expects opening `host` to fail in name resolution, after one Connecting
// event and without a word on standard error, whatever the policy.
void expectResolutionFailure(const std::string& host, const Orvan::Testing::EventRecorder& events)
{
  TimeoutRetry policy;
  // From the fields, since an IPv6 address has no text form.
  FileInfo finfo(std::filesystem::path("data.bin"), host.c_str(), 4000, FileInfo::Seconds(30));
  finfo.retry = &policy;
  OutputCapture error(2);
  std::string text = "<opened>";
  try {
    finfo.makeStream(std::nullopt);
  } catch (const std::system_error& failure) {
    text = std::string("<system_error> ") + failure.what();
  } catch (const std::runtime_error& failure) {
    text = failure.what();
  }
  EXPECT_EQ(error.release(), "") << host;
  EXPECT_EQ(text.rfind("getaddrinfo() returned: ", 0), 0u) << host << ": " << text;
  EXPECT_EQ(events.ids(), std::vector<std::uint32_t>{Events::CONNECTING}) << host;
}

} // namespace

TEST_F(MakeStream, UnknownHostIsNotRetried)
{
  expectResolutionFailure("no-such-host.invalid", *events);
}

TEST_F(MakeStream, IPv6AddressIsNeverUsed)
{
  expectResolutionFailure("::1", *events);
}

TEST_F(MakeStream, IPv6OnlyNameFailsInResolution)
{
  {
    // Meaningful only where the name has no IPv4 address.
    OutputCapture error(2);
    try {
      FileInfo(std::string("f@ip6-localhost:1")).makeStream(std::nullopt);
    } catch (const std::system_error&) {
      error.release();
      GTEST_SKIP() << "ip6-localhost has an IPv4 address here";
    } catch (const std::runtime_error&) {
    }
  }
  RecordingTest::clear();
  auto recorder = std::make_shared<Orvan::Testing::EventRecorder>();
  Orvan::Core::Event::setEventListenner(recorder);
  expectResolutionFailure("ip6-localhost", *recorder);
}

TEST_F(MakeStream, ResetInTheMiddleOfTheDataFollowsTheExceptionMask)
{
  // More than the connection holds in transit, so that the reset cuts the
  // data short.
  const std::string chunk(8 * 1024 * 1024, 'r');
  LoopbackServer server([&](Peer& peer) {
    peer.send(chunk);
    peer.reset();
  });
  OutputCapture output(1);
  OutputCapture error(2);

  // With badbit in the mask the socket's error comes out of the read.
  const auto throwing = loopbackFile("data.bin", server.port()).makeStream(std::nullopt);
  throwing->exceptions(std::ios::badbit);
  std::string failure;
  std::vector<char> data(1 << 20);
  try {
    while (throwing->read(data.data(), static_cast<std::streamsize>(data.size())) || throwing->gcount() > 0) {
    }
  } catch (const std::system_error& thrown) {
    failure = thrown.what();
  }

  // Without it the stream turns bad and throws nothing.
  const auto quiet = loopbackFile("data.bin", server.port()).makeStream(std::nullopt);
  std::size_t total = 0;
  while (quiet->read(data.data(), static_cast<std::streamsize>(data.size())) || quiet->gcount() > 0) {
    total += static_cast<std::size_t>(quiet->gcount());
  }

  // Released before any expectation, so that a failure's report is seen.
  const std::string written = withPlainLineEnds(error.release());
  output.release();
  if ((failure.empty() || !quiet->bad()) && Orvan::Testing::Loopback::runningUnderWine()) {
    GTEST_SKIP() << "Wine reports a reset connection as an orderly end of the data";
  }
  EXPECT_EQ(failure.rfind("Failed to read data on socket, error #", 0), 0u) << failure;
  EXPECT_TRUE(throwing->bad());
  EXPECT_TRUE(quiet->bad());
  EXPECT_LE(total, chunk.size());
  EXPECT_EQ(written.rfind("Failed to read data on socket, error #", 0), 0u) << written.substr(0, 200);
}

TEST_F(MakeStream, QuarterGigabyteArrivesIntact)
{
  constexpr std::size_t TOTAL = 256u << 20;
  constexpr std::size_t BLOCK = 1u << 20;
  std::atomic<std::uint64_t> sentDigest{0};
  LoopbackServer server([&](Peer& peer) {
    std::vector<char> block(BLOCK);
    std::uint64_t seed = 0x9e3779b97f4a7c15ULL;
    Checksum checksum;
    for (std::size_t sent = 0; sent < TOTAL; sent += BLOCK) {
      fillBlock(block, seed);
      checksum.add(block.data(), block.size());
      if (!peer.send(block.data(), block.size())) {
        return;
      }
    }
    sentDigest = checksum.value();
  });

  OutputCapture output(1);
  const auto stream = loopbackFile("data.bin", server.port()).makeStream(std::nullopt);
  std::vector<char> data(BLOCK);
  Checksum checksum;
  std::size_t received = 0;
  while (stream->read(data.data(), static_cast<std::streamsize>(data.size())) || stream->gcount() > 0) {
    checksum.add(data.data(), static_cast<std::size_t>(stream->gcount()));
    received += static_cast<std::size_t>(stream->gcount());
  }
  const std::string printed = withPlainLineEnds(output.release());
  ASSERT_TRUE(Orvan::Testing::waitFor([&] { return server.accepted() == 1; }));

  EXPECT_FALSE(stream->bad());
  EXPECT_EQ(received, TOTAL);
  // The server's thread has finished its sending once the stream ended.
  EXPECT_EQ(checksum.value(), sentDigest);

  // One "\tRead: <n>b." line per chunk, adding up to the whole file.
  std::size_t announced = 0;
  std::istringstream lines(printed);
  for (std::string line; std::getline(lines, line);) {
    const auto at = line.find("\tRead: ");
    ASSERT_NE(at, std::string::npos) << line;
    ASSERT_EQ(line.substr(line.size() - 2), "b.");
    announced += std::stoull(line.substr(at + 7, line.size() - 2 - at - 7));
  }
  EXPECT_EQ(announced, TOTAL);
}

// Names holding NUL characters.

TEST_F(MakeStream, AFileNameHoldingANulIsRefusedBeforeAnythingIsOpened)
{
  TemporaryDirectory directory;
  const auto path = directory / "hostname";
  Orvan::Testing::writeFile(path, "the truncated name's file");
  FileInfo finfo(path);
  finfo.filename = Orvan::Utils::FileHelper::toString(path) + std::string("\0.txt", 5);

  const std::system_error error = expectSystemError([&finfo] { finfo.makeStream(std::ios::in); });
  EXPECT_EQ(error.code(), std::make_error_code(std::errc::invalid_argument));
  EXPECT_NE(std::string(error.what()).find("hostname\\0.txt"), std::string::npos) << error.what();
}

TEST_F(MakeStream, AnAddressHoldingANulIsRefusedBeforeAnythingIsConnected)
{
  LoopbackServer server([](Peer& peer) { peer.send("trusted"); });
  FileInfo finfo = loopbackFile("data.bin", server.port());
  finfo.address = std::string("127.0.0.1\0.trusted.example.com", 31);

  const std::system_error error = expectSystemError([&finfo] { finfo.makeStream(std::ios::in); });
  EXPECT_EQ(error.code(), std::make_error_code(std::errc::invalid_argument));
  EXPECT_NE(std::string(error.what()).find("127.0.0.1\\0.trusted.example.com"), std::string::npos) << error.what();
  EXPECT_EQ(server.accepted(), 0);
  EXPECT_EQ(events->count(Events::CONNECTING), 0);
}

TEST_F(MakeStream, AtEndModeStartsAtTheEndOfALocalFileAsAFileStreamDoes)
{
  TemporaryDirectory directory;
  const auto path = directory / "data.bin";
  Orvan::Testing::writeFile(path, "twelve bytes");
  std::ifstream plain(path, std::ios::in | std::ios::binary | std::ios::ate);
  const auto stream = FileInfo(path).makeStream(std::ios::in | std::ios::binary | std::ios::ate);
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(stream->tellg(), plain.tellg());
  EXPECT_EQ(stream->tellg(), std::streampos(12));
  stream->seekg(0);
  EXPECT_EQ(readAll(*stream), "twelve bytes");
}

namespace {

// The library's policy, which also tells when it has been asked: the pause
// before the next attempt follows at once.
struct SignallingRetry : TimeoutRetry {
  using TimeoutRetry::TimeoutRetry;

  bool operator()(const FileInfo& finfo, const Orvan::Utils::Timer<std::chrono::system_clock>& timer) override
  {
    const bool again = TimeoutRetry::operator()(finfo, timer);
    ++asked;
    return again;
  }

  std::atomic<int> asked{0};
};

} // namespace

TEST_F(MakeStream, CancellingThePolicysTokenEndsThePauseBetweenAttempts)
{
  const RefusingPort server;
  CancelationToken token;
  SignallingRetry policy(&token);
  FileInfo finfo = loopbackFile("data.bin", server.port(), 600);
  finfo.retry = &policy;
  // Cancelled once the policy has allowed a second attempt: the connection
  // is refused at once, so the pause is under way or about to start.
  std::thread canceller([&] {
    Orvan::Testing::waitFor([&] { return policy.asked.load() > 0; });
    token.requestCancel();
  });
  std::error_code error;
  try {
    finfo.makeStream(std::ios::in);
  } catch (const std::system_error& failure) {
    error = failure.code();
  }
  canceller.join();
  EXPECT_EQ(error.value(), Orvan::Testing::Loopback::connectionRefusedCode()) << error.message();
  // The attempt after the pause is refused too, and the policy, asked again,
  // gives up on the cancellation instead of retrying for ten minutes.
  EXPECT_EQ(policy.asked.load(), 2);
  EXPECT_EQ(events->ids(), (std::vector<std::uint32_t>{Events::CONNECTING, Events::CONNECTING,
                                                       Events::CANCELLED_CONNECTION, Events::FAILED_TO_CONNECT}));
}

TEST_F(MakeStream, CancellingTheHostsTokenEndsThePauseBetweenAttempts)
{
  const RefusingPort server;
  CancelationToken token;
  // The host's token is not the policy's: only the stream's options know of
  // it, and no attempt follows its cancellation.
  SignallingRetry policy;
  FileInfo finfo = loopbackFile("data.bin", server.port(), 600);
  finfo.retry = &policy;
  FileInfo::StreamOptions options;
  options.token = &token;
  std::thread canceller([&] {
    Orvan::Testing::waitFor([&] { return policy.asked.load() > 0; });
    token.requestCancel();
  });
  std::error_code error;
  try {
    finfo.makeStream(options);
  } catch (const std::system_error& failure) {
    error = failure.code();
  }
  canceller.join();
  EXPECT_EQ(error.value(), Orvan::Testing::Loopback::connectionRefusedCode()) << error.message();
  EXPECT_LE(policy.asked.load(), 2);
  EXPECT_EQ(events->ids().back(), Events::FAILED_TO_CONNECT);
}
