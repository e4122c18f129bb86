
#include <Core/FileInfo.h>
#include <Core/FileServer.h>
#include <Core/StreamDiagnostics.h>
#include <RecordingTest.h>
#include <TemporaryDirectory.h>
#include <WaitFor.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <iterator>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

using Orvan::Core::FileInfo;
using Orvan::Core::FileServer;
using Orvan::Core::setStreamDiagnostics;
using Orvan::Core::StreamDiagnostics;
using Orvan::Testing::RecordingTest;
using Orvan::Testing::TemporaryDirectory;
using namespace std::chrono_literals;

namespace {

class FileServerTest : public RecordingTest {
protected:
  FileServerTest() { setStreamDiagnostics(StreamDiagnostics::Silent); }
  ~FileServerTest() override { setStreamDiagnostics(StreamDiagnostics::Console); }
};

std::string randomText(std::size_t size)
{
  std::mt19937 generator(7);
  std::string text(size, '\0');
  for (char& character : text) {
    character = static_cast<char>(generator());
  }
  return text;
}

std::string fetch(const FileInfo& finfo)
{
  const auto stream = finfo.makeStream(static_cast<int>(std::ios::binary));
  return std::string(std::istreambuf_iterator<char>(*stream), {});
}

// The number of bytes read from the stream to its end, in large reads.
std::size_t fetchSize(const FileInfo& finfo)
{
  const auto stream = finfo.makeStream(static_cast<int>(std::ios::binary));
  std::vector<char> buffer(1024 * 1024);
  std::size_t total = 0;
  while (stream->read(buffer.data(), static_cast<std::streamsize>(buffer.size())) || stream->gcount() > 0) {
    total += static_cast<std::size_t>(stream->gcount());
  }
  return total;
}

// Whether reading the stream to its end met no error.
bool fetchesCleanly(const FileInfo& finfo)
{
  try {
    const auto stream = finfo.makeStream(static_cast<int>(std::ios::binary));
    std::string(std::istreambuf_iterator<char>(*stream), {});
    return !stream->bad();
  } catch (const std::exception&) {
    return false;
  }
}

} // namespace

TEST_F(FileServerTest, EveryClientGetsTheWholeFile)
{
  TemporaryDirectory directory;
  const std::string content = randomText(3 * 1024 * 1024 + 17);
  Orvan::Testing::writeFile(directory / "data.bin", content);
  FileServer server(directory / "data.bin");

  std::vector<std::future<std::string>> clients;
  for (int i = 0; i < 8; ++i) {
    clients.push_back(std::async(std::launch::async, [&server] { return fetch(server.descriptor()); }));
  }
  for (auto& client : clients) {
    EXPECT_TRUE(client.get() == content);
  }
  EXPECT_TRUE(Orvan::Testing::waitFor([&server] { return server.clientsServed() == 8; }));
}

TEST_F(FileServerTest, StatsAndTheCallbackTellEachClientsOutcome)
{
  TemporaryDirectory directory;
  const std::string content = randomText(100 * 1000);
  Orvan::Testing::writeFile(directory / "data.bin", content);
  std::mutex mutex;
  std::vector<FileServer::ClientReport> reports;
  FileServer::Options options;
  options.onClientEnd = [&](const FileServer::ClientReport& report) {
    const std::lock_guard lock(mutex);
    reports.push_back(report);
  };
  FileServer server(directory / "data.bin", options);
  EXPECT_EQ(fetch(server.descriptor()), content);
  EXPECT_EQ(fetch(server.descriptor()), content);
  std::filesystem::remove(directory / "data.bin");
  EXPECT_FALSE(fetchesCleanly(server.descriptor()));
  ASSERT_TRUE(Orvan::Testing::waitFor([&] {
    const std::lock_guard lock(mutex);
    return reports.size() == 3;
  }));
  const FileServer::Stats stats = server.stats();
  EXPECT_EQ(stats.served, 2u);
  EXPECT_EQ(stats.failed, 1u);
  EXPECT_EQ(stats.bytes, 2 * content.size());
  EXPECT_EQ(stats.active, 0u);
  EXPECT_EQ(server.clientsServed(), 2u);
  // The clients end in any order: a served one ends when it has closed its
  // side.
  const std::lock_guard lock(mutex);
  int served = 0;
  for (const FileServer::ClientReport& report : reports) {
    EXPECT_EQ(report.peer.rfind("127.0.0.1:", 0), 0u) << report.peer;
    if (report.outcome == FileServer::ClientOutcome::Served) {
      ++served;
      EXPECT_EQ(report.bytes, content.size());
    } else {
      EXPECT_EQ(report.outcome, FileServer::ClientOutcome::FileError);
      EXPECT_EQ(report.bytes, 0u);
    }
  }
  EXPECT_EQ(served, 2);
}

TEST_F(FileServerTest, IdleClientsAreResetAndLeaveRoomForOthers)
{
  TemporaryDirectory directory;
  const std::string content(32 * 1024 * 1024, 'i');
  Orvan::Testing::writeFile(directory / "big.bin", content);
  FileServer::Options options;
  options.maxClients = 2;
  options.idleTimeout = 3s;
  FileServer server(directory / "big.bin", options);
  // Two clients that connect and then read nothing take both slots.
  std::vector<std::unique_ptr<std::istream>> idle;
  for (int i = 0; i < 2; ++i) {
    idle.push_back(server.descriptor().makeStream(static_cast<int>(std::ios::binary)));
    char first = 0;
    ASSERT_TRUE(idle.back()->get(first));
  }
  auto reader = std::async(std::launch::async, [&server] { return fetchSize(server.descriptor()); });
  ASSERT_EQ(reader.wait_for(30s), std::future_status::ready) << "idle clients kept every slot";
  EXPECT_EQ(reader.get(), content.size());
  EXPECT_TRUE(Orvan::Testing::waitFor([&server] { return server.stats().failed == 2; }));
}

TEST_F(FileServerTest, TheDescriptorNamesTheFileAndTheServer)
{
  TemporaryDirectory directory;
  Orvan::Testing::writeFile(directory / "data.bin", "x");
  FileServer server(directory / "data.bin");
  EXPECT_NE(server.port(), 0);
  EXPECT_EQ(toString(server.descriptor()), "data.bin@127.0.0.1:" + std::to_string(server.port()));
}

TEST_F(FileServerTest, AnEmptyFileIsAnEmptyStream)
{
  TemporaryDirectory directory;
  Orvan::Testing::writeFile(directory / "empty.bin", "");
  FileServer server(directory / "empty.bin");
  EXPECT_EQ(fetch(server.descriptor()), "");
}

TEST_F(FileServerTest, AMissingFileResetsTheConnectionAndIsLogged)
{
  TemporaryDirectory directory;
  FileServer server(directory / "missing.bin");
  EXPECT_FALSE(fetchesCleanly(server.descriptor()));
  EXPECT_EQ(server.clientsServed(), 0u);
  EXPECT_TRUE(Orvan::Testing::waitFor([this] {
    for (const auto& line : logger->lines()) {
      if (line.second.rfind("Stopped sending '", 0) == 0) {
        return true;
      }
    }
    return false;
  }));
}

TEST_F(FileServerTest, ClientsBeyondTheLimitWaitTheirTurn)
{
  TemporaryDirectory directory;
  const std::string content = randomText(256 * 1024);
  Orvan::Testing::writeFile(directory / "data.bin", content);
  FileServer::Options options;
  options.maxClients = 1;
  FileServer server(directory / "data.bin", options);
  std::vector<std::future<std::string>> clients;
  for (int i = 0; i < 4; ++i) {
    clients.push_back(std::async(std::launch::async, [&server] { return fetch(server.descriptor()); }));
  }
  for (auto& client : clients) {
    EXPECT_TRUE(client.get() == content);
  }
}

TEST_F(FileServerTest, ABadAddressOrABusyPortIsRefusedAtOnce)
{
  TemporaryDirectory directory;
  Orvan::Testing::writeFile(directory / "data.bin", "x");
  FileServer::Options badAddress;
  badAddress.bindAddress = "localhost";
  try {
    FileServer server(directory / "data.bin", badAddress);
    ADD_FAILURE() << "a host name was accepted";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::make_error_code(std::errc::invalid_argument));
  }
  FileServer first(directory / "data.bin");
  FileServer::Options samePort;
  samePort.port = first.port();
  EXPECT_THROW(FileServer(directory / "data.bin", samePort), std::system_error);
}

TEST_F(FileServerTest, StoppingCutsATransferShortAndReturns)
{
  TemporaryDirectory directory;
  Orvan::Testing::writeFile(directory / "big.bin", std::string(64 * 1024 * 1024, 'b'));
  FileServer server(directory / "big.bin");
  // A client that connects and reads nothing keeps the transfer waiting.
  const auto stream = server.descriptor().makeStream(static_cast<int>(std::ios::binary));
  char first = 0;
  ASSERT_TRUE(stream->get(first));
  auto stopping = std::async(std::launch::async, [&server] { server.stop(); });
  ASSERT_EQ(stopping.wait_for(30s), std::future_status::ready) << "stop waited for the client";
  server.stop();
  EXPECT_EQ(server.clientsServed(), 0u);
}
