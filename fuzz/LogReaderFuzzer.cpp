// Fuzzes the log reader.
//
// Every input is either refused with a LogFileError whose text says that it
// is not a log file, or read into records whose fields hold together. The
// same bytes handed over in pieces (as a file still being written is read)
// give the same records, or the same refusal, as handed over at once. The
// first input byte chooses the size of the pieces.

#include <Core/Logging/LogFileReader.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace Orvan::Core::Logging;

const std::string REFUSAL = "'fuzz' is not a log file of Orvan Core: ";

// The text with its control and non-ASCII bytes escaped, for reports.
std::string printable(const std::string& text)
{
  std::string result;
  for (unsigned char c : text.substr(0, 400)) {
    if (c >= 0x20 && c < 0x7f && c != '\\') {
      result += static_cast<char>(c);
    } else {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", c);
      result += escaped;
    }
  }
  return result;
}

void check(bool condition, const std::string& what, const std::string& input)
{
  if (!condition) {
    std::fprintf(stderr, "log reader finding: %s\n  input (%zu bytes): '%s'\n", printable(what).c_str(), input.size(),
                 printable(input).c_str());
    std::abort();
  }
}

struct Reading {
  std::vector<LogRecord> records;
  std::optional<std::string> refusal;
};

// Reads `text` handed over in pieces of `piece` bytes (all at once for 0),
// asking for records after each piece.
Reading read(const std::string& text, std::size_t piece)
{
  Reading reading;
  LogTextReader reader("fuzz");
  try {
    const auto drain = [&] {
      while (const LogRecord* record = reader.next()) {
        reading.records.push_back(*record);
      }
    };
    for (std::size_t at = 0; piece != 0 && at < text.size(); at += piece) {
      reader.feed(std::string_view(text).substr(at, piece));
      drain();
    }
    if (piece == 0) {
      reader.feed(text);
    }
    reader.finish();
    drain();
  } catch (const LogFileError& error) {
    reading.refusal = error.what();
  }
  return reading;
}

bool same(const LogRecord& a, const LogRecord& b)
{
  return a.kind == b.kind && a.lineNumber == b.lineNumber && a.time.milliseconds() == b.time.milliseconds() &&
         a.level == b.level && a.thread == b.thread && a.continuation == b.continuation && a.message == b.message &&
         a.depth == b.depth && a.name == b.name && a.text == b.text && a.elapsed == b.elapsed &&
         (a.kind != LogRecord::Kind::Memory ||
          (a.memory.virtualTotal == b.memory.virtualTotal && a.memory.physicalUsed == b.memory.physicalUsed &&
           a.memory.physicalUsedByApplication == b.memory.physicalUsedByApplication));
}

void checkRecord(const LogRecord& record, const std::string& input)
{
  const LogDateTime& t = record.time;
  check(t.month >= 1 && t.month <= 12 && t.day >= 1 && t.day <= 31 && t.hour < 24 && t.minute < 60 && t.second < 61 &&
            t.millisecond < 1000,
        "time out of range: " + t.toString(), input);
  check(record.lineNumber >= 2, "a record before the head", input);
  check(record.elapsed.count() >= 0, "negative elapsed time", input);
  check(record.message.size() <= LogFileReader::MAX_LINE, "a line longer than the longest piece", input);
  switch (record.kind) {
  case LogRecord::Kind::StepEnter:
  case LogRecord::Kind::StepLeave:
  case LogRecord::Kind::StepIntermediate:
    check(record.level.has_value() && !record.continuation, "a workflow record without level", input);
    check(record.depth < record.message.size() && record.message.find(record.name) != std::string::npos,
          "a workflow record whose name is not in its message: '" + record.name + "'", input);
    break;
  case LogRecord::Kind::Memory:
    check(record.message.rfind("[MEMORY] Virtual: ", 0) == 0, "a memory record of another line", input);
    break;
  case LogRecord::Kind::Version:
    check(!record.level.has_value(), "a version line with a level", input);
    break;
  case LogRecord::Kind::Message:
    break;
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
  if (size == 0) {
    return 0;
  }
  const std::size_t piece = 1 + data[0] % 64;
  const std::string input(reinterpret_cast<const char*>(data) + 1, size - 1);

  const Reading whole = read(input, 0);
  const Reading pieces = read(input, piece);
  if (whole.refusal) {
    check(whole.refusal->rfind(REFUSAL, 0) == 0, "refusal text: " + *whole.refusal, input);
  }
  check(whole.refusal == pieces.refusal,
        "handed over in pieces of " + std::to_string(piece) +
            ", the refusal differs: " + whole.refusal.value_or("none") + " / " + pieces.refusal.value_or("none"),
        input);
  if (whole.refusal) {
    // A refused text may yield records before the refusal only when it is
    // refused for being empty, which it is not then; otherwise none.
    check(whole.records.empty(), "records before a refusal", input);
    return 0;
  }
  check(whole.records.size() == pieces.records.size(),
        "handed over in pieces of " + std::to_string(piece) + ", " + std::to_string(pieces.records.size()) +
            " records instead of " + std::to_string(whole.records.size()),
        input);
  for (std::size_t i = 0; i < whole.records.size(); ++i) {
    checkRecord(whole.records[i], input);
    check(same(whole.records[i], pieces.records[i]),
          "handed over in pieces, record " + std::to_string(i) + " differs: '" + whole.records[i].message + "' / '" +
              pieces.records[i].message + "'",
          input);
  }
  return 0;
}
