#include "LogFile.h"

#include <Core/Logging/FileLogger.h>
#include <Core/Logging/LogFileReader.h>
#include <Core/Logging/LoggingType.h>
#include <OutputCapture.h>
#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

using Orvan::Core::Logging::FileLogger;
using Orvan::Core::Logging::LogFileReader;
using Orvan::Core::Logging::LoggingType;
using Orvan::Core::Logging::LogRecord;
using Orvan::Testing::LogLine;
using Orvan::Testing::OutputCapture;
using Orvan::Testing::parseLogLine;
using Orvan::Testing::readLogLines;
using Orvan::Testing::readLogText;
using Orvan::Testing::TemporaryDirectory;

namespace {

std::filesystem::path numbered(const std::filesystem::path& path, int number)
{
  std::filesystem::path result = path;
  result += "." + std::to_string(number);
  return result;
}

FileLogger::Options rotating(std::uint64_t maximumBytes, std::size_t keptFiles)
{
  FileLogger::Options options;
  options.rotation = FileLogger::Rotation{maximumBytes, keptFiles};
  return options;
}

// Whether `lines` start with the two head lines of a fresh log.
bool startsWithHead(const std::vector<std::string>& lines)
{
  return lines.size() >= 2 && lines[0].compare(0, 9, "[Y-m-d X]") == 0 && lines[0].size() == 28 &&
         parseLogLine(lines[1]).wellFormed && parseLogLine(lines[1]).level == "VERSION " &&
         parseLogLine(lines[1]).message == "7.6.3";
}

// The messages of the lines after the head.
std::vector<std::string> messagesOf(const std::filesystem::path& path)
{
  const std::vector<std::string> lines = readLogLines(path);
  std::vector<std::string> messages;
  for (std::size_t i = 2; i < lines.size(); ++i) {
    const LogLine line = parseLogLine(lines[i]);
    EXPECT_TRUE(line.wellFormed) << path << ": " << lines[i];
    messages.push_back(line.message);
  }
  return messages;
}

// The bytes a line end takes in a file: two where the system writes "\r\n".
std::uint64_t lineEndBytes(const std::filesystem::path& path)
{
  const std::uint64_t stored = std::filesystem::file_size(path);
  const std::string text = readLogText(path);
  const std::size_t lines = readLogLines(path).size();
  return 1 + (stored - text.size()) / lines;
}

std::string numberedMessage(int number)
{
  std::string digits = std::to_string(number);
  return "message " + std::string(4 - digits.size(), '0') + digits + " of a steady length";
}

} // namespace

TEST(FileLoggerOptions, DefaultOptionsEmptyTheFileLikeThePathAlone)
{
  TemporaryDirectory directory;
  const auto path = directory / "run.log";
  Orvan::Testing::writeFile(path, "an older run\n");
  {
    FileLogger logger(path.string(), FileLogger::Options{});
    EXPECT_TRUE(logger.isOpen());
    logger.verbose("fresh");
  }
  const std::vector<std::string> lines = readLogLines(path);
  EXPECT_TRUE(startsWithHead(lines));
  EXPECT_EQ(messagesOf(path), std::vector<std::string>{"fresh"});
}

TEST(FileLoggerOptions, AppendKeepsTheOldContentAndStartsWithAHeadAfterIt)
{
  TemporaryDirectory directory;
  const auto path = directory / "run.log";
  FileLogger::Options options;
  options.append = true;
  {
    FileLogger logger(path.string(), options);
    logger.info("first run");
  }
  {
    FileLogger logger(path.string(), options);
    logger.info("second run");
  }
  const std::vector<std::string> lines = readLogLines(path);
  ASSERT_EQ(lines.size(), 6u);
  EXPECT_TRUE(startsWithHead(lines));
  EXPECT_EQ(parseLogLine(lines[2]).message, "first run");
  EXPECT_TRUE(startsWithHead({lines[3], lines[4]}));
  EXPECT_EQ(parseLogLine(lines[5]).message, "second run");

  // The log reader takes the second head for the start of a run.
  LogFileReader reader(path.string());
  reader.finish();
  std::vector<std::string> messages;
  while (const LogRecord* record = reader.next()) {
    EXPECT_FALSE(record->continuation) << record->message;
    if (record->kind == LogRecord::Kind::Message) {
      messages.push_back(record->message);
    }
  }
  EXPECT_EQ(messages, (std::vector<std::string>{"first run", "second run"}));
}

TEST(FileLoggerOptions, ThresholdDropsTheLinesBelowIt)
{
  TemporaryDirectory directory;
  const auto writeEveryLevel = [](FileLogger& logger) {
    logger.verbose("verbose");
    logger.debug("debug");
    logger.info("info");
    logger.warning("warning");
    logger.error("error");
  };
  const std::map<LoggingType, std::vector<std::string>> expected = {
      {LoggingType::Verbose, {"verbose", "debug", "info", "warning", "error"}},
      {LoggingType::Debug, {"debug", "info", "warning", "error"}},
      {LoggingType::Info, {"info", "warning", "error"}},
      {LoggingType::Warning, {"warning", "error"}},
      {LoggingType::Error, {"error"}}};
  for (const auto& [threshold, messages] : expected) {
    const auto path = directory / ("level" + std::to_string(static_cast<int>(threshold)) + ".log");
    FileLogger::Options options;
    options.threshold = threshold;
    {
      FileLogger logger(path.string(), options);
      writeEveryLevel(logger);
      if (threshold != LoggingType::Verbose) {
        logger.attachMemorySpyer(std::chrono::hours(1)); // its legend is a verbose line
      }
    }
    EXPECT_EQ(messagesOf(path), messages) << "threshold " << static_cast<int>(threshold);
  }
}

TEST(FileLoggerOptions, IsOpenTellsWhetherTheFileCouldBeOpened)
{
  TemporaryDirectory directory;
  FileLogger good((directory / "run.log").string());
  EXPECT_TRUE(good.isOpen());

  const auto missing = directory / "missing" / "run.log";
  OutputCapture error(2);
  FileLogger bad(missing.string());
  EXPECT_FALSE(bad.isOpen());
  bad.info("lost");
  EXPECT_EQ(error.release(), "Failed to open file " + missing.string() + ". Logging is disabled\n");
}

TEST(FileLoggerOptions, QuietWritesNothingOnStandardErrorWhenTheFileCannotBeOpened)
{
  TemporaryDirectory directory;
  const auto missing = directory / "missing" / "run.log";
  FileLogger::Options options;
  options.quiet = true;
  OutputCapture error(2);
  {
    FileLogger logger(missing.string(), options);
    EXPECT_FALSE(logger.isOpen());
    logger.error("lost");
  }
  EXPECT_EQ(error.release(), "");
  EXPECT_FALSE(std::filesystem::exists(directory / "missing"));
}

TEST(FileLoggerOptions, RotationKeepsEachFileUnderItsSizeAndTheNewestFilesUnderTheirNames)
{
  TemporaryDirectory directory;
  const auto path = directory / "run.log";
  constexpr std::uint64_t LIMIT = 1000;
  constexpr int MESSAGES = 100;
  {
    FileLogger logger(path.string(), rotating(LIMIT, 3));
    for (int i = 0; i < MESSAGES; ++i) {
      logger.info(numberedMessage(i));
    }
  }
  ASSERT_TRUE(std::filesystem::exists(numbered(path, 3)));
  EXPECT_FALSE(std::filesystem::exists(numbered(path, 4)));

  // Oldest first: run.log.3, .2, .1, then run.log; together the last
  // messages written, in order, with none missing.
  const std::vector<std::filesystem::path> files = {numbered(path, 3), numbered(path, 2), numbered(path, 1), path};
  std::vector<std::string> kept;
  for (std::size_t f = 0; f < files.size(); ++f) {
    const std::vector<std::string> lines = readLogLines(files[f]);
    EXPECT_TRUE(startsWithHead(lines)) << files[f];
    EXPECT_LE(std::filesystem::file_size(files[f]), LIMIT) << files[f];
    const std::vector<std::string> messages = messagesOf(files[f]);
    ASSERT_FALSE(messages.empty()) << files[f];
    kept.insert(kept.end(), messages.begin(), messages.end());
    if (f + 1 < files.size()) {
      // The file was rotated because the next line would have passed the
      // limit, not sooner.
      const std::string next = readLogLines(files[f + 1])[2];
      EXPECT_GT(std::filesystem::file_size(files[f]) + next.size() + lineEndBytes(files[f + 1]), LIMIT) << files[f];
    }
  }
  const int first = MESSAGES - static_cast<int>(kept.size());
  EXPECT_GT(first, 0) << "the oldest files were dropped";
  for (std::size_t i = 0; i < kept.size(); ++i) {
    EXPECT_EQ(kept[i], numberedMessage(first + static_cast<int>(i)));
  }
}

TEST(FileLoggerOptions, ALineLongerThanTheLimitIsWrittenWholeInAFileOfItsOwn)
{
  TemporaryDirectory directory;
  const auto path = directory / "run.log";
  const std::string large(500, 'x');
  {
    FileLogger logger(path.string(), rotating(200, 2));
    logger.info("short");
    logger.info(large);
    logger.info("after");
  }
  EXPECT_EQ(messagesOf(numbered(path, 2)), std::vector<std::string>{"short"});
  EXPECT_EQ(messagesOf(numbered(path, 1)), std::vector<std::string>{large});
  EXPECT_EQ(messagesOf(path), std::vector<std::string>{"after"});
}

TEST(FileLoggerOptions, RotationKeepingNoFileStartsTheLogAfresh)
{
  TemporaryDirectory directory;
  const auto path = directory / "run.log";
  {
    FileLogger logger(path.string(), rotating(300, 0));
    for (int i = 0; i < 20; ++i) {
      logger.info(numberedMessage(i));
    }
  }
  EXPECT_FALSE(std::filesystem::exists(numbered(path, 1)));
  EXPECT_LE(std::filesystem::file_size(path), 300u);
  const std::vector<std::string> messages = messagesOf(path);
  ASSERT_FALSE(messages.empty());
  EXPECT_EQ(messages.back(), numberedMessage(19));
}

TEST(FileLoggerOptions, AppendingToAFullLogRotatesItBeforeTheNewHead)
{
  TemporaryDirectory directory;
  const auto path = directory / "run.log";
  FileLogger::Options options = rotating(400, 2);
  options.append = true;
  {
    FileLogger logger(path.string(), options);
    for (int i = 0; i < 8; ++i) {
      logger.info(numberedMessage(i));
    }
  }
  const std::vector<std::string> before = messagesOf(path);
  const auto sizeBefore = std::filesystem::file_size(path);
  {
    FileLogger logger(path.string(), options);
    logger.info("next run");
  }
  if (sizeBefore >= 400) {
    EXPECT_EQ(messagesOf(numbered(path, 1)), before);
    EXPECT_EQ(messagesOf(path), std::vector<std::string>{"next run"});
  } else {
    const std::vector<std::string> lines = readLogLines(path);
    EXPECT_EQ(parseLogLine(lines.back()).message, "next run");
  }
}

TEST(FileLoggerOptions, RotationUnderFourThreadsLosesAndSplitsNoLine)
{
  TemporaryDirectory directory;
  const auto path = directory / "run.log";
  constexpr int THREADS = 4;
  constexpr int PER_THREAD = 2000;
  constexpr std::uint64_t LIMIT = 16 * 1024;
  constexpr std::size_t KEPT = 200; // enough for every line written
  {
    FileLogger logger(path.string(), rotating(LIMIT, KEPT));
    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; ++t) {
      threads.emplace_back([&logger, t] {
        for (int i = 0; i < PER_THREAD; ++i) {
          logger.info("thread " + std::to_string(t) + " " + numberedMessage(i));
        }
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
  }
  std::vector<std::filesystem::path> files;
  for (int n = static_cast<int>(KEPT); n >= 1; --n) {
    if (std::filesystem::exists(numbered(path, n))) {
      files.push_back(numbered(path, n));
    }
  }
  ASSERT_LT(files.size(), KEPT) << "no file was dropped";
  ASSERT_GT(files.size(), 10u);
  files.push_back(path);

  std::map<int, int> nextOfThread;
  int total = 0;
  for (const std::filesystem::path& file : files) {
    EXPECT_TRUE(startsWithHead(readLogLines(file))) << file;
    EXPECT_LE(std::filesystem::file_size(file), LIMIT) << file;
    for (const std::string& message : messagesOf(file)) {
      const int thread = message[7] - '0';
      ASSERT_EQ(message, "thread " + std::to_string(thread) + " " + numberedMessage(nextOfThread[thread]));
      ++nextOfThread[thread];
      ++total;
    }
  }
  EXPECT_EQ(total, THREADS * PER_THREAD);
}

TEST(FileLoggerOptions, ARotatedFileIsReadBackByTheLogReader)
{
  TemporaryDirectory directory;
  const auto path = directory / "run.log";
  {
    FileLogger logger(path.string(), rotating(600, 1));
    for (int i = 0; i < 20; ++i) {
      logger.warning(numberedMessage(i));
    }
  }
  for (const auto& file : {numbered(path, 1), path}) {
    LogFileReader reader(file.string());
    reader.finish();
    std::vector<std::string> messages;
    while (const LogRecord* record = reader.next()) {
      if (record->kind == LogRecord::Kind::Message) {
        EXPECT_EQ(record->level, LoggingType::Warning);
        messages.push_back(record->message);
      }
    }
    EXPECT_TRUE(reader.started().has_value()) << file;
    EXPECT_EQ(reader.version(), "7.6.3");
    EXPECT_EQ(messages, messagesOf(file));
    EXPECT_FALSE(messages.empty());
  }
}
