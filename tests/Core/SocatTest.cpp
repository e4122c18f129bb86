// Reads a file served by socat, a server written by others, so that the
// client is checked against more than our own test servers. Linux only.

#include <Core/Event/CoreEvents.h>
#include <Core/FileInfo.h>
#include <Core/Process/TimeoutRetry.h>
#include <LoopbackFile.h>
#include <LoopbackSocket.h>
#include <OutputCapture.h>
#include <RecordingTest.h>
#include <RequiredProgram_posix.h>
#include <TemporaryDirectory.h>
#include <WaitFor.h>

#include <gtest/gtest.h>

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

extern char** environ;

using Orvan::Core::FileInfo;
using Orvan::Core::Process::TimeoutRetry;
using Orvan::Testing::OutputCapture;
using Orvan::Testing::RecordingTest;
using Orvan::Testing::TemporaryDirectory;
namespace Events = Orvan::Core::Event;

namespace {

// A child process, killed and reaped if it is still there at the end.
class Child {
public:
  explicit Child(const std::vector<std::string>& arguments)
  {
    std::vector<char*> argv;
    for (const std::string& argument : arguments) {
      argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    started = ::posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ) == 0;
  }

  ~Child()
  {
    if (started && !reaped) {
      ::kill(pid, SIGKILL);
      wait();
    }
  }

  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  bool isStarted() const { return started; }

  int wait()
  {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    reaped = true;
    return status;
  }

private:
  pid_t pid = -1;
  bool started = false;
  bool reaped = false;
};

class Socat : public RecordingTest {};

} // namespace

TEST_F(Socat, FileServedBySocatArrivesByteForByte)
{
  ORVAN_REQUIRE_PROGRAM(socat, "socat")

  TemporaryDirectory directory;
  const auto file = directory / "served.bin";
  std::string content;
  std::uint32_t state = 12345;
  for (std::size_t i = 0; i < 3 * 1024 * 1024 + 17; ++i) {
    state = state * 1664525u + 1013904223u;
    content += static_cast<char>(state >> 24);
  }
  Orvan::Testing::writeFile(file, content);

  const unsigned short port = Orvan::Testing::Loopback::freePort();
  Child server({socat.string(), "-u", "OPEN:" + file.string(),
                "TCP-LISTEN:" + std::to_string(port) + ",bind=127.0.0.1,reuseaddr"});
  ASSERT_TRUE(server.isStarted());

  // Connections are refused until socat listens; the policy retries them.
  TimeoutRetry policy;
  FileInfo finfo = Orvan::Testing::loopbackFile("served.bin", port, 30);
  finfo.retry = &policy;
  OutputCapture output(1);
  OutputCapture error(2);
  const auto stream = finfo.makeStream(std::nullopt);
  const std::string received(std::istreambuf_iterator<char>(*stream), std::istreambuf_iterator<char>{});
  error.release();
  output.release();

  EXPECT_EQ(received.size(), content.size());
  EXPECT_TRUE(received == content);
  EXPECT_EQ(events->ids().back(), Events::CONNECTED);
  const int status = server.wait();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}
