#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace Orvan::Tool {

// A command line the user got wrong: the command prints the message and a
// hint, and the program exits with code 2.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The options and words of one command, read by CLI11 in the usual
// conventions: "--port 4000" or "--port=4000"; short options combine as in
// getopt ("-qf" is "-q -f", "-ocopy.bin" gives -o its value); "--" ends the
// options. Each option is handled as soon as it is read, in the order given:
// a repeated option's last value wins, and "-q -v" is not "-v -q".
class CommandLine {
public:
  // `help`: what -h and --help print, with the logging options every
  // command shares in place of "{log-options}".
  explicit CommandLine(const std::string& help);
  ~CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  // An option with a value ("-o,--output").
  void option(const std::string& names, std::function<void(const std::string&)> store);

  // An option with a whole number from 0 to `maximum`; anything else gets a
  // sentence that names the option by its first name.
  void number(const std::string& names, std::uint64_t maximum, std::function<void(std::uint64_t)> store);

  // An option with a duration, as GNU timeout reads them: a decimal number
  // with an optional unit, s (the default), m, h or d, and ms when
  // `subSecond` (0.5, 1.5s, 250ms, 2m, 1d). From 0 to `maximum`; without
  // `subSecond` a whole number of seconds. Anything else gets a sentence that
  // names the option by its first name and the forms it takes.
  void duration(const std::string& names, std::chrono::milliseconds maximum, bool subSecond,
                std::function<void(std::chrono::milliseconds)> store);

  // An option without a value; `given` runs each time it is ("-vv": twice).
  void flag(const std::string& names, std::function<void()> given);

  // The command's one required word, called `name` in messages ("missing
  // TARGET", "one TARGET only").
  void operand(const std::string& name, std::function<void(const std::string&)> store);

  // The words from the first that is not an option (or from the one after
  // "--") to the end go to `words` as they stand, options of another
  // program included.
  void passOn(std::vector<std::string>& words);

  // Reads `words`; false when they asked for the help, which it has printed
  // on standard output. Throws UsageError for an unknown option, a missing
  // or bad value, a missing operand or a word too many.
  bool parse(const std::vector<std::string>& words);

private:
  class App;
  std::unique_ptr<App> app;
  std::string operandName;
  bool operandGiven = false;
  std::vector<std::string>* passedOn = nullptr;
};

} // namespace Orvan::Tool
