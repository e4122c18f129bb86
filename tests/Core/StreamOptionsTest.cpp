
#include <Core/FileInfo.h>
#include <Core/Process/CancelationToken.h>
#include <Core/StreamDiagnostics.h>
#include <LoopbackFile.h>
#include <LoopbackServer.h>
#include <OutputCapture.h>
#include <RecordingTest.h>
#include <TemporaryDirectory.h>
#include <WaitFor.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <istream>
#include <iterator>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

using Orvan::Core::FileInfo;
using Orvan::Core::setStreamDiagnostics;
using Orvan::Core::StreamDiagnostics;
using Orvan::Core::streamDiagnostics;
using Orvan::Core::Logging::LoggingType;
using Orvan::Core::Process::CancelationToken;
using Orvan::Testing::loopbackFile;
using Orvan::Testing::LoopbackServer;
using Orvan::Testing::OutputCapture;
using Orvan::Testing::Peer;
using Orvan::Testing::RecordingLogger;
using Orvan::Testing::RecordingTest;
using Orvan::Testing::RefusingPort;
using Orvan::Testing::withPlainLineEnds;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

// Each test starts and ends with the default diagnostics.
class StreamOptions : public RecordingTest {
protected:
  ~StreamOptions() override { setStreamDiagnostics(StreamDiagnostics::Console); }
};

// A server that sends `head`, then keeps the connection open and silent
// until released.
class SilentAfter {
public:
  explicit SilentAfter(std::string head)
      : server([this, head = std::move(head)](Peer& peer) {
        peer.send(head);
        Orvan::Testing::waitFor([this] { return released.load(); }, 120s);
      })
  {
  }
  ~SilentAfter() { released = true; }
  SilentAfter(const SilentAfter&) = delete;
  SilentAfter& operator=(const SilentAfter&) = delete;

  unsigned short port() const { return server.port(); }
  int accepted() const { return server.accepted(); }

private:
  std::atomic<bool> released{false};
  LoopbackServer server;
};

// Reads the whole stream with the bad bit's exception on; returns the bytes
// read and the error that ended the read (none at the end of the data).
std::string readUntilError(std::istream& stream, std::error_code& error)
{
  stream.exceptions(std::ios::badbit);
  // Byte by byte: a read of a block that fails loses the count of what it
  // took before the error.
  std::string received;
  try {
    for (char byte = 0; stream.get(byte);) {
      received += byte;
    }
  } catch (const std::system_error& thrown) {
    error = thrown.code();
  }
  return received;
}

} // namespace

TEST_F(StreamOptions, ConsoleIsTheDefault)
{
  EXPECT_EQ(streamDiagnostics(), StreamDiagnostics::Console);
}

TEST_F(StreamOptions, ASilentServerEndsTheReadAfterTheIdleTimeout)
{
  SilentAfter server("abc");
  FileInfo::StreamOptions options;
  options.idleTimeout = 300ms;
  OutputCapture output(1);
  const auto stream = loopbackFile("data.bin", server.port()).makeStream(options);
  std::error_code error;
  const Clock::time_point start = Clock::now();
  const std::string received = readUntilError(*stream, error);
  const Clock::duration took = Clock::now() - start;
  output.release();
  EXPECT_EQ(received, "abc");
  EXPECT_EQ(error, std::make_error_code(std::errc::timed_out));
  EXPECT_GE(took, 300ms);
  EXPECT_TRUE(stream->bad());
}

TEST_F(StreamOptions, WithoutTheExceptionMaskTheTimeoutSetsTheBadState)
{
  SilentAfter server("");
  FileInfo::StreamOptions options;
  options.idleTimeout = 100ms;
  const auto stream = loopbackFile("data.bin", server.port()).makeStream(options);
  char byte = 0;
  EXPECT_FALSE(stream->get(byte));
  EXPECT_TRUE(stream->bad());
}

TEST_F(StreamOptions, ACancellationEndsABlockedReadPromptly)
{
  SilentAfter server("");
  CancelationToken token;
  FileInfo::StreamOptions options;
  options.token = &token;
  const auto stream = loopbackFile("data.bin", server.port()).makeStream(options);
  std::atomic<Clock::rep> cancelledAt{0};
  // Cancelled once the server holds the connection: the read is under way.
  std::thread canceller([&] {
    Orvan::Testing::waitFor([&] { return server.accepted() > 0; });
    cancelledAt = Clock::now().time_since_epoch().count();
    token.requestCancel();
  });
  std::error_code error;
  readUntilError(*stream, error);
  const Clock::time_point ended = Clock::now();
  canceller.join();
  EXPECT_EQ(error, std::make_error_code(std::errc::operation_canceled));
  EXPECT_LT(ended - Clock::time_point(Clock::duration(cancelledAt.load())), 2s) << "noticed within 100 ms";
}

TEST_F(StreamOptions, DataArrivingInTimeIsReadWhole)
{
  const std::string data(3 * 1024 * 1024, 'd');
  LoopbackServer server([&data](Peer& peer) { peer.send(data); });
  CancelationToken token;
  FileInfo::StreamOptions options;
  options.idleTimeout = 10s;
  options.token = &token;
  setStreamDiagnostics(StreamDiagnostics::Silent);
  const auto stream = loopbackFile("data.bin", server.port()).makeStream(options);
  std::error_code error;
  EXPECT_EQ(readUntilError(*stream, error), data);
  EXPECT_FALSE(error);
}

TEST_F(StreamOptions, TheModeIsUsedForALocalFile)
{
  Orvan::Testing::TemporaryDirectory directory;
  const auto path = directory / "local.txt";
  Orvan::Testing::writeFile(path, "local");
  FileInfo::StreamOptions options;
  options.mode = std::ios::in | std::ios::binary | std::ios::ate;
  const auto stream = FileInfo(path).makeStream(options);
  EXPECT_EQ(stream->tellg(), std::streampos(5));
}

TEST_F(StreamOptions, LogDiagnosticsSendEachChunkToTheLoggerAndNothingToTheConsole)
{
  LoopbackServer server([](Peer& peer) { peer.send("hello"); });
  setStreamDiagnostics(StreamDiagnostics::Log);
  OutputCapture output(1);
  const auto stream = loopbackFile("data.bin", server.port()).makeStream(std::ios::in);
  const std::string received(std::istreambuf_iterator<char>(*stream), {});
  EXPECT_EQ(output.release(), "");
  EXPECT_EQ(received, "hello");
  const std::vector<RecordingLogger::Line> lines = logger->lines();
  const RecordingLogger::Line read{LoggingType::Debug, "Read: 5 b. from 127.0.0.1:" + std::to_string(server.port())};
  EXPECT_NE(std::find(lines.begin(), lines.end(), read), lines.end());
}

TEST_F(StreamOptions, LogDiagnosticsReportSocketErrorsOnceWithoutPadding)
{
  RefusingPort refusing;
  setStreamDiagnostics(StreamDiagnostics::Log);
  OutputCapture error(2);
  std::string what;
  try {
    loopbackFile("data.bin", refusing.port()).makeStream(std::ios::in);
  } catch (const std::system_error& failure) {
    what = failure.what();
  }
  EXPECT_EQ(error.release(), "");
  const std::string head = "Failed to connect to server. (127.0.0.1:" + std::to_string(refusing.port()) + "), error #";
  std::vector<std::string> errors;
  for (const RecordingLogger::Line& line : logger->lines()) {
    if (line.first == LoggingType::Error && line.second.rfind("Failed to connect to server.", 0) == 0) {
      errors.push_back(line.second);
    }
  }
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].rfind(head, 0), 0u) << errors[0];
  EXPECT_EQ(errors[0].find('\0'), std::string::npos);
  EXPECT_EQ(what.rfind("Failed to connect to server., error #", 0), 0u) << what;
}

TEST_F(StreamOptions, SilentDiagnosticsWriteNothingAnywhere)
{
  LoopbackServer server([](Peer& peer) { peer.send("hush"); });
  RefusingPort refusing;
  setStreamDiagnostics(StreamDiagnostics::Silent);
  OutputCapture output(1);
  OutputCapture error(2);
  const auto stream = loopbackFile("data.bin", server.port()).makeStream(std::ios::in);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(*stream), {}), "hush");
  EXPECT_THROW(loopbackFile("data.bin", refusing.port()).makeStream(std::ios::in), std::system_error);
  EXPECT_EQ(output.release(), "");
  EXPECT_EQ(error.release(), "");
  // The Failed event is logged as ever; the socket error itself is not.
  for (const RecordingLogger::Line& line : logger->lines()) {
    EXPECT_EQ(line.second.find("Read:"), std::string::npos) << line.second;
    EXPECT_EQ(line.second.find("Failed to connect to server."), std::string::npos) << line.second;
  }
}
