#include "LogFile.h"

#include <Core/Logging/CoutLogger.h>
#include <Core/Logging/DichotomicLogger.h>
#include <Core/Logging/FileLogger.h>
#include <Core/Logging/LoggingCallback.h>
#include <Core/Logging/LoggingType.h>
#include <FacadeReset.h>
#include <OutputCapture.h>
#include <Platform/System.h>
#include <RecordingLogger.h>
#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace Logging = Orvan::Core::Logging;
namespace Platform = Orvan::Testing::Platform;
using Logging::LoggingType;
using Orvan::Testing::LogLine;
using Orvan::Testing::OutputCapture;
using Orvan::Testing::parseLogLine;
using Orvan::Testing::RecordingLogger;
using Orvan::Testing::splitLines;
using Orvan::Testing::TemporaryDirectory;

namespace {

constexpr int THREADS = 8;
constexpr int MESSAGES_PER_THREAD = 500;

// Each level: its word in log files, the facade function that logs at it,
// and where a dichotomic logger sends it: to its filtered logger (info,
// warnings and errors), and echoed on the console (warnings and errors).
struct Level {
  const char* fileWord;
  void (*log)(const std::string&);
  bool filtered;
  bool echoed;
};

const Level LEVELS[] = {{"INFO   ", &Logging::logInfo, true, false},
                        {"WARNING", &Logging::logWarning, true, true},
                        {"ERROR  ", &Logging::logError, true, true},
                        {"DEBUG  ", &Logging::logDebug, false, false},
                        {"VERBOSE", &Logging::logVerbose, false, false}};

// The message a thread writes at `index`: unique, and of a length that varies
// from a few characters to a few hundred, so that lines straddle the standard
// output's buffer and a torn line cannot pass for another one.
std::string messageText(int thread, int index)
{
  std::string text = "t" + std::to_string(thread) + "-m" + std::to_string(index) + "-";
  text.append(static_cast<std::size_t>((index * 37 + thread * 11) % 300),
              static_cast<char>('a' + (index + thread) % 26));
  return text;
}

const Level& levelOf(int thread, int index)
{
  return LEVELS[static_cast<std::size_t>(thread + index) % std::size(LEVELS)];
}

std::string consoleTagOf(const Level& level)
{
  return std::string("[") + level.fileWord + "] ";
}

// Every thread writes its messages through the facade, all starting at once.
void logFromEightThreads()
{
  std::vector<std::thread> threads;
  for (int thread = 0; thread < THREADS; ++thread) {
    threads.emplace_back([thread] {
      for (int index = 0; index < MESSAGES_PER_THREAD; ++index) {
        levelOf(thread, index).log(messageText(thread, index));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

class StressLogging : public Orvan::Testing::FacadeReset {};

// Puts a real pipe behind the process's standard output while it lives; a
// thread of its own drains the pipe, so that writers never block on a full
// pipe. release() puts the standard output back and returns every byte.
class StandardOutputPipe {
public:
  StandardOutputPipe()
  {
    int writeEnd = -1;
    if (!Platform::createPipe(readEnd, writeEnd)) {
      throw std::runtime_error("cannot create a pipe");
    }
    std::cout.flush();
    std::fflush(stdout);
    saved = Platform::duplicate(1);
    Platform::duplicateTo(writeEnd, 1);
    Platform::close(writeEnd);
    reader = std::thread([this] {
      char buffer[4096];
      for (long count; (count = Platform::readSome(readEnd, buffer, sizeof(buffer))) > 0;) {
        received.append(buffer, static_cast<std::size_t>(count));
      }
    });
  }

  ~StandardOutputPipe() { release(); }

  StandardOutputPipe(const StandardOutputPipe&) = delete;
  StandardOutputPipe& operator=(const StandardOutputPipe&) = delete;

  // The last write end goes with the standard output's descriptor, so the
  // reader meets the end of the pipe once it has read everything.
  std::string release()
  {
    if (saved >= 0) {
      std::cout.flush();
      std::fflush(stdout);
      Platform::duplicateTo(saved, 1);
      Platform::close(saved);
      saved = -1;
      reader.join();
      Platform::close(readEnd);
    }
    return received;
  }

private:
  int readEnd = -1;
  int saved = -1;
  std::thread reader;
  std::string received;
};

} // namespace

TEST_F(StressLogging, EightThreadsThroughADichotomicLoggerWriteWholeCountedLinesToTheFileAndThePipe)
{
  TemporaryDirectory directory;
  const auto path = directory / "stress.log";
  std::string piped;
  {
    StandardOutputPipe pipe;
    auto file = std::make_shared<Logging::FileLogger>(path.string());
    auto console = std::make_shared<Logging::CoutLogger>();
    auto both = std::make_shared<Logging::DichotomicLogger>(Logging::DichotomicLogger::FilteredLogger{console},
                                                            Logging::DichotomicLogger::CompleteLogger{file});
    Logging::setLogger(both);
    logFromEightThreads();
    Logging::setLogger({});
    piped = pipe.release();
  }

  // The file: the two head lines, then every message once, whole, at its
  // level, and each thread under one thread number of its own.
  const std::vector<std::string> fileLines = Orvan::Testing::readLogLines(path);
  ASSERT_EQ(fileLines.size(), 2u + THREADS * MESSAGES_PER_THREAD);
  EXPECT_EQ(fileLines[0].rfind("[Y-m-d X]", 0), 0u);
  EXPECT_EQ(parseLogLine(fileLines[1]).message, "7.6.3");
  std::map<std::string, LogLine> fileByMessage;
  for (std::size_t index = 2; index < fileLines.size(); ++index) {
    const LogLine line = parseLogLine(fileLines[index]);
    ASSERT_TRUE(line.wellFormed) << "line " << index << ": " << fileLines[index];
    EXPECT_TRUE(fileByMessage.emplace(line.message, line).second) << "twice: " << line.message;
  }
  std::set<std::string> threadFields;
  for (int thread = 0; thread < THREADS; ++thread) {
    std::set<std::string> fieldsOfThread;
    for (int index = 0; index < MESSAGES_PER_THREAD; ++index) {
      const auto found = fileByMessage.find(messageText(thread, index));
      ASSERT_NE(found, fileByMessage.end()) << messageText(thread, index);
      EXPECT_EQ(found->second.level, levelOf(thread, index).fileWord);
      fieldsOfThread.insert(found->second.thread);
    }
    EXPECT_EQ(fieldsOfThread.size(), 1u) << "thread " << thread;
    threadFields.insert(fieldsOfThread.begin(), fieldsOfThread.end());
  }
  EXPECT_EQ(threadFields.size(), static_cast<std::size_t>(THREADS));

  // The pipe: the banner once; info once through the console logger;
  // warnings and errors twice, the console logger's line and the echo;
  // nothing of debug and verbose. The console logger and the echo share no
  // lock, yet every line is whole: each is handed to the stream in one piece.
  std::map<std::string, int> expected{{"Lib Version: 7.6.3", 1}};
  for (int thread = 0; thread < THREADS; ++thread) {
    for (int index = 0; index < MESSAGES_PER_THREAD; ++index) {
      const Level& level = levelOf(thread, index);
      const int copies = (level.filtered ? 1 : 0) + (level.echoed ? 1 : 0);
      if (copies > 0) {
        expected[consoleTagOf(level) + messageText(thread, index)] = copies;
      }
    }
  }
  ASSERT_FALSE(piped.empty());
  EXPECT_EQ(piped.back(), '\n');
  std::map<std::string, int> seen;
  std::size_t notWhole = 0;
  for (const std::string& line : splitLines(piped)) {
    ++seen[line];
    if (expected.count(line) == 0) {
      ++notWhole;
      if (notWhole <= 5) {
        ADD_FAILURE() << "not a whole line: " << line.substr(0, 120);
      }
    }
  }
  EXPECT_EQ(notWhole, 0u);
  EXPECT_TRUE(seen == expected) << seen.size() << " distinct lines against " << expected.size();
}

// A full disk: every write of the file logger fails. Logging goes on without
// a crash, an exception or a word on standard error, and the other side of a
// dichotomic logger still receives every message.
TEST_F(StressLogging, FileLoggerOnAFullDiskKeepsAcceptingCallsFromEightThreads)
{
  if (!std::filesystem::exists("/dev/full")) {
    GTEST_SKIP() << "this system has no /dev/full";
  }
  auto recorder = std::make_shared<RecordingLogger>();
  OutputCapture errors(2);
  OutputCapture output(1);
  {
    auto full = std::make_shared<Logging::FileLogger>("/dev/full");
    full->attachMemorySpyer(std::chrono::milliseconds(1));
    auto both = std::make_shared<Logging::DichotomicLogger>(Logging::DichotomicLogger::FilteredLogger{recorder},
                                                            Logging::DichotomicLogger::CompleteLogger{full});
    Logging::setLogger(both);
    EXPECT_NO_THROW(logFromEightThreads());
    EXPECT_NO_THROW(Logging::triggerLogMemory());
    EXPECT_NO_THROW(Logging::logError("still accepted after the failures"));
    Logging::setLogger({});
  }
  const std::string printed = output.release();
  EXPECT_EQ(errors.release(), "");

  std::size_t filtered = 0;
  for (int thread = 0; thread < THREADS; ++thread) {
    for (int index = 0; index < MESSAGES_PER_THREAD; ++index) {
      filtered += levelOf(thread, index).filtered ? 1 : 0;
    }
  }
  const std::vector<RecordingLogger::Line> lines = recorder->lines();
  ASSERT_EQ(lines.size(), filtered + 1);
  EXPECT_EQ(lines.back(), (RecordingLogger::Line{LoggingType::Error, "still accepted after the failures"}));
  EXPECT_NE(printed.find("[ERROR  ] still accepted after the failures\n"), std::string::npos);
}
