#include <Core/Logging/FanOutLogger.h>
#include <Core/Logging/LevelLogger.h>
#include <Core/Logging/LoggingCallback.h>
#include <Core/Logging/LoggingType.h>
#include <FacadeReset.h>
#include <RecordingLogger.h>

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Logging = Orvan::Core::Logging;
using Logging::FanOutLogger;
using Logging::LoggingType;
using Orvan::Testing::RecordingLogger;

namespace {

using Line = RecordingLogger::Line;

// Outputs that write into one shared journal as "name:message", so that the
// order in which the outputs are called shows.
class Journal {
public:
  void add(const std::string& entry)
  {
    const std::lock_guard lock(mutex);
    entries.push_back(entry);
  }
  std::vector<std::string> read() const
  {
    const std::lock_guard lock(mutex);
    return entries;
  }

private:
  mutable std::mutex mutex;
  std::vector<std::string> entries;
};

class JournalLogger : public Logging::LevelLogger {
public:
  JournalLogger(Journal& journal, std::string name)
      : journal(journal)
      , name(std::move(name))
  {
  }

protected:
  void write(LoggingType, const std::string& message) override { journal.add(name + ":" + message); }

private:
  Journal& journal;
  std::string name;
};

const std::vector<Line> EVERY_LEVEL = {{LoggingType::Verbose, "verbose"},
                                       {LoggingType::Debug, "debug"},
                                       {LoggingType::Info, "info"},
                                       {LoggingType::Warning, "warning"},
                                       {LoggingType::Error, "error"}};

void writeEveryLevel(Logging::Logger& logger)
{
  for (const Line& line : EVERY_LEVEL) {
    Logging::writeAt(logger, line.first, line.second);
  }
}

} // namespace

TEST(FanOutLogger, SendsEachMessageToEveryOutputInTheOrderTheyWereAdded)
{
  Journal journal;
  auto a = std::make_shared<JournalLogger>(journal, "a");
  auto b = std::make_shared<JournalLogger>(journal, "b");
  auto c = std::make_shared<JournalLogger>(journal, "c");
  FanOutLogger fanOut({{a}, {b}});
  fanOut.add(c);
  fanOut.info("one");
  fanOut.error("two");
  EXPECT_EQ(journal.read(), (std::vector<std::string>{"a:one", "b:one", "c:one", "a:two", "b:two", "c:two"}));
}

TEST(FanOutLogger, EachMessageKeepsItsLevel)
{
  auto recording = std::make_shared<RecordingLogger>();
  FanOutLogger fanOut;
  fanOut.add(recording);
  writeEveryLevel(fanOut);
  EXPECT_EQ(recording->lines(), EVERY_LEVEL);
}

TEST(FanOutLogger, EachOutputDropsTheMessagesBelowItsThreshold)
{
  auto everything = std::make_shared<RecordingLogger>();
  auto operators = std::make_shared<RecordingLogger>();
  auto alarms = std::make_shared<RecordingLogger>();
  FanOutLogger fanOut;
  fanOut.add(everything);
  fanOut.add(operators, LoggingType::Info);
  fanOut.add(alarms, LoggingType::Warning);
  writeEveryLevel(fanOut);
  EXPECT_EQ(everything->lines(), EVERY_LEVEL);
  EXPECT_EQ(operators->lines(),
            (std::vector<Line>{
                {LoggingType::Info, "info"}, {LoggingType::Warning, "warning"}, {LoggingType::Error, "error"}}));
  EXPECT_EQ(alarms->lines(), (std::vector<Line>{{LoggingType::Warning, "warning"}, {LoggingType::Error, "error"}}));
}

TEST(FanOutLogger, HoldsItsOutputsWeaklyAndSkipsTheGoneOnes)
{
  auto kept = std::make_shared<RecordingLogger>();
  auto gone = std::make_shared<RecordingLogger>();
  const std::weak_ptr<RecordingLogger> watch = gone;
  FanOutLogger fanOut({{gone}, {kept}});
  fanOut.info("before");
  EXPECT_EQ(gone->lines().size(), 1u);
  gone.reset();
  EXPECT_TRUE(watch.expired()) << "the fan-out does not keep its outputs alive";
  fanOut.info("after");
  fanOut.add(std::weak_ptr<Logging::Logger>()); // an empty reference is skipped too
  fanOut.info("last");
  EXPECT_EQ(
      kept->lines(),
      (std::vector<Line>{{LoggingType::Info, "before"}, {LoggingType::Info, "after"}, {LoggingType::Info, "last"}}));
}

TEST(FanOutLogger, ForwardsMemoryRequestsToEveryOutputStillThere)
{
  auto first = std::make_shared<RecordingLogger>();
  auto second = std::make_shared<RecordingLogger>();
  auto gone = std::make_shared<RecordingLogger>();
  FanOutLogger fanOut({{first}, {gone}, {second, LoggingType::Error}});
  gone.reset();
  fanOut.triggerLogMemory();
  EXPECT_EQ(first->memoryRequestCount(), 1);
  EXPECT_EQ(second->memoryRequestCount(), 1);
}

using FanOutFacade = Orvan::Testing::FacadeReset;

TEST_F(FanOutFacade, TakesTheFacadesMessages)
{
  auto recording = std::make_shared<RecordingLogger>();
  auto fanOut = std::make_shared<FanOutLogger>();
  fanOut->add(recording, LoggingType::Warning);
  Logging::setLogger(fanOut);
  Logging::logInfo("quiet");
  Logging::logWarning("loud");
  EXPECT_EQ(recording->lines(), (std::vector<Line>{{LoggingType::Warning, "loud"}}));
}

TEST(FanOutLogger, ThreadsWritingWhileOutputsAreAddedLoseNothingAndKeepEachThreadsOrder)
{
  constexpr int THREADS = 4;
  constexpr int PER_THREAD = 2000;
  auto first = std::make_shared<RecordingLogger>();
  FanOutLogger fanOut;
  fanOut.add(first);
  std::vector<std::shared_ptr<RecordingLogger>> later;
  std::atomic<int> started{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < THREADS; ++t) {
    threads.emplace_back([&fanOut, &started, t] {
      ++started;
      for (int i = 0; i < PER_THREAD; ++i) {
        fanOut.info(std::to_string(t) + " " + std::to_string(i));
      }
    });
  }
  while (started.load() < THREADS) {
    std::this_thread::yield();
  }
  for (int i = 0; i < 50; ++i) {
    later.push_back(std::make_shared<RecordingLogger>());
    fanOut.add(later.back(), i % 2 == 0 ? LoggingType::Verbose : LoggingType::Error);
    if (i % 5 == 0) {
      later[static_cast<std::size_t>(i / 2)].reset();
    }
  }
  for (std::thread& thread : threads) {
    thread.join();
  }

  const auto checkOrder = [](const std::vector<Line>& lines) {
    std::map<int, int> next;
    for (const Line& line : lines) {
      const int thread = line.second[0] - '0';
      const int number = std::stoi(line.second.substr(2));
      // An output added meanwhile starts at any point of each thread.
      if (next.count(thread) != 0) {
        EXPECT_EQ(number, next[thread]) << line.second;
      }
      next[thread] = number + 1;
    }
  };
  EXPECT_EQ(first->lines().size(), static_cast<std::size_t>(THREADS * PER_THREAD));
  checkOrder(first->lines());
  for (std::size_t i = 0; i < later.size(); ++i) {
    if (later[i]) {
      checkOrder(later[i]->lines());
      if (i % 2 == 1) {
        EXPECT_TRUE(later[i]->lines().empty()) << "below its threshold";
      }
    }
  }
}
