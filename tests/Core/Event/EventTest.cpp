#include <Core/Event/CoreEvents.h>
#include <Core/Event/Event.h>
#include <Core/Logging/LoggingCallback.h>
#include <EventRecorder.h>
#include <FacadeReset.h>
#include <RecordingLogger.h>

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace Event = Orvan::Core::Event;
namespace Logging = Orvan::Core::Logging;
using Event::EventInfo;
using Event::EventValue;
using Event::LoggingEventInfo;
using Logging::LoggingType;
using Orvan::Testing::EventRecorder;
using Orvan::Testing::RecordingLogger;
using Orvan::Utils::ErrorManagement::PackageIdentifier;
using Orvan::Utils::ErrorManagement::ReturnStatus;
using Lines = std::vector<RecordingLogger::Line>;

namespace {

LoggingEventInfo describe(int level, std::uint32_t eventId = 3, int package = 20)
{
  return LoggingEventInfo{static_cast<LoggingType>(level), static_cast<PackageIdentifier>(package), eventId};
}

} // namespace

class EventReporting : public Orvan::Testing::FacadeReset {
protected:
  std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
  std::shared_ptr<EventRecorder> listener = std::make_shared<EventRecorder>();

  void SetUp() override { Logging::setLogger(logger); }
  void listen() { Event::setEventListenner(listener); }
};

TEST_F(EventReporting, StatusEventWithoutListenerWritesOneInfoLine)
{
  Event::logEvent(describe(0), ReturnStatus(2, "late"));
  EXPECT_EQ(logger->lines(), (Lines{{LoggingType::Info, "Error 2: late"}}));
}

TEST_F(EventReporting, ListenerReceivesTheFieldsAndTheTranslatedStatus)
{
  listen();
  Event::logEvent(describe(3, 77, 901), ReturnStatus(2, "late"));
  ASSERT_EQ(listener->received().size(), 1u);
  const EventInfo info = listener->received()[0];
  EXPECT_EQ(info.level, LoggingType::Error);
  EXPECT_EQ(static_cast<int>(info.package), 901);
  EXPECT_EQ(info.eventId, 77u);
  EXPECT_EQ(info.value, EventValue(std::string("Error 2: late")));
  EXPECT_EQ(logger->lines(), (Lines{{LoggingType::Error, "Error 2: late"}}));
}

TEST_F(EventReporting, ListenerReceivesTheTranslatedException)
{
  listen();
  Event::logEvent(describe(1, 8), std::runtime_error("refused"));
  ASSERT_EQ(listener->received().size(), 1u);
  EXPECT_EQ(listener->received()[0].value, EventValue(std::string("refused")));
  EXPECT_EQ(listener->received()[0].eventId, 8u);
  EXPECT_EQ(logger->lines(), (Lines{{LoggingType::Warning, "refused"}}));
}

TEST_F(EventReporting, ListenerReceivesExactlyTheGivenValue)
{
  listen();
  const std::vector<EventValue> values{EventValue(), EventValue(7), EventValue(2.5), EventValue(std::string("s"))};
  for (const EventValue& value : values) {
    Event::logEvent(describe(2), value);
  }
  ASSERT_EQ(listener->received().size(), values.size());
  for (std::size_t i = 0; i < values.size(); ++i) {
    EXPECT_EQ(listener->received()[i].value, values[i]);
  }
}

TEST_F(EventReporting, ExceptionEventOfLevelZeroIsLoggedAsAnError)
{
  Event::logEvent(describe(0), std::runtime_error("broken"));
  Event::logEvent(describe(3), std::runtime_error("broken too"));
  EXPECT_EQ(logger->lines(), (Lines{{LoggingType::Error, "broken"}, {LoggingType::Error, "broken too"}}));
}

TEST_F(EventReporting, StatusEventLevelsMapOneToOne)
{
  Event::logEvent(describe(0), ReturnStatus(1, "a"));
  Event::logEvent(describe(1), ReturnStatus(1, "b"));
  Event::logEvent(describe(3), ReturnStatus(1, "c"));
  EXPECT_EQ(logger->lines(), (Lines{{LoggingType::Info, "Error 1: a"},
                                    {LoggingType::Warning, "Error 1: b"},
                                    {LoggingType::Error, "Error 1: c"}}));
}

TEST_F(EventReporting, DebugVerboseAndUnknownLevelsReachTheListenerButAreNotLogged)
{
  listen();
  for (int level : {2, 4, 9}) {
    Event::logEvent(describe(level), ReturnStatus(1, "s"));
    Event::logEvent(describe(level), std::runtime_error("e"));
    Event::logEvent(describe(level), EventValue(std::string("v")));
  }
  EXPECT_EQ(listener->received().size(), 9u);
  EXPECT_TRUE(logger->lines().empty());
}

TEST_F(EventReporting, OnlyStringValuesAreLogged)
{
  listen();
  Event::logEvent(describe(1), EventValue(42));
  Event::logEvent(describe(1), EventValue(0.5));
  Event::logEvent(describe(1), EventValue());
  Event::logEvent(describe(1), EventValue(std::string("Timeout reached")));
  Event::logEvent(describe(0), EventValue(std::string("info text")));
  Event::logEvent(describe(3), EventValue(std::string("error text")));
  EXPECT_EQ(listener->received().size(), 6u);
  EXPECT_EQ(logger->lines(), (Lines{{LoggingType::Warning, "Timeout reached"},
                                    {LoggingType::Info, "info text"},
                                    {LoggingType::Error, "error text"}}));
}

TEST_F(EventReporting, DestroyedListenerIsSkippedAndEventsStillReachTheLog)
{
  listen();
  listener.reset();
  EXPECT_TRUE(Event::getListener().expired());
  Event::logEvent(describe(0), EventValue(std::string("still logged")));
  EXPECT_EQ(logger->lines(), (Lines{{LoggingType::Info, "still logged"}}));
}

TEST_F(EventReporting, GetListenerReturnsTheInstalledReference)
{
  listen();
  EXPECT_EQ(Event::getListener().lock(), listener);
}

TEST_F(EventReporting, ListenerFailureReachesTheCaller)
{
  struct ThrowingListener : Event::EventListener {
    void onEvent(const EventInfo&) override { throw std::runtime_error("listener failed"); }
  };
  auto throwing = std::make_shared<ThrowingListener>();
  Event::setEventListenner(throwing);
  EXPECT_THROW(Event::logEvent(describe(0), EventValue(1)), std::runtime_error);
  EXPECT_EQ(throwing.use_count(), 1);
}

TEST_F(EventReporting, LibraryEventNumbers)
{
  EXPECT_EQ(Event::CANCELLED_CONNECTION, 2u);
  EXPECT_EQ(Event::CONNECTING, 3u);
  EXPECT_EQ(Event::FAILED_TO_CONNECT, 4u);
  EXPECT_EQ(Event::CONNECTED, 5u);
  EXPECT_EQ(Event::TIMEOUT_REACHED, 6u);
  EXPECT_EQ(Event::OBSERVABLE_DESTROYED, 12u);
}
