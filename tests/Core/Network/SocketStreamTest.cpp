#include "Network/SocketStream.h"

#include <Core/Process/CancelationToken.h>
#include <LoopbackServer.h>
#include <OutputCapture.h>
#include <WaitFor.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <iostream>
#include <istream>
#include <memory>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <type_traits>
#include <vector>

using Orvan::Core::Process::CancelationToken;
using Orvan::Network::basic_instream;
using Orvan::Network::basic_netbuf;
using Orvan::Network::StreamLimits;
using Orvan::Testing::LoopbackServer;
using Orvan::Testing::OutputCapture;
using Orvan::Testing::Peer;
using Orvan::Testing::RefusingPort;
using Orvan::Testing::withPlainLineEnds;
using Stream = basic_instream<char>;
using namespace std::chrono_literals;

namespace {

std::string addressOf(const void* object)
{
  std::ostringstream stream;
  stream << object;
  return stream.str();
}

// The text of the runtime_error that connecting to `host` throws, and what
// reached standard error meanwhile.
std::string resolutionFailure(const char* host, std::string& errorOutput)
{
  OutputCapture error(2);
  std::string text = "<connected>";
  try {
    const auto stream = std::make_unique<Stream>(host, 80);
  } catch (const std::system_error& failure) {
    text = std::string("<system_error> ") + failure.what();
  } catch (const std::runtime_error& failure) {
    text = failure.what();
  }
  errorOutput = error.release();
  return text;
}

} // namespace

// The stream is an input stream with its 1 MiB buffer inside: checked when
// this file compiles.
static_assert(std::is_base_of_v<std::istream, Stream>);
static_assert(std::is_base_of_v<std::streambuf, basic_netbuf<char>>);
static_assert(sizeof(basic_netbuf<char>) > 1048576);
static_assert(sizeof(Stream) > sizeof(basic_netbuf<char>));
static_assert(!std::is_copy_constructible_v<Stream>);

TEST(SocketStream, FiveBytesThenEndOfFile)
{
  LoopbackServer server([](Peer& peer) { peer.send("hello"); });
  OutputCapture output(1);
  auto stream = std::make_unique<Stream>("127.0.0.1", server.port());
  char data[16] = {};
  stream->read(data, sizeof data);
  EXPECT_EQ(stream->gcount(), 5);
  EXPECT_TRUE(stream->eof());
  EXPECT_FALSE(stream->bad());
  EXPECT_EQ(std::string(data, 5), "hello");
  const std::string printed = withPlainLineEnds(output.release());
  EXPECT_EQ(printed, addressOf(stream->rdbuf()) + "\tRead: 5b.\n");
}

TEST(SocketStream, NextReadAfterTheDataIsEndOfFile)
{
  LoopbackServer server([](Peer& peer) { peer.send("12345"); });
  OutputCapture output(1);
  auto stream = std::make_unique<Stream>("127.0.0.1", server.port());
  std::string text;
  for (int i = 0; i < 5; ++i) {
    text += static_cast<char>(stream->get());
  }
  EXPECT_EQ(text, "12345");
  EXPECT_TRUE(stream->good());
  EXPECT_EQ(stream->get(), std::char_traits<char>::eof());
  EXPECT_TRUE(stream->eof());
  output.release();
}

TEST(SocketStream, ServerThatSendsNothingGivesEndOfFileAtOnce)
{
  LoopbackServer server([](Peer&) {});
  OutputCapture output(1);
  auto stream = std::make_unique<Stream>("localhost", server.port());
  EXPECT_EQ(stream->get(), std::char_traits<char>::eof());
  EXPECT_TRUE(stream->eof());
  EXPECT_FALSE(stream->bad());
  EXPECT_EQ(output.release(), "");
}

TEST(SocketStream, RefusedConnectionThrowsTheSocketErrorAndWritesIt)
{
  RefusingPort refusing;
  OutputCapture error(2);
  int code = 0;
  std::string what;
  try {
    const auto stream = std::make_unique<Stream>("127.0.0.1", refusing.port());
  } catch (const std::system_error& failure) {
    code = failure.code().value();
    what = failure.what();
    EXPECT_EQ(failure.code().category(), std::system_category());
  }
  const std::string written = withPlainLineEnds(error.release());

  EXPECT_EQ(code, Orvan::Testing::Loopback::connectionRefusedCode());
  const std::string head = "Failed to connect to server., error #" + std::to_string(code) + ": ";
  // The head, a description field of 2047 characters padded with NULs, and a
  // line end.
  ASSERT_EQ(written.size(), head.size() + 2047 + 1) << written;
  EXPECT_EQ(written.substr(0, head.size()), head);
  EXPECT_EQ(written.back(), '\n');
  const std::string field = written.substr(head.size(), 2047);
  const std::string description(field.c_str());
  EXPECT_FALSE(description.empty());
  EXPECT_EQ(field.find_first_not_of('\0', description.size()), std::string::npos);
  // The exception's text stops where the description ends.
  EXPECT_EQ(what.substr(0, head.size() + description.size()), head + description);
}

TEST(SocketStream, UnknownHostFailsInResolutionSilently)
{
  std::string errorOutput;
  const std::string text = resolutionFailure("no-such-host.invalid", errorOutput);
  EXPECT_EQ(text.rfind("getaddrinfo() returned: ", 0), 0u) << text;
  EXPECT_GT(text.size(), std::strlen("getaddrinfo() returned: "));
  EXPECT_EQ(errorOutput, "");
}

TEST(SocketStream, IPv6OnlyAddressIsNeverUsed)
{
  std::string errorOutput;
  const std::string text = resolutionFailure("::1", errorOutput);
  EXPECT_EQ(text.rfind("getaddrinfo() returned: ", 0), 0u) << text;
  EXPECT_EQ(errorOutput, "");
}

TEST(SocketStream, ResetInTheMiddleOfTheDataIsAReadError)
{
  // More than the connection holds in transit, so that the reset cuts the
  // data short.
  const std::string chunk(4 * 1024 * 1024, 'x');
  LoopbackServer server([&](Peer& peer) {
    peer.send(chunk);
    peer.reset();
  });
  OutputCapture output(1);
  OutputCapture error(2);
  auto stream = std::make_unique<Stream>("127.0.0.1", server.port());
  stream->exceptions(std::ios::badbit);
  std::string received;
  std::string failure;
  try {
    char data[4096];
    while (stream->read(data, sizeof data) || stream->gcount() > 0) {
      received.append(data, static_cast<std::size_t>(stream->gcount()));
    }
  } catch (const std::system_error& thrown) {
    failure = thrown.what();
  }
  error.release();
  output.release();
  if (failure.empty() && Orvan::Testing::Loopback::runningUnderWine()) {
    GTEST_SKIP() << "Wine reports a reset connection as an orderly end of the data";
  }
  EXPECT_EQ(failure.rfind("Failed to read data on socket, error #", 0), 0u) << failure;
  EXPECT_TRUE(stream->bad());
  EXPECT_EQ(received, chunk.substr(0, received.size()));
}

TEST(SocketStream, ReadLinesLeaveTheHostsNumbersDecimalAndStayWhole)
{
  constexpr int STREAMS = 16;
  std::vector<std::unique_ptr<LoopbackServer>> servers;
  for (int i = 0; i < STREAMS; ++i) {
    servers.push_back(std::make_unique<LoopbackServer>([](Peer& peer) {
      const std::string piece(512, 'x');
      for (int chunk = 0; chunk < 400; ++chunk) {
        if (!peer.send(piece)) {
          return;
        }
      }
    }));
  }

  OutputCapture output(1);
  std::atomic<int> reading{STREAMS};
  int printed = 0;
  std::vector<std::thread> readers;
  for (int i = 0; i < STREAMS; ++i) {
    readers.emplace_back([&reading, port = servers[static_cast<std::size_t>(i)]->port()] {
      {
        Stream stream("127.0.0.1", port);
        char sink[4096];
        while (stream.read(sink, sizeof sink) || stream.gcount() > 0) {
        }
      }
      --reading;
    });
  }
  // The host prints decimal numbers meanwhile, each in one call.
  while (reading.load() > 0 || printed < 1000) {
    std::cout << 1000000 << '\n';
    ++printed;
  }
  std::cout.flush();
  for (std::thread& reader : readers) {
    reader.join();
  }
  const std::string written = withPlainLineEnds(output.release());

  // Take out every whole "Read" line; what is left is the host's own lines.
  const std::regex readLine("(0x)?[0-9a-fA-F]+\tRead: [0-9]+b\\.\n");
  const std::ptrdiff_t readLines =
      std::distance(std::sregex_iterator(written.begin(), written.end(), readLine), std::sregex_iterator());
  EXPECT_GE(readLines, STREAMS);
  const std::string hostLines = std::regex_replace(written, readLine, "");
  std::string expected;
  for (int i = 0; i < printed; ++i) {
    expected += "1000000\n";
  }
  EXPECT_TRUE(hostLines == expected) << "host output altered: " << hostLines.substr(0, 400);
  EXPECT_EQ(std::cout.flags(), std::ios_base::dec | std::ios_base::skipws);
}

TEST(SocketStream, CancellingTheTokenEndsAReadWithoutTimeLimit)
{
  std::atomic<bool> released{false};
  LoopbackServer server([&](Peer&) { Orvan::Testing::waitFor([&] { return released.load(); }, 120s); });
  CancelationToken token;
  StreamLimits limits;
  limits.token = &token;
  Stream stream("127.0.0.1", server.port(), limits);
  stream.exceptions(std::ios::badbit);
  // Cancelled once the server holds the connection, from another thread:
  // the read waits for a byte that never comes, with no time limit.
  std::thread canceller([&] {
    Orvan::Testing::waitFor([&] { return server.accepted() > 0; });
    token.requestCancel();
  });
  std::error_code error;
  try {
    stream.get();
  } catch (const std::system_error& failure) {
    error = failure.code();
  }
  canceller.join();
  released = true;
  EXPECT_EQ(error, std::make_error_code(std::errc::operation_canceled));
}

TEST(SocketStream, TheConnectTokenDoesNotEndARead)
{
  std::atomic<bool> released{false};
  LoopbackServer server([&](Peer& peer) {
    Orvan::Testing::waitFor([&] { return released.load(); }, 120s);
    peer.send("late");
  });
  CancelationToken connectToken;
  StreamLimits limits;
  limits.connectToken = &connectToken;
  limits.idleTimeout = 120s;
  Stream stream("127.0.0.1", server.port(), limits);
  connectToken.requestCancel();
  released = true;
  std::string received;
  std::getline(stream, received);
  EXPECT_EQ(received, "late");
}
