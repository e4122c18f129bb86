#include "Arguments.h"

#include <utility>

namespace Orvan::Tool {

Arguments::Arguments(std::vector<std::string> words, std::string valueLetters)
    : words(std::move(words))
    , valueLetters(std::move(valueLetters))
{
}

Arguments::Word Arguments::next()
{
  Word word;
  word.text = words.at(position++);
  if (word.text.size() > 2 && word.text[0] == '-' && word.text[1] != '-') {
    // "-qf" or "-ocopy.bin": the first letter, then the rest of the word as
    // its value or as the next options.
    word.isOption = true;
    const std::string rest = word.text.substr(2);
    word.text.resize(2);
    if (valueLetters.find(word.text[1]) != std::string::npos) {
      word.inlineValue = rest;
    } else {
      words.insert(words.begin() + static_cast<std::ptrdiff_t>(position), "-" + rest);
    }
    return word;
  }
  if (word.text.size() > 1 && word.text[0] == '-' && word.text != "--") {
    word.isOption = true;
    const auto equals = word.text.find('=');
    if (word.text.rfind("--", 0) == 0 && equals != std::string::npos) {
      word.inlineValue = word.text.substr(equals + 1);
      word.text.resize(equals);
    }
  }
  return word;
}

std::string Arguments::value(const Word& option)
{
  if (option.inlineValue) {
    return *option.inlineValue;
  }
  if (empty()) {
    throw UsageError("option '" + option.text + "' needs a value");
  }
  return words[position++];
}

std::vector<std::string> Arguments::rest()
{
  std::vector<std::string> left(words.begin() + static_cast<std::ptrdiff_t>(position), words.end());
  position = words.size();
  return left;
}

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

UsageError unknownOption(const Arguments::Word& word)
{
  return UsageError("unknown option '" + word.text + "'");
}

} // namespace Orvan::Tool
