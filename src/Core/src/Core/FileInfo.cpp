#include <Core/FileInfo.h>

#include <Utils/CoreAssert.h>
#include <Utils/SafeCast.h>

#include <regex>
#include <stdexcept>
#include <string>

namespace Orvan::Core {

namespace {

const char* const FORMATS = "does not match the <filename> nor <filename>@<address>:<port>[&timeout=<timeout>] formats";

const char* const PATTERN = "^((?:[A-Za-z]:)?[^@:]*)(?:@([^:]*):([0-9]+)(?:&timeout=([0-9]+))?)?$";

// The matcher that backtracks recurses once per character of the input, so
// that a long enough text overflows the stack. Texts up to this length (far
// more than a descriptor needs) use it, being the faster one; longer ones use
// libstdc++'s breadth-first matcher, whose stack use does not grow with the
// input. The pattern is unambiguous, so both give the same captures.
constexpr std::size_t BACKTRACKING_LIMIT = 256;

// Compiled once per process, on first use.
const std::regex& shortTextPattern()
{
  static const std::regex pattern(PATTERN, std::regex::ECMAScript);
  return pattern;
}

const std::regex& longTextPattern()
{
#if defined(__GLIBCXX__)
  static const std::regex pattern(PATTERN, std::regex::ECMAScript | std::regex_constants::__polynomial);
  return pattern;
#else
  return shortTextPattern();
#endif
}

const std::regex& patternFor(const std::string& s)
{
  return s.size() <= BACKTRACKING_LIMIT ? shortTextPattern() : longTextPattern();
}

} // namespace

FileInfo::FileInfo(const std::string& s)
    : filename()
    , address()
    , port(0)
    , timeout(0)
{
  CORE_ASSERT(!s.empty());

  std::smatch matches;
  if (!std::regex_match(s, matches, patternFor(s))) {
    throw std::runtime_error("'" + s + "' " + FORMATS + ".");
  }
  CORE_ASSERT(matches.size() == Utils::safe_cast< std::size_t >( Utils::Enum::count< Match >() ));

  const auto slot = [&matches](Match match) -> const std::ssub_match& {
    return matches[static_cast<std::size_t>(match)];
  };

  filename = Utils::FileHelper::toPath(slot(Match::FILENAME).str());
  address = slot(Match::ADDRESS).matched ? slot(Match::ADDRESS).str() : std::string();

  const std::string portText = slot(Match::PORT).str();
  if (!portText.empty()) {
    // Only the low 16 bits are kept; reading them back rejects leading zeros
    // and values above 65535.
    port = static_cast<std::uint16_t>(std::stoi(portText, nullptr, 10));
    if (std::to_string(static_cast<unsigned>(port)) != portText) {
      throw std::runtime_error("Syntax error while parsing port number in: '" + s + "'");
    }
  }

  if (address.empty()) {
    if (port != 0) {
      throw std::runtime_error("Invalid address: '" + s + "' " + FORMATS + ".");
    }
  } else if (port == 0) {
    throw std::runtime_error("Invalid port: '" + s + "' " + FORMATS + ".");
  }

  const std::string timeoutText = slot(Match::TIMEOUT).str();
  if (!timeoutText.empty()) {
    timeout = Seconds(static_cast<std::int64_t>(std::stoi(timeoutText, nullptr, 10)));
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

} // namespace Orvan::Core
