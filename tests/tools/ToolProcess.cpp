#include "ToolProcess.h"

#include "TemporaryDirectory.h"
#include "WaitFor.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace Orvan::Testing {

namespace {

std::string readAll(const std::filesystem::path& path)
{
  std::ifstream input(path, std::ios::binary);
  std::ostringstream content;
  content << input.rdbuf();
  return content.str();
}

std::filesystem::path scratchDirectory()
{
  const auto base = std::filesystem::temp_directory_path();
  std::random_device device;
  for (;;) {
    auto candidate = base / ("orvan-tool-test-" + std::to_string(device()));
    if (std::filesystem::create_directory(candidate)) {
      return candidate;
    }
  }
}

} // namespace

std::filesystem::path toolPath()
{
  return ORVAN_TOOL;
}

ToolProcess::ToolProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                         const std::filesystem::path& workingDirectory)
    : directory(scratchDirectory())
{
  std::vector<std::string> words{program.string()};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, (directory / "stdout").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_addopen(&actions, 2, (directory / "stderr").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (!workingDirectory.empty()) {
    posix_spawn_file_actions_addchdir_np(&actions, workingDirectory.c_str());
  }
  // The child starts with default signal handling, whatever the test runner
  // ignores.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t defaults;
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGINT);
  sigaddset(&defaults, SIGTERM);
  sigaddset(&defaults, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  const int result = posix_spawn(&child, argv[0], &actions, &attributes, argv.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (result != 0) {
    child = -1;
    throw std::runtime_error("cannot start " + program.string() + ": " + std::strerror(result));
  }
}

ToolProcess::~ToolProcess()
{
  if (!ended && child > 0) {
    ::kill(child, SIGKILL);
    wait(std::chrono::seconds(30));
  }
  std::error_code ignored;
  std::filesystem::remove_all(directory, ignored);
}

int ToolProcess::wait(std::chrono::steady_clock::duration deadline)
{
  if (ended) {
    return code;
  }
  int status = 0;
  const bool done = waitFor(
      [&] {
        const pid_t result = ::waitpid(child, &status, WNOHANG);
        return result == child || (result < 0 && errno != EINTR);
      },
      deadline);
  if (!done) {
    ::kill(child, SIGKILL);
    ::waitpid(child, &status, 0);
    ended = true;
    code = -1;
    return code;
  }
  ended = true;
  code = WIFEXITED(status) ? WEXITSTATUS(status) : WIFSIGNALED(status) ? 128 + WTERMSIG(status) : -1;
  return code;
}

bool ToolProcess::waitForOutput(const std::string& text, std::chrono::steady_clock::duration deadline)
{
  return waitFor([&] { return output().find(text) != std::string::npos; }, deadline);
}

bool ToolProcess::waitForError(const std::string& text, std::chrono::steady_clock::duration deadline)
{
  return waitFor([&] { return error().find(text) != std::string::npos; }, deadline);
}

void ToolProcess::signal(int number)
{
  if (!ended) {
    ::kill(child, number);
  }
}

std::string ToolProcess::output() const
{
  return readAll(directory / "stdout");
}

std::string ToolProcess::error() const
{
  return readAll(directory / "stderr");
}

ToolResult runTool(const std::vector<std::string>& arguments, const std::filesystem::path& directory,
                   std::chrono::steady_clock::duration deadline)
{
  ToolProcess process(toolPath(), arguments, directory);
  const int code = process.wait(deadline);
  return {code, process.output(), process.error()};
}

unsigned short freePort()
{
  const int descriptor = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address);
  socklen_t length = sizeof address;
  ::getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length);
  ::close(descriptor);
  return ntohs(address.sin_port);
}

std::string randomBytes(std::size_t size, unsigned seed)
{
  std::string bytes(size, '\0');
  std::uint32_t state = seed;
  for (char& byte : bytes) {
    state = state * 1664525u + 1013904223u;
    byte = static_cast<char>(state >> 24);
  }
  return bytes;
}

} // namespace Orvan::Testing
