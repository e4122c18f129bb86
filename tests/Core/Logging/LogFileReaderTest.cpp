#include <Core/Logging/FileLogger.h>
#include <Core/Logging/LogFileReader.h>
#include <Core/Logging/LoggingCallback.h>
#include <Core/Logging/MemorySpy.h>
#include <Core/Logging/WorkflowLogger.h>
#include <FacadeReset.h>
#include <TemporaryDirectory.h>
#include <WaitFor.h>

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <vector>

using namespace Orvan::Core::Logging;
using Orvan::Testing::TemporaryDirectory;
using Orvan::Testing::writeFile;
using Kind = LogRecord::Kind;

namespace {

const std::string HEAD =
    "[Y-m-d X]2026-11-24 23:59:58\n"
    "23:59:58.001 [VERSION ] [   912] 7.6.3\n";

// Every record of a complete text, copied.
std::vector<LogRecord> readAll(const std::string& text)
{
  LogTextReader reader("test.log");
  reader.feed(text);
  reader.finish();
  std::vector<LogRecord> records;
  while (const LogRecord* record = reader.next()) {
    records.push_back(*record);
  }
  return records;
}

void appendTo(const std::filesystem::path& path, const std::string& text)
{
  std::ofstream file(path, std::ios::binary | std::ios::app);
  file << text;
}

TEST(LogFileReader, ReadsTheHeadAndEachKindOfLine)
{
  const std::vector<LogRecord> records =
      readAll(HEAD +
              "23:59:58.002 [WARNING] [   912] disk almost full\n"
              "23:59:58.003 [INFO   ] [  4242] ===> Load\n"
              "23:59:58.004 [DEBUG  ] [  4242] \t===> Parse/all\n"
              "23:59:58.005 [INFO   ] [  4242] \t\tParse/all/half way 1.250 ms\n"
              "23:59:58.006 [DEBUG  ] [  4242] \t<=== Parse/all 2.500 ms\n"
              "23:59:59.500 [INFO   ] [  4242] <=== Load 1.5 s\n"
              "23:59:59.501 [VERBOSE] [1234567] [MEMORY] Virtual: 31GB\t5 012MB\t012MB\tPhysical:23GB\t4 "
              "100MB\t100 000KB\n"
              "23:59:59.502 [ERROR  ] [   912] it broke\n");
  ASSERT_EQ(records.size(), 9u);

  EXPECT_EQ(records[0].kind, Kind::Version);
  EXPECT_EQ(records[0].message, "7.6.3");
  EXPECT_FALSE(records[0].level.has_value());
  EXPECT_EQ(records[0].lineNumber, 2u);

  EXPECT_EQ(records[1].kind, Kind::Message);
  EXPECT_EQ(records[1].level, LoggingType::Warning);
  EXPECT_EQ(records[1].thread, 912u);
  EXPECT_EQ(records[1].message, "disk almost full");
  EXPECT_EQ(records[1].time.toString(), "2026-11-24 23:59:58.002");

  EXPECT_EQ(records[2].kind, Kind::StepEnter);
  EXPECT_EQ(records[2].name, "Load");
  EXPECT_EQ(records[2].depth, 0u);
  EXPECT_EQ(records[2].thread, 4242u);

  EXPECT_EQ(records[3].kind, Kind::StepEnter);
  EXPECT_EQ(records[3].level, LoggingType::Debug);
  EXPECT_EQ(records[3].name, "Parse/all");
  EXPECT_EQ(records[3].depth, 1u);

  EXPECT_EQ(records[4].kind, Kind::StepIntermediate);
  EXPECT_EQ(records[4].depth, 2u);
  EXPECT_EQ(records[4].name, "Parse");
  EXPECT_EQ(records[4].text, "all/half way");
  EXPECT_EQ(records[4].elapsed.count(), 1250);

  EXPECT_EQ(records[5].kind, Kind::StepLeave);
  EXPECT_EQ(records[5].name, "Parse/all");
  EXPECT_EQ(records[5].depth, 1u);
  EXPECT_EQ(records[5].elapsed.count(), 2500);

  EXPECT_EQ(records[6].kind, Kind::StepLeave);
  EXPECT_EQ(records[6].name, "Load");
  EXPECT_EQ(records[6].elapsed.count(), 1500000);

  EXPECT_EQ(records[7].kind, Kind::Memory);
  EXPECT_EQ(records[7].thread, 1234567u);
  EXPECT_EQ(records[7].memory.virtualTotal, 31ull << 30);
  EXPECT_EQ(records[7].memory.virtualUsed, (5ull << 30) + (12ull << 20));
  EXPECT_EQ(records[7].memory.virtualUsedByApplication, 12ull << 20);
  EXPECT_EQ(records[7].memory.physicalTotal, 23ull << 30);
  EXPECT_EQ(records[7].memory.physicalUsed, (4ull << 30) + (100ull << 20));
  EXPECT_EQ(records[7].memory.physicalUsedByApplication, 100ull << 20);

  EXPECT_EQ(records[8].level, LoggingType::Error);
  EXPECT_EQ(records[8].message, "it broke");
}

TEST(LogFileReader, ReadsBackEveryMemoryFigureToItsPrecision)
{
  // Above 10 GiB to the GiB, above 100 MiB to the MiB, below to the KiB;
  // every figure is a lower bound of the true one.
  const std::uint64_t sizes[] = {0,
                                 5 << 10,
                                 (50ull << 20) + (20 << 10) + 7,
                                 512ull << 20,
                                 3ull << 29,
                                 (8ull << 30) + 12345,
                                 (16ull << 30) + 999999,
                                 1023,
                                 1ull << 20,
                                 1ull << 30};
  for (const std::uint64_t bytes : sizes) {
    MemoryUsageCapture usage;
    usage.virtualTotal = usage.virtualUsed = usage.virtualUsedByApplication = bytes;
    usage.physicalTotal = usage.physicalUsed = usage.physicalUsedByApplication = bytes;
    const auto records = readAll(HEAD + "23:59:59.000 [VERBOSE] [ 1] " + formatMemoryUsage(usage) + "\n");
    ASSERT_EQ(records.size(), 2u);
    ASSERT_EQ(records[1].kind, Kind::Memory) << records[1].message;
    const std::uint64_t unit = bytes > (10ull << 30) ? 1ull << 30 : bytes > (100ull << 20) ? 1ull << 20 : 1ull << 10;
    const std::uint64_t read = records[1].memory.physicalUsedByApplication;
    if (bytes == (1ull << 20) || bytes == (1ull << 30)) {
      EXPECT_EQ(read, 0u) << bytes; // written as "000KB" and "000MB"
    } else {
      EXPECT_LE(read, bytes);
      EXPECT_LT(bytes - read, unit) << bytes;
    }
    EXPECT_EQ(records[1].memory.virtualTotal, read);
  }
}

TEST(LogFileReader, MovesATimeGoingBackAcrossMidnightToTheNextDay)
{
  const auto records = readAll(HEAD +
                               "23:59:59.999 [INFO   ] [ 1] last of the day\n"
                               "00:00:00.004 [INFO   ] [ 1] first of the next\n"
                               "23:30:00.000 [INFO   ] [ 1] late on the second day\n"
                               "22:45:00.000 [INFO   ] [ 1] clock set back an hour: same day\n"
                               "00:00:01.000 [INFO   ] [ 1] third day\n");
  ASSERT_EQ(records.size(), 6u);
  EXPECT_EQ(records[1].time.toString(), "2026-11-24 23:59:59.999");
  EXPECT_EQ(records[2].time.toString(), "2026-11-25 00:00:00.004");
  EXPECT_EQ(records[2].time.milliseconds() - records[1].time.milliseconds(), 5);
  EXPECT_EQ(records[3].time.toString(), "2026-11-25 23:30:00.000");
  EXPECT_EQ(records[4].time.toString(), "2026-11-25 22:45:00.000");
  EXPECT_EQ(records[5].time.toString(), "2026-11-26 00:00:01.000");
}

TEST(LogFileReader, ALaterHeadOfAnAppendedLogDatesTheLinesAfterIt)
{
  // Two runs appended to one file, the second three days later.
  const auto records = readAll(HEAD +
                               "23:59:59.500 [INFO   ] [ 1] first run\n"
                               "[Y-m-d X]2026-11-27 08:00:00\n"
                               "08:00:00.001 [VERSION ] [ 2] 7.6.3\n"
                               "08:00:00.002 [INFO   ] [ 2] second run\n");
  ASSERT_EQ(records.size(), 4u);
  EXPECT_EQ(records[1].time.toString(), "2026-11-24 23:59:59.500");
  EXPECT_EQ(records[2].kind, Kind::Version);
  EXPECT_EQ(records[2].time.toString(), "2026-11-27 08:00:00.001");
  EXPECT_EQ(records[3].kind, Kind::Message);
  EXPECT_FALSE(records[3].continuation);
  EXPECT_EQ(records[3].message, "second run");
  EXPECT_EQ(records[3].time.toString(), "2026-11-27 08:00:00.002");
  EXPECT_EQ(records[3].lineNumber, 6u);
}

TEST(LogFileReader, ALineThatOnlyLooksLikeAHeadIsAContinuation)
{
  const auto records = readAll(HEAD +
                               "23:59:59.500 [INFO   ] [ 1] a message\n"
                               "[Y-m-d X] is the legend of the first line\n");
  ASSERT_EQ(records.size(), 3u);
  EXPECT_TRUE(records[2].continuation);
  EXPECT_EQ(records[2].message, "[Y-m-d X] is the legend of the first line");
}

TEST(LogFileReader, CrossesTheEndOfAMonthAndOfAYear)
{
  const auto records = readAll(
      "[Y-m-d X]2026-12-31 23:59:59\n23:59:59.000 [VERSION ] [ 1] 7.6.3\n"
      "00:00:00.001 [INFO   ] [ 1] new year\n");
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[1].time.toString(), "2027-01-01 00:00:00.001");
}

TEST(LogFileReader, ReadsALineWithoutPrefixAsTheContinuationOfTheLineBefore)
{
  const auto records = readAll(HEAD +
                               "23:59:59.000 [ERROR  ] [  77] first line\n"
                               "second line of the same message\n"
                               "\n"
                               "23:59:59.000 [BOGUS  ] [  77] unknown level word\n");
  ASSERT_EQ(records.size(), 5u);
  EXPECT_FALSE(records[1].continuation);
  EXPECT_TRUE(records[2].continuation);
  EXPECT_EQ(records[2].kind, Kind::Message);
  EXPECT_EQ(records[2].message, "second line of the same message");
  EXPECT_EQ(records[2].level, LoggingType::Error);
  EXPECT_EQ(records[2].thread, 77u);
  EXPECT_EQ(records[2].time.toString(), "2026-11-24 23:59:59.000");
  EXPECT_TRUE(records[3].continuation);
  EXPECT_EQ(records[3].message, "");
  EXPECT_TRUE(records[4].continuation);
  EXPECT_EQ(records[4].message, "23:59:59.000 [BOGUS  ] [  77] unknown level word");
}

TEST(LogFileReader, KeepsLinesThatOnlyLookLikeWorkflowLinesAsMessages)
{
  const auto records = readAll(HEAD +
                               "23:59:59.000 [WARNING] [ 1] ===> not a step: a warning\n"
                               "23:59:59.000 [INFO   ] [ 1] a/b 1.000 ms without a tab\n"
                               "23:59:59.000 [INFO   ] [ 1] \t<=== no elapsed text\n"
                               "23:59:59.000 [INFO   ] [ 1] \tno slash 1.000 ms\n"
                               "23:59:59.000 [VERBOSE] [ 1] [MEMORY] Virtual: PC TOTAL\t-\tPC USED\n");
  ASSERT_EQ(records.size(), 6u);
  for (std::size_t i = 1; i < records.size(); ++i) {
    EXPECT_EQ(records[i].kind, Kind::Message) << records[i].message;
    EXPECT_FALSE(records[i].continuation);
  }
}

TEST(LogFileReader, AStepLeftWithoutANameIsReadWithAnEmptyName)
{
  const auto records = readAll(HEAD + "23:59:59.000 [INFO   ] [ 1] <=== 1.000 ms\n");
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[1].kind, Kind::StepLeave);
  EXPECT_EQ(records[1].name, "");
  EXPECT_EQ(records[1].elapsed, std::chrono::microseconds(1000));
}

TEST(LogFileReader, RefusesAFileThatIsNotALogWithASentence)
{
  const std::string texts[] = {"hello world\n", "{\"traceEvents\":[]}",
                               std::string("\x7f"
                                           "ELF\x02\x01",
                                           6),
                               "[Y-m-d X]yesterday\n"};
  for (const std::string& text : texts) {
    LogTextReader reader("notes.txt");
    reader.feed(text);
    reader.finish();
    try {
      reader.next();
      ADD_FAILURE() << "accepted: " << text;
    } catch (const LogFileError& error) {
      EXPECT_EQ(std::string(error.what()).rfind("'notes.txt' is not a log file of Orvan Core: ", 0), 0u)
          << error.what();
    }
  }
  // A file that does not even start as a head is refused before its first
  // line is complete.
  LogTextReader early("early.txt");
  early.feed("#!/bin/sh");
  EXPECT_THROW(early.next(), LogFileError);
}

TEST(LogFileReader, RefusesAnEmptyFileOnceFinishedAndAMissingFile)
{
  TemporaryDirectory directory;
  writeFile(directory / "empty.log", "");
  LogFileReader reader((directory / "empty.log").string());
  EXPECT_EQ(reader.next(), nullptr); // it may still be written
  reader.finish();
  EXPECT_THROW(reader.next(), LogFileError);
  EXPECT_THROW(LogFileReader((directory / "missing.log").string()), LogFileError);
}

TEST(LogFileReader, ReadsAFileCutShortOnceFinished)
{
  TemporaryDirectory directory;
  writeFile(directory / "cut.log", HEAD + "23:59:59.000 [INFO   ] [ 1] ===> Load\n23:59:59.100 [INFO   ] [ 1] \tLoa");
  LogFileReader reader((directory / "cut.log").string());
  const LogRecord* record = reader.next();
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->kind, Kind::Version);
  record = reader.next();
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->kind, Kind::StepEnter);
  EXPECT_EQ(reader.next(), nullptr); // the cut line is held back
  reader.finish();
  record = reader.next();
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->kind, Kind::Message);
  EXPECT_EQ(record->message, "\tLoa");
  EXPECT_EQ(reader.next(), nullptr);
  EXPECT_EQ(reader.version(), "7.6.3");
  EXPECT_EQ(reader.started()->toString(), "2026-11-24 23:59:58.000");
}

TEST(LogFileReader, FollowsAFileStillBeingWritten)
{
  TemporaryDirectory directory;
  const auto path = directory / "growing.log";
  writeFile(path, "[Y-m-d X]2026-11-24 23:5");
  LogFileReader reader(path.string());
  EXPECT_EQ(reader.next(), nullptr);
  EXPECT_FALSE(reader.started().has_value());

  appendTo(path, "9:58\n23:59:58.001 [VERSION ] [   912] 7.6.3\n23:59:58.002 [INFO   ] [ 9] ===> St");
  const LogRecord* record = reader.next();
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->kind, Kind::Version);
  EXPECT_EQ(reader.next(), nullptr);

  appendTo(path, "ep\n23:59:58.003 [INFO   ] [ 9] <=== Step 0.500 ms\n");
  record = reader.next();
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->kind, Kind::StepEnter);
  EXPECT_EQ(record->name, "Step");
  record = reader.next();
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->kind, Kind::StepLeave);
  EXPECT_EQ(record->elapsed.count(), 500);
  EXPECT_EQ(reader.next(), nullptr);
  EXPECT_EQ(reader.bytesRead(), std::filesystem::file_size(path));
}

TEST(LogFileReader, ReadsAVeryLongLineInPieces)
{
  const std::string longMessage(LogFileReader::MAX_LINE * 2 + 10, 'x');
  const auto records =
      readAll(HEAD + "23:59:59.000 [INFO   ] [ 1] " + longMessage + "\n23:59:59.000 [INFO   ] [ 1] after\n");
  ASSERT_EQ(records.size(), 5u);
  EXPECT_FALSE(records[1].continuation);
  EXPECT_TRUE(records[2].continuation);
  EXPECT_TRUE(records[3].continuation);
  EXPECT_EQ(records[1].message.size() + records[2].message.size() + records[3].message.size(), longMessage.size());
  EXPECT_EQ(records[4].message, "after");
}

class LogFileReaderOfARealRun : public Orvan::Testing::FacadeReset {};

// What the library writes reads back: a file logger with a memory spy and
// nested workflow steps on two threads.
TEST_F(LogFileReaderOfARealRun, ReadsBackWhatTheLoggersWrote)
{
  TemporaryDirectory directory;
  const auto path = directory / "run.log";
  {
    auto logger = std::make_shared<FileLogger>(path.string());
    setLogger(logger);
    logger->attachMemorySpyer(std::chrono::milliseconds(3600000));
    {
      WorkflowLogger outer("Outer step", false);
      {
        WorkflowLogger inner("Inner step", false);
        inner.traceIntermediate("half way");
      }
      std::thread([] { WorkflowLogger other("Other thread's step", true); }).join();
      logWarning("a warning");
    }
    // The spy's first sample, taken when its thread starts.
    ASSERT_TRUE(Orvan::Testing::waitFor(
        [&] { return std::regex_search(Orvan::Testing::readFile(path), std::regex("\tPhysical:[0-9]")); }));
    setLogger({});
  }

  LogFileReader reader(path.string());
  reader.finish();
  std::vector<LogRecord> records;
  while (const LogRecord* record = reader.next()) {
    records.push_back(*record);
  }
  EXPECT_EQ(reader.version(), "7.6.3");
  std::vector<std::string> steps;
  unsigned memory = 0;
  for (const LogRecord& record : records) {
    EXPECT_FALSE(record.continuation) << record.message;
    switch (record.kind) {
    case Kind::StepEnter:
      steps.push_back("enter " + record.name + " " + std::to_string(record.depth));
      break;
    case Kind::StepLeave:
      steps.push_back("leave " + record.name + " " + std::to_string(record.depth));
      EXPECT_LT(record.elapsed.count(), 60000000);
      break;
    case Kind::StepIntermediate:
      steps.push_back("trace " + record.name + "/" + record.text + " " + std::to_string(record.depth));
      break;
    case Kind::Memory:
      ++memory;
      EXPECT_GT(record.memory.physicalTotal, 0u);
      EXPECT_GT(record.memory.physicalUsedByApplication, 0u);
      EXPECT_LE(record.memory.physicalUsed, record.memory.physicalTotal);
      break;
    default:
      break;
    }
    EXPECT_LE(reader.started()->milliseconds(), record.time.milliseconds());
  }
  const std::vector<std::string> expected = {
      "enter Outer step 0",          "enter Inner step 1",          "trace Inner step/half way 2", "leave Inner step 1",
      "enter Other thread's step 0", "leave Other thread's step 0", "leave Outer step 0"};
  EXPECT_EQ(steps, expected);
  EXPECT_GE(memory, 1u);
}

} // namespace
