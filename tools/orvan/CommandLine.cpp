#include "CommandLine.h"

#include "Console.h"
#include "ToolLogging.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <utility>

namespace Orvan::Tool {

namespace {

// Prints a command's help as it is written.
class HelpText : public CLI::FormatterBase {
public:
  explicit HelpText(std::string text)
      : text(std::move(text))
  {
  }

  std::string make_help(const CLI::App*, std::string, CLI::AppFormatMode) const override { return text; }

private:
  std::string text;
};

std::string withLogOptions(std::string help)
{
  const std::string mark = "{log-options}";
  const auto position = help.find(mark);
  if (position != std::string::npos) {
    help.replace(position, mark.size(), LOG_OPTIONS_HELP);
  }
  return help;
}

// The name of the option whose value is missing: CLI11 only runs out of
// words at the end of the line, so it is the last word, or the last letter
// of a group of short options ("-qfo").
std::string optionWithoutValue(const std::string& lastWord)
{
  if (lastWord.rfind("--", 0) == 0) {
    return lastWord.substr(0, lastWord.find('='));
  }
  return std::string("-") + lastWord.back();
}

// Parses an unsigned decimal number of at most `maximum` for `option`.
std::uint64_t parseNumber(const std::string& option, const std::string& text, std::uint64_t maximum)
{
  const auto bad = [&] {
    return UsageError("option '" + option + "' takes a whole number from 0 to " + std::to_string(maximum) + ", not '" +
                      text + "'");
  };
  if (text.empty() || text.size() > 19) {
    throw bad();
  }
  std::uint64_t value = 0;
  for (const char character : text) {
    if (character < '0' || character > '9') {
      throw bad();
    }
    value = value * 10 + static_cast<std::uint64_t>(character - '0');
  }
  if (value > maximum) {
    throw bad();
  }
  return value;
}

// Parses a duration for `option` as GNU timeout reads one: digits with an
// optional decimal point, then an optional unit. Computed in whole numbers
// and rounded up to the next millisecond, so that 0.1 is exactly 100 ms and
// a positive duration never comes out as 0.
std::chrono::milliseconds parseDuration(const std::string& option, const std::string& text,
                                        std::chrono::milliseconds maximum, bool subSecond)
{
  const auto bad = [&] {
    return UsageError("option '" + option + "' takes a duration such as " +
                      (subSecond ? "30, 1.5s, 250ms, 2m, 1h or 1d" : "30, 90s, 1.5m, 2h or 1d") + ", not '" + text +
                      "'");
  };
  const auto tooLarge = [&] {
    return UsageError("option '" + option + "' takes a duration of at most " + formatDuration(maximum) + ", not '" +
                      text + "'");
  };
  std::size_t end = 0;
  bool digits = false;
  bool point = false;
  std::uint64_t whole = 0;
  // The first nine decimals, as a number of 10^-9; `rest` tells whether a
  // further decimal is not 0.
  std::uint64_t fraction = 0;
  std::uint64_t fractionScale = 1;
  bool rest = false;
  for (; end < text.size(); ++end) {
    const char character = text[end];
    if (character >= '0' && character <= '9') {
      const auto digit = static_cast<std::uint64_t>(character - '0');
      digits = true;
      if (!point) {
        if (whole > 1000000000000000ull) {
          throw tooLarge();
        }
        whole = whole * 10 + digit;
      } else if (fractionScale < 1000000000ull) {
        fraction = fraction * 10 + digit;
        fractionScale *= 10;
      } else {
        rest = rest || digit != 0;
      }
    } else if (character == '.' && !point) {
      point = true;
    } else {
      break;
    }
  }
  const std::string unit = text.substr(end);
  std::uint64_t unitMs = 0;
  if (unit.empty() || unit == "s") {
    unitMs = 1000;
  } else if (unit == "ms" && subSecond) {
    unitMs = 1;
  } else if (unit == "m") {
    unitMs = 60000;
  } else if (unit == "h") {
    unitMs = 3600000;
  } else if (unit == "d") {
    unitMs = 86400000;
  }
  if (!digits || unitMs == 0) {
    throw bad();
  }
  const auto limit = static_cast<std::uint64_t>(maximum.count());
  if (whole > limit / unitMs) {
    throw tooLarge();
  }
  // fraction * unitMs stays below 10^9 * 86,400,000, well within 64 bits.
  const std::uint64_t scaled = fraction * unitMs;
  const std::uint64_t fractionMs = scaled / fractionScale + (scaled % fractionScale != 0 || rest ? 1 : 0);
  const std::uint64_t milliseconds = whole * unitMs + fractionMs;
  if (milliseconds > limit) {
    throw tooLarge();
  }
  if (!subSecond && milliseconds % 1000 != 0) {
    throw UsageError("option '" + option + "' takes whole seconds, not '" + text + "'");
  }
  return std::chrono::milliseconds(static_cast<std::int64_t>(milliseconds));
}

} // namespace

// CLI11's application, with the words it left over as it classified them:
// an option it does not know, the "--" that ended the options, or an operand.
class CommandLine::App : public CLI::App {
public:
  using Kind = CLI::detail::Classifier;

  const std::vector<std::pair<Kind, std::string>>& leftOver() const { return missing_; }
};

CommandLine::CommandLine(const std::string& help)
    : app(std::make_unique<App>())
{
  app->formatter(std::make_shared<HelpText>(withLogOptions(help)));
  // What is left over is this class's to judge, with the tool's own words.
  app->allow_extras();
  // "/c" is a word on Windows too, not an option.
  app->allow_windows_style_options(false);
}

CommandLine::~CommandLine() = default;

void CommandLine::option(const std::string& names, std::function<void(const std::string&)> store)
{
  app->add_option(names,
                  [store = std::move(store)](const CLI::results_t& values) {
                    store(values.back());
                    return true;
                  })
      ->trigger_on_parse();
}

void CommandLine::number(const std::string& names, std::uint64_t maximum, std::function<void(std::uint64_t)> store)
{
  option(names, [name = names.substr(0, names.find(',')), maximum, store = std::move(store)](const std::string& text) {
    store(parseNumber(name, text, maximum));
  });
}

void CommandLine::duration(const std::string& names, std::chrono::milliseconds maximum, bool subSecond,
                           std::function<void(std::chrono::milliseconds)> store)
{
  option(names, [name = names.substr(0, names.find(',')), maximum, subSecond, store = std::move(store)](
                    const std::string& text) { store(parseDuration(name, text, maximum, subSecond)); });
}

void CommandLine::flag(const std::string& names, std::function<void()> given)
{
  app->add_flag_callback(names, std::move(given))->trigger_on_parse();
}

void CommandLine::operand(const std::string& name, std::function<void(const std::string&)> store)
{
  operandName = name;
  app->add_option(name, [this, store = std::move(store)](const CLI::results_t& values) {
    operandGiven = true;
    store(values.back());
    return true;
  });
}

void CommandLine::passOn(std::vector<std::string>& words)
{
  passedOn = &words;
  // CLI11 then stops reading options at the first word that is none.
  app->prefix_command();
}

bool CommandLine::parse(const std::vector<std::string>& words)
{
  try {
    // CLI11 takes the words last first.
    app->parse(std::vector<std::string>(words.rbegin(), words.rend()));
  } catch (const CLI::CallForHelp&) {
    std::fputs(app->help().c_str(), stdout);
    std::fflush(stdout);
    return false;
  } catch (const CLI::ArgumentMismatch&) {
    throw UsageError("option '" + optionWithoutValue(words.back()) + "' needs a value");
  } catch (const CLI::ParseError& error) {
    throw UsageError(error.what());
  }
  bool passing = false;
  for (const auto& [kind, word] : app->leftOver()) {
    if (passing) {
      passedOn->push_back(word);
    } else if (kind == App::Kind::POSITIONAL_MARK) {
      continue;
    } else if (kind == App::Kind::LONG || kind == App::Kind::SHORT) {
      throw UsageError("unknown option '" + word + "'");
    } else if (passedOn != nullptr) {
      passing = true;
      passedOn->push_back(word);
    } else if (!operandName.empty()) {
      throw UsageError("one " + operandName + " only; '" + word + "' is one too many");
    } else {
      throw UsageError("unexpected argument '" + word + "'");
    }
  }
  if (!operandName.empty() && !operandGiven) {
    throw UsageError("missing " + operandName);
  }
  return true;
}

} // namespace Orvan::Tool
