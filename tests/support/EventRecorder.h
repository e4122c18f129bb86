#pragma once

#include <Core/Event/EventInfo.h>
#include <Core/Event/EventListener.h>

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace Orvan::Testing {

// Every event the library reports, with the moment it arrived. Events may
// come from any thread.
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

  // The events as they were received, in order.
  std::vector<Core::Event::EventInfo> received() const
  {
    std::vector<Core::Event::EventInfo> result;
    for (const Entry& entry : entries()) {
      result.push_back(entry.info);
    }
    return result;
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

} // namespace Orvan::Testing
