#pragma once

#include <Core/Process/Progression/ProgressionObservable.h>
#include <Core/Process/Progression/ProgressionObserver.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace Orvan::Tool {

// What a transfer has done so far; the progression counter gives the
// fraction, this gives the bytes and the time.
struct TransferState {
  std::string name;
  std::optional<std::uint64_t> size;
  std::atomic<std::uint64_t> bytes{0};
  std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

// Shows a transfer's progress on standard error: a bar redrawn ten times a
// second on a terminal, or a plain line every few seconds otherwise. Readings
// come from the library's observer thread. The observer only delivers when
// bytes come: on a terminal a thread of the display's own notices a stall and
// says "waiting for data (N s)" in the bar, counting the seconds.
class ProgressDisplay : public Core::Process::Progression::ProgressionObserver {
public:
  ProgressDisplay(const std::shared_ptr<Core::Process::Progression::ProgressionObservable>& observable,
                  const TransferState& state);
  ~ProgressDisplay() override;

  void onProgressionUpdated(double fraction) override;

  // Stops the readings and draws the last state: the bar at `fraction`, left
  // on screen.
  void finish(double fraction, bool completed);

  // The whole bar line for a terminal `width` columns wide; `waiting`: the
  // whole seconds since data last came, shown in place of the rate from 1 on.
  static std::string renderBar(const std::string& name, std::uint64_t bytes, std::optional<std::uint64_t> size,
                               double fraction, bool completed, double rate, unsigned tick, int width,
                               unsigned waiting = 0);

private:
  double updateRate();
  void watchForStalls();
  void stopWatching();

  const TransferState& state;
  bool terminal;
  unsigned tick = 0;
  std::uint64_t lastBytes = 0;
  std::chrono::steady_clock::time_point lastTime;
  double rate = 0.0;

  // Drawing happens on the observer's thread and on the stall watcher's.
  std::mutex drawing;
  double lastFraction = 0.0;
  std::mutex stallMutex;
  std::condition_variable stallWake;
  bool stopping = false;
  std::thread stallWatcher;
};

} // namespace Orvan::Tool
