#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Orvan::Testing {

// The orvan program under test.
std::filesystem::path toolPath();

// A program started with its standard output and standard error going to
// files, so that nothing can block on a full pipe.
class ToolProcess {
public:
  // Starts `program` with `arguments` in `directory` (empty: the test's own).
  ToolProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
              const std::filesystem::path& directory = {});
  ~ToolProcess();
  ToolProcess(const ToolProcess&) = delete;
  ToolProcess& operator=(const ToolProcess&) = delete;

  pid_t pid() const { return child; }

  // Waits for the end; the exit code, 128 + the signal for a program ended by
  // a signal, -1 when it did not end before `deadline` (it is killed then).
  int wait(std::chrono::steady_clock::duration deadline = std::chrono::seconds(60));

  // Whether the output (standard output, else standard error) holds `text`
  // before `deadline`.
  bool waitForOutput(const std::string& text, std::chrono::steady_clock::duration deadline = std::chrono::seconds(30));
  bool waitForError(const std::string& text, std::chrono::steady_clock::duration deadline = std::chrono::seconds(30));

  void signal(int number);

  std::string output() const;
  std::string error() const;

private:
  std::filesystem::path directory;
  pid_t child = -1;
  bool ended = false;
  int code = -1;
};

struct ToolResult {
  int code;
  std::string output;
  std::string error;
};

// Runs orvan with `arguments` to its end.
ToolResult runTool(const std::vector<std::string>& arguments, const std::filesystem::path& directory = {},
                   std::chrono::steady_clock::duration deadline = std::chrono::seconds(60));

// A loopback port on which nothing listens (it was free a moment ago).
unsigned short freePort();

// `size` bytes that no pattern could fake.
std::string randomBytes(std::size_t size, unsigned seed);

} // namespace Orvan::Testing
