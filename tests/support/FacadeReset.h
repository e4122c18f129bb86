#pragma once

#include <Core/Event/Event.h>
#include <Core/Logging/LoggingCallback.h>

#include <gtest/gtest.h>

namespace Orvan::Testing {

// Starts and ends each test with no logger, callback, translator or event
// listener installed, since these settings are process-wide.
class FacadeReset : public ::testing::Test {
protected:
  FacadeReset() { clear(); }
  ~FacadeReset() override { clear(); }

  static void clear()
  {
    Core::Logging::setLogger({});
    Core::Logging::sLoggingFunction = nullptr;
    Core::Logging::setTranslator({});
    Core::Event::setEventListenner({});
  }
};

} // namespace Orvan::Testing
