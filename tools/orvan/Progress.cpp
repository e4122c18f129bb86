#include "Progress.h"

#include "Console.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <sstream>

namespace Orvan::Tool {

namespace {

// A terminal redraws often; a log or a pipe gets a line now and then.
constexpr unsigned TERMINAL_PERIOD_MS = 100;
constexpr unsigned PLAIN_PERIOD_MS = 3000;

std::string percent(double fraction)
{
  const int value = static_cast<int>(std::floor(std::clamp(fraction, 0.0, 1.0) * 100.0));
  std::ostringstream text;
  text << std::setw(3) << value << '%';
  return text.str();
}

std::string rateText(double rate)
{
  return formatBytes(static_cast<unsigned long long>(rate)) + "/s";
}

} // namespace

ProgressDisplay::ProgressDisplay(const std::shared_ptr<Core::Process::Progression::ProgressionObservable>& observable,
                                 const TransferState& state)
    : ProgressionObserver(observable, Console::instance().terminal() ? TERMINAL_PERIOD_MS : PLAIN_PERIOD_MS,
                          DeferredStart{})
    , state(state)
    , terminal(Console::instance().terminal())
    , lastTime(state.start)
{
  startObserving();
  if (terminal) {
    stallWatcher = std::thread([this] { watchForStalls(); });
  }
}

ProgressDisplay::~ProgressDisplay()
{
  stopWatching();
  stopObserving();
}

void ProgressDisplay::stopWatching()
{
  {
    const std::lock_guard<std::mutex> lock(stallMutex);
    stopping = true;
  }
  stallWake.notify_all();
  if (stallWatcher.joinable()) {
    stallWatcher.join();
  }
}

// Four times a second: when no byte has come for a second or more, the bar
// says for how long.
void ProgressDisplay::watchForStalls()
{
  std::uint64_t seenBytes = state.bytes.load();
  auto lastData = state.start;
  std::unique_lock<std::mutex> lock(stallMutex);
  while (!stallWake.wait_for(lock, std::chrono::milliseconds(250), [this] { return stopping; })) {
    const auto now = std::chrono::steady_clock::now();
    const std::uint64_t bytes = state.bytes.load();
    if (bytes != seenBytes) {
      seenBytes = bytes;
      lastData = now;
      continue;
    }
    const auto waiting =
        static_cast<unsigned>(std::chrono::duration_cast<std::chrono::seconds>(now - lastData).count());
    if (waiting == 0) {
      continue;
    }
    const std::lock_guard<std::mutex> draw(drawing);
    Console::instance().drawBar(
        renderBar(state.name, bytes, state.size, lastFraction, false, 0.0, tick, Console::instance().width(), waiting));
  }
}

double ProgressDisplay::updateRate()
{
  const auto now = std::chrono::steady_clock::now();
  const std::uint64_t bytes = state.bytes.load();
  const double seconds = std::chrono::duration<double>(now - lastTime).count();
  if (seconds > 0.0) {
    const double recent = static_cast<double>(bytes - lastBytes) / seconds;
    // Smoothed, so that the figure does not jump at every redraw.
    rate = rate == 0.0 ? recent : rate * 0.7 + recent * 0.3;
  }
  lastBytes = bytes;
  lastTime = now;
  return rate;
}

void ProgressDisplay::onProgressionUpdated(double fraction)
{
  const std::lock_guard<std::mutex> lock(drawing);
  lastFraction = fraction;
  const double currentRate = updateRate();
  const std::uint64_t bytes = state.bytes.load();
  if (terminal) {
    Console::instance().drawBar(
        renderBar(state.name, bytes, state.size, fraction, false, currentRate, tick++, Console::instance().width()));
    return;
  }
  std::string line = state.name + ": " + formatBytes(bytes);
  if (state.size) {
    const std::string share = percent(fraction);
    line += " of " + formatBytes(*state.size) + " (" + share.substr(share.find_first_not_of(' ')) + ")";
  }
  line += " at " + rateText(currentRate);
  Console::instance().message(line);
}

void ProgressDisplay::finish(double fraction, bool completed)
{
  stopWatching();
  stopObserving();
  if (!terminal) {
    return;
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - state.start).count();
  const std::uint64_t bytes = state.bytes.load();
  const double average = seconds > 0.0 ? static_cast<double>(bytes) / seconds : 0.0;
  Console::instance().drawBar(
      renderBar(state.name, bytes, state.size, fraction, completed, average, tick, Console::instance().width()));
  Console::instance().endBar();
}

std::string ProgressDisplay::renderBar(const std::string& name, std::uint64_t bytes, std::optional<std::uint64_t> size,
                                       double fraction, bool completed, double rate, unsigned tick, int width,
                                       unsigned waiting)
{
  // Without a known size the fraction means nothing until the end: the bar
  // then shows activity instead of a filling.
  const bool known = size.has_value() || completed;
  if (completed) {
    fraction = 1.0;
  }
  std::string label = name.size() > 24 ? name.substr(0, 21) + "..." : name;
  std::string counts = "  " + formatBytes(bytes);
  if (size) {
    counts += " / " + formatBytes(*size);
  }
  std::string stats =
      counts + "  " + (waiting > 0 ? "waiting for data (" + std::to_string(waiting) + " s)" : rateText(rate));
  const std::string share = known ? percent(fraction) : std::string(4, ' ');

  // One column is left free so that the cursor never wraps. A narrow
  // terminal loses the name first, then the rate, then the byte counts: the
  // percentage and a bar of 10 cells always fit in 20 columns.
  constexpr int MIN_CELLS = 10;
  const int columns = std::min(std::max(width, 20) - 1, 120);
  const auto cellsLeft = [&] {
    const std::size_t name = label.empty() ? 0 : label.size() + 1;
    return columns - static_cast<int>(name + share.size() + 2 + 1 + stats.size());
  };
  if (cellsLeft() < MIN_CELLS) {
    label.clear();
  }
  if (cellsLeft() < MIN_CELLS) {
    stats = counts;
  }
  if (cellsLeft() < MIN_CELLS) {
    stats.clear();
  }
  const int cells = std::max(MIN_CELLS, cellsLeft());
  std::string bar(static_cast<std::size_t>(cells), ' ');
  if (known) {
    const auto filled = static_cast<std::size_t>(std::floor(std::clamp(fraction, 0.0, 1.0) * cells));
    std::fill(bar.begin(), bar.begin() + static_cast<std::ptrdiff_t>(filled), '#');
    std::fill(bar.begin() + static_cast<std::ptrdiff_t>(filled), bar.end(), '-');
  } else {
    // A block that travels back and forth.
    const int span = cells - 3;
    const int step = static_cast<int>(tick % static_cast<unsigned>(2 * span));
    const int position = step < span ? step : 2 * span - step;
    bar.replace(static_cast<std::size_t>(position), 3, "<=>");
  }
  std::string line;
  if (!label.empty()) {
    line = label + ' ';
  }
  line += share + " [" + bar + "]" + stats;
  return line;
}

} // namespace Orvan::Tool
