#pragma once

#include <string>
#include <vector>

// Command lines as text: how a line is split into words and how words are
// joined into a line that splits back into exactly them. Pure text, the same
// on every platform.
namespace Orvan::Core::Platform {

// Splits a command line into words by the POSIX shell's quoting rules,
// without any expansion, redirection or other shell feature: blanks (space,
// tab, newline) separate words; a backslash quotes the next character (a
// backslash-newline pair vanishes, a final backslash stands for itself);
// single quotes keep everything up to the next single quote; double quotes
// keep everything up to the next unescaped double quote, where a backslash
// only quotes $ ` " \ and newline. Returns false on an unbalanced quote or a
// NUL character (which no argument can hold).
bool splitPosixCommandLine(const std::string& line, std::vector<std::string>& words);

// Joins words into a line that splitPosixCommandLine (and a POSIX shell)
// splits back into exactly them: a word of plain characters as it is, any
// other in single quotes. Words must not hold a NUL character.
std::string quotePosixCommandLine(const std::vector<std::string>& words);

// Joins words into a line that the C runtime of a Windows program splits back
// into exactly them: each word quoted when it is empty or holds blanks or
// quotes, with backslashes doubled before quotes.
std::string quoteWindowsCommandLine(const std::vector<std::string>& words);

} // namespace Orvan::Core::Platform
