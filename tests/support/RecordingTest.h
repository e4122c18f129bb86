#pragma once

#include <Core/Event/Event.h>
#include <Core/Logging/LoggingCallback.h>
#include <EventRecorder.h>
#include <FacadeReset.h>
#include <RecordingLogger.h>

#include <memory>

namespace Orvan::Testing {

// Installs a fresh event recorder and recording logger for each test and leaves
// the process-wide settings empty afterwards.
class RecordingTest : public FacadeReset {
protected:
  RecordingTest()
  {
    Core::Event::setEventListenner(events);
    Core::Logging::setLogger(logger);
  }

  std::shared_ptr<EventRecorder> events = std::make_shared<EventRecorder>();
  std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
};

} // namespace Orvan::Testing
