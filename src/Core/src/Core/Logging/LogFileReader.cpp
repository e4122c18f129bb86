#include <Core/Logging/LogFileReader.h>
#include <Utils/FileHelper.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <limits>
#include <vector>

// The reader splits the bytes into lines in one buffer and parses each line
// in place with plain comparisons, no stream and no regular expression: the
// text fields of the record it returns are reused from one line to the next,
// so reading a line costs no allocation once the first lines are read.
//
// The forms read back, after the line prefix "HH:MM:SS.mmm [LEVEL  ] [ thread] ":
//   workflow enter          tabs "===> " name
//   workflow leave          tabs "<=== " name " " elapsed
//   workflow intermediate   tabs name "/" text " " elapsed      (Info, one tab at least)
//   memory sample           "[MEMORY] Virtual: " a \t b \t c \t "Physical:" d \t e \t f
// where elapsed is "12.345 ms" or "3.2 s" and a to f are formatMemorySize texts.

namespace Orvan::Core::Logging {

namespace {

constexpr std::string_view HEAD = "[Y-m-d X]";
constexpr const char* NOT_A_HEAD = "it does not start with the head line \"[Y-m-d X]\" and a date";
constexpr std::string_view MEMORY_START = "[MEMORY] Virtual: ";
constexpr std::size_t CHUNK = 1024 * 1024;
// A time of day earlier than the line before by more than this is on the
// next day; a smaller step back is a clock set back (daylight saving's end,
// a time server's correction) on the same day.
constexpr std::int64_t NEXT_DAY_STEP_BACK_MS = 3LL * 3600 * 1000;

bool isDigit(char c)
{
  return c >= '0' && c <= '9';
}

// Reads `count` digits at `at`, moving it on.
bool digits(std::string_view text, std::size_t& at, std::size_t count, unsigned& value)
{
  if (text.size() < at + count) {
    return false;
  }
  value = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const char c = text[at + i];
    if (!isDigit(c)) {
      return false;
    }
    value = value * 10 + static_cast<unsigned>(c - '0');
  }
  at += count;
  return true;
}

bool expect(std::string_view text, std::size_t& at, char c)
{
  if (at < text.size() && text[at] == c) {
    ++at;
    return true;
  }
  return false;
}

// "HH:MM:SS" at `at`.
bool timeOfDay(std::string_view text, std::size_t& at, LogDateTime& time)
{
  return digits(text, at, 2, time.hour) && expect(text, at, ':') && digits(text, at, 2, time.minute) &&
         expect(text, at, ':') && digits(text, at, 2, time.second) && time.hour < 24 && time.minute < 60 &&
         time.second < 61;
}

// Days from 1970-01-01 to the given civil date (proleptic Gregorian).
std::int64_t daysFromCivil(std::int64_t year, unsigned month, unsigned day)
{
  year -= month <= 2 ? 1 : 0;
  const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
  const auto yearOfEra = static_cast<unsigned>(year - era * 400);
  const unsigned dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
  const unsigned dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + static_cast<std::int64_t>(dayOfEra) - 719468;
}

void civilFromDays(std::int64_t days, LogDateTime& time)
{
  days += 719468;
  const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const auto dayOfEra = static_cast<unsigned>(days - era * 146097);
  const unsigned yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const unsigned shiftedMonth = (5 * dayOfYear + 2) / 153;
  time.day = dayOfYear - (153 * shiftedMonth + 2) / 5 + 1;
  time.month = shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9;
  time.year = static_cast<int>(static_cast<std::int64_t>(yearOfEra) + era * 400 + (time.month <= 2 ? 1 : 0));
}

// The level words between the brackets of the prefix, told apart by their
// first letter: the level, VERSION_WORD for the version line's, or
// NO_WORD.
constexpr int VERSION_WORD = 100;
constexpr int NO_WORD = -1;

int levelWord(std::string_view word)
{
  if (word.empty()) {
    return NO_WORD;
  }
  std::string_view expected;
  LoggingType level = LoggingType::Info;
  switch (word[0]) {
  case 'I':
    expected = "INFO   ";
    break;
  case 'W':
    expected = "WARNING";
    level = LoggingType::Warning;
    break;
  case 'E':
    expected = "ERROR  ";
    level = LoggingType::Error;
    break;
  case 'D':
    expected = "DEBUG  ";
    level = LoggingType::Debug;
    break;
  case 'V':
    if (word.size() == 8) {
      return word == "VERSION " ? VERSION_WORD : NO_WORD;
    }
    expected = "VERBOSE";
    level = LoggingType::Verbose;
    break;
  default:
    return NO_WORD;
  }
  return word == expected ? static_cast<int>(level) : NO_WORD;
}

// An elapsed text at the end of `text` ("12.345 ms", "3.2 s"), preceded by a
// blank; `rest` gets what comes before that blank.
bool trailingElapsed(std::string_view text, std::string_view& rest, std::chrono::microseconds& elapsed)
{
  std::size_t unitLength = 0;
  std::int64_t unitMicroseconds = 0;
  if (text.size() >= 3 && text.substr(text.size() - 3) == " ms") {
    unitLength = 3;
    unitMicroseconds = 1000;
  } else if (text.size() >= 2 && text.substr(text.size() - 2) == " s") {
    unitLength = 2;
    unitMicroseconds = 1000000;
  } else {
    return false;
  }
  const std::size_t numberEnd = text.size() - unitLength;
  std::size_t start = numberEnd;
  while (start > 0 && (isDigit(text[start - 1]) || text[start - 1] == '.')) {
    --start;
  }
  const std::string_view number = text.substr(start, numberEnd - start);
  const std::size_t point = number.find('.');
  if (point == std::string_view::npos || point == 0 || point + 1 == number.size() ||
      number.find('.', point + 1) != std::string_view::npos || number.size() > 16 || point > 12 || start == 0 ||
      text[start - 1] != ' ') {
    return false;
  }
  std::int64_t whole = 0;
  for (std::size_t i = 0; i < point; ++i) {
    whole = whole * 10 + (number[i] - '0');
  }
  std::int64_t fraction = 0;
  std::int64_t scale = unitMicroseconds;
  for (std::size_t i = point + 1; i < number.size(); ++i) {
    scale /= 10;
    fraction += (number[i] - '0') * scale;
  }
  elapsed = std::chrono::microseconds(whole * unitMicroseconds + fraction);
  rest = text.substr(0, start - 1);
  return true;
}

// One formatMemorySize text: "16GB", "[G ]MMMMB", "[M ]KKKKB".
bool memorySize(std::string_view text, std::uint64_t& bytes)
{
  if (text.size() < 3 || text.size() > 24 || text[text.size() - 1] != 'B') {
    return false;
  }
  const char unit = text[text.size() - 2];
  std::string_view number = text.substr(0, text.size() - 2);
  std::uint64_t whole = 0;
  const std::size_t blank = number.find(' ');
  const auto parse = [](std::string_view part, std::uint64_t& value) {
    if (part.empty() || part.size() > 9) {
      return false;
    }
    value = 0;
    for (const char c : part) {
      if (!isDigit(c)) {
        return false;
      }
      value = value * 10 + static_cast<std::uint64_t>(c - '0');
    }
    return true;
  };
  if (blank != std::string_view::npos) {
    if (!parse(number.substr(0, blank), whole)) {
      return false;
    }
    number = number.substr(blank + 1);
  }
  std::uint64_t part = 0;
  if (!parse(number, part)) {
    return false;
  }
  if (unit == 'G' && blank == std::string_view::npos) {
    bytes = part << 30;
  } else if (unit == 'M' && number.size() >= 3 && part < 1024) {
    bytes = (whole << 30) + (part << 20);
  } else if (unit == 'K' && number.size() >= 3 && part < 1024) {
    bytes = (whole << 20) + (part << 10);
  } else {
    return false;
  }
  return true;
}

bool memorySample(std::string_view message, MemoryUsageCapture& memory)
{
  if (message.substr(0, MEMORY_START.size()) != MEMORY_START) {
    return false;
  }
  std::string_view rest = message.substr(MEMORY_START.size());
  std::uint64_t* const fields[] = {&memory.virtualTotal,  &memory.virtualUsed,  &memory.virtualUsedByApplication,
                                   &memory.physicalTotal, &memory.physicalUsed, &memory.physicalUsedByApplication};
  for (std::size_t i = 0; i < 6; ++i) {
    if (i == 3) {
      if (rest.substr(0, 9) != "Physical:") {
        return false;
      }
      rest.remove_prefix(9);
    }
    const std::size_t tab = rest.find('\t');
    if ((tab == std::string_view::npos) != (i == 5)) {
      return false;
    }
    if (!memorySize(rest.substr(0, tab), *fields[i])) {
      return false;
    }
    rest = i == 5 ? std::string_view() : rest.substr(tab + 1);
  }
  return true;
}

} // namespace

std::int64_t LogDateTime::milliseconds() const
{
  const std::int64_t days = daysFromCivil(year, month, day);
  return ((days * 24 + hour) * 60 + minute) * 60000 + second * 1000LL + millisecond;
}

std::string LogDateTime::toString() const
{
  char text[48];
  std::snprintf(text, sizeof text, "%04d-%02u-%02u %02u:%02u:%02u.%03u", year, month, day, hour, minute, second,
                millisecond);
  return text;
}

struct LogTextReader::Impl {
  explicit Impl(std::string source)
      : source(std::move(source))
  {
  }

  std::string source;
  // The bytes not yet read: [begin, end) of `buffer`; the search for a line
  // end has already looked at [begin, scanned).
  std::vector<char> buffer;
  std::size_t begin = 0;
  std::size_t end = 0;
  std::size_t scanned = 0;
  bool finished = false;

  LogRecord record;
  std::optional<LogDateTime> started;
  std::string version;
  std::uint64_t consumed = 0;
  // The date of the lines, and the time of day of the last one.
  std::int64_t day = 0;
  std::int64_t lastTimeOfDay = -1;
  // The calendar date of `datedDay`, worked out once per day.
  std::int64_t datedDay = std::numeric_limits<std::int64_t>::min();
  LogDateTime date;
  // Whether the last line was read in pieces, and whether the line being
  // read is the rest of such a line.
  bool lastWasPiece = false;
  bool continuesPiece = false;

  // Room for at least `wanted` more bytes at the end of the buffer.
  char* reserve(std::size_t wanted)
  {
    if (begin > 0 && (begin == end || buffer.size() - end < wanted)) {
      std::memmove(buffer.data(), buffer.data() + begin, end - begin);
      end -= begin;
      scanned -= begin;
      begin = 0;
    }
    if (buffer.size() - end < wanted) {
      buffer.resize(end + wanted);
    }
    return buffer.data() + end;
  }

  void append(std::string_view bytes)
  {
    if (bytes.empty()) {
      return; // the buffer may not exist yet
    }
    std::memcpy(reserve(bytes.size()), bytes.data(), bytes.size());
    end += bytes.size();
  }

  // The next whole line (without its line end), or a piece of MAX_LINE
  // bytes, or the last bytes once finished.
  std::optional<std::string_view> nextLine()
  {
    const char* const data = buffer.data();
    const void* found = scanned < end ? std::memchr(data + scanned, '\n', end - scanned) : nullptr;
    std::size_t length = 0;
    std::size_t skip = 0;
    bool piece = false;
    if (found != nullptr &&
        static_cast<std::size_t>(static_cast<const char*>(found) - (data + begin)) <= LogFileReader::MAX_LINE) {
      length = static_cast<std::size_t>(static_cast<const char*>(found) - (data + begin));
      skip = 1;
    } else if (found != nullptr) {
      length = LogFileReader::MAX_LINE;
      piece = true;
    } else {
      scanned = end;
      if (end - begin >= LogFileReader::MAX_LINE) {
        length = LogFileReader::MAX_LINE;
        piece = true;
      } else if (finished && end > begin) {
        length = end - begin;
      } else {
        return std::nullopt;
      }
    }
    std::string_view line(data + begin, length);
    begin += length + skip;
    scanned = begin;
    consumed += length + skip;
    if (!line.empty() && line.back() == '\r') {
      line.remove_suffix(1);
    }
    continuesPiece = lastWasPiece;
    lastWasPiece = piece;
    return line;
  }

  [[noreturn]] void refuse(const std::string& why) const
  {
    throw LogFileError("'" + source + "' is not a log file of Orvan Core: " + why + ".");
  }

  // Whether what is there so far could still be the start of a head line.
  void checkHeadStart() const
  {
    const std::string_view start(buffer.data() + begin, std::min(end - begin, HEAD.size()));
    if (start != HEAD.substr(0, start.size())) {
      refuse(NOT_A_HEAD);
    }
  }

  // Reads the date and time of a head line; false when `line` is not one.
  static bool headTime(std::string_view line, LogDateTime& time)
  {
    std::size_t at = HEAD.size();
    unsigned year = 0;
    if (line.substr(0, HEAD.size()) != HEAD || !digits(line, at, 4, year) || !expect(line, at, '-') ||
        !digits(line, at, 2, time.month) || !expect(line, at, '-') || !digits(line, at, 2, time.day) ||
        !expect(line, at, ' ') || !timeOfDay(line, at, time) || at != line.size() || time.month < 1 ||
        time.month > 12 || time.day < 1 || time.day > 31) {
      return false;
    }
    time.year = static_cast<int>(year);
    return true;
  }

  // The lines after a head are dated from it.
  void dateFrom(const LogDateTime& time)
  {
    day = daysFromCivil(time.year, time.month, time.day);
    lastTimeOfDay = ((time.hour * 60LL + time.minute) * 60 + time.second) * 1000;
  }

  void head(std::string_view line)
  {
    if (line.substr(0, HEAD.size()) != HEAD) {
      refuse(NOT_A_HEAD);
    }
    LogDateTime time;
    if (!headTime(line, time)) {
      refuse("its first line is not the head line \"[Y-m-d X]\" with a date and time");
    }
    started = time;
    dateFrom(time);
    record.kind = LogRecord::Kind::Message;
    record.time = time;
    record.level = LoggingType::Info;
    record.thread = 0;
  }

  // A log written in append mode holds one head per run: a later head
  // dates the lines after it and is no record either.
  bool laterHead(std::string_view line)
  {
    LogDateTime time;
    if (!headTime(line, time)) {
      return false;
    }
    dateFrom(time);
    return true;
  }

  void continuation(std::string_view line)
  {
    record.kind = LogRecord::Kind::Message;
    record.continuation = true;
    record.message.assign(line.data(), line.size());
  }

  // Sets the record from a line with a prefix; false when it has none.
  bool prefixed(std::string_view line)
  {
    LogDateTime time;
    std::size_t at = 0;
    if (!timeOfDay(line, at, time) || !expect(line, at, '.') || !digits(line, at, 3, time.millisecond) ||
        !expect(line, at, ' ') || !expect(line, at, '[')) {
      return false;
    }
    const std::size_t close = line.find(']', at);
    if (close == std::string_view::npos || close - at > 8) {
      return false;
    }
    const int level = levelWord(line.substr(at, close - at));
    if (level == NO_WORD) {
      return false;
    }
    const bool isVersion = level == VERSION_WORD;
    at = close + 1;
    if (!expect(line, at, ' ') || !expect(line, at, '[')) {
      return false;
    }
    while (at < line.size() && line[at] == ' ') {
      ++at;
    }
    unsigned long long thread = 0;
    const std::size_t firstDigit = at;
    while (at < line.size() && isDigit(line[at]) && at - firstDigit < 20) {
      thread = thread * 10 + static_cast<unsigned long long>(line[at] - '0');
      ++at;
    }
    if (at == firstDigit || !expect(line, at, ']') || !expect(line, at, ' ')) {
      return false;
    }

    // The date: a time of day well before the last one is on the next day.
    const std::int64_t timeOfDayMs = ((time.hour * 60LL + time.minute) * 60 + time.second) * 1000 + time.millisecond;
    if (lastTimeOfDay >= 0 && lastTimeOfDay - timeOfDayMs > NEXT_DAY_STEP_BACK_MS) {
      ++day;
    }
    lastTimeOfDay = timeOfDayMs;
    if (day != datedDay) {
      civilFromDays(day, date);
      datedDay = day;
    }
    // Field by field: a copy of the whole structure, built a field at a
    // time just before, stalls the processor on every line.
    record.time.year = date.year;
    record.time.month = date.month;
    record.time.day = date.day;
    record.time.hour = time.hour;
    record.time.minute = time.minute;
    record.time.second = time.second;
    record.time.millisecond = time.millisecond;
    if (isVersion) {
      record.level.reset();
    } else {
      record.level = static_cast<LoggingType>(level);
    }
    record.thread = thread;
    record.message.assign(line.data() + at, line.size() - at);
    record.kind = isVersion ? LogRecord::Kind::Version : LogRecord::Kind::Message;
    if (isVersion && version.empty()) {
      version = record.message;
    }
    return true;
  }

  // Recognises the workflow and memory forms in the message.
  void classify()
  {
    const std::string_view message = record.message;
    if (!record.level) {
      return;
    }
    std::size_t tabs = 0;
    while (tabs < message.size() && message[tabs] == '\t') {
      ++tabs;
    }
    const std::string_view body = message.substr(tabs);
    const LoggingType level = *record.level;
    const bool stepLevel = level == LoggingType::Info || level == LoggingType::Debug;
    std::string_view rest;
    if (stepLevel && body.substr(0, 5) == "===> ") {
      record.kind = LogRecord::Kind::StepEnter;
      record.depth = static_cast<unsigned>(tabs);
      record.name.assign(body.data() + 5, body.size() - 5);
      return;
    }
    if (stepLevel && body.substr(0, 5) == "<=== " && trailingElapsed(body.substr(4), rest, record.elapsed)) {
      record.kind = LogRecord::Kind::StepLeave;
      record.depth = static_cast<unsigned>(tabs);
      // "<=== Name 1.0 ms" leaves " Name"; a step without a name leaves "".
      if (!rest.empty()) {
        rest.remove_prefix(1);
      }
      record.name.assign(rest.data(), rest.size());
      return;
    }
    if (level == LoggingType::Info && tabs > 0 && trailingElapsed(body, rest, record.elapsed)) {
      const std::size_t slash = rest.find('/');
      if (slash != std::string_view::npos) {
        record.kind = LogRecord::Kind::StepIntermediate;
        record.depth = static_cast<unsigned>(tabs);
        record.name.assign(rest.data(), slash);
        record.text.assign(rest.data() + slash + 1, rest.size() - slash - 1);
        return;
      }
    }
    if (level == LoggingType::Verbose && memorySample(message, record.memory)) {
      record.kind = LogRecord::Kind::Memory;
    }
  }

  const LogRecord* next()
  {
    for (;;) {
      if (!started && !finished) {
        checkHeadStart();
      }
      const std::optional<std::string_view> line = nextLine();
      if (!line) {
        if (finished && !started) {
          refuse("it is empty");
        }
        return nullptr;
      }
      ++record.lineNumber;
      if (!started) {
        head(*line);
        continue; // the head line is the file's date, not a record
      }
      if (continuesPiece) {
        continuation(*line);
        return &record;
      }
      if (!line->empty() && line->front() == '[' && laterHead(*line)) {
        continue; // a prefixed line starts with a digit: most lines are not looked at twice
      }
      record.continuation = false;
      record.depth = 0;
      record.elapsed = std::chrono::microseconds(0);
      if (prefixed(*line)) {
        classify();
      } else {
        continuation(*line);
      }
      return &record;
    }
  }
};

LogTextReader::LogTextReader(std::string source)
    : impl(std::make_unique<Impl>(std::move(source)))
{
}

LogTextReader::~LogTextReader() = default;

void LogTextReader::feed(std::string_view bytes)
{
  impl->append(bytes);
}

const LogRecord* LogTextReader::next()
{
  return impl->next();
}

void LogTextReader::finish()
{
  impl->finished = true;
}

const std::optional<LogDateTime>& LogTextReader::started() const
{
  return impl->started;
}

const std::string& LogTextReader::version() const
{
  return impl->version;
}

struct LogFileReader::Impl {
  explicit Impl(const std::string& path)
      : text(path)
      , file(Utils::FileHelper::toPath(path), std::ios::binary)
  {
    if (!file.is_open()) {
      throw LogFileError("Cannot open the log file '" + path + "'.");
    }
  }

  LogTextReader text;
  std::ifstream file;
  bool finishRequested = false;
  // Bytes read from the file, and whether the last read reached its end.
  std::uint64_t offset = 0;
  bool atEnd = false;

  // Reads what the file holds beyond what was read; false when nothing.
  bool readMore()
  {
    LogTextReader::Impl& parser = *text.impl;
    char* const room = parser.reserve(CHUNK);
    if (atEnd) {
      // A file being written grows past the end seen last time: the stream
      // forgets that end by seeking back to where it stopped.
      file.clear();
      file.seekg(static_cast<std::streamoff>(offset));
    }
    file.read(room, static_cast<std::streamsize>(CHUNK));
    const auto count = static_cast<std::size_t>(file.gcount());
    parser.end += count;
    offset += count;
    atEnd = count < CHUNK;
    return count > 0;
  }
};

LogFileReader::LogFileReader(const std::string& path)
    : impl(std::make_unique<Impl>(path))
{
}

LogFileReader::~LogFileReader() = default;

const LogRecord* LogFileReader::next()
{
  for (;;) {
    const LogRecord* const record = impl->text.next();
    if (record != nullptr) {
      return record;
    }
    if (impl->readMore()) {
      continue;
    }
    // At the end of the file: once it is complete, its last line counts
    // even without its line end.
    if (!impl->finishRequested || impl->text.impl->finished) {
      return nullptr;
    }
    impl->text.finish();
  }
}

void LogFileReader::finish()
{
  impl->finishRequested = true;
}

const std::optional<LogDateTime>& LogFileReader::started() const
{
  return impl->text.started();
}

const std::string& LogFileReader::version() const
{
  return impl->text.version();
}

std::uint64_t LogFileReader::bytesRead() const
{
  return impl->text.impl->consumed;
}

} // namespace Orvan::Core::Logging
