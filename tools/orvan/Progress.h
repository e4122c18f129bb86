#pragma once

#include <Core/Process/Progression/ProgressionObservable.h>
#include <Core/Process/Progression/ProgressionObserver.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

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
// come from the library's observer thread.
class ProgressDisplay : public Core::Process::Progression::ProgressionObserver {
public:
  ProgressDisplay(const std::shared_ptr<Core::Process::Progression::ProgressionObservable>& observable,
                  const TransferState& state);
  ~ProgressDisplay() override;

  void onProgressionUpdated(double fraction) override;

  // Stops the readings and draws the last state: the bar at `fraction`, left
  // on screen.
  void finish(double fraction, bool completed);

  // The whole bar line for a terminal `width` columns wide.
  static std::string renderBar(const std::string& name, std::uint64_t bytes, std::optional<std::uint64_t> size,
                               double fraction, bool completed, double rate, unsigned tick, int width);

private:
  double updateRate();

  const TransferState& state;
  bool terminal;
  unsigned tick = 0;
  std::uint64_t lastBytes = 0;
  std::chrono::steady_clock::time_point lastTime;
  double rate = 0.0;
};

} // namespace Orvan::Tool
