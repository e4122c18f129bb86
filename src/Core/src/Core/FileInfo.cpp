#include <Core/FileInfo.h>

#include <Utils/CoreAssert.h>
#include <Utils/SafeCast.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Orvan::Core {

namespace {

// `prefix`, the quoted text and the sentence naming the two formats, built in
// one allocation: the text may be long.
std::runtime_error formatError(std::string_view prefix, const std::string& s)
{
  constexpr std::string_view FORMATS_SENTENCE =
      "' does not match the <filename> nor <filename>@<address>:<port>[&timeout=<timeout>] formats.";
  std::string message;
  message.reserve(prefix.size() + 1 + s.size() + FORMATS_SENTENCE.size());
  message.append(prefix).append(1, '\'').append(s).append(FORMATS_SENTENCE);
  return std::runtime_error(message);
}

// The text form's capture slots, indexed by FileInfo::Match, as views into
// the text; a slot is empty when its group took no part in the match.
using Captures = std::array<std::optional<std::string_view>, Utils::Enum::count<FileInfo::Match>()>;

std::optional<std::string_view>& slot(Captures& captures, FileInfo::Match match)
{
  return captures[static_cast<std::size_t>(match)];
}

std::string_view text(const Captures& captures, FileInfo::Match match)
{
  return captures[static_cast<std::size_t>(match)].value_or(std::string_view());
}

bool isAsciiLetter(char c)
{
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// The end of the run of decimal digits that starts at `from`.
std::size_t digitsEnd(std::string_view text, std::size_t from)
{
  while (from < text.size() && text[from] >= '0' && text[from] <= '9') {
    ++from;
  }
  return from;
}

// Matches the whole text against the grammar
//   ^((?:[A-Za-z]:)?[^@:]*)(?:@([^:]*):([0-9]+)(?:&timeout=([0-9]+))?)?$
// in one pass from left to right, filling `captures` on a match. Each part of it ends at the first
// character it cannot take, and what follows must begin with a character the
// part could not have taken, so no shorter choice can ever succeed where the
// longest failed: the first reading is the only one, and no backtracking is
// needed. A letter and a colon at the start can only be a drive: read as
// filename characters, the colon would end the filename and fail.
bool matchTextForm(std::string_view text, Captures& captures)
{
  using Match = FileInfo::Match;
  constexpr std::string_view TIMEOUT_MARKER = "&timeout=";
  captures = Captures();
  slot(captures, Match::Whole) = text;
  const std::size_t drive = text.size() >= 2 && isAsciiLetter(text[0]) && text[1] == ':' ? 2 : 0;
  const std::size_t filenameEnd = std::min(text.find_first_of("@:", drive), text.size());
  slot(captures, Match::Filename) = text.substr(0, filenameEnd);
  if (filenameEnd == text.size()) {
    return true;
  }
  if (text[filenameEnd] != '@') {
    return false;
  }
  const std::size_t colon = text.find(':', filenameEnd + 1);
  if (colon == std::string_view::npos) {
    return false;
  }
  const std::size_t portEnd = digitsEnd(text, colon + 1);
  if (portEnd == colon + 1) {
    return false;
  }
  slot(captures, Match::Address) = text.substr(filenameEnd + 1, colon - filenameEnd - 1);
  slot(captures, Match::Port) = text.substr(colon + 1, portEnd - colon - 1);
  if (portEnd == text.size()) {
    return true;
  }
  const std::size_t timeoutStart = portEnd + TIMEOUT_MARKER.size();
  if (text.substr(portEnd, TIMEOUT_MARKER.size()) != TIMEOUT_MARKER) {
    return false;
  }
  const std::size_t timeoutEnd = digitsEnd(text, timeoutStart);
  if (timeoutEnd == timeoutStart || timeoutEnd != text.size()) {
    return false;
  }
  slot(captures, Match::Timeout) = text.substr(timeoutStart);
  return true;
}

// A run of decimal digits read as std::stoi reads it. Nine digits always fit
// a 32-bit integer; longer runs go to std::stoi itself, so that a value out
// of range fails with its own std::out_of_range.
int toInt32(std::string_view digits)
{
  if (digits.size() > 9) {
    return std::stoi(std::string(digits), nullptr, 10);
  }
  int value = 0;
  for (const char digit : digits) {
    value = value * 10 + (digit - '0');
  }
  return value;
}

// Whether the port's digits read back unchanged from the 16 bits kept of
// them: exactly when they hold no leading zero and a value up to 65535.
bool readsBack(std::string_view digits, int value)
{
  return value >= 0 && value <= 0xFFFF && (digits.size() == 1 || digits[0] != '0');
}

} // namespace

FileInfo::FileInfo(const std::string& s)
    : filename()
    , address()
    , port(0)
    , timeout(0)
{
  CORE_ASSERT(!s.empty());

  Captures matches;
  if (!matchTextForm(s, matches)) {
    throw formatError("", s);
  }
  // The spacing is kept as written: the report quotes the expression's text.
  // clang-format off
  CORE_ASSERT( matches.size() == Utils::safe_cast< std::size_t >( Utils::Enum::count< Match >() ) );
  // clang-format on

  filename = Utils::FileHelper::toPath(std::string(text(matches, Match::Filename)));
  address = text(matches, Match::Address);

  const std::string_view portText = text(matches, Match::Port);
  if (!portText.empty()) {
    // Only the low 16 bits are kept; reading them back rejects leading zeros
    // and values above 65535.
    const int value = toInt32(portText);
    port = static_cast<std::uint16_t>(value);
    if (!readsBack(portText, value)) {
      throw std::runtime_error("Syntax error while parsing port number in: '" + s + "'");
    }
  }

  if (address.empty()) {
    if (port != 0) {
      throw formatError("Invalid address: ", s);
    }
  } else if (port == 0) {
    throw formatError("Invalid port: ", s);
  }

  const std::string_view timeoutText = text(matches, Match::Timeout);
  if (!timeoutText.empty()) {
    timeout = Seconds(static_cast<std::int64_t>(toInt32(timeoutText)));
  }
}

FileInfo::FileInfo(const char* s)
    : FileInfo(std::string(s != nullptr ? s : ""))
{
}

FileInfo::FileInfo(const std::filesystem::path& path)
    : FileInfo(Utils::FileHelper::toString(path))
{
}

FileInfo::FileInfo(const std::filesystem::path& name, const char* host, std::uint16_t p, Seconds d)
    : filename(name)
    , address(host != nullptr ? host : "")
    , retry(nullptr)
    , port(p)
    , timeout(d)
{
  CORE_ASSERT(!filename.empty());
  CORE_ASSERT(!address.empty());
  CORE_ASSERT(p != FileInfo::INVALID_PORT);
  CORE_ASSERT(d.count() >= 0);
}

bool FileInfo::isRemote() const
{
  return !address.empty();
}

bool FileInfo::operator<(const FileInfo& other) const
{
  return filename < other.filename;
}

std::string toString(const FileInfo& finfo)
{
  std::string text = Utils::FileHelper::toString(finfo.filename);
  if (!finfo.address.empty()) {
    text += '@';
    text += finfo.address;
    text += ':';
    text += std::to_string(static_cast<unsigned>(finfo.port));
    if (finfo.timeout.count() > 0) {
      text += "&timeout=";
      text += std::to_string(static_cast<long long>(finfo.timeout.count()));
    }
  }
  return text;
}

} // namespace Orvan::Core
