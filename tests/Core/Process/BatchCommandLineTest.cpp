#include <Platform/BatchCommandLine.h>

#include <gtest/gtest.h>

#include <optional>
#include <string>

using Orvan::Core::Platform::appendBatchArgument;
using Orvan::Core::Platform::batchCommandArguments;
using Orvan::Core::Platform::isBatchFile;

namespace {

// The argument as appended to an empty line, or "<refused>".
std::string quoted(const std::string& argument)
{
  std::string line;
  return appendBatchArgument(line, argument) ? line : "<refused>";
}

} // namespace

TEST(BatchCommandLine, BatchFilesAreKnownByTheirExtensionInAnyCase)
{
  EXPECT_TRUE(isBatchFile("run.bat"));
  EXPECT_TRUE(isBatchFile("C:\\tools\\RUN.CMD"));
  EXPECT_TRUE(isBatchFile("run.Bat"));
  EXPECT_FALSE(isBatchFile("run.exe"));
  EXPECT_FALSE(isBatchFile("run.batch"));
  EXPECT_FALSE(isBatchFile("bat"));
  EXPECT_FALSE(isBatchFile(""));
  EXPECT_FALSE(isBatchFile(". ."));
}

TEST(BatchCommandLine, TrailingDotsAndSpacesDoNotHideABatchFile)
{
  EXPECT_TRUE(isBatchFile("run.bat."));
  EXPECT_TRUE(isBatchFile("run.cmd . ."));
}

TEST(BatchCommandLine, PlainWordsStayUnquoted)
{
  EXPECT_EQ(quoted("plain"), "plain");
  EXPECT_EQ(quoted("C:\\no\\quotes"), "C:\\no\\quotes");
  EXPECT_EQ(quoted("-x=1"), "\"-x=1\"");
  EXPECT_EQ(quoted("a+b/c:d?e@f#g$h*i_j.k"), "a+b/c:d?e@f#g$h*i_j.k");
}

TEST(BatchCommandLine, OperatorsAreQuoted)
{
  EXPECT_EQ(quoted("a&echo.X"), "\"a&echo.X\"");
  EXPECT_EQ(quoted("|"), "\"|\"");
  EXPECT_EQ(quoted("<"), "\"<\"");
  EXPECT_EQ(quoted(">"), "\">\"");
  EXPECT_EQ(quoted("^"), "\"^\"");
  EXPECT_EQ(quoted("two words"), "\"two words\"");
  EXPECT_EQ(quoted("\xC3\xA9t\xC3\xA9"), "\"\xC3\xA9t\xC3\xA9\"");
}

TEST(BatchCommandLine, QuotesAreDoubledSoThatCmdNeverLeavesTheQuotedPart)
{
  EXPECT_EQ(quoted("x\" & echo X & \""), "\"x\"\" & echo X & \"\"\"");
  EXPECT_EQ(quoted("back\\\"quote"), "\"back\\\\\"\"quote\"");
}

TEST(BatchCommandLine, BackslashesAreDoubledOnlyBeforeAQuote)
{
  EXPECT_EQ(quoted("a\\b\\\\c"), "a\\b\\\\c");
  EXPECT_EQ(quoted("dir\\"), "\"dir\\\\\"");
  EXPECT_EQ(quoted("two words\\\\"), "\"two words\\\\\\\\\"");
}

TEST(BatchCommandLine, AnEmptyWordIsKept)
{
  EXPECT_EQ(quoted(""), "\"\"");
}

TEST(BatchCommandLine, PercentSignsAreRefused)
{
  EXPECT_EQ(quoted("%OS%"), "<refused>");
  EXPECT_EQ(quoted("100%"), "<refused>");
  EXPECT_EQ(quoted("%1"), "<refused>");
}

TEST(BatchCommandLine, LineBreaksAndNulAreRefused)
{
  EXPECT_EQ(quoted("a\nb"), "<refused>");
  EXPECT_EQ(quoted("a\rb"), "<refused>");
  EXPECT_EQ(quoted(std::string("a\0b", 3)), "<refused>");
  std::string line = "kept";
  EXPECT_FALSE(appendBatchArgument(line, "\n"));
  EXPECT_EQ(line, "kept");
}

TEST(BatchCommandLine, TheWholeCommandIsQuotedOnceMoreForCmd)
{
  EXPECT_EQ(batchCommandArguments({"run.bat", "a&b", "plain", ""}),
            std::optional<std::string>("/e:ON /v:OFF /d /c \"\"run.bat\" \"a&b\" plain \"\"\""));
  EXPECT_EQ(batchCommandArguments({"C:\\tools\\run.bat", "C:\\dir\\"}),
            std::optional<std::string>("/e:ON /v:OFF /d /c \"\"C:\\tools\\run.bat\" \"C:\\dir\\\\\"\""));
}

TEST(BatchCommandLine, WhatCannotPassIsRefused)
{
  EXPECT_EQ(batchCommandArguments({}), std::nullopt);
  EXPECT_EQ(batchCommandArguments({"run.bat", "line\nbreak"}), std::nullopt);
  EXPECT_EQ(batchCommandArguments({"run.bat", "ok", "%OS%"}), std::nullopt);
  EXPECT_EQ(batchCommandArguments({"C:\\100%\\run.bat"}), std::nullopt);
  EXPECT_EQ(batchCommandArguments({"dir\\"}), std::nullopt);
  EXPECT_EQ(batchCommandArguments({"ru\"n.bat"}), std::nullopt);
  EXPECT_EQ(batchCommandArguments({""}), std::nullopt);
}
