#include <AssertRecorder.h>
#include <Core/Logging/LoggingCallbackPrivate.h>
#include <FacadeReset.h>
#include <RecordingLogger.h>

#include <gtest/gtest.h>

#include <string>
#include <system_error>
#include <vector>

namespace Logging = Orvan::Core::Logging;
using Logging::LoggingType;
using Orvan::Testing::AssertRecorder;
using Orvan::Testing::RecordingLogger;
using Orvan::TraductionInterface::ErrorTranslator;
using Orvan::Utils::ErrorManagement::ReturnStatus;

namespace {

// Counts every question, so that a test can tell whether it was consulted.
struct CountingTranslator : ErrorTranslator {
  mutable int questions = 0;
  bool canTranslate(const std::exception&) const override { return ++questions, false; }
  bool canTranslate(const ReturnStatus&) const override { return ++questions, false; }
  std::string translate(const std::exception&) const override { return {}; }
  std::string translate(const ReturnStatus&) const override { return {}; }
};

} // namespace

class LogMessage : public Orvan::Testing::FacadeReset {
protected:
  std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();

  void SetUp() override { Logging::setLogger(logger); }
};

TEST_F(LogMessage, StreamsThePiecesInOrderWithNothingBetween)
{
  Logging::logMessage(LoggingType::Info, "Running: '", std::string("ls"), "' ", 42, ' ', 2.5, '|',
                      ReturnStatus(7, "bad"), '|', std::runtime_error("boom"));
  EXPECT_EQ(logger->lines(),
            (std::vector<RecordingLogger::Line>{{LoggingType::Info, "Running: 'ls' 42 2.5|Error 7: bad|boom"}}));
}

TEST_F(LogMessage, DerivedExceptionsAreTranslatedAsExceptions)
{
  const std::system_error error(std::make_error_code(std::errc::connection_refused), "Failed to connect");
  Logging::logMessage(LoggingType::Warning, error);
  EXPECT_EQ(logger->lines(), (std::vector<RecordingLogger::Line>{{LoggingType::Warning, error.what()}}));
}

TEST_F(LogMessage, EveryTypeReachesItsLevel)
{
  Logging::logMessage(LoggingType::Info, "info");
  Logging::logMessage(LoggingType::Warning, "warning");
  Logging::logMessage(static_cast<LoggingType>(2), "debug");
  Logging::logMessage(static_cast<LoggingType>(3), "error");
  Logging::logMessage(LoggingType::Verbose, "verbose");
  EXPECT_EQ(logger->lines(), (std::vector<RecordingLogger::Line>{{LoggingType::Info, "info"},
                                                                 {LoggingType::Warning, "warning"},
                                                                 {LoggingType::Debug, "debug"},
                                                                 {LoggingType::Error, "error"},
                                                                 {LoggingType::Verbose, "verbose"}}));
}

TEST_F(LogMessage, UnknownTypeReportsTheUnreachableBranchAndLogsNothing)
{
  AssertRecorder recorder;
  Logging::logMessage(static_cast<LoggingType>(5), "lost");
  Logging::logMessage(static_cast<LoggingType>(1000), "lost");
  EXPECT_TRUE(logger->lines().empty());
  const auto reports = recorder.reports();
  ASSERT_EQ(reports.size(), 2u);
  for (const auto& report : reports) {
    EXPECT_EQ(report.message,
              "CORE_NEVER_COME_HERE triggered: '\"Added a new LoggingType? This switch case "
              "needs to be updated\"'");
    EXPECT_EQ(report.file, "src/Core/include/Core/Logging/LoggingCallbackPrivate.h");
    EXPECT_EQ(report.line, 73u);
  }
}

TEST_F(LogMessage, ReachesTheCallbackWhenNoLoggerIsAlive)
{
  logger.reset();
  std::vector<std::string> received;
  auto guard = Logging::setLoggingCallback([&](const std::string& text) { received.push_back(text); });
  Logging::logMessage(LoggingType::Error, "code ", 3);
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0].rfind("[ERROR  ] [", 0), 0u) << received[0];
  EXPECT_EQ(received[0].substr(received[0].size() - 9), "] code 3\n");
}

TEST_F(LogMessage, WithNeitherLoggerNorCallbackNothingIsTranslated)
{
  auto translator = std::make_shared<CountingTranslator>();
  Logging::setTranslator(translator);
  logger.reset();
  Logging::logMessage(LoggingType::Error, ReturnStatus(1, "x"), std::runtime_error("y"));
  EXPECT_EQ(translator->questions, 0);

  auto another = std::make_shared<RecordingLogger>();
  Logging::setLogger(another);
  Logging::logMessage(LoggingType::Error, ReturnStatus(1, "x"), std::runtime_error("y"));
  EXPECT_EQ(translator->questions, 2);
  EXPECT_EQ(another->lines(), (std::vector<RecordingLogger::Line>{{LoggingType::Error, "Error 1: xy"}}));
}
