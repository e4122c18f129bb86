#pragma once

#include <algorithm>
#include <cctype>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Windows runs a batch file (.bat or .cmd) through cmd.exe, which reads its
// command line by its own rules: '&', '|', '<', '>' and '^' outside quotes
// are operators, and %NAME% is expanded everywhere, quoted or not. A
// command line built for the C runtime's rules would let an argument run
// commands there. These functions build the line that cmd.exe passes on to
// the batch file so that each argument reaches it as one word, unchanged,
// and refuse the arguments for which that cannot be done. Pure text, so
// that it is the same and testable on every platform.
namespace Orvan::Core::Platform {

namespace BatchDetail {

inline char lower(char c)
{
  return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

// Whether the word can stand outside quotes: letters, digits and a few
// signs that cmd.exe gives no meaning. Everything else, including every
// byte of a non-ASCII character, is quoted.
inline bool standsUnquoted(std::string_view word)
{
  static constexpr std::string_view plainSigns = "#$*+-./:?@\\_";
  return std::all_of(word.begin(), word.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x80 && (std::isalnum(byte) != 0 || plainSigns.find(c) != std::string_view::npos);
  });
}

// What no quoting lets through cmd.exe unchanged. A line break ends its
// command and NUL the whole line. '%' names a variable or a parameter:
// cmd.exe expands %NAME% before it looks at quotes, and a batch file may
// expand the text of its parameters once more (Wine's cmd.exe does so for
// every %1 and %*), so no escape is sure to keep it.
inline bool cannotPass(std::string_view text)
{
  return text.find_first_of(std::string_view("%\r\n\0", 4)) != std::string_view::npos;
}

} // namespace BatchDetail

// True when Windows runs `program` through cmd.exe: its name ends in ".bat"
// or ".cmd", in any case. Windows drops trailing dots and spaces from file
// names, so "run.bat. " is a batch file too.
inline bool isBatchFile(std::string_view program)
{
  const auto end = program.find_last_not_of(". ");
  if (end == std::string_view::npos) {
    return false;
  }
  program = program.substr(0, end + 1);
  if (program.size() < 4) {
    return false;
  }
  std::string extension(program.substr(program.size() - 4));
  std::transform(extension.begin(), extension.end(), extension.begin(), BatchDetail::lower);
  return extension == ".bat" || extension == ".cmd";
}

// Appends `argument` to `line` as cmd.exe and then the C runtime's rules
// read it back: quoted unless it is plain (an empty word and one ending in
// a backslash always are), '"' doubled, and backslashes doubled only before
// a quote. False, with `line` unchanged, when the argument holds a '%', a
// line break or NUL, which cannot pass.
inline bool appendBatchArgument(std::string& line, std::string_view argument)
{
  if (BatchDetail::cannotPass(argument)) {
    return false;
  }
  const bool quoted = argument.empty() || argument.back() == '\\' || !BatchDetail::standsUnquoted(argument);
  if (quoted) {
    line += '"';
  }
  std::size_t backslashes = 0;
  for (const char c : argument) {
    if (c == '\\') {
      ++backslashes;
      line += c;
      continue;
    }
    if (c == '"') {
      // The backslashes before a quote are doubled so that none of them
      // escapes it, and the quote is doubled: to cmd.exe that closes and
      // reopens the quoted part, to the C runtime it is one '"'.
      line.append(backslashes, '\\');
      line += '"';
    }
    backslashes = 0;
    line += c;
  }
  if (quoted) {
    // Backslashes before the closing quote are doubled for the same reason.
    line.append(backslashes, '\\');
    line += '"';
  }
  return true;
}

// The arguments that cmd.exe takes to run the batch file `arguments[0]`
// with the rest as its arguments:
//   /e:ON /v:OFF /d /c ""script" word..."
// Command extensions are on, as everywhere by default, delayed expansion is
// off (so '!' is plain), and no AutoRun command runs first. The whole
// command is quoted once more, as /c strips one pair of outer quotes. Empty
// when an argument cannot pass unchanged, or when the script's name holds a
// quote or ends in a backslash, which no file name does, or a '%'.
inline std::optional<std::string> batchCommandArguments(const std::vector<std::string>& arguments)
{
  if (arguments.empty()) {
    return std::nullopt;
  }
  const std::string& script = arguments.front();
  if (script.empty() || script.back() == '\\' || script.find('"') != std::string::npos ||
      BatchDetail::cannotPass(script)) {
    return std::nullopt;
  }
  std::string line = "/e:ON /v:OFF /d /c \"\"";
  line += script;
  line += '"';
  for (auto argument = arguments.begin() + 1; argument != arguments.end(); ++argument) {
    line += ' ';
    if (!appendBatchArgument(line, *argument)) {
      return std::nullopt;
    }
  }
  line += '"';
  return line;
}

} // namespace Orvan::Core::Platform
