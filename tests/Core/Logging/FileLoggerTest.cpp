#include "LogFile.h"

#include <Core/Logging/FileLogger.h>
#include <OutputCapture.h>
#include <TemporaryDirectory.h>
#include <Unprivileged.h>
#include <WaitFor.h>

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <locale>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

using Orvan::Core::Logging::FileLogger;
using Orvan::Testing::currentThreadField;
using Orvan::Testing::isMemorySample;
using Orvan::Testing::LogLine;
using Orvan::Testing::MEMORY_LEGEND;
using Orvan::Testing::OutputCapture;
using Orvan::Testing::parseLogLine;
using Orvan::Testing::readLogLines;
using Orvan::Testing::readLogText;
using Orvan::Testing::TemporaryDirectory;
using Orvan::Testing::waitFor;
using namespace std::chrono_literals;

namespace {

// The head is two lines: the legend with the local date and time, then the
// version line.
void expectHead(const std::vector<std::string>& lines)
{
  ASSERT_GE(lines.size(), 2u);
  const std::string& date = lines[0];
  ASSERT_EQ(date.size(), std::string("[Y-m-d X]2026-11-22 14:03:07").size()) << date;
  EXPECT_EQ(date.substr(0, 9), "[Y-m-d X]");
  std::tm parsed{};
  std::istringstream stream(date.substr(9));
  stream.imbue(std::locale::classic());
  stream >> std::get_time(&parsed, "%Y-%m-%d %H:%M:%S");
  EXPECT_FALSE(stream.fail()) << date;

  const LogLine version = parseLogLine(lines[1]);
  EXPECT_TRUE(version.wellFormed) << lines[1];
  EXPECT_EQ(version.level, "VERSION ");
  EXPECT_EQ(version.thread, currentThreadField());
  EXPECT_EQ(version.message, "7.6.3");
}

std::size_t countSamples(const std::filesystem::path& path)
{
  std::size_t samples = 0;
  for (const std::string& text : readLogLines(path)) {
    const LogLine line = parseLogLine(text);
    samples += line.wellFormed && line.level == "VERBOSE" && isMemorySample(line.message) ? 1 : 0;
  }
  return samples;
}

// The number of samples written by a thread other than the one that wrote
// the first sample.
std::size_t samplesOfALaterSpy(const std::filesystem::path& path)
{
  std::string firstSpy;
  std::size_t samples = 0;
  for (const std::string& text : readLogLines(path)) {
    const LogLine line = parseLogLine(text);
    if (!isMemorySample(line.message)) {
      continue;
    }
    if (firstSpy.empty()) {
      firstSpy = line.thread;
    }
    samples += line.thread != firstSpy ? 1 : 0;
  }
  return samples;
}

// Milliseconds since local midnight, read independently of the library.
long long localMillisecondsOfDay(std::chrono::system_clock::time_point when)
{
  const std::time_t seconds = std::chrono::system_clock::to_time_t(when);
  const std::tm local = *std::localtime(&seconds);
  const auto fraction =
      std::chrono::duration_cast<std::chrono::milliseconds>(when - std::chrono::system_clock::from_time_t(seconds))
          .count();
  return ((local.tm_hour * 60LL + local.tm_min) * 60 + local.tm_sec) * 1000 + fraction;
}

} // namespace

TEST(FileLogger, StartsWithTheDateLineAndTheVersionLine)
{
  TemporaryDirectory directory;
  const auto path = directory / "run.log";
  FileLogger logger(path.string());
  const std::vector<std::string> lines = readLogLines(path);
  expectHead(lines);
  EXPECT_EQ(lines.size(), 2u);
}

TEST(FileLogger, ConstructingOnAnExistingFileEmptiesIt)
{
  TemporaryDirectory directory;
  const auto path = directory / "run.log";
  Orvan::Testing::writeFile(path, "an older run\nwith two lines\n");
  {
    FileLogger logger(path.string());
    logger.info("fresh");
  }
  const std::vector<std::string> lines = readLogLines(path);
  expectHead(lines);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(parseLogLine(lines[2]).message, "fresh");
}

TEST(FileLogger, ASecondLoggerOnTheSameFileLeavesNoHoleAndLosesNoLineWrittenAfterIt)
{
  TemporaryDirectory directory;
  const auto path = directory / "run.log";
  FileLogger first(path.string());
  for (int i = 0; i < 10; ++i) {
    first.info("first before " + std::to_string(i));
  }
  // The second logger truncates the file; both then write to its end.
  FileLogger second(path.string());
  for (int i = 0; i < 50; ++i) {
    first.info("first " + std::to_string(i));
    second.info("second " + std::to_string(i));
  }
  const std::string text = readLogText(path);
  EXPECT_EQ(text.find('\0'), std::string::npos);
  const std::vector<std::string> lines = readLogLines(path);
  expectHead(lines);
  ASSERT_EQ(lines.size(), 102u);
  for (int i = 0; i < 50; ++i) {
    EXPECT_EQ(parseLogLine(lines[2 + 2 * i]).message, "first " + std::to_string(i));
    EXPECT_EQ(parseLogLine(lines[3 + 2 * i]).message, "second " + std::to_string(i));
  }
}

TEST(FileLogger, AFileTruncatedFromOutsideGoesOnFromItsNewEnd)
{
  TemporaryDirectory directory;
  const auto path = directory / "run.log";
  FileLogger logger(path.string());
  for (int i = 0; i < 100; ++i) {
    logger.info("before rotation " + std::to_string(i));
  }
  // What a log rotation that copies the file and truncates it does.
  std::filesystem::resize_file(path, 0);
  for (int i = 0; i < 10; ++i) {
    logger.info("after rotation " + std::to_string(i));
  }
  const std::string text = readLogText(path);
  EXPECT_EQ(text.find('\0'), std::string::npos);
  const std::vector<std::string> lines = readLogLines(path);
  ASSERT_EQ(lines.size(), 10u);
  for (int i = 0; i < 10; ++i) {
    const LogLine line = parseLogLine(lines[static_cast<std::size_t>(i)]);
    EXPECT_TRUE(line.wellFormed) << lines[static_cast<std::size_t>(i)];
    EXPECT_EQ(line.message, "after rotation " + std::to_string(i));
  }
}

TEST(FileLogger, EveryLevelWritesOneLineWithItsWordAndTheThreadNumber)
{
  TemporaryDirectory directory;
  const auto path = directory / "run.log";
  FileLogger logger(path.string());
  logger.info("disk checked");
  logger.warning("disk almost full");
  logger.error("disk full");
  logger.debug("free blocks: 12");
  logger.verbose("inode table read");

  const std::vector<std::string> lines = readLogLines(path);
  ASSERT_EQ(lines.size(), 7u);
  const std::vector<std::pair<std::string, std::string>> expected = {{"INFO   ", "disk checked"},
                                                                     {"WARNING", "disk almost full"},
                                                                     {"ERROR  ", "disk full"},
                                                                     {"DEBUG  ", "free blocks: 12"},
                                                                     {"VERBOSE", "inode table read"}};
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const LogLine line = parseLogLine(lines[i + 2]);
    EXPECT_TRUE(line.wellFormed) << lines[i + 2];
    EXPECT_EQ(line.level, expected[i].first);
    EXPECT_EQ(line.thread, currentThreadField());
    EXPECT_EQ(line.message, expected[i].second);
  }
}

TEST(FileLogger, TheTimeOfDayAndItsMillisecondsComeFromTheMomentOfWriting)
{
  TemporaryDirectory directory;
  const auto path = directory / "run.log";
  FileLogger logger(path.string());
  const auto before = std::chrono::system_clock::now();
  logger.info("stamped");
  const auto after = std::chrono::system_clock::now();

  const LogLine line = parseLogLine(readLogLines(path).at(2));
  ASSERT_TRUE(line.wellFormed);
  const long long written = ((line.hours * 60LL + line.minutes) * 60 + line.seconds) * 1000 + line.milliseconds;
  const long long from = localMillisecondsOfDay(before);
  const long long to = localMillisecondsOfDay(after);
  if (from <= to) { // not across midnight
    EXPECT_GE(written, from);
    EXPECT_LE(written, to);
  }
}

TEST(FileLogger, EveryLineIsFlushedAtOnce)
{
  TemporaryDirectory directory;
  const auto path = directory / "run.log";
  FileLogger logger(path.string());
  for (int i = 0; i < 3; ++i) {
    logger.warning("line " + std::to_string(i));
    // Read by another stream while the logger still holds the file open.
    const std::string text = readLogText(path);
    ASSERT_EQ(readLogLines(path).size(), 3u + static_cast<unsigned>(i));
    EXPECT_EQ(text.back(), '\n');
    EXPECT_EQ(parseLogLine(readLogLines(path).back()).message, "line " + std::to_string(i));
  }
}

TEST(FileLogger, MessagesAreWrittenAsTheyStand)
{
  TemporaryDirectory directory;
  const auto path = directory / "run.log";
  const std::string withNul("before\0after", 12);
  const std::string large(1 << 20, 'x');
  {
    FileLogger logger(path.string());
    logger.info("");
    logger.info("first\nsecond");
    logger.info(withNul);
    logger.info(large);
    logger.info("100%% {} %s \t\\");
  }
  const std::vector<std::string> lines = readLogLines(path);
  ASSERT_EQ(lines.size(), 8u);
  EXPECT_EQ(parseLogLine(lines[2]).message, "");
  EXPECT_EQ(lines[2].back(), ' '); // the prefix's trailing blank stays
  EXPECT_EQ(parseLogLine(lines[3]).message, "first");
  EXPECT_EQ(lines[4], "second"); // the prefix stands before the first line only
  EXPECT_EQ(parseLogLine(lines[5]).message, withNul);
  EXPECT_EQ(parseLogLine(lines[6]).message, large);
  EXPECT_EQ(parseLogLine(lines[7]).message, "100%% {} %s \t\\");
}

TEST(FileLogger, PathInAMissingDirectoryDisablesLoggingWithOneMessage)
{
  TemporaryDirectory directory;
  const auto path = directory / "missing" / "run.log";
  OutputCapture error(2);
  OutputCapture output(1);
  {
    FileLogger logger(path.string());
    logger.info("lost");
    logger.warning("lost");
    logger.error("lost");
    logger.debug("lost");
    logger.verbose("lost");
    logger.triggerLogMemory();
    // The spy still runs; its samples go nowhere.
    logger.attachMemorySpyer(0ms);
    logger.triggerLogMemory();
  }
  EXPECT_EQ(output.release(), "");
  EXPECT_EQ(error.release(), "Failed to open file " + path.string() + ". Logging is disabled\n");
  EXPECT_FALSE(std::filesystem::exists(directory / "missing"));
}

TEST(FileLogger, PathThatIsADirectoryDisablesLogging)
{
  TemporaryDirectory directory;
  OutputCapture error(2);
  {
    FileLogger logger(directory.path().string());
    logger.error("lost");
  }
  EXPECT_EQ(error.release(), "Failed to open file " + directory.path().string() + ". Logging is disabled\n");
  EXPECT_TRUE(std::filesystem::is_directory(directory.path()));
  EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

TEST(FileLogger, EmptyPathDisablesLogging)
{
  OutputCapture error(2);
  {
    FileLogger logger("");
    logger.info("lost");
    logger.attachMemorySpyer(1h);
  }
  EXPECT_EQ(error.release(), "Failed to open file . Logging is disabled\n");
}

TEST(FileLogger, ReadOnlyFileDisablesLoggingAndStaysUntouched)
{
  Orvan::Testing::asUnprivilegedUser([] {
    TemporaryDirectory directory;
    const auto path = directory / "read-only.log";
    Orvan::Testing::writeFile(path, "kept\n");
    std::filesystem::permissions(path, std::filesystem::perms::owner_read | std::filesystem::perms::group_read |
                                           std::filesystem::perms::others_read);
    if (std::ofstream(path, std::ios::app).is_open()) {
      // Only under Wine run by the super-user, which maps no rights.
      std::filesystem::permissions(path, std::filesystem::perms::owner_all);
      GTEST_SKIP() << "this account writes into read-only files (administrator rights)";
    }
    OutputCapture error(2);
    {
      FileLogger logger(path.string());
      logger.info("lost");
    }
    EXPECT_EQ(error.release(), "Failed to open file " + path.string() + ". Logging is disabled\n");
    EXPECT_EQ(readLogText(path), "kept\n");
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
  });
}

TEST(FileLogger, UnicodePathIsTakenAsUtf8)
{
  TemporaryDirectory directory;
  const std::string name = "journal-\xC3\xA9t\xC3\xA9.log"; // "journal-été.log"
  {
    FileLogger logger((directory.path() / std::filesystem::u8path(name)).u8string());
    logger.info("accented");
  }
  const std::vector<std::string> lines = readLogLines(directory.path() / std::filesystem::u8path(name));
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(parseLogLine(lines[2]).message, "accented");
}

TEST(FileLogger, TriggerLogMemoryWithoutASpyWritesNothing)
{
  TemporaryDirectory directory;
  const auto path = directory / "run.log";
  FileLogger logger(path.string());
  logger.triggerLogMemory();
  logger.triggerLogMemory();
  EXPECT_EQ(readLogLines(path).size(), 2u);
}

TEST(FileLogger, AttachedSpyWritesTheLegendThenAFirstSampleAtOnce)
{
  TemporaryDirectory directory;
  const auto path = directory / "run.log";
  FileLogger logger(path.string());
  logger.attachMemorySpyer(1h);
  ASSERT_TRUE(waitFor([&] { return countSamples(path) == 1; }));

  const std::vector<std::string> lines = readLogLines(path);
  ASSERT_EQ(lines.size(), 4u);
  const LogLine legend = parseLogLine(lines[2]);
  EXPECT_TRUE(legend.wellFormed);
  EXPECT_EQ(legend.level, "VERBOSE");
  EXPECT_EQ(legend.thread, currentThreadField());
  EXPECT_EQ(legend.message, MEMORY_LEGEND);
  const LogLine sample = parseLogLine(lines[3]);
  EXPECT_EQ(sample.level, "VERBOSE");
  EXPECT_TRUE(isMemorySample(sample.message)) << lines[3];
  EXPECT_NE(sample.thread, currentThreadField()); // written by the spy's own thread
}

TEST(FileLogger, TriggerLogMemoryAsksTheSpyForASampleNow)
{
  TemporaryDirectory directory;
  const auto path = directory / "run.log";
  FileLogger logger(path.string());
  logger.attachMemorySpyer(1h);
  ASSERT_TRUE(waitFor([&] { return countSamples(path) == 1; }));
  // A request that lands while the spy is still logging its sample is not
  // remembered, so ask again until the sample shows.
  EXPECT_TRUE(waitFor([&] {
    logger.triggerLogMemory();
    return waitFor([&] { return countSamples(path) >= 2; }, 20ms);
  }));
}

TEST(FileLogger, SpyWithPeriodZeroFillsTheFileWithBackToBackSamples)
{
  TemporaryDirectory directory;
  const auto path = directory / "run.log";
  {
    FileLogger logger(path.string());
    logger.attachMemorySpyer(0ms);
    ASSERT_TRUE(waitFor([&] { return countSamples(path) >= 50; }));
  }
  const std::vector<std::string> lines = readLogLines(path);
  EXPECT_EQ(parseLogLine(lines.at(2)).message, MEMORY_LEGEND);
  for (std::size_t i = 3; i < lines.size(); ++i) {
    const LogLine line = parseLogLine(lines[i]);
    ASSERT_TRUE(line.wellFormed && line.level == "VERBOSE" && isMemorySample(line.message)) << lines[i];
  }
}

TEST(FileLogger, AttachingTwiceWritesTheLegendTwiceAndStopsTheFirstSpyBeforeTheSecondStarts)
{
  TemporaryDirectory directory;
  const auto path = directory / "run.log";
  {
    FileLogger logger(path.string());
    logger.attachMemorySpyer(0ms);
    ASSERT_TRUE(waitFor([&] { return countSamples(path) >= 10; }));
    logger.attachMemorySpyer(0ms);
    ASSERT_TRUE(waitFor([&] { return samplesOfALaterSpy(path) >= 10; }));
  }
  const std::vector<std::string> lines = readLogLines(path);
  std::vector<std::string> legends;
  std::string firstSpy;
  std::string secondSpy;
  std::size_t legendCount = 0;
  for (std::size_t i = 2; i < lines.size(); ++i) {
    const LogLine line = parseLogLine(lines[i]);
    ASSERT_TRUE(line.wellFormed) << lines[i];
    if (line.message == MEMORY_LEGEND) {
      ++legendCount;
      EXPECT_EQ(line.thread, currentThreadField());
      continue;
    }
    ASSERT_TRUE(isMemorySample(line.message)) << lines[i];
    if (firstSpy.empty()) {
      firstSpy = line.thread;
    } else if (line.thread != firstSpy && secondSpy.empty()) {
      secondSpy = line.thread;
    }
    // Once the second spy has written, the first never writes again.
    if (!secondSpy.empty()) {
      EXPECT_EQ(line.thread, secondSpy) << "line " << i;
    }
  }
  EXPECT_EQ(legendCount, 2u);
  EXPECT_FALSE(secondSpy.empty());
}

TEST(FileLogger, DestroyingALoggerWhoseSpyIsWaitingReturnsPromptly)
{
  TemporaryDirectory directory;
  const auto path = directory / "run.log";
  auto logger = std::make_unique<FileLogger>(path.string());
  logger->attachMemorySpyer(1h);
  ASSERT_TRUE(waitFor([&] { return countSamples(path) == 1; }));
  const auto start = std::chrono::steady_clock::now();
  logger.reset();
  // Far below the hour of the period.
  EXPECT_LT(std::chrono::steady_clock::now() - start, 30s);
  EXPECT_EQ(countSamples(path), 1u);
}

TEST(FileLogger, DestroyingALoggerWhoseSpyIsSamplingWaitsAtMostOnePeriod)
{
  TemporaryDirectory directory;
  const auto path = directory / "run.log";
  auto logger = std::make_unique<FileLogger>(path.string());
  // With a short period the spy is sampling most of the time.
  logger->attachMemorySpyer(1ms);
  ASSERT_TRUE(waitFor([&] { return countSamples(path) >= 5; }));
  const auto start = std::chrono::steady_clock::now();
  logger.reset();
  EXPECT_LT(std::chrono::steady_clock::now() - start, 30s);
}
