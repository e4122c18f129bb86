#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>

namespace Orvan::Tool {

// The tool's terminal output. Messages go to standard error; a progress bar,
// when one is shown, stays on the last line of the terminal and every message
// is written above it, so that nothing tears it.
class Console {
public:
  static Console& instance();

  // Whether standard error is a terminal (bars are drawn only there).
  bool terminal() const { return isTerminal; }
  int width() const;

  // One line on standard error, above the bar.
  void message(const std::string& text);

  // One line on standard output (results), above the bar.
  void result(const std::string& text);

  // Draws the bar, replacing the previous one.
  void drawBar(const std::string& text);

  // Leaves the bar on screen as last drawn and moves below it.
  void endBar();

private:
  Console();
  void eraseBar();
  void redrawBar();

  std::mutex mutex;
  bool isTerminal;
  bool outputIsTerminal;
  std::string bar;
  std::size_t shown = 0;
};

// "12.3 MiB", "512 B": binary units with one decimal.
std::string formatBytes(unsigned long long bytes);

// "1.25 s", "340 ms".
std::string formatSeconds(double seconds);

// A duration as the user would write it, in its largest whole unit where
// there is one: "365 d", "2 h", "90 s", "1.5 s", "250 ms".
std::string formatDuration(std::chrono::milliseconds duration);

} // namespace Orvan::Tool
