#pragma once

#include <Core/Logging/LevelLogger.h>
#include <Core/Logging/LoggingCallback.h>
#include <Core/Logging/LoggingType.h>
#include <FacadeReset.h>

#include <functional>
#include <memory>
#include <mutex>
#include <ostream>
#include <regex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Orvan::Testing {

// One logged line: its level and its text.
struct LogLine {
  Core::Logging::LoggingType type;
  std::string text;

  bool operator==(const LogLine& other) const { return type == other.type && text == other.text; }
};

inline std::ostream& operator<<(std::ostream& stream, const LogLine& line)
{
  return stream << '{' << static_cast<int>(line.type) << ", \"" << line.text << "\"}";
}

// A logger that keeps every line, and optionally lets a test act on a line
// while it is being logged (on the logging thread).
class LogLines : public Core::Logging::LevelLogger {
public:
  using Hook = std::function<void(const LogLine&)>;

  // Set before the run; called for each line, after it is recorded.
  void setHook(Hook newHook) { hook = std::move(newHook); }

  std::vector<LogLine> lines() const
  {
    const std::lock_guard lock(mutex);
    return recorded;
  }

  // The lines logged by one thread.
  std::vector<LogLine> linesOf(std::thread::id thread) const
  {
    const std::lock_guard lock(mutex);
    std::vector<LogLine> result;
    for (std::size_t i = 0; i < recorded.size(); ++i) {
      if (threads[i] == thread) {
        result.push_back(recorded[i]);
      }
    }
    return result;
  }

  bool contains(const std::string& text) const
  {
    const std::lock_guard lock(mutex);
    for (const LogLine& line : recorded) {
      if (line.text == text) {
        return true;
      }
    }
    return false;
  }

  // The lines with the process identifier replaced by "<id>", so that they
  // can be compared with fixed texts.
  std::vector<LogLine> linesWithoutProcessId() const { return withoutProcessId(lines()); }

  static std::vector<LogLine> withoutProcessId(std::vector<LogLine> lines)
  {
    static const std::regex processId("^(CreateProcess successful\\. Process ID )[0-9]+$");
    for (LogLine& line : lines) {
      line.text = std::regex_replace(line.text, processId, "$1<id>");
    }
    return lines;
  }

protected:
  void write(Core::Logging::LoggingType type, const std::string& message) override
  {
    {
      const std::lock_guard lock(mutex);
      recorded.push_back({type, message});
      threads.push_back(std::this_thread::get_id());
    }
    if (hook) {
      hook({type, message});
    }
  }

private:
  mutable std::mutex mutex;
  std::vector<LogLine> recorded;
  std::vector<std::thread::id> threads;
  Hook hook;
};

// A test whose log lines all go to `log`, the rest of the facade cleared.
class LoggingToLines : public FacadeReset {
protected:
  LoggingToLines() { Core::Logging::setLogger(log); }

  std::shared_ptr<LogLines> log = std::make_shared<LogLines>();
};

} // namespace Orvan::Testing
