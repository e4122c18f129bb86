#include "LogFile.h"

#include <Core/Logging/FileLogger.h>
#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <map>
#include <string>
#include <thread>
#include <vector>

using Orvan::Core::Logging::FileLogger;
using Orvan::Testing::isMemorySample;
using Orvan::Testing::LogLine;
using Orvan::Testing::MEMORY_LEGEND;
using Orvan::Testing::parseLogLine;
using Orvan::Testing::readLogLines;
using Orvan::Testing::TemporaryDirectory;

// Four threads write 50,000 lines each into one logger while its spy samples
// every millisecond: every line comes out whole and well-formed, and each
// writer's lines are all there, once each, in the order it wrote them.
TEST(FileLoggerUnderLoad, EveryLineIsWholeAndTheCountIsExact)
{
  constexpr int WRITERS = 4;
  constexpr int LINES_PER_WRITER = 50000;
  TemporaryDirectory directory;
  const auto path = directory / "load.log";
  {
    FileLogger logger(path.string());
    logger.attachMemorySpyer(std::chrono::milliseconds(1));
    std::vector<std::thread> writers;
    for (int writer = 0; writer < WRITERS; ++writer) {
      writers.emplace_back([&logger, writer] {
        const std::string tag = "writer " + std::to_string(writer) + " line ";
        for (int line = 0; line < LINES_PER_WRITER; ++line) {
          // Alternate the levels, and the length, to mix the line shapes.
          const std::string message = tag + std::to_string(line) + std::string(line % 97, '.');
          if (line % 2 == 0) {
            logger.info(message);
          } else {
            logger.debug(message);
          }
        }
      });
    }
    for (std::thread& writer : writers) {
      writer.join();
    }
  }

  const std::vector<std::string> lines = readLogLines(path);
  std::vector<int> nextLine(WRITERS, 0);
  std::map<int, std::string> writerThreads;
  std::size_t samples = 0;
  std::size_t legends = 0;
  for (std::size_t i = 2; i < lines.size(); ++i) {
    const LogLine line = parseLogLine(lines[i]);
    ASSERT_TRUE(line.wellFormed) << "line " << i << ": " << lines[i].substr(0, 200);
    if (line.level == "VERBOSE") {
      if (line.message == MEMORY_LEGEND) {
        ++legends;
      } else {
        ASSERT_TRUE(isMemorySample(line.message)) << "line " << i << ": " << lines[i];
        ++samples;
      }
      continue;
    }
    int writer = -1;
    int number = -1;
    ASSERT_EQ(std::sscanf(line.message.c_str(), "writer %d line %d", &writer, &number), 2) << lines[i];
    ASSERT_TRUE(writer >= 0 && writer < WRITERS) << lines[i];
    ASSERT_EQ(number, nextLine[writer]) << lines[i];
    ASSERT_EQ(line.message,
              "writer " + std::to_string(writer) + " line " + std::to_string(number) + std::string(number % 97, '.'));
    ASSERT_EQ(line.level, number % 2 == 0 ? "INFO   " : "DEBUG  ");
    const auto known = writerThreads.emplace(writer, line.thread);
    ASSERT_EQ(known.first->second, line.thread) << "one writer, one thread number";
    ++nextLine[writer];
  }
  for (int writer = 0; writer < WRITERS; ++writer) {
    EXPECT_EQ(nextLine[writer], LINES_PER_WRITER) << "writer " << writer;
  }
  EXPECT_EQ(writerThreads.size(), static_cast<std::size_t>(WRITERS));
  EXPECT_EQ(legends, 1u);
  EXPECT_GE(samples, 1u);
  EXPECT_EQ(lines.size(), 2 + 1 + samples + WRITERS * static_cast<std::size_t>(LINES_PER_WRITER));
}
