// Fuzzes the descriptor's text form.
//
// Every input is either parsed into a descriptor whose text form parses back
// to the same fields, or rejected with one of the parser's own errors: a
// std::runtime_error with one of its four texts, or the std::out_of_range of a
// port or timeout whose digits do not fit a 32-bit integer.
//
// The outcome is also predicted without the parser: the pattern is matched
// with std::regex_match, the reference the parser's own matcher must agree
// with, captures included; the captures then go through the parser's checks
// of the port and the address.
//
// Inputs longer than MAX_INPUT are ignored: the reference, std::regex's
// default matcher, recurses once per character or so and would overflow the
// stack on long texts (the parser itself does not; its tests and benchmark
// cover long inputs).

#include <Core/FileInfo.h>
#include <Utils/CoreAssert.h>
#include <Utils/FileHelper.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>

namespace {

using Orvan::Core::FileInfo;

constexpr std::size_t MAX_INPUT = 4096;

const char* const PATTERN = "^((?:[A-Za-z]:)?[^@:]*)(?:@([^:]*):([0-9]+)(?:&timeout=([0-9]+))?)?$";
const char* const FORMATS = "does not match the <filename> nor <filename>@<address>:<port>[&timeout=<timeout>] formats";

// The text with its control and non-ASCII bytes escaped, for reports.
std::string printable(const std::string& text)
{
  std::string result;
  for (unsigned char c : text) {
    if (c >= 0x20 && c < 0x7f && c != '\\') {
      result += static_cast<char>(c);
    } else {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", c);
      result += escaped;
    }
  }
  return result;
}

[[noreturn]] void fail(const std::string& what, const std::string& input)
{
  std::fprintf(stderr, "text form finding: %s\n  input (%zu bytes): '%s'\n", printable(what).c_str(), input.size(),
               printable(input).c_str());
  std::abort();
}

void check(bool condition, const std::string& what, const std::string& input)
{
  if (!condition) {
    fail(what, input);
  }
}

// The four captures of the pattern; an unset optional is a group that took
// no part in the match.
struct Captures {
  std::string filename;
  std::optional<std::string> address;
  std::optional<std::string> port;
  std::optional<std::string> timeout;

  bool operator==(const Captures& other) const
  {
    return filename == other.filename && address == other.address && port == other.port && timeout == other.timeout;
  }
};

std::optional<Captures> matchWithRegex(const std::string& s)
{
  static const std::regex pattern(PATTERN, std::regex::ECMAScript);
  std::smatch matches;
  if (!std::regex_match(s, matches, pattern)) {
    return std::nullopt;
  }
  Captures captures;
  captures.filename = matches[1].str();
  for (auto [slot, field] : {std::pair{2, &captures.address}, {3, &captures.port}, {4, &captures.timeout}}) {
    if (matches[slot].matched) {
      *field = matches[slot].str();
    }
  }
  return captures;
}

// The value of a run of decimal digits when it fits a signed 32-bit integer.
std::optional<std::int64_t> int32Value(const std::string& digits)
{
  std::int64_t value = 0;
  for (char c : digits) {
    value = value * 10 + (c - '0');
    if (value > 2147483647) {
      return std::nullopt;
    }
  }
  return value;
}

// What parsing a text must give: the fields, or the error.
struct Expected {
  enum class Kind { Parsed, RuntimeError, OutOfRange } kind = Kind::Parsed;
  std::string message;
  std::string filename;
  std::string address;
  std::uint16_t port = 0;
  std::int64_t timeout = 0;
};

Expected predict(const std::string& s, const std::optional<Captures>& captures)
{
  Expected expected;
  const auto reject = [&expected](std::string message) {
    expected.kind = Expected::Kind::RuntimeError;
    expected.message = std::move(message);
    return expected;
  };
  const auto outOfRange = [&expected] {
    expected.kind = Expected::Kind::OutOfRange;
    return expected;
  };
  if (!captures) {
    return reject("'" + s + "' " + FORMATS + ".");
  }
  expected.filename = captures->filename;
  expected.address = captures->address.value_or("");
  if (captures->port && !captures->port->empty()) {
    const std::optional<std::int64_t> value = int32Value(*captures->port);
    if (!value) {
      return outOfRange();
    }
    expected.port = static_cast<std::uint16_t>(*value & 0xffff);
    if (std::to_string(expected.port) != *captures->port) {
      return reject("Syntax error while parsing port number in: '" + s + "'");
    }
  }
  if (expected.address.empty()) {
    if (expected.port != 0) {
      return reject("Invalid address: '" + s + "' " + FORMATS + ".");
    }
  } else if (expected.port == 0) {
    return reject("Invalid port: '" + s + "' " + FORMATS + ".");
  }
  if (captures->timeout && !captures->timeout->empty()) {
    const std::optional<std::int64_t> value = int32Value(*captures->timeout);
    if (!value) {
      return outOfRange();
    }
    expected.timeout = *value;
  }
  return expected;
}

// Assertion reports are counted, not printed: an empty text reaches the
// parser's check that the text is not empty, and nothing else may.
int assertionsSeen = 0;
std::string lastAssertion;

void installAssertRecorder()
{
  static const bool installed = [] {
    Orvan::CoreAssert::setAssertHandler([](const std::string& message, const char*, unsigned long long) {
      ++assertionsSeen;
      lastAssertion = message;
    });
    return true;
  }();
  (void)installed;
}

struct Outcome {
  Expected::Kind kind = Expected::Kind::Parsed;
  std::string message;
  std::optional<FileInfo> parsed;
  int assertions = 0;
};

template<class Source>
Outcome parse(const Source& source)
{
  Outcome outcome;
  const int before = assertionsSeen;
  try {
    outcome.parsed.emplace(source);
  } catch (const std::out_of_range& error) {
    outcome.kind = Expected::Kind::OutOfRange;
    outcome.message = error.what();
  } catch (const std::runtime_error& error) {
    outcome.kind = Expected::Kind::RuntimeError;
    outcome.message = error.what();
  }
  outcome.assertions = assertionsSeen - before;
  return outcome;
}

std::string describe(Expected::Kind kind)
{
  switch (kind) {
  case Expected::Kind::Parsed:
    return "parsed";
  case Expected::Kind::RuntimeError:
    return "runtime_error";
  case Expected::Kind::OutOfRange:
    return "out_of_range";
  }
  return "?";
}

void checkAssertions(const Outcome& outcome, const std::string& text, const std::string& input)
{
  if (text.empty()) {
    check(outcome.assertions == 1 && lastAssertion == "CORE_ASSERT failed: '!s.empty()'",
          "an empty text must report exactly its emptiness check, got " + std::to_string(outcome.assertions) +
              " reports, last '" + lastAssertion + "'",
          input);
  } else {
    check(outcome.assertions == 0, "assertion report while parsing a non-empty text: " + lastAssertion, input);
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
  if (size > MAX_INPUT) {
    return -1;
  }
  installAssertRecorder();
  const std::string input(reinterpret_cast<const char*>(data), size);

  // The pattern matched by std::regex is the reference the hand-written
  // parser must agree with.
  const std::optional<Captures> captures = matchWithRegex(input);

  // The parser does what the captures predict.
  Expected expected = predict(input, captures);
  const Outcome outcome = parse(input);
  checkAssertions(outcome, input, input);
  check(outcome.kind == expected.kind,
        "expected " + describe(expected.kind) + " '" + expected.message + "', got " + describe(outcome.kind) + " '" +
            outcome.message + "'",
        input);
  if (expected.kind == Expected::Kind::RuntimeError) {
    // what() is a C string: a text holding a NUL is quoted up to it.
    expected.message.resize(std::min(expected.message.size(), expected.message.find('\0')));
    check(outcome.message == expected.message,
          "error text '" + outcome.message + "', expected '" + expected.message + "'", input);
  }

  // A path holding the same text is parsed exactly as the text.
  const Outcome fromPath = parse(Orvan::Utils::FileHelper::toPath(input));
  checkAssertions(fromPath, input, input);
  check(fromPath.kind == outcome.kind && fromPath.message == outcome.message,
        "the path constructor gives " + describe(fromPath.kind) + " '" + fromPath.message + "'", input);

  if (!outcome.parsed) {
    return 0;
  }
  const FileInfo& finfo = *outcome.parsed;
  check(Orvan::Utils::FileHelper::toString(finfo.filename) == expected.filename,
        "filename '" + Orvan::Utils::FileHelper::toString(finfo.filename) + "', expected '" + expected.filename + "'",
        input);
  check(finfo.address == expected.address, "address '" + finfo.address + "', expected '" + expected.address + "'",
        input);
  check(finfo.port == expected.port,
        "port " + std::to_string(finfo.port) + ", expected " + std::to_string(expected.port), input);
  check(finfo.timeout.count() == expected.timeout,
        "timeout " + std::to_string(finfo.timeout.count()) + ", expected " + std::to_string(expected.timeout), input);
  check(finfo.retry == nullptr, "retry is set", input);
  check(finfo.isRemote() == !finfo.address.empty(), "isRemote disagrees with the address", input);
  check(fromPath.parsed && fromPath.parsed->filename == finfo.filename && fromPath.parsed->address == finfo.address &&
            fromPath.parsed->port == finfo.port && fromPath.parsed->timeout == finfo.timeout,
        "the path constructor gives other fields", input);

  // Its text form parses back to the same fields; a local descriptor's
  // timeout is not written, so it comes back as 0.
  const std::string written = toString(finfo);
  const Outcome again = parse(written);
  checkAssertions(again, written, input);
  check(again.parsed.has_value(), "text form '" + written + "' is rejected: " + again.message, input);
  const FileInfo& back = *again.parsed;
  check(back.filename == finfo.filename, "text form '" + written + "' gives another filename", input);
  check(back.address == finfo.address, "text form '" + written + "' gives address '" + back.address + "'", input);
  check(back.port == finfo.port, "text form '" + written + "' gives port " + std::to_string(back.port), input);
  const std::int64_t keptTimeout = finfo.isRemote() ? finfo.timeout.count() : 0;
  check(back.timeout.count() == keptTimeout,
        "text form '" + written + "' gives timeout " + std::to_string(back.timeout.count()), input);
  check(toString(back) == written, "the text form of the text form differs: '" + toString(back) + "'", input);
  return 0;
}
