// orvan trace and orvan report, on log texts written by the test.

#include "TemporaryDirectory.h"
#include "ToolProcess.h"

#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <string>

namespace {

using namespace Orvan::Testing;

// Two threads, a nested step, a progress line, a warning, an error, a step
// without its leave line, a midnight, and memory samples.
const std::string LOG =
    "[Y-m-d X]2026-11-24 23:59:58\n"
    "23:59:58.000 [VERSION ] [   912] 7.6.3\n"
    "23:59:58.000 [VERBOSE] [  4242] [MEMORY] Virtual: 31GB\t5 012MB\t012MB\t"
    "Physical:23GB\t4 100MB\t100 000KB\n"
    "23:59:58.010 [INFO   ] [   912] ===> Load\n"
    "23:59:58.020 [INFO   ] [   912] \t===> Parse\n"
    "23:59:58.030 [INFO   ] [   912] \t\tParse/half 10.000 ms\n"
    "23:59:58.040 [WARNING] [   912] disk almost full\n"
    "23:59:58.045 [INFO   ] [   912] \t<=== Parse 25.000 ms\n"
    "23:59:59.990 [ERROR  ] [  7777] it <broke>\n"
    "00:00:00.500 [INFO   ] [  7777] ===> Night \"job\"\n"
    "00:00:01.000 [INFO   ] [   912] <=== Load 3.0 s\n"
    "00:00:01.500 [VERBOSE] [  4242] [MEMORY] Virtual: 31GB\t5 012MB\t012MB\t"
    "Physical:23GB\t4 200MB\t150 000KB\n";

bool contains(const std::string& text, const std::string& part)
{
  return text.find(part) != std::string::npos;
}

TEST(OrvanTrace, WritesStepsMarksCountersAndThreadNames)
{
  TemporaryDirectory directory;
  writeFile(directory / "run.log", LOG);
  const ToolResult result = runTool({"trace", (directory / "run.log").string()});
  ASSERT_EQ(result.code, 0) << result.error;
  EXPECT_NE(result.output.find("run.log.trace.json"), std::string::npos) << result.output;
  const std::string trace = readFile(directory / "run.log.trace.json");

  EXPECT_EQ(trace.rfind("{\"traceEvents\":[", 0), 0u);
  // Steps nested as in the log, in microseconds since the first line; the
  // one that never ended stops at the last line, after midnight.
  EXPECT_TRUE(contains(trace, R"({"ph":"X","pid":1,"tid":912,"ts":20000,"dur":25000,"cat":"step","name":"Parse"})"))
      << trace;
  EXPECT_TRUE(contains(trace, R"({"ph":"X","pid":1,"tid":912,"ts":10000,"dur":2990000,"cat":"step","name":"Load"})"));
  EXPECT_TRUE(contains(trace, R"({"ph":"X","pid":1,"tid":7777,"ts":2500000,"dur":1000000,"cat":"step",)"
                              R"("name":"Night \"job\"","args":{"unfinished":true}})"));
  EXPECT_TRUE(contains(trace, R"({"ph":"M","pid":1,"tid":912,"name":"thread_name","args":{"name":"thread 912"}})"));
  EXPECT_TRUE(contains(trace, R"("tid":7777,"name":"thread_name","args":{"name":"thread 7777"}})"));
  EXPECT_TRUE(
      contains(trace, R"({"ph":"i","s":"t","pid":1,"tid":912,"ts":30000,"cat":"progress","name":"Parse/half"})"));
  EXPECT_TRUE(
      contains(trace, R"({"ph":"i","s":"t","pid":1,"tid":912,"ts":40000,"cat":"warning","name":"disk almost full"})"));
  EXPECT_TRUE(
      contains(trace, R"({"ph":"i","s":"t","pid":1,"tid":7777,"ts":1990000,"cat":"error","name":"it <broke>"})"));
  EXPECT_TRUE(
      contains(trace, R"({"ph":"C","pid":1,"ts":0,"name":"process physical used","args":{"bytes":104857600}})"));
  EXPECT_TRUE(
      contains(trace, R"({"ph":"C","pid":1,"ts":0,"name":"machine physical used","args":{"bytes":4399824896}})"));
  EXPECT_TRUE(contains(trace, R"({"ph":"C","pid":1,"ts":0,"name":"process virtual used","args":{"bytes":12582912}})"));
  EXPECT_TRUE(contains(trace, R"({"ph":"C","pid":1,"ts":3500000,"name":"process physical used")"));
  EXPECT_TRUE(contains(trace, R"("otherData":{"version":"7.6.3","started":"2026-11-24 23:59:58.000"}})"));
}

TEST(OrvanTrace, WritesToStandardOutputWithADash)
{
  TemporaryDirectory directory;
  writeFile(directory / "run.log", LOG);
  const ToolResult result = runTool({"trace", (directory / "run.log").string(), "-o", "-"});
  ASSERT_EQ(result.code, 0) << result.error;
  EXPECT_EQ(result.output.rfind("{\"traceEvents\":[", 0), 0u) << result.output;
  EXPECT_TRUE(contains(result.output, "\"name\":\"Load\""));
  EXPECT_FALSE(std::filesystem::exists(directory / "run.log.trace.json"));
}

TEST(OrvanTrace, RefusesAFileThatIsNotALog)
{
  TemporaryDirectory directory;
  writeFile(directory / "notes.txt", "shopping list\n");
  for (const std::string command : {"trace", "report"}) {
    const ToolResult result = runTool({command, (directory / "notes.txt").string(), "-o", "-"});
    EXPECT_EQ(result.code, 1) << command;
    EXPECT_TRUE(contains(result.error, "orvan " + command + ": '" + (directory / "notes.txt").string() +
                                           "' is not a log file of Orvan Core: it does not start with the head line"))
        << result.error;
    EXPECT_EQ(result.output, "") << command;

    const ToolResult missing = runTool({command, (directory / "missing.log").string()});
    EXPECT_EQ(missing.code, 1) << command;
    EXPECT_TRUE(contains(missing.error, "Cannot open the log file")) << missing.error;

    const ToolResult noLog = runTool({command});
    EXPECT_EQ(noLog.code, 2) << command;
    EXPECT_TRUE(contains(noLog.error, "LOG")) << noLog.error;
  }
}

TEST(OrvanTrace, ReadsALogCutShort)
{
  TemporaryDirectory directory;
  // Cut in the middle of a line: the partial line is read as it stands.
  writeFile(directory / "cut.log", LOG.substr(0, LOG.find("00:00:01.000") + 20));
  const ToolResult result = runTool({"trace", (directory / "cut.log").string(), "-o", "-"});
  ASSERT_EQ(result.code, 0) << result.error;
  // Load never ended: it runs to the last line whose time could be read,
  // 00:00:00.500; the cut line has none.
  EXPECT_TRUE(
      contains(result.output, R"("ts":10000,"dur":2490000,"cat":"step","name":"Load","args":{"unfinished":true}})"))
      << result.output;
  EXPECT_TRUE(contains(result.output, R"("ts":2500000,"dur":0,"cat":"step","name":"Night \"job\"")"));
}

TEST(OrvanReport, DrawsLanesBarsMarksMemoryAndTables)
{
  TemporaryDirectory directory;
  writeFile(directory / "run.log", LOG);
  const ToolResult result =
      runTool({"report", (directory / "run.log").string(), "-o", (directory / "run.html").string()});
  ASSERT_EQ(result.code, 0) << result.error;
  const std::string page = readFile(directory / "run.html");
  EXPECT_EQ(page.rfind("<!DOCTYPE html>", 0), 0u);
  EXPECT_FALSE(contains(page, "<script"));
  EXPECT_FALSE(contains(page, "http"));
  EXPECT_TRUE(contains(page, "<dd id=\"version\">7.6.3</dd>"));
  EXPECT_TRUE(contains(page, "<dd id=\"duration\">3.5 s</dd>")) << page;
  EXPECT_TRUE(contains(page, "<dd id=\"threads\">3</dd>"));
  for (const std::string thread : {"912", "7777", "4242"}) {
    EXPECT_TRUE(contains(page, "<g class=\"lane\" data-thread=\"" + thread + "\">")) << thread;
  }
  EXPECT_TRUE(contains(page, "<rect class=\"bar\" data-name=\"Load\""));
  EXPECT_TRUE(contains(page, "<rect class=\"bar\" data-name=\"Parse\""));
  EXPECT_TRUE(contains(page, "<rect class=\"bar unfinished\" data-name=\"Night &quot;job&quot;\""));
  EXPECT_TRUE(contains(page, "class=\"mark mark-warning\""));
  EXPECT_TRUE(contains(page, "class=\"mark mark-error\""));
  EXPECT_TRUE(contains(page, "<polyline class=\"memory\" data-series=\"process physical used\""));
  // The tables: longest first, problems with their times, the day named.
  EXPECT_TRUE(std::regex_search(
      page, std::regex("<table id=\"longest\">[\\s\\S]*Load[\\s\\S]*Night &quot;job&quot;[\\s\\S]*Parse")));
  EXPECT_TRUE(contains(page, "<td>23:59:58.040</td><td>912</td><td>warning</td><td>disk almost full</td>"));
  EXPECT_TRUE(contains(page, "<td>23:59:59.990</td><td>7777</td><td>error</td><td>it &lt;broke&gt;</td>"));
  EXPECT_TRUE(contains(page, "day 2 00:00:00.500"));
}

// Enter lines whose leave lines never come (here 2000 on one thread): the
// innermost 256 steps are kept open, the others are counted as left out.
TEST(OrvanReport, KeepsAtMostTwoHundredFiftySixOpenStepsPerThread)
{
  TemporaryDirectory directory;
  std::string log = "[Y-m-d X]2026-11-24 08:00:00\n08:00:00.000 [VERSION ] [     1] 7.6.3\n";
  for (int i = 0; i < 2000; ++i) {
    log += "08:00:01.000 [INFO   ] [     7] ===> Never left " + std::to_string(i) + "\n";
  }
  writeFile(directory / "open.log", log);
  const ToolResult report = runTool({"report", (directory / "open.log").string(), "-o", "-"});
  ASSERT_EQ(report.code, 0) << report.error;
  EXPECT_TRUE(contains(report.output, "<dt>Steps left out</dt><dd>1744 ")) << report.output.substr(0, 2000);
  const ToolResult trace = runTool({"trace", (directory / "open.log").string(), "-o", "-"});
  ASSERT_EQ(trace.code, 0) << trace.error;
  std::size_t unfinished = 0;
  for (auto at = trace.output.find("\"unfinished\":true"); at != std::string::npos;
       at = trace.output.find("\"unfinished\":true", at + 1)) {
    ++unfinished;
  }
  EXPECT_EQ(unfinished, 256u);
}

// A day of tiny steps on four threads: the narrow ones merge into "n steps"
// bars and the page stays small.
TEST(OrvanReport, StaysSmallForALongLog)
{
  TemporaryDirectory directory;
  {
    std::ofstream log(directory / "day.log", std::ios::binary);
    log << "[Y-m-d X]2026-11-24 00:00:00\n00:00:00.000 [VERSION ] [     1] 7.6.3\n";
    char line[160];
    for (long i = 0; i < 200000; ++i) {
      const long ms = i * 431; // one step every 0.431 s, a day long
      const int thread = 100 + static_cast<int>(i % 4);
      const auto clock = [&](long at) {
        static char text[48];
        std::snprintf(text, sizeof text, "%02ld:%02ld:%02ld.%03ld", at / 3600000 % 24, at / 60000 % 60, at / 1000 % 60,
                      at % 1000);
        return std::string(text);
      };
      std::snprintf(line, sizeof line, "%s [INFO   ] [%6d] ===> Step %ld\n", clock(ms).c_str(), thread, i);
      log << line;
      std::snprintf(line, sizeof line, "%s [INFO   ] [%6d] <=== Step %ld 2.000 ms\n", clock(ms + 2).c_str(), thread, i);
      log << line;
    }
  }
  const ToolResult result = runTool({"report", (directory / "day.log").string()}, {}, std::chrono::seconds(120));
  ASSERT_EQ(result.code, 0) << result.error;
  const std::string page = readFile(directory / "day.log.html");
  EXPECT_LT(page.size(), 2u * 1024 * 1024);
  EXPECT_TRUE(std::regex_search(page, std::regex("<rect class=\"bar merged\" data-name=\"[0-9]+ steps\"")));
  EXPECT_TRUE(contains(page, "<dd id=\"duration\">23 h 5")) << page.substr(0, 2000);
}

} // namespace
