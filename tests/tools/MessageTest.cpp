// Every message the orvan program writes when something goes wrong, each
// checked whole against the sentence it should be: one sentence per failure,
// with its reason, and nothing left over (no empty part, no doubled colon,
// no library line repeating the tool's own message).

#include "SilentListener_posix.h"
#include "TemporaryDirectory.h"
#include "ToolProcess.h"

#include <gtest/gtest.h>

#include <signal.h>

#include <regex>
#include <string>
#include <vector>

namespace {

using namespace Orvan::Testing;

struct Expected {
  std::vector<std::string> arguments;
  int code;
  // The whole of standard error; "<*>" stands for any text on one line (a
  // resolver's own words, which vary by system).
  std::string error;
};

// `message` as a usage error of `command` prints it.
std::string usage(const std::string& command, const std::string& message)
{
  const std::string name = command.empty() ? "orvan" : "orvan " + command;
  return name + ": " + message + "\nTry '" + name + " --help'.\n";
}

bool matchesWhole(const std::string& text, const std::string& pattern)
{
  std::string expression;
  const std::string any = "<*>";
  for (std::size_t position = 0; position < pattern.size();) {
    if (pattern.compare(position, any.size(), any) == 0) {
      expression += "[^\n]*";
      position += any.size();
      continue;
    }
    const char character = pattern[position++];
    if (std::string("\\^$.|?*+()[]{}").find(character) != std::string::npos) {
      expression += '\\';
    }
    expression += character;
  }
  return std::regex_match(text, std::regex(expression));
}

TEST(OrvanMessages, EveryFailureIsOneSentenceWithItsReason)
{
  TemporaryDirectory directory;
  writeFile(directory / "data.bin", "data");
  writeFile(directory / "existing.bin", "old");
  const std::string dir = directory.path().string();
  const std::string file = (directory / "data.bin").string();
  const std::string missing = (directory / "missing.bin").string();
  const std::string port = std::to_string(freePort());
  SilentListener silent;
  ASSERT_TRUE(silent.isReady());

  const std::vector<Expected> cases = {
      {{"frobnicate"}, 2, usage("", "unknown command 'frobnicate'")},
      {{"--bogus"}, 2, usage("", "unknown option '--bogus'")},
      // fetch: the command line.
      {{"fetch"}, 2, usage("fetch", "missing TARGET")},
      {{"fetch", "a", "b"}, 2, usage("fetch", "one TARGET only; 'b' is one too many")},
      {{"fetch", "a", "--bogus"}, 2, usage("fetch", "unknown option '--bogus'")},
      {{"fetch", "a", "-o"}, 2, usage("fetch", "option '-o' needs a value")},
      {{"fetch", ""}, 2, usage("fetch", "TARGET is empty")},
      {{"fetch", "x.bin@127.0.0.1:65536"},
       2,
       usage("fetch", "bad TARGET 'x.bin@127.0.0.1:65536': port 65536 is above 65535")},
      {{"fetch", "x.bin@127.0.0.1:99999999999"},
       2,
       usage("fetch", "bad TARGET 'x.bin@127.0.0.1:99999999999': the port or the timeout is too large")},
      {{"fetch", "a", "--timeout", "soon"},
       2,
       usage("fetch", "option '--timeout' takes a duration such as 30, 90s, 1.5m, 2h or 1d, not 'soon'")},
      {{"fetch", "a", "--timeout", "0.5"}, 2, usage("fetch", "option '--timeout' takes whole seconds, not '0.5'")},
      {{"fetch", "a", "--idle-timeout", "1x"},
       2,
       usage("fetch", "option '--idle-timeout' takes a duration such as 30, 1.5s, 250ms, 2m, 1h or 1d, not '1x'")},
      {{"fetch", "a", "--max-time", "400d"},
       2,
       usage("fetch", "option '--max-time' takes a duration of at most 365 d, not '400d'")},
      {{"fetch", "a", "--memory-period", "1"},
       2,
       usage("fetch", "option '--memory-period' needs '--log FILE' to write the samples to")},
      {{"fetch", file, "-o", dir}, 2, usage("fetch", "'" + dir + "' is a directory; give a file name with -o")},
      // fetch: what it met.
      {{"fetch", file, "-o", (directory / "existing.bin").string()},
       1,
       "orvan fetch: '" + (directory / "existing.bin").string() + "' exists; use --force to replace it\n"},
      {{"fetch", missing, "-o", (directory / "copy.bin").string()},
       1,
       "orvan fetch: cannot open '" + missing + "': No such file or directory\n"},
      {{"fetch", file, "-o", "-", "--log", dir + "/no/such/fetch.log"},
       1,
       "orvan fetch: cannot write the log file '" + dir + "/no/such/fetch.log': No such file or directory\n"},
      {{"fetch", "x.bin@127.0.0.1:" + port, "-o", (directory / "x.bin").string()},
       7,
       "orvan fetch: cannot connect to 127.0.0.1:" + port + " (x.bin): Connection refused\n"},
      {{"fetch", "x.bin@127.0.0.1:" + port, "--timeout", "1", "-o", (directory / "x.bin").string()},
       7,
       "orvan fetch: cannot connect to 127.0.0.1:" + port + " (x.bin): Connection refused\n"},
      {{"fetch", "x.bin@no-such-host.invalid:4000", "-o", (directory / "x.bin").string()},
       7,
       "orvan fetch: cannot resolve no-such-host.invalid (x.bin): <*>\n"},
      {{"fetch", silent.target(), "--max-time", "0.5", "-o", (directory / "x.bin").string()},
       124,
       "orvan fetch: timed out after 0 B: the whole fetch took over 500 ms (--max-time)\n"},
      {{"fetch", silent.target(), "--idle-timeout", "0.5s", "-o", (directory / "x.bin").string()},
       124,
       "orvan fetch: timed out after 0 B: no data came for 500 ms (--idle-timeout)\n"},
      // serve.
      {{"serve"}, 2, usage("serve", "missing FILE")},
      {{"serve", missing}, 1, "orvan serve: cannot serve '" + missing + "': No such file or directory\n"},
      {{"serve", dir}, 1, "orvan serve: cannot serve '" + dir + "': not a regular file\n"},
      {{"serve", file, "--port", "65536"},
       2,
       usage("serve", "option '--port' takes a whole number from 0 to 65535, not '65536'")},
      {{"serve", file, "--max-clients", "0"}, 2, usage("serve", "option '--max-clients' needs at least 1")},
      {{"serve", file, "--port", std::to_string(silent.port())},
       1,
       "orvan serve: cannot listen on 127.0.0.1:" + std::to_string(silent.port()) + ": Address already in use\n"},
      {{"serve", file, "--bind", "no-such-host.invalid"},
       1,
       "orvan serve: cannot resolve 'no-such-host.invalid': <*>\n"},
      // run: its own failures are 125, as GNU timeout's.
      {{"run"}, 125, usage("run", "missing PROGRAM")},
      {{"run", "--timeout"}, 125, usage("run", "option '--timeout' needs a value")},
      {{"run", "--cwd", missing, "--", "true"}, 125, usage("run", "'" + missing + "' is not a directory")},
      {{"run", "--kill-after", "2d", "--", "true"},
       125,
       usage("run", "option '--kill-after' takes a duration of at most 1 d, not '2d'")},
      {{"run", "--", missing}, 127, "orvan run: cannot start '" + missing + "': No such file or directory\n"},
      {{"run", "--", dir}, 126, "orvan run: cannot start '" + dir + "': Permission denied\n"},
      {{"run", "--timeout", "0.2", "--", "sleep", "30"},
       124,
       "orvan run: 'sleep' timed out after 200 ms and was terminated\n"},
      // memory.
      {{"memory", "extra"}, 2, usage("memory", "unexpected argument 'extra'")},
      {{"memory", "--watch", "0"}, 2, usage("memory", "option '--watch' needs at least 1ms")},
      {{"memory", "--count", "3"}, 2, usage("memory", "option '--count' above 1 needs '--watch TIME'")},
  };
  for (const Expected& expected : cases) {
    const ToolResult result = runTool(expected.arguments, directory.path());
    std::string line = "orvan";
    for (const auto& word : expected.arguments) {
      line += " '" + word + "'";
    }
    EXPECT_EQ(result.code, expected.code) << line << "\n" << result.error;
    EXPECT_TRUE(matchesWhole(result.error, expected.error))
        << line << "\nexpected: " << expected.error << "printed:  " << result.error;
    EXPECT_EQ(result.output, "") << line;
  }
}

// The log of a server counts its clients in words.
TEST(OrvanMessages, AServerCountsOneClientInTheSingular)
{
  TemporaryDirectory directory;
  writeFile(directory / "data.bin", "data");
  ToolProcess server(toolPath(), {"serve", (directory / "data.bin").string(), "--port", "0"});
  ASSERT_TRUE(server.waitForOutput("Serving '"));
  std::smatch match;
  const std::string banner = server.output();
  ASSERT_TRUE(std::regex_search(banner, match, std::regex(":([0-9]+)\n")));
  const ToolResult fetched =
      runTool({"fetch", "data.bin@127.0.0.1:" + match[1].str(), "-o", (directory / "copy.bin").string()});
  EXPECT_EQ(fetched.code, 0) << fetched.error;
  ASSERT_TRUE(server.waitForError("Sent 4 bytes"));
  server.signal(SIGINT);
  EXPECT_EQ(server.wait(), 130);
  EXPECT_NE(server.error().find("Stopped after serving 1 client\n"), std::string::npos) << server.error();
}

// The library's own lines about a failure are there when asked for.
TEST(OrvanMessages, TheLibrarysLinesComeWithVerbose)
{
  TemporaryDirectory directory;
  const std::string target = "x.bin@127.0.0.1:" + std::to_string(freePort());
  const ToolResult result = runTool({"fetch", target, "-v"}, directory.path());
  EXPECT_EQ(result.code, 7);
  EXPECT_NE(result.error.find("[ERROR  ] Failed to connected to: '" + target + "'!"), std::string::npos)
      << result.error;
  const auto log = directory / "fetch.log";
  EXPECT_EQ(runTool({"fetch", target, "--log", log.string()}, directory.path()).code, 7);
  EXPECT_NE(readFile(log).find("Failed to connected to: '" + target + "'!"), std::string::npos);
}

} // namespace
