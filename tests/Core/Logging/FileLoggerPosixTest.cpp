#include "LogFile.h"

#include <Core/Logging/FileLogger.h>
#include <TemporaryDirectory.h>
#include <Unprivileged.h>

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using Orvan::Core::Logging::FileLogger;
using Orvan::Testing::LogLine;
using Orvan::Testing::parseLogLine;
using Orvan::Testing::readLogLines;
using Orvan::Testing::TemporaryDirectory;

namespace {

constexpr rlim_t FILE_SIZE_LIMIT = 4096;

// In a child process, which alone gets the file size limit: logs numbered
// lines until the limit cuts one, lifts the limit and logs one more line.
[[noreturn]] void logPastAFileSizeLimit(const std::string& path)
{
  std::signal(SIGXFSZ, SIG_IGN); // a write past the limit then fails with EFBIG
  rlimit limit{};
  ::getrlimit(RLIMIT_FSIZE, &limit);
  const rlimit lifted = limit;
  limit.rlim_cur = FILE_SIZE_LIMIT;
  ::setrlimit(RLIMIT_FSIZE, &limit);
  {
    FileLogger logger(path);
    for (int i = 0; i < 100; ++i) {
      logger.info("line " + std::to_string(i) + " " + std::string(60, 'x'));
    }
    ::setrlimit(RLIMIT_FSIZE, &lifted);
    logger.info("after the limit");
  }
  ::_exit(0);
}

} // namespace

TEST(FileLoggerPosix, ALineCutByAFileSizeLimitIsNotGluedToTheNextLine)
{
  TemporaryDirectory directory;
  const auto path = directory / "run.log";
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    logPastAFileSizeLimit(path.string());
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;

  const std::vector<std::string> lines = readLogLines(path);
  ASSERT_GE(lines.size(), 4u);
  // The last line stands on a line of its own, right after the cut one.
  const LogLine last = parseLogLine(lines.back());
  EXPECT_TRUE(last.wellFormed) << lines.back();
  EXPECT_EQ(last.message, "after the limit");
  const std::string& cut = lines[lines.size() - 2];
  const std::string whole = lines[lines.size() - 3];
  EXPECT_LT(cut.size(), whole.size()) << cut;
  EXPECT_EQ(cut.find("after the limit"), std::string::npos) << cut;
  for (std::size_t i = 2; i + 2 < lines.size(); ++i) {
    EXPECT_TRUE(parseLogLine(lines[i]).wellFormed) << lines[i];
  }
}

// Without the right to write in the log's directory, the log cannot be
// renamed: its lines go on into it, and it rotates once it can.
TEST(FileLoggerPosix, ALogThatCannotBeRenamedGoesOnInTheSameFileAndRotatesOnceItCan)
{
  Orvan::Testing::asUnprivilegedUser([] {
    namespace fs = std::filesystem;
    TemporaryDirectory directory;
    const auto path = directory / "run.log";
    const auto numbered = [&path](int number) { return fs::path(path.string() + "." + std::to_string(number)); };
    FileLogger::Options options;
    options.rotation = FileLogger::Rotation{500, 5};
    FileLogger logger(path.string(), options);

    fs::permissions(directory.path(), fs::perms::owner_read | fs::perms::owner_exec);
    for (int i = 0; i < 20; ++i) {
      logger.info("line " + std::to_string(i) + " of a log that cannot be renamed for now");
    }
    EXPECT_TRUE(logger.isOpen());
    EXPECT_FALSE(fs::exists(numbered(1)));
    fs::permissions(directory.path(), fs::perms::owner_all);
    for (int i = 20; i < 40; ++i) {
      logger.info("line " + std::to_string(i) + " of a log that cannot be renamed for now");
    }
    EXPECT_TRUE(fs::exists(numbered(1)));

    std::vector<std::string> messages;
    for (int number = 5; number >= 0; --number) {
      const fs::path file = number == 0 ? path : numbered(number);
      if (!fs::exists(file)) {
        continue;
      }
      const std::vector<std::string> lines = readLogLines(file);
      for (std::size_t i = 2; i < lines.size(); ++i) {
        messages.push_back(parseLogLine(lines[i]).message);
      }
    }
    ASSERT_EQ(messages.size(), 40u);
    for (int i = 0; i < 40; ++i) {
      EXPECT_EQ(messages[static_cast<std::size_t>(i)],
                "line " + std::to_string(i) + " of a log that cannot be renamed for now");
    }
  });
}
