// The command line that System::run splits back into the words it was made
// of, run for real.
#include "LogLines.h"

#include <Core/Process/Execute.h>
#include <Core/Process/System.h>
#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace System = Orvan::Core::System;
using Orvan::Testing::readFile;
using Orvan::Testing::TemporaryDirectory;

namespace {

// A program that writes its one argument, as it received it, into out.txt.
std::vector<std::string> printingItsArgument(const std::string& argument)
{
  return {"sh", "-c", "printf '%s' \"$1\" > out.txt", "sh", argument};
}

} // namespace

class SystemCommandLine : public Orvan::Testing::LoggingToLines {};

TEST_F(SystemCommandLine, HandsTheProgramExactlyItsWords)
{
  for (const std::string argument : {"a\\b", "it's \"quoted\"", "$HOME `id` *", "", " \t\n", "\\"}) {
    const TemporaryDirectory directory;
    EXPECT_EQ(System::run(System::commandLine(printingItsArgument(argument)), directory.path().string(), nullptr),
              0ULL);
    EXPECT_EQ(readFile(directory / "out.txt"), argument);
  }
}

TEST_F(SystemCommandLine, TheWindowsQuotingIsNotTheOneRunSplitsHere)
{
  // The C runtime's quoting leaves a backslash bare, which the shell's rules
  // take as quoting the next character.
  const TemporaryDirectory directory;
  const std::string line = Orvan::Core::Process::quoteWindowsCommandLine(printingItsArgument("a\\b"));
  EXPECT_EQ(System::run(line, directory.path().string(), nullptr), 0ULL);
  EXPECT_EQ(readFile(directory / "out.txt"), "ab");
}
