#include "LogFile.h"

#include <Core/Logging/CoutLogger.h>
#include <Core/Logging/DichotomicLogger.h>
#include <Core/Logging/FileLogger.h>
#include <Core/Logging/LoggingType.h>
#include <OutputCapture.h>
#include <RecordingLogger.h>
#include <TemporaryDirectory.h>
#include <WaitFor.h>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <iostream>
#include <memory>
#include <streambuf>
#include <string>
#include <utility>
#include <vector>

using Orvan::Core::Logging::CoutLogger;
using Orvan::Core::Logging::DichotomicLogger;
using Orvan::Core::Logging::FileLogger;
using Orvan::Core::Logging::LoggingType;
using Orvan::Testing::OutputCapture;
using Orvan::Testing::RecordingLogger;
using Orvan::Testing::waitFor;
using Line = RecordingLogger::Line;

namespace {

// Says on standard output which of its operations ran, so that the order of
// the two loggers and of the console echo shows in one text.
class AnnouncingLogger : public Orvan::Core::Logging::LevelLogger {
public:
  explicit AnnouncingLogger(std::string role)
      : role(std::move(role))
  {
  }
  void triggerLogMemory() override { announce("triggerLogMemory", ""); }

protected:
  void write(LoggingType type, const std::string& message) override
  {
    static const char* const NAMES[] = {"info", "warning", "debug", "error", "verbose"};
    announce(NAMES[static_cast<int>(type)], message);
  }

private:
  void announce(const char* operation, const std::string& message)
  {
    std::cout << role << ' ' << operation << ' ' << message << std::endl;
  }
  std::string role;
};

struct Pair {
  std::shared_ptr<RecordingLogger> filtered = std::make_shared<RecordingLogger>();
  std::shared_ptr<RecordingLogger> complete = std::make_shared<RecordingLogger>();
  DichotomicLogger logger{DichotomicLogger::FilteredLogger{filtered}, DichotomicLogger::CompleteLogger{complete}};
};

} // namespace

TEST(DichotomicLogger, FilteredLoggerReceivesInfoWarningAndErrorOnly)
{
  Pair pair;
  OutputCapture output(1);
  pair.logger.info("i");
  pair.logger.warning("w");
  pair.logger.error("e");
  pair.logger.debug("d");
  pair.logger.verbose("v");
  pair.logger.triggerLogMemory();
  output.release();

  EXPECT_EQ(pair.filtered->lines(),
            (std::vector<Line>{{LoggingType::Info, "i"}, {LoggingType::Warning, "w"}, {LoggingType::Error, "e"}}));
  EXPECT_EQ(pair.filtered->memoryRequestCount(), 0);
}

TEST(DichotomicLogger, CompleteLoggerReceivesEverything)
{
  Pair pair;
  OutputCapture output(1);
  pair.logger.info("i");
  pair.logger.warning("w");
  pair.logger.error("e");
  pair.logger.debug("d");
  pair.logger.verbose("v");
  pair.logger.triggerLogMemory();
  output.release();

  EXPECT_EQ(pair.complete->lines(), (std::vector<Line>{{LoggingType::Info, "i"},
                                                       {LoggingType::Warning, "w"},
                                                       {LoggingType::Error, "e"},
                                                       {LoggingType::Debug, "d"},
                                                       {LoggingType::Verbose, "v"}}));
  EXPECT_EQ(pair.complete->memoryRequestCount(), 1);
}

TEST(DichotomicLogger, WarningsAndErrorsGoToFilteredThenConsoleThenComplete)
{
  auto filtered = std::make_shared<AnnouncingLogger>("filtered");
  auto complete = std::make_shared<AnnouncingLogger>("complete");
  DichotomicLogger logger(DichotomicLogger::FilteredLogger{filtered}, DichotomicLogger::CompleteLogger{complete});
  OutputCapture output(1);
  logger.warning("disk almost full");
  logger.error("disk full");
  logger.info("checked");
  logger.debug("blocks");
  EXPECT_EQ(output.release(),
            "filtered warning disk almost full\n"
            "[WARNING] disk almost full\n"
            "complete warning disk almost full\n"
            "filtered error disk full\n"
            "[ERROR  ] disk full\n"
            "complete error disk full\n"
            "filtered info checked\n"
            "complete info checked\n"
            "complete debug blocks\n");
}

TEST(DichotomicLogger, ConsoleLoggerOnTheFilteredSidePrintsWarningsTwice)
{
  OutputCapture output(1);
  auto console = std::make_shared<CoutLogger>();
  DichotomicLogger logger(DichotomicLogger::FilteredLogger{console}, DichotomicLogger::CompleteLogger{});
  logger.warning("careful");
  logger.error("broken");
  logger.info("once");
  EXPECT_EQ(output.release(),
            "Lib Version: 7.6.3\n"
            "[WARNING] careful\n"
            "[WARNING] careful\n"
            "[ERROR  ] broken\n"
            "[ERROR  ] broken\n"
            "[INFO   ] once\n");
}

TEST(DichotomicLogger, WithBothReferencesEmptyOnlyTheEchoRemains)
{
  DichotomicLogger logger(DichotomicLogger::FilteredLogger{}, DichotomicLogger::CompleteLogger{});
  OutputCapture error(2);
  OutputCapture output(1);
  logger.info("i");
  logger.debug("d");
  logger.verbose("v");
  logger.triggerLogMemory();
  logger.warning("w");
  logger.error("e");
  logger.error("");
  EXPECT_EQ(output.release(), "[WARNING] w\n[ERROR  ] e\n[ERROR  ] \n");
  EXPECT_EQ(error.release(), "");
}

TEST(DichotomicLogger, WhenTheCompleteLoggerIsReleasedDebugVanishesAndInfoStillReachesTheFilteredOne)
{
  Pair pair;
  std::weak_ptr<RecordingLogger> released = pair.complete;
  pair.complete.reset();
  ASSERT_TRUE(released.expired());
  pair.logger.debug("gone");
  pair.logger.verbose("gone");
  pair.logger.triggerLogMemory();
  pair.logger.info("kept");
  EXPECT_EQ(pair.filtered->lines(), (std::vector<Line>{{LoggingType::Info, "kept"}}));
}

TEST(DichotomicLogger, WhenTheFilteredLoggerIsReleasedTheEchoAndTheCompleteLoggerRemain)
{
  Pair pair;
  pair.filtered.reset();
  OutputCapture output(1);
  pair.logger.warning("w");
  EXPECT_EQ(output.release(), "[WARNING] w\n");
  EXPECT_EQ(pair.complete->lines(), (std::vector<Line>{{LoggingType::Warning, "w"}}));
}

TEST(DichotomicLogger, ACopySeesTheSameLoggersExpire)
{
  auto filtered = std::make_shared<RecordingLogger>();
  auto complete = std::make_shared<RecordingLogger>();
  DichotomicLogger original(DichotomicLogger::FilteredLogger{filtered}, DichotomicLogger::CompleteLogger{complete});
  const DichotomicLogger copy(original);
  DichotomicLogger assigned(DichotomicLogger::FilteredLogger{}, DichotomicLogger::CompleteLogger{});
  assigned = original;

  DichotomicLogger(copy).info("through a copy");
  assigned.info("through an assigned copy");
  EXPECT_EQ(filtered->lines().size(), 2u);
  EXPECT_EQ(complete->lines().size(), 2u);

  std::weak_ptr<RecordingLogger> watch = filtered;
  filtered.reset();
  complete.reset();
  ASSERT_TRUE(watch.expired());
  OutputCapture output(1);
  DichotomicLogger(copy).info("nowhere");
  assigned.debug("nowhere");
  DichotomicLogger(copy).warning("echo only");
  EXPECT_EQ(output.release(), "[WARNING] echo only\n");
}

TEST(DichotomicLogger, TriggerLogMemoryMakesAFileLoggerOnTheCompleteSideSample)
{
  Orvan::Testing::TemporaryDirectory directory;
  const auto path = directory / "complete.log";
  auto file = std::make_shared<FileLogger>(path.string());
  auto filtered = std::make_shared<RecordingLogger>();
  DichotomicLogger logger(DichotomicLogger::FilteredLogger{filtered}, DichotomicLogger::CompleteLogger{file});
  file->attachMemorySpyer(std::chrono::hours(1));

  const auto samples = [&] {
    std::size_t count = 0;
    for (const std::string& line : Orvan::Testing::readLogLines(path)) {
      count += Orvan::Testing::isMemorySample(Orvan::Testing::parseLogLine(line).message) ? 1 : 0;
    }
    return count;
  };
  ASSERT_TRUE(waitFor([&] { return samples() == 1; }));
  // A request that lands while the spy is still logging is not remembered.
  EXPECT_TRUE(waitFor([&] {
    logger.triggerLogMemory();
    return waitFor([&] { return samples() >= 2; }, std::chrono::milliseconds(20));
  }));
  EXPECT_EQ(filtered->memoryRequestCount(), 0);
}

namespace {

// Notes in a shared journal when each of its writes begins and ends, runs
// `during` in the middle of each write, and notes its own destruction.
class JournalLogger : public Orvan::Core::Logging::LevelLogger {
public:
  JournalLogger(std::string role, std::vector<std::string>& journal, std::function<void()> during = {})
      : role(std::move(role))
      , journal(journal)
      , during(std::move(during))
  {
  }
  ~JournalLogger() override { journal.push_back(role + " destroyed"); }
  JournalLogger(const JournalLogger&) = delete;
  JournalLogger& operator=(const JournalLogger&) = delete;

  void triggerLogMemory() override {}

protected:
  void write(LoggingType, const std::string& message) override
  {
    journal.push_back(role + " begins " + message);
    if (during) {
      during();
    }
    journal.push_back(role + " ends " + message);
  }

private:
  std::string role;
  std::vector<std::string>& journal;
  std::function<void()> during;
};

// Runs `during` on the first write to standard output through std::cout.
class WriteHook : public std::streambuf {
public:
  explicit WriteHook(std::function<void()> during)
      : during(std::move(during))
  {
  }

protected:
  int_type overflow(int_type c) override
  {
    fire();
    return traits_type::not_eof(c);
  }
  std::streamsize xsputn(const char*, std::streamsize count) override
  {
    fire();
    return count;
  }

private:
  void fire()
  {
    if (during) {
      std::exchange(during, {})();
    }
  }
  std::function<void()> during;
};

} // namespace

TEST(DichotomicLogger, TheFilteredLoggerStaysAliveUntilTheCompleteLoggerHasReturned)
{
  for (const std::string level : {"info", "warning", "error"}) {
    std::vector<std::string> journal;
    // The host holds the only owning reference of the filtered logger, and
    // lets it go while the complete logger is writing.
    std::shared_ptr<JournalLogger> filtered = std::make_shared<JournalLogger>("filtered", journal);
    auto complete = std::make_shared<JournalLogger>("complete", journal, [&filtered] { filtered.reset(); });
    DichotomicLogger logger(DichotomicLogger::FilteredLogger{filtered}, DichotomicLogger::CompleteLogger{complete});
    OutputCapture output(1);
    if (level == "info") {
      logger.info("m");
    } else if (level == "warning") {
      logger.warning("m");
    } else {
      logger.error("m");
    }
    output.release();
    EXPECT_EQ(journal, (std::vector<std::string>{"filtered begins m", "filtered ends m", "complete begins m",
                                                 "complete ends m", "filtered destroyed"}))
        << level;
  }
}

TEST(DichotomicLogger, TheFilteredLoggerStaysAliveThroughTheConsoleEcho)
{
  for (const std::string level : {"warning", "error"}) {
    std::vector<std::string> journal;
    std::shared_ptr<JournalLogger> filtered = std::make_shared<JournalLogger>("filtered", journal);
    auto complete = std::make_shared<JournalLogger>("complete", journal);
    DichotomicLogger logger(DichotomicLogger::FilteredLogger{filtered}, DichotomicLogger::CompleteLogger{complete});
    // The host lets the filtered logger go while the echo is being written.
    WriteHook hook([&journal, &filtered] {
      journal.push_back("echo");
      filtered.reset();
    });
    std::streambuf* const previous = std::cout.rdbuf(&hook);
    if (level == "warning") {
      logger.warning("m");
    } else {
      logger.error("m");
    }
    std::cout.rdbuf(previous);
    EXPECT_EQ(journal, (std::vector<std::string>{"filtered begins m", "filtered ends m", "echo", "complete begins m",
                                                 "complete ends m", "filtered destroyed"}))
        << level;
  }
}
