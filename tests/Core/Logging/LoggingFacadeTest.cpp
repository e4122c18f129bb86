#include <Core/Logging/LoggingCallback.h>
#include <FacadeReset.h>
#include <Platform/System.h>
#include <RecordingLogger.h>
#include <TraductionInterface/DefaultTranslator.h>

#include <gtest/gtest.h>

#include <atomic>
#include <iomanip>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace Logging = Orvan::Core::Logging;
using Logging::LoggingType;
using Orvan::Testing::RecordingLogger;
using Orvan::TraductionInterface::ErrorTranslator;
using Orvan::Utils::ErrorManagement::ReturnStatus;

namespace {

// "[LEVEL  ] [  4242] message\n" for the calling thread.
std::string callbackText(const std::string& word, const std::string& message)
{
  std::ostringstream text;
  text << '[' << word << "] [" << std::setw(6) << Orvan::Testing::Platform::currentThreadId() << "] " << message
       << '\n';
  return text.str();
}

// Accepts only what its flags allow, and counts how often it is asked.
struct ChoosyTranslator : ErrorTranslator {
  bool acceptStatus = true;
  bool acceptException = true;
  mutable int questions = 0;
  mutable int translations = 0;

  bool canTranslate(const std::exception&) const override { return ++questions, acceptException; }
  bool canTranslate(const ReturnStatus&) const override { return ++questions, acceptStatus; }
  std::string translate(const std::exception& e) const override
  {
    return ++translations, "E<" + std::string(e.what()) + ">";
  }
  std::string translate(const ReturnStatus& s) const override { return ++translations, "S<" + s.message() + ">"; }
};

std::string contentOf(const ReturnStatus& status)
{
  std::stringstream stream;
  Logging::makeContent(stream, status);
  return stream.str();
}

std::string contentOf(const std::exception& exception)
{
  std::stringstream stream;
  Logging::makeContent(stream, exception);
  return stream.str();
}

} // namespace

class LoggingFacade : public Orvan::Testing::FacadeReset {
protected:
  std::vector<std::string> received;

  Orvan::Utils::Guard installRecordingCallback()
  {
    return Logging::setLoggingCallback([this](const std::string& text) { received.push_back(text); });
  }
};

TEST_F(LoggingFacade, LiveLoggerTakesMessagesAndTheCallbackGetsThemOnceItIsReleased)
{
  auto logger = std::make_shared<RecordingLogger>();
  Logging::setLogger(logger);
  auto guard = installRecordingCallback();

  Logging::logInfo("to the logger");
  EXPECT_EQ(logger->lines(), (std::vector<RecordingLogger::Line>{{LoggingType::Info, "to the logger"}}));
  EXPECT_TRUE(received.empty());

  logger.reset();
  Logging::logDebug("x");
  EXPECT_EQ(received, std::vector<std::string>{callbackText("DEBUG  ", "x")});
}

TEST_F(LoggingFacade, EveryLevelReachesTheLoggersOperationOfThatLevel)
{
  auto logger = std::make_shared<RecordingLogger>();
  Logging::setLogger(logger);
  Logging::logInfo("i");
  Logging::logWarning("w");
  Logging::logError("e");
  Logging::logDebug("d");
  Logging::logVerbose("v");
  EXPECT_EQ(logger->lines(), (std::vector<RecordingLogger::Line>{{LoggingType::Info, "i"},
                                                                 {LoggingType::Warning, "w"},
                                                                 {LoggingType::Error, "e"},
                                                                 {LoggingType::Debug, "d"},
                                                                 {LoggingType::Verbose, "v"}}));
}

TEST_F(LoggingFacade, CallbackTextCarriesLevelWordThreadNumberAndNewline)
{
  auto guard = installRecordingCallback();
  Logging::logInfo("i");
  Logging::logWarning("w");
  Logging::logError("e");
  Logging::logDebug("d");
  Logging::logVerbose("");
  EXPECT_EQ(received, (std::vector<std::string>{callbackText("INFO   ", "i"), callbackText("WARNING", "w"),
                                                callbackText("ERROR  ", "e"), callbackText("DEBUG  ", "d"),
                                                callbackText("VERBOSE", "")}));
}

TEST_F(LoggingFacade, CallbackTextNamesTheLoggingThread)
{
  auto guard = installRecordingCallback();
  std::string expected;
  std::thread([&] {
    Logging::logInfo("from a worker");
    expected = callbackText("INFO   ", "from a worker");
  }).join();
  EXPECT_EQ(received, std::vector<std::string>{expected});
}

TEST_F(LoggingFacade, WithoutLoggerAndCallbackMessagesAreDropped)
{
  EXPECT_NO_THROW(Logging::logError("lost"));
  auto expired = std::make_shared<RecordingLogger>();
  Logging::setLogger(expired);
  expired.reset();
  Logging::sLoggingFunction = Logging::LoggingFunction();
  EXPECT_NO_THROW(Logging::logWarning("lost too"));
}

TEST_F(LoggingFacade, GetLoggerReturnsTheInstalledReference)
{
  auto logger = std::make_shared<RecordingLogger>();
  EXPECT_TRUE(Logging::getLogger().expired());
  Logging::setLogger(logger);
  EXPECT_EQ(Logging::getLogger().lock(), logger);
}

TEST_F(LoggingFacade, TriggerLogMemoryReachesOnlyALogger)
{
  auto guard = installRecordingCallback();
  Logging::triggerLogMemory();
  EXPECT_TRUE(received.empty());

  auto logger = std::make_shared<RecordingLogger>();
  Logging::setLogger(logger);
  Logging::triggerLogMemory();
  EXPECT_EQ(logger->memoryRequestCount(), 1);
  EXPECT_TRUE(received.empty());
}

TEST_F(LoggingFacade, GuardOfAnEarlierCallbackRemovesALaterOne)
{
  std::vector<std::string> later;
  auto earlier = std::make_unique<Orvan::Utils::Guard>(installRecordingCallback());
  auto replacing = Logging::setLoggingCallback([&](const std::string& text) { later.push_back(text); });
  Logging::logInfo("heard by the later callback");
  EXPECT_EQ(later.size(), 1u);

  earlier.reset();
  Logging::logInfo("nobody hears this");
  EXPECT_TRUE(received.empty());
  EXPECT_EQ(later.size(), 1u);
}

TEST_F(LoggingFacade, GuardDestroyedByTheHostRunsItsActionOnce)
{
  {
    auto guard = installRecordingCallback();
    Logging::logInfo("heard");
  }
  Logging::logInfo("not heard");
  EXPECT_EQ(received.size(), 1u);
  EXPECT_FALSE(static_cast<bool>(Logging::sLoggingFunction));
}

TEST_F(LoggingFacade, StatusWithoutTranslatorUsesTheDefaultTranslatorEveryTime)
{
  const ReturnStatus failure(5, "no disk");
  EXPECT_EQ(contentOf(failure), "Error 5: no disk");
  EXPECT_EQ(contentOf(failure), "Error 5: no disk");
  EXPECT_EQ(contentOf(ReturnStatus()), "Success");
  EXPECT_EQ(contentOf(std::runtime_error("broken pipe")), "broken pipe");
}

TEST_F(LoggingFacade, AcceptingTranslatorWritesItsText)
{
  auto translator = std::make_shared<ChoosyTranslator>();
  Logging::setTranslator(translator);
  EXPECT_EQ(contentOf(ReturnStatus(5, "no disk")), "S<no disk>");
  EXPECT_EQ(contentOf(std::logic_error("bad")), "E<bad>");
}

TEST_F(LoggingFacade, DecliningTranslatorIsSkippedWithoutBeingAskedToTranslate)
{
  auto translator = std::make_shared<ChoosyTranslator>();
  translator->acceptStatus = false;
  translator->acceptException = false;
  Logging::setTranslator(translator);
  EXPECT_EQ(contentOf(ReturnStatus(5, "no disk")), "Error 5: no disk");
  EXPECT_EQ(contentOf(std::logic_error("bad")), "bad");
  EXPECT_EQ(translator->questions, 2);
  EXPECT_EQ(translator->translations, 0);
}

TEST_F(LoggingFacade, ExpiredTranslatorBehavesLikeNone)
{
  auto translator = std::make_shared<ChoosyTranslator>();
  Logging::setTranslator(translator);
  translator.reset();
  EXPECT_EQ(contentOf(ReturnStatus(5, "no disk")), "Error 5: no disk");
}

TEST_F(LoggingFacade, MakeContentAppendsWithoutDecoration)
{
  std::stringstream stream;
  stream << "before|";
  Logging::makeContent(stream, ReturnStatus(1, "a"));
  Logging::makeContent(stream, std::runtime_error("b"));
  EXPECT_EQ(stream.str(), "before|Error 1: ab");
}

TEST_F(LoggingFacade, ExceptionsFromTheLoggerReachTheCaller)
{
  struct ThrowingLogger : RecordingLogger {
    void write(LoggingType type, const std::string& message) override
    {
      if (type == LoggingType::Error) {
        throw std::runtime_error("logger failed");
      }
      RecordingLogger::write(type, message);
    }
  };
  auto logger = std::make_shared<ThrowingLogger>();
  Logging::setLogger(logger);
  EXPECT_THROW(Logging::logError("x"), std::runtime_error);
}

TEST_F(LoggingFacade, ThreadsLogConcurrentlyToOneLoggerAndOneCallback)
{
  constexpr int THREADS = 4;
  constexpr int MESSAGES = 500;
  auto logger = std::make_shared<RecordingLogger>();
  Logging::setLogger(logger);
  std::atomic<int> callbackCalls{0};
  auto guard = Logging::setLoggingCallback([&](const std::string&) { ++callbackCalls; });

  const auto logFromThreads = [] {
    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; ++t) {
      threads.emplace_back([] {
        for (int i = 0; i < MESSAGES; ++i) {
          Logging::logInfo("message");
        }
      });
    }
    for (auto& thread : threads) {
      thread.join();
    }
  };
  logFromThreads();
  EXPECT_EQ(logger->lines().size(), static_cast<std::size_t>(THREADS * MESSAGES));

  Logging::setLogger({});
  logFromThreads();
  EXPECT_EQ(callbackCalls.load(), THREADS * MESSAGES);
}
