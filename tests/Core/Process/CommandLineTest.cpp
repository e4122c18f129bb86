// Command lines as text: the POSIX splitter and the two quotings.
#include <Core/Process/Execute.h>

#include "Platform/CommandLine.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

using Orvan::Core::Platform::quotePosixCommandLine;
using Orvan::Core::Platform::splitPosixCommandLine;
using Words = std::vector<std::string>;

namespace {

Words split(const std::string& line)
{
  Words words;
  EXPECT_TRUE(splitPosixCommandLine(line, words)) << line;
  return words;
}

// Random words over the characters that matter to the splitter, blanks and
// empty words included.
Words randomWords(std::mt19937& generator)
{
  static const std::string alphabet = "ab9 \t\n'\"\\$`*;|&<>#~%=@-_./()!?{}[]\x01\x7f\xc3\xa9";
  std::uniform_int_distribution<int> count(0, 5);
  std::uniform_int_distribution<int> length(0, 8);
  std::uniform_int_distribution<std::size_t> pick(0, alphabet.size() - 1);
  Words words(static_cast<std::size_t>(count(generator)));
  for (std::string& word : words) {
    for (int i = length(generator); i > 0; --i) {
      word += alphabet[pick(generator)];
    }
  }
  return words;
}

} // namespace

TEST(PosixCommandLine, PlainWordsStayAsTheyAreAndOthersAreSingleQuoted)
{
  EXPECT_EQ(quotePosixCommandLine({"tar", "xf", "data-1.2/a_b.tar", "--x=y:z,w+v@u%"}),
            "tar xf data-1.2/a_b.tar --x=y:z,w+v@u%");
  EXPECT_EQ(quotePosixCommandLine({"two words", "", "$HOME", "it's", "a\\b"}),
            R"('two words' '' '$HOME' 'it'\''s' 'a\b')");
}

TEST(PosixCommandLine, QuotedWordsSplitBackIntoTheSameWords)
{
  const Words words = {"sh", "-c", "printf '%s' \"$1\"", "sh", "a\\b", "", " ", "'", "\"'\"", "\\", "x\ny", "*"};
  EXPECT_EQ(split(quotePosixCommandLine(words)), words);
}

TEST(PosixCommandLine, ManyRandomWordListsSplitBackIntoTheSameWords)
{
  std::mt19937 generator(20261125);
  for (int i = 0; i < 20000; ++i) {
    const Words words = randomWords(generator);
    const std::string line = quotePosixCommandLine(words);
    Words back;
    ASSERT_TRUE(splitPosixCommandLine(line, back)) << line;
    ASSERT_EQ(back, words) << line;
  }
}

TEST(PosixCommandLine, UnbalancedQuotesAndNulCharactersAreRefused)
{
  for (const std::string& line : Words{"'open", "\"open", "a 'b\" c", std::string("a\0b", 3)}) {
    Words words;
    EXPECT_FALSE(splitPosixCommandLine(line, words)) << line;
  }
}

TEST(WindowsCommandLine, TheOldNameGivesTheSameLine)
{
  const Words words = {"plain", "two words", "", "a\"b", "dir\\ with\\"};
#if defined(__GNUC__)
#  pragma GCC diagnostic push
#  pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#endif
  const std::string old = Orvan::Core::Process::quoteCommandLine(words);
#if defined(__GNUC__)
#  pragma GCC diagnostic pop
#endif
  EXPECT_EQ(old, Orvan::Core::Process::quoteWindowsCommandLine(words));
  EXPECT_EQ(old, R"(plain "two words" "" "a\"b" "dir\ with\\")");
}
