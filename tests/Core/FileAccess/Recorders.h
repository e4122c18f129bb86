#pragma once

#include <Core/Event/Event.h>
#include <Core/Event/EventListener.h>
#include <Core/Logging/LoggingCallback.h>
#include <FacadeReset.h>
#include <RecordingLogger.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Orvan::Testing {

// Every event the library reports, with the moment it arrived.
class EventRecorder : public Core::Event::EventListener {
public:
  struct Entry {
    Core::Event::EventInfo info;
    std::chrono::steady_clock::time_point when;
  };

  void onEvent(const Core::Event::EventInfo& info) override
  {
    const std::lock_guard lock(mutex);
    recorded.push_back({info, std::chrono::steady_clock::now()});
  }

  std::vector<Entry> entries() const
  {
    const std::lock_guard lock(mutex);
    return recorded;
  }

  std::vector<std::uint32_t> ids() const
  {
    std::vector<std::uint32_t> result;
    for (const Entry& entry : entries()) {
      result.push_back(entry.info.eventId);
    }
    return result;
  }

  int count(std::uint32_t eventId) const
  {
    int result = 0;
    for (const Entry& entry : entries()) {
      result += entry.info.eventId == eventId ? 1 : 0;
    }
    return result;
  }

  // The text payload of every event, in order.
  std::vector<std::string> texts() const
  {
    std::vector<std::string> result;
    for (const Entry& entry : entries()) {
      const auto* text = entry.info.value ? std::get_if<std::string>(&*entry.info.value) : nullptr;
      result.push_back(text != nullptr ? *text : std::string("<no text>"));
    }
    return result;
  }

private:
  mutable std::mutex mutex;
  std::vector<Entry> recorded;
};

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

// Standard output and error as written on this platform, with "\r\n" line
// ends (text-mode descriptors on Windows) turned into "\n".
inline std::string withPlainLineEnds(std::string text)
{
  std::string::size_type at = 0;
  while ((at = text.find("\r\n", at)) != std::string::npos) {
    text.erase(at, 1);
  }
  return text;
}

} // namespace Orvan::Testing
