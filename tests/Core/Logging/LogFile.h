#pragma once

#include <Platform/System.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

// Reading log files back and checking their lines against the exact format
// "HH:MM:SS.mmm [LEVEL  ] [thread] message".
namespace Orvan::Testing {

// The file's text as a text-mode stream reads it (line ends as '\n').
inline std::string readLogText(const std::filesystem::path& path)
{
  std::ifstream input(path);
  return std::string(std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>());
}

// The lines of `text`, without their line ends. A last line without a line
// end is kept, so that a torn line shows.
inline std::vector<std::string> splitLines(const std::string& text)
{
  std::vector<std::string> lines;
  std::size_t start = 0;
  while (start < text.size()) {
    const std::size_t end = text.find('\n', start);
    if (end == std::string::npos) {
      lines.push_back(text.substr(start));
      break;
    }
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

inline std::vector<std::string> readLogLines(const std::filesystem::path& path)
{
  return splitLines(readLogText(path));
}

// A thread number as the log shows it: right-aligned in six blanks, never cut.
inline std::string threadField(unsigned long long number)
{
  std::string digits = std::to_string(number);
  return digits.size() < 6 ? std::string(6 - digits.size(), ' ') + digits : digits;
}

inline std::string currentThreadField()
{
  return threadField(Platform::currentThreadId());
}

struct LogLine {
  bool wellFormed = false;
  int hours = 0;
  int minutes = 0;
  int seconds = 0;
  int milliseconds = 0;
  std::string level;   // the bracketed word, e.g. "WARNING" or "VERSION "
  std::string thread;  // the bracketed thread field, blanks included
  std::string message; // everything after "] "
};

namespace Detail {

inline bool digitsAt(const std::string& text, std::size_t at, std::size_t count, int& value)
{
  value = 0;
  for (std::size_t i = at; i < at + count; ++i) {
    if (i >= text.size() || text[i] < '0' || text[i] > '9') {
      return false;
    }
    value = value * 10 + (text[i] - '0');
  }
  return true;
}

// Six characters or more: blanks then digits, or digits alone beyond six.
inline bool isThreadField(const std::string& field)
{
  if (field.size() < 6) {
    return false;
  }
  std::size_t i = 0;
  while (i < field.size() && field[i] == ' ') {
    ++i;
  }
  if (i == field.size() || (i > 0 && field.size() != 6)) {
    return false;
  }
  for (; i < field.size(); ++i) {
    if (field[i] < '0' || field[i] > '9') {
      return false;
    }
  }
  return true;
}

} // namespace Detail

// Splits a line into its prefix fields and message; `wellFormed` is false
// unless the prefix follows the format to the character.
inline LogLine parseLogLine(const std::string& text)
{
  LogLine line;
  if (!Detail::digitsAt(text, 0, 2, line.hours) || text.size() < 13 || text[2] != ':' ||
      !Detail::digitsAt(text, 3, 2, line.minutes) || text[5] != ':' || !Detail::digitsAt(text, 6, 2, line.seconds) ||
      text[8] != '.' || !Detail::digitsAt(text, 9, 3, line.milliseconds) || text.compare(12, 2, " [") != 0) {
    return line;
  }
  if (line.hours > 23 || line.minutes > 59 || line.seconds > 60) {
    return line;
  }
  const std::size_t wordEnd = text.find("] [", 14);
  if (wordEnd == std::string::npos) {
    return line;
  }
  line.level = text.substr(14, wordEnd - 14);
  static const char* const WORDS[] = {"INFO   ", "WARNING", "ERROR  ", "DEBUG  ", "VERBOSE", "VERSION "};
  bool known = false;
  for (const char* word : WORDS) {
    known = known || line.level == word;
  }
  const std::size_t threadStart = wordEnd + 3;
  const std::size_t threadEnd = text.find("] ", threadStart);
  if (!known || threadEnd == std::string::npos) {
    return line;
  }
  line.thread = text.substr(threadStart, threadEnd - threadStart);
  if (!Detail::isThreadField(line.thread)) {
    return line;
  }
  line.message = text.substr(threadEnd + 2);
  line.wellFormed = true;
  return line;
}

// "16GB", "8 000MB", "512MB", "50 020KB", "005KB".
inline bool isMemorySize(const std::string& text)
{
  if (text.size() < 3) {
    return false;
  }
  const std::string unit = text.substr(text.size() - 2);
  const std::string number = text.substr(0, text.size() - 2);
  const auto allDigits = [](const std::string& digits) {
    if (digits.empty()) {
      return false;
    }
    for (char c : digits) {
      if (c < '0' || c > '9') {
        return false;
      }
    }
    return true;
  };
  if (unit == "GB") {
    return allDigits(number) && number[0] != '0';
  }
  if (unit != "MB" && unit != "KB") {
    return false;
  }
  const std::size_t blank = number.find(' ');
  const std::string within = blank == std::string::npos ? number : number.substr(blank + 1);
  // The part within the higher unit, zero-padded to three digits (up to 1023).
  if (within.size() < 3 || within.size() > 4 || !allDigits(within)) {
    return false;
  }
  return blank == std::string::npos || (allDigits(number.substr(0, blank)) && number[0] != '0');
}

// "[MEMORY] Virtual: A\tB\tC\tPhysical:D\tE\tF", six well-formed figures.
inline bool isMemorySample(const std::string& message)
{
  const std::string head = "[MEMORY] Virtual: ";
  if (message.compare(0, head.size(), head) != 0) {
    return false;
  }
  std::vector<std::string> fields;
  std::size_t start = head.size();
  for (;;) {
    const std::size_t tab = message.find('\t', start);
    fields.push_back(message.substr(start, tab == std::string::npos ? std::string::npos : tab - start));
    if (tab == std::string::npos) {
      break;
    }
    start = tab + 1;
  }
  if (fields.size() != 6 || fields[3].compare(0, 9, "Physical:") != 0) {
    return false;
  }
  fields[3] = fields[3].substr(9);
  for (const std::string& field : fields) {
    if (!isMemorySize(field)) {
      return false;
    }
  }
  return true;
}

inline const char* const MEMORY_LEGEND =
    "[MEMORY] Virtual: PC TOTAL\t-\tPC USED\t-\tUSED BY APPLICATION\t\t"
    "Physical: PC TOTAL\t-\tPC USED\t-\tUSED BY APPLICATION";

} // namespace Orvan::Testing
