#include "CommandLine.h"

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
