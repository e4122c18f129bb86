#include "CommandLine.h"

#include <utility>

namespace Orvan::Core::Platform {

namespace {

bool isBlank(char character)
{
  return character == ' ' || character == '\t' || character == '\n';
}

// Characters that no shell treats specially: a word made only of them needs
// no quotes.
bool isPlain(const std::string& word)
{
  if (word.empty()) {
    return false;
  }
  for (const char character : word) {
    const bool plain = (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
                       (character >= '0' && character <= '9') ||
                       std::string("-_./=:,+@%").find(character) != std::string::npos;
    if (!plain) {
      return false;
    }
  }
  return true;
}

} // namespace

bool splitPosixCommandLine(const std::string& line, std::vector<std::string>& words)
{
  std::string word;
  bool inWord = false;
  const std::size_t size = line.size();
  for (std::size_t i = 0; i < size; ++i) {
    const char character = line[i];
    if (character == '\0') {
      return false;
    }
    if (isBlank(character)) {
      if (inWord) {
        words.push_back(std::move(word));
        word.clear();
        inWord = false;
      }
      continue;
    }
    if (character == '\\') {
      if (i + 1 == size) {
        // A backslash with nothing after it stands for itself.
        word += '\\';
        inWord = true;
      } else if (line[i + 1] == '\n') {
        ++i;
      } else {
        word += line[++i];
        inWord = true;
      }
      continue;
    }
    inWord = true;
    if (character == '\'') {
      const std::size_t end = line.find('\'', i + 1);
      if (end == std::string::npos) {
        return false;
      }
      word.append(line, i + 1, end - i - 1);
      i = end;
      continue;
    }
    if (character == '"') {
      for (++i;; ++i) {
        if (i == size || line[i] == '\0') {
          return false;
        }
        const char quoted = line[i];
        if (quoted == '"') {
          break;
        }
        if (quoted == '\\' && i + 1 < size) {
          const char next = line[i + 1];
          if (next == '$' || next == '`' || next == '"' || next == '\\') {
            word += next;
            ++i;
            continue;
          }
          if (next == '\n') {
            ++i;
            continue;
          }
        }
        word += quoted;
      }
      continue;
    }
    word += character;
  }
  if (inWord) {
    words.push_back(std::move(word));
  }
  return true;
}

std::string quotePosixCommandLine(const std::vector<std::string>& words)
{
  std::string line;
  for (const std::string& word : words) {
    if (!line.empty()) {
      line += ' ';
    }
    if (isPlain(word)) {
      line += word;
      continue;
    }
    // Single quotes keep everything; a single quote itself is closed, escaped
    // and reopened: 'it'\''s'.
    line += '\'';
    for (const char character : word) {
      if (character == '\'') {
        line += "'\\''";
      } else {
        line += character;
      }
    }
    line += '\'';
  }
  return line;
}

std::string quoteWindowsCommandLine(const std::vector<std::string>& words)
{
  std::string line;
  for (const std::string& word : words) {
    if (!line.empty()) {
      line += ' ';
    }
    if (!word.empty() && word.find_first_of(" \t\n\v\"") == std::string::npos) {
      line += word;
      continue;
    }
    line += '"';
    std::size_t backslashes = 0;
    for (const char character : word) {
      if (character == '\\') {
        ++backslashes;
        continue;
      }
      // Backslashes are literal unless a quote follows them.
      line.append(character == '"' ? backslashes * 2 + 1 : backslashes, '\\');
      backslashes = 0;
      line += character;
    }
    // Before the closing quote, every backslash is doubled.
    line.append(backslashes * 2, '\\');
    line += '"';
  }
  return line;
}

} // namespace Orvan::Core::Platform
