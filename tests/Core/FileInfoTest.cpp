#include <AssertRecorder.h>
#include <Core/FileInfo.h>
#include <Utils/Enum.h>

#include <gtest/gtest.h>

#include <chrono>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

using Orvan::Core::FileInfo;
using Orvan::Testing::AssertRecorder;
using namespace std::chrono_literals;

namespace {

const std::string FORMATS =
    " does not match the <filename> nor <filename>@<address>:<port>[&timeout=<timeout>] formats.";

// The text of the runtime_error that parsing `text` throws.
std::string rejection(const std::string& text)
{
  try {
    FileInfo finfo(text);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "<accepted>";
}

// A policy that is never asked anything here.
struct NeverAsked : FileInfo::RetryInterface {
  bool operator()(const FileInfo&, const Orvan::Utils::Timer<std::chrono::system_clock>&) override { return false; }
};

} // namespace

TEST(FileInfo, PlainNameIsALocalFile)
{
  const FileInfo finfo(std::string("data.bin"));
  EXPECT_EQ(finfo.filename, std::filesystem::path("data.bin"));
  EXPECT_TRUE(finfo.address.empty());
  EXPECT_EQ(finfo.port, 0);
  EXPECT_EQ(finfo.timeout, 0s);
  EXPECT_EQ(finfo.retry, nullptr);
  EXPECT_FALSE(finfo.isRemote());
  EXPECT_EQ(toString(finfo), "data.bin");
}

TEST(FileInfo, DriveLetterIsPartOfALocalName)
{
  const FileInfo finfo(std::string("C:\\dir\\f.txt"));
  EXPECT_FALSE(finfo.isRemote());
  EXPECT_EQ(toString(finfo), "C:\\dir\\f.txt");
}

TEST(FileInfo, ColonAfterTheDriveIsRejected)
{
  EXPECT_EQ(rejection("C:\\dir\\a:b"), "'C:\\dir\\a:b'" + FORMATS);
}

TEST(FileInfo, RemoteWithoutTimeout)
{
  const FileInfo finfo(std::string("f@host:80"));
  EXPECT_TRUE(finfo.isRemote());
  EXPECT_EQ(finfo.filename, std::filesystem::path("f"));
  EXPECT_EQ(finfo.address, "host");
  EXPECT_EQ(finfo.port, 80);
  EXPECT_EQ(finfo.timeout, 0s);
  EXPECT_EQ(toString(finfo), "f@host:80");
}

TEST(FileInfo, RemoteWithTimeout)
{
  const FileInfo finfo(std::string("f@host:80&timeout=30"));
  EXPECT_EQ(finfo.timeout, 30s);
  EXPECT_EQ(toString(finfo), "f@host:80&timeout=30");
}

TEST(FileInfo, PortWithoutAddressIsRejected)
{
  EXPECT_EQ(rejection("f@:80"), "Invalid address: 'f@:80'" + FORMATS);
}

TEST(FileInfo, AddressWithPortZeroIsRejected)
{
  EXPECT_EQ(rejection("f@host:0"), "Invalid port: 'f@host:0'" + FORMATS);
}

TEST(FileInfo, NoAddressAndPortZeroIsLocal)
{
  const FileInfo finfo(std::string("f@:0"));
  EXPECT_FALSE(finfo.isRemote());
  EXPECT_EQ(finfo.filename, std::filesystem::path("f"));
  EXPECT_EQ(finfo.port, 0);
}

TEST(FileInfo, LocalWithTimeoutIsWrittenAsItsBarePath)
{
  const FileInfo finfo(std::string("f@:0&timeout=5"));
  EXPECT_FALSE(finfo.isRemote());
  EXPECT_EQ(finfo.timeout, 5s);
  EXPECT_EQ(toString(finfo), "f");
}

TEST(FileInfo, PortWithLeadingZeroIsASyntaxError)
{
  EXPECT_EQ(rejection("f@host:080"), "Syntax error while parsing port number in: 'f@host:080'");
  EXPECT_EQ(rejection("f@host:00"), "Syntax error while parsing port number in: 'f@host:00'");
}

TEST(FileInfo, PortAbove65535IsASyntaxError)
{
  EXPECT_EQ(rejection("f@host:65536"), "Syntax error while parsing port number in: 'f@host:65536'");
  EXPECT_EQ(rejection("f@host:65616"), "Syntax error while parsing port number in: 'f@host:65616'");
}

TEST(FileInfo, HighestPortIsAccepted)
{
  EXPECT_EQ(FileInfo(std::string("f@host:65535")).port, 65535);
}

TEST(FileInfo, IncompleteRemoteFormsDoNotMatch)
{
  EXPECT_EQ(rejection("f@host:80&timeout="), "'f@host:80&timeout='" + FORMATS);
  EXPECT_EQ(rejection("f@host"), "'f@host'" + FORMATS);
  EXPECT_EQ(rejection("f@host:"), "'f@host:'" + FORMATS);
  EXPECT_EQ(rejection("f@host:8a"), "'f@host:8a'" + FORMATS);
  EXPECT_EQ(rejection("f@host:80&timeout=-1"), "'f@host:80&timeout=-1'" + FORMATS);
}

TEST(FileInfo, TimeoutInALocalNameIsPartOfTheName)
{
  const FileInfo finfo(std::string("f&timeout=5"));
  EXPECT_FALSE(finfo.isRemote());
  EXPECT_EQ(finfo.filename, std::filesystem::path("f&timeout=5"));
  EXPECT_EQ(finfo.timeout, 0s);
}

TEST(FileInfo, AddressMayHoldAnAtSign)
{
  const FileInfo finfo(std::string("f@user@host:21"));
  EXPECT_EQ(finfo.filename, std::filesystem::path("f"));
  EXPECT_EQ(finfo.address, "user@host");
}

TEST(FileInfo, PathIsParsedLikeItsText)
{
  const FileInfo local(std::filesystem::path("dir") / "data.bin");
  EXPECT_FALSE(local.isRemote());
  EXPECT_EQ(local.filename, std::filesystem::path("dir") / "data.bin");

  const FileInfo remote(std::filesystem::path("f@host:80"));
  EXPECT_TRUE(remote.isRemote());
  EXPECT_EQ(remote.port, 80);
}

TEST(FileInfo, PathWithAnAtSignThrowsLikeTheText)
{
  const std::filesystem::path path("dir/f@host");
  std::string fromPath;
  try {
    FileInfo finfo(path);
  } catch (const std::runtime_error& error) {
    fromPath = error.what();
  }
  EXPECT_EQ(fromPath, rejection(Orvan::Utils::FileHelper::toString(path)));
  EXPECT_EQ(fromPath, "'dir/f@host'" + FORMATS);
}

TEST(FileInfo, CharacterTextIsParsedLikeAString)
{
  const FileInfo finfo("f@host:80&timeout=3");
  EXPECT_EQ(finfo.address, "host");
  EXPECT_EQ(finfo.timeout, 3s);
}

TEST(FileInfo, SamePathOnTwoServersIsEquivalent)
{
  const FileInfo a(std::string("f@a:1"));
  const FileInfo b(std::string("f@b:2"));
  EXPECT_FALSE(a < b);
  EXPECT_FALSE(b < a);
  const std::set<FileInfo> set{a, b};
  EXPECT_EQ(set.size(), 1u);
}

TEST(FileInfo, OrderFollowsThePathElements)
{
  // Element by element, "a" comes before "a-b", whereas as plain text
  // "a-b" comes before "a/b".
  const FileInfo nested(std::string("a/b"));
  const FileInfo flat(std::string("a-b"));
  EXPECT_TRUE(nested < flat);
  EXPECT_FALSE(flat < nested);
  EXPECT_TRUE(FileInfo(std::string("a/b")) < FileInfo(std::string("a/c")));
}

TEST(FileInfo, WritingThenParsingGivesTheFieldsBack)
{
  for (const char* text : {"data.bin@server:4000&timeout=30", "dir/x.y@10.0.0.1:1", "f@h:65535&timeout=2147483647"}) {
    const FileInfo original(std::string{text});
    const FileInfo parsed(toString(original));
    EXPECT_EQ(parsed.filename, original.filename) << text;
    EXPECT_EQ(parsed.address, original.address) << text;
    EXPECT_EQ(parsed.port, original.port) << text;
    EXPECT_EQ(parsed.timeout, original.timeout) << text;
  }
  const FileInfo fields(std::filesystem::path("f"), "host", 8080, FileInfo::Seconds(12));
  const FileInfo parsed(toString(fields));
  EXPECT_EQ(parsed.address, "host");
  EXPECT_EQ(parsed.port, 8080);
  EXPECT_EQ(parsed.timeout, 12s);
}

TEST(FileInfo, NumbersAreWrittenInDecimalWhateverTheStreamFlags)
{
  std::ostringstream stream;
  stream << std::hex << std::showbase << FileInfo(std::string("f@host:255&timeout=16"));
  EXPECT_EQ(stream.str(), "f@host:255&timeout=16");
}

TEST(FileInfo, ToStringGivesTheTextFormThatTheStreamOperatorWrites)
{
  for (const std::string text : {"plain.txt", "f@host:255", "f@host:255&timeout=16", "dir/f@10.0.0.1:1"}) {
    const FileInfo finfo(text);
    std::ostringstream stream;
    stream << finfo;
    EXPECT_EQ(toString(finfo), text);
    EXPECT_EQ(stream.str(), text);
  }
}

TEST(FileInfo, FieldsConstructorBuildsARemoteDescriptor)
{
  AssertRecorder recorder;
  const FileInfo finfo(std::filesystem::path("f"), "host", 80, FileInfo::Seconds(5));
  EXPECT_TRUE(recorder.reports().empty());
  EXPECT_TRUE(finfo.isRemote());
  EXPECT_EQ(finfo.retry, nullptr);
  EXPECT_EQ(toString(finfo), "f@host:80&timeout=5");
}

TEST(FileInfo, FieldsConstructorReportsEveryBadFieldAndKeepsIt)
{
  AssertRecorder recorder;
  const FileInfo finfo(std::filesystem::path(), "", FileInfo::INVALID_PORT, FileInfo::Seconds(-1));
  EXPECT_EQ(recorder.messages(), (std::vector<std::string>{"CORE_ASSERT failed: '!filename.empty()'",
                                                           "CORE_ASSERT failed: '!address.empty()'",
                                                           "CORE_ASSERT failed: 'p != FileInfo::INVALID_PORT'",
                                                           "CORE_ASSERT failed: 'd.count() >= 0'"}));
  for (const auto& report : recorder.reports()) {
    EXPECT_EQ(report.file, "src/Core/src/Core/FileInfo.cpp");
  }
  EXPECT_EQ(finfo.timeout, FileInfo::Seconds(-1));
  EXPECT_EQ(finfo.port, FileInfo::INVALID_PORT);
}

TEST(FileInfo, NullAddressIsReportedAsEmpty)
{
  AssertRecorder recorder;
  const FileInfo finfo(std::filesystem::path("f"), nullptr, 80, FileInfo::Seconds(0));
  EXPECT_EQ(recorder.messages(), std::vector<std::string>{"CORE_ASSERT failed: '!address.empty()'"});
  EXPECT_FALSE(finfo.isRemote());
}

TEST(FileInfo, CopiesShareTheRetryPolicy)
{
  NeverAsked policy;
  FileInfo original(std::string("f@host:80&timeout=3"));
  original.retry = &policy;
  const FileInfo copy(original);
  EXPECT_EQ(copy.retry, &policy);
  EXPECT_EQ(toString(copy), toString(original));

  FileInfo assigned(std::string("other"));
  assigned = original;
  EXPECT_EQ(assigned.retry, &policy);
  EXPECT_EQ(assigned.address, "host");
}

TEST(FileInfo, MovingEmptiesOnlyTheNames)
{
  NeverAsked policy;
  FileInfo source(std::string("f@host:80&timeout=3"));
  source.retry = &policy;
  const FileInfo moved(std::move(source));
  EXPECT_EQ(toString(moved), "f@host:80&timeout=3");
  EXPECT_EQ(moved.retry, &policy);
  EXPECT_TRUE(source.filename.empty());
  EXPECT_TRUE(source.address.empty());
  EXPECT_EQ(source.port, 80);
  EXPECT_EQ(source.timeout, 3s);
  EXPECT_EQ(source.retry, &policy);

  FileInfo target(std::string("g"));
  FileInfo second(std::string("h@other:81"));
  target = std::move(second);
  EXPECT_EQ(toString(target), "h@other:81");
  EXPECT_TRUE(second.filename.empty());
  EXPECT_TRUE(second.address.empty());
  EXPECT_EQ(second.port, 81);
}

TEST(FileInfo, IsRemoteDependsOnTheAddressOnly)
{
  FileInfo finfo(std::string("f"));
  finfo.port = 80;
  finfo.timeout = 5s;
  EXPECT_FALSE(finfo.isRemote());
  finfo.address = "host";
  finfo.port = 0;
  EXPECT_TRUE(finfo.isRemote());
}

TEST(FileInfo, MatchHasFiveSlotsAndThePortConstantIsZero)
{
  EXPECT_EQ(Orvan::Utils::Enum::count<FileInfo::Match>(), 5u);
  static_assert(std::is_same_v<std::remove_const_t<decltype(FileInfo::INVALID_PORT)>, std::uint16_t>);
  EXPECT_EQ(FileInfo::INVALID_PORT, 0);
}

// Bad input: every text gets a clear error or a correct descriptor.

TEST(FileInfoBadInput, EmptyTextIsReportedAndGivesAnEmptyLocalDescriptor)
{
  AssertRecorder recorder;
  const FileInfo finfo(std::string{});
  EXPECT_EQ(recorder.messages(), std::vector<std::string>{"CORE_ASSERT failed: '!s.empty()'"});
  EXPECT_FALSE(finfo.isRemote());
  EXPECT_TRUE(finfo.filename.empty());
  EXPECT_EQ(toString(finfo), "");
}

TEST(FileInfoBadInput, NullTextIsReportedLikeAnEmptyOne)
{
  AssertRecorder recorder;
  const FileInfo finfo(static_cast<const char*>(nullptr));
  EXPECT_EQ(recorder.messages(), std::vector<std::string>{"CORE_ASSERT failed: '!s.empty()'"});
  EXPECT_TRUE(finfo.filename.empty());
}

TEST(FileInfoBadInput, PortDigitsBeyond32BitsAreOutOfRange)
{
  EXPECT_THROW(FileInfo(std::string("f@host:") + std::string(40, '9')), std::out_of_range);
  EXPECT_THROW(FileInfo(std::string("f@host:2147483648")), std::out_of_range);
  // Fits 32 bits but not 16: wraps and does not read back.
  EXPECT_EQ(rejection("f@host:2147483647"), "Syntax error while parsing port number in: 'f@host:2147483647'");
}

TEST(FileInfoBadInput, TimeoutDigitsBeyond32BitsAreOutOfRange)
{
  EXPECT_THROW(FileInfo(std::string("f@host:80&timeout=") + std::string(40, '1')), std::out_of_range);
  EXPECT_THROW(FileInfo(std::string("f@host:80&timeout=2147483648")), std::out_of_range);
  EXPECT_EQ(FileInfo(std::string("f@host:80&timeout=2147483647")).timeout, FileInfo::Seconds(2147483647));
}

TEST(FileInfoBadInput, MegabyteOfAtSignsIsRejectedWithTheWholeText)
{
  const std::string text(1 << 20, '@');
  EXPECT_EQ(rejection(text), "'" + text + "'" + FORMATS);
}

TEST(FileInfoBadInput, LongTextsParseLikeShortOnes)
{
  const std::string name(5000, 'n');
  const std::string address(3000, 'a');
  const FileInfo finfo(name + "@" + address + ":4000&timeout=9");
  EXPECT_EQ(finfo.filename, std::filesystem::path(name));
  EXPECT_EQ(finfo.address, address);
  EXPECT_EQ(finfo.port, 4000);
  EXPECT_EQ(finfo.timeout, 9s);

  const FileInfo local("C:" + name);
  EXPECT_FALSE(local.isRemote());
  EXPECT_EQ(rejection(name + "@:80"), "Invalid address: '" + name + "@:80'" + FORMATS);
  EXPECT_EQ(rejection(name + ":x"), "'" + name + ":x'" + FORMATS);
}

TEST(FileInfoBadInput, EmbeddedNulBytesAreOrdinaryCharacters)
{
  const std::string name("a\0b", 3);
  const FileInfo local(name);
  EXPECT_FALSE(local.isRemote());
  EXPECT_EQ(toString(local), name);

  const std::string remote("f@ho\0st:80", 10);
  const FileInfo finfo(remote);
  EXPECT_EQ(finfo.address, std::string("ho\0st", 5));
  EXPECT_EQ(toString(finfo), remote);

  // The message holds the whole text; what() stops at its first NUL.
  const std::string badPort("f@host:8\0", 9);
  EXPECT_EQ(rejection(badPort), std::string("'f@host:8"));
}

// Texts at the edges of the grammar are split exactly as the pattern that
// defines it splits them with std::regex_match: accepted or not, and the
// same filename and address.
TEST(FileInfoTextForm, SplitsTextsAsThePatternDoes)
{
  const std::regex pattern("^((?:[A-Za-z]:)?[^@:]*)(?:@([^:]*):([0-9]+)(?:&timeout=([0-9]+))?)?$");
  const std::vector<std::string> texts = {"f",
                                          "C:",
                                          "C:f",
                                          "C::",
                                          "1:f",
                                          ":f",
                                          "C:@h:1",
                                          "@h:1",
                                          "f@h@i:1",
                                          "f@@:1",
                                          "f@h:1:2",
                                          "f@h:1&",
                                          "f@h:1&timeout",
                                          "f@h:1&timeout=1x",
                                          "f@h:1x",
                                          "f@h:",
                                          "f@:1",
                                          "C:\\a@b:2",
                                          "C:a:b",
                                          "ab:c",
                                          "f@h:1&timeout=1&timeout=2",
                                          "f&timeout=5",
                                          "f@h:01",
                                          "f@h:1&timeout=007",
                                          "\xc3\xa9:f",
                                          "f\n@h:1",
                                          std::string("f\0@h:1", 6)};
  for (const std::string& text : texts) {
    std::smatch matches;
    const bool matched = std::regex_match(text, matches, pattern);
    try {
      const FileInfo finfo(text);
      ASSERT_TRUE(matched) << "accepted: '" << text << "'";
      EXPECT_EQ(finfo.filename, std::filesystem::path(matches[1].str())) << text;
      EXPECT_EQ(finfo.address, matches[2].str()) << text;
    } catch (const std::runtime_error& error) {
      // A match may still be rejected by the checks of the port and the
      // address, with texts of their own; what() stops at a NUL.
      const std::string noMatch = "'" + text + "'" + FORMATS;
      EXPECT_EQ(std::string(error.what()) == noMatch.c_str(), !matched) << text << ": " << error.what();
    }
  }
}
