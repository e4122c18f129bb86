#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace Orvan::Tool {

// A command line the user got wrong: the command prints the message and a
// hint, and the program exits with code 2.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The words after the subcommand, read one at a time. Options take their
// value either as the next word (--port 4000) or after '=' (--port=4000).
// Short options combine as in getopt: "-qf" is "-q -f", and a short option
// that takes a value takes the rest of its word ("-ocopy.bin").
class Arguments {
public:
  // `valueLetters`: the short options that take a value.
  explicit Arguments(std::vector<std::string> words, std::string valueLetters = "op");

  bool empty() const { return position == words.size(); }

  // The next word; `option` and `inlineValue` are filled when it is an
  // option ("--port=4000" gives "--port" and "4000"). "--" and "-" are not
  // options.
  struct Word {
    std::string text;
    bool isOption = false;
    std::optional<std::string> inlineValue;
  };
  Word next();

  // The value of the option just read: its inline value, else the next word.
  std::string value(const Word& option);

  // Every word left, taken as they are.
  std::vector<std::string> rest();

private:
  std::vector<std::string> words;
  std::string valueLetters;
  std::size_t position = 0;
};

// Parses an unsigned decimal number of at most `maximum` for `option`.
std::uint64_t parseNumber(const std::string& option, const std::string& text, std::uint64_t maximum);

// The error for an option the command does not know.
UsageError unknownOption(const Arguments::Word& word);

} // namespace Orvan::Tool
