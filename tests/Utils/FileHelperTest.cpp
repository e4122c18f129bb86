#include <Utils/FileHelper.h>

#include <gtest/gtest.h>

#include <cerrno>

namespace FileHelper = Orvan::Utils::FileHelper;

TEST(FileHelper, PlainTextRoundTrips)
{
  EXPECT_EQ(FileHelper::toString(FileHelper::toPath("dir/data.bin")), "dir/data.bin");
}

TEST(FileHelper, Utf8TextRoundTrips)
{
  const std::string text = "r\xC3\xA9sum\xC3\xA9/\xE6\x97\xA5\xE6\x9C\xAC.txt";
  const auto path = FileHelper::toPath(text);
  EXPECT_EQ(FileHelper::toString(path), text);
  EXPECT_EQ(FileHelper::toString(path.filename()), "\xE6\x97\xA5\xE6\x9C\xAC.txt");
}

TEST(FileHelper, MakeSystemErrorCarriesErrnoAndMessage)
{
  errno = ENOENT;
  const std::system_error error = FileHelper::makeSystemError("Failed to open file 'x': ");
  EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
  EXPECT_EQ(std::string(error.what()).rfind("Failed to open file 'x': ", 0), 0u) << error.what();
}
