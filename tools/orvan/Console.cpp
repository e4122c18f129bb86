#include "Console.h"

#include "Platform.h"

#include <cstdio>
#include <iomanip>
#include <sstream>
#include <string>
#include <utility>

namespace Orvan::Tool {

Console& Console::instance()
{
  static Console console;
  return console;
}

Console::Console()
    : isTerminal(Platform::isTerminal(Platform::StandardStream::Error))
    , outputIsTerminal(Platform::isTerminal(Platform::StandardStream::Output))
{
}

int Console::width() const
{
  return Platform::terminalWidth();
}

// The tool writes through the C streams, not std::cout and std::cerr: those
// two belong to the library's own diagnostics, which commands may route
// elsewhere while they run.
void Console::eraseBar()
{
  if (shown > 0) {
    std::fputc('\r', stderr);
    std::fputs(std::string(shown, ' ').c_str(), stderr);
    std::fputc('\r', stderr);
  }
}

void Console::redrawBar()
{
  if (!bar.empty()) {
    std::fputs(bar.c_str(), stderr);
    shown = bar.size();
  } else {
    shown = 0;
  }
  std::fflush(stderr);
}

void Console::message(const std::string& text)
{
  const std::lock_guard<std::mutex> lock(mutex);
  eraseBar();
  std::fputs(text.c_str(), stderr);
  std::fputc('\n', stderr);
  redrawBar();
}

void Console::result(const std::string& text)
{
  const std::lock_guard<std::mutex> lock(mutex);
  // Only a terminal shared with the bar needs the bar out of the way.
  const bool clear = outputIsTerminal && shown > 0;
  if (clear) {
    eraseBar();
    std::fflush(stderr);
  }
  std::fputs(text.c_str(), stdout);
  std::fputc('\n', stdout);
  std::fflush(stdout);
  if (clear) {
    redrawBar();
  }
}

void Console::drawBar(const std::string& text)
{
  const std::lock_guard<std::mutex> lock(mutex);
  if (!isTerminal) {
    return;
  }
  std::fputc('\r', stderr);
  std::fputs(text.c_str(), stderr);
  if (text.size() < shown) {
    // Blank out what is left of a longer previous bar.
    std::fputs(std::string(shown - text.size(), ' ').c_str(), stderr);
    std::fputc('\r', stderr);
    std::fputs(text.c_str(), stderr);
  }
  bar = text;
  shown = text.size();
  std::fflush(stderr);
}

void Console::endBar()
{
  const std::lock_guard<std::mutex> lock(mutex);
  if (shown > 0) {
    std::fputc('\n', stderr);
    std::fflush(stderr);
  }
  bar.clear();
  shown = 0;
}

std::string formatBytes(unsigned long long bytes)
{
  static const char* const units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
  if (bytes < 1024) {
    return std::to_string(bytes) + " B";
  }
  double value = static_cast<double>(bytes);
  std::size_t unit = 0;
  while (value >= 1024.0 && unit + 1 < std::size(units)) {
    value /= 1024.0;
    ++unit;
  }
  std::ostringstream text;
  text << std::fixed << std::setprecision(1) << value << ' ' << units[unit];
  return text.str();
}

std::string formatSeconds(double seconds)
{
  std::ostringstream text;
  if (seconds < 1.0) {
    text << static_cast<long long>(seconds * 1000.0 + 0.5) << " ms";
  } else {
    text << std::fixed << std::setprecision(2) << seconds << " s";
  }
  return text.str();
}

std::string formatDuration(std::chrono::milliseconds duration)
{
  const long long ms = duration.count();
  const std::pair<long long, const char*> units[] = {{86400000, " d"}, {3600000, " h"}, {60000, " min"}, {1000, " s"}};
  for (const auto& [size, suffix] : units) {
    if (ms != 0 && ms % size == 0) {
      return std::to_string(ms / size) + suffix;
    }
  }
  if (ms < 1000) {
    return std::to_string(ms) + " ms";
  }
  std::string text = std::to_string(ms / 1000) + "." + std::to_string(1000 + ms % 1000).substr(1);
  while (text.back() == '0') {
    text.pop_back();
  }
  return text + " s";
}

} // namespace Orvan::Tool
