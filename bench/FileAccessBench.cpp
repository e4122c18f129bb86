// Reading a remote file through FileInfo::makeStream (with and without
// StreamOptions), set against a plain recv loop with the same 1 MiB buffer on
// the same kind of loopback connection; serving a file with FileServer, set
// against socat serving the same file to the same client; and parsing the
// descriptor's text form. Linux only, like every
// benchmark here: the server and the baseline use POSIX sockets.
//
// The transfer is 1 GiB; --transfer_mib=N makes it N MiB, for a quick run.
#include "Comparison.h"

#include <Core/FileInfo.h>
#include <Core/FileServer.h>
#include <Core/StreamDiagnostics.h>
#include <LoopbackFile.h>
#include <LoopbackServer.h>
#include <LoopbackSocket.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <istream>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace {

using Orvan::Core::FileInfo;

constexpr std::size_t MIB = std::size_t{1} << 20;
std::size_t transfer = std::size_t{1} << 30;
constexpr std::size_t PIECE = std::size_t{1} << 20;

// Sends `transfer` bytes to every connection, one after the other, then closes
// it: the remote-file protocol.
Orvan::Testing::LoopbackServer& server()
{
  static Orvan::Testing::LoopbackServer instance([](Orvan::Testing::Peer& peer) {
    static const std::vector<char> block(PIECE, 'd');
    for (std::size_t sent = 0; sent < transfer;) {
      const std::size_t size = std::min(block.size(), transfer - sent);
      if (!peer.send(block.data(), size)) {
        break;
      }
      sent += size;
    }
  });
  return instance;
}

// The per-chunk lines of the socket stream go to /dev/null meanwhile, so that
// the terminal's speed does not count; writing them still does.
class QuietOutput {
public:
  QuietOutput()
  {
    std::fflush(stdout);
    saved = ::dup(1);
    const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    ::dup2(null, 1);
    ::close(null);
  }
  ~QuietOutput()
  {
    std::fflush(stdout);
    ::dup2(saved, 1);
    ::close(saved);
  }

private:
  int saved = -1;
};

using Seconds = std::chrono::duration<double>;

// Reads the whole transfer through makeStream, with istream::read in 1 MiB
// pieces; returns the seconds it took, or a negative value on a short read.
double readThroughMakeStream(std::vector<char>& piece)
{
  const FileInfo finfo = Orvan::Testing::loopbackFile("bench.bin", server().port());
  QuietOutput quiet;
  const auto start = std::chrono::steady_clock::now();
  const auto stream = finfo.makeStream(std::nullopt);
  std::size_t total = 0;
  while (stream->read(piece.data(), static_cast<std::streamsize>(piece.size())) || stream->gcount() > 0) {
    total += static_cast<std::size_t>(stream->gcount());
  }
  const double seconds = Seconds(std::chrono::steady_clock::now() - start).count();
  return total == transfer ? seconds : -1;
}

// The same, through makeStream(StreamOptions) with an idle timeout, which
// waits for each chunk before receiving it.
double readThroughStreamOptions(std::vector<char>& piece)
{
  const FileInfo finfo = Orvan::Testing::loopbackFile("bench.bin", server().port());
  QuietOutput quiet;
  const auto start = std::chrono::steady_clock::now();
  FileInfo::StreamOptions options;
  options.idleTimeout = std::chrono::seconds(30);
  const auto stream = finfo.makeStream(options);
  std::size_t total = 0;
  while (stream->read(piece.data(), static_cast<std::streamsize>(piece.size())) || stream->gcount() > 0) {
    total += static_cast<std::size_t>(stream->gcount());
  }
  const double seconds = Seconds(std::chrono::steady_clock::now() - start).count();
  return total == transfer ? seconds : -1;
}

// Connects to `port` on 127.0.0.1, retrying while nothing listens yet for up
// to 10 s; -1 when it cannot.
int connectTo(unsigned short port)
{
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (std::chrono::steady_clock::now() < end) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
      return socket;
    }
    ::close(socket);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return -1;
}

// The client of every baseline: connect, then recv into a 1 MiB buffer
// until the end; the seconds it took, or a negative value on a short read.
double receiveAll(unsigned short port, std::vector<char>& buffer, std::size_t expected)
{
  const int socket = connectTo(port);
  const auto start = std::chrono::steady_clock::now();
  std::size_t total = 0;
  if (socket >= 0) {
    for (ssize_t n; (n = ::recv(socket, buffer.data(), buffer.size(), 0)) > 0;) {
      total += static_cast<std::size_t>(n);
    }
    ::close(socket);
  }
  const double seconds = Seconds(std::chrono::steady_clock::now() - start).count();
  return total == expected ? seconds : -1;
}

// The baseline of the reads: a plain recv loop.
double readWithPlainRecv(std::vector<char>& buffer)
{
  return receiveAll(server().port(), buffer, transfer);
}

// Best of each, rounds alternating between the two, so that other load on a
// shared machine hits both alike.
struct SideBySide {
  double ours = 0;
  double withOptions = 0;
  double plain = 0;
};
SideBySide best;

void RemoteReadSideBySide(benchmark::State& state)
{
  std::vector<char> piece(PIECE);
  constexpr int ROUNDS = 5;
  for (auto _ : state) {
    best = {};
    for (int round = 0; round < ROUNDS; ++round) {
      const double ours = readThroughMakeStream(piece);
      const double withOptions = readThroughStreamOptions(piece);
      const double plain = readWithPlainRecv(piece);
      if (ours < 0 || withOptions < 0 || plain < 0) {
        state.SkipWithError("short transfer");
        return;
      }
      best.ours = round == 0 ? ours : std::min(best.ours, ours);
      best.withOptions = round == 0 ? withOptions : std::min(best.withOptions, withOptions);
      best.plain = round == 0 ? plain : std::min(best.plain, plain);
    }
  }
  state.counters["makeStream_GBps"] = static_cast<double>(transfer) / best.ours / 1e9;
  state.counters["plain_recv_GBps"] = static_cast<double>(transfer) / best.plain / 1e9;
  state.counters["ratio"] = best.plain / best.ours;
  state.counters["stream_options_GBps"] = static_cast<double>(transfer) / best.withOptions / 1e9;
  state.counters["transfer_MiB"] = static_cast<double>(transfer / MIB);
}
BENCHMARK(RemoteReadSideBySide)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

// A file of `transfer` bytes to serve, written on first use and removed by
// main.
std::filesystem::path served;

const std::filesystem::path& servedFile()
{
  if (served.empty()) {
    served = std::filesystem::temp_directory_path() / ("orvan-bench-" + std::to_string(::getpid()) + ".bin");
    std::ofstream output(served, std::ios::binary);
    const std::vector<char> block(PIECE, 's');
    for (std::size_t written = 0; written < transfer; written += PIECE) {
      output.write(block.data(), static_cast<std::streamsize>(std::min(PIECE, transfer - written)));
    }
  }
  return served;
}

// socat serving the file once on `port`; its process id, or -1.
pid_t startSocat(unsigned short port)
{
  std::string source = "OPEN:" + servedFile().string() + ",rdonly";
  std::string listen = "TCP-LISTEN:" + std::to_string(port) + ",bind=127.0.0.1,reuseaddr";
  char program[] = "socat";
  char unidirectional[] = "-u";
  char* arguments[] = {program, unidirectional, source.data(), listen.data(), nullptr};
  pid_t pid = -1;
  return posix_spawnp(&pid, program, nullptr, nullptr, arguments, environ) == 0 ? pid : -1;
}

// FileServer and socat serving the same file to the same recv client, best
// of 5 alternating rounds.
void FileServerSideBySide(benchmark::State& state)
{
  std::vector<char> buffer(PIECE);
  Orvan::Core::FileServer fileServer(servedFile());
  double ours = 0;
  double socat = 0;
  for (auto _ : state) {
    for (int round = 0; round < 5; ++round) {
      const double served = receiveAll(fileServer.port(), buffer, transfer);
      const unsigned short port = Orvan::Testing::Loopback::freePort();
      const pid_t process = startSocat(port);
      const double bySocat = process > 0 ? receiveAll(port, buffer, transfer) : -1;
      int status = 0;
      if (process > 0) {
        ::waitpid(process, &status, 0);
      }
      if (served < 0 || bySocat < 0) {
        state.SkipWithError(process > 0 ? "short transfer" : "socat cannot be started");
        return;
      }
      ours = round == 0 ? served : std::min(ours, served);
      socat = round == 0 ? bySocat : std::min(socat, bySocat);
    }
  }
  state.counters["fileserver_GBps"] = static_cast<double>(transfer) / ours / 1e9;
  state.counters["socat_GBps"] = static_cast<double>(transfer) / socat / 1e9;
  state.counters["ratio"] = socat / ours;
}
BENCHMARK(FileServerSideBySide)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

const char* const TEXT_FORM_PATTERN = "^((?:[A-Za-z]:)?[^@:]*)(?:@([^:]*):([0-9]+)(?:&timeout=([0-9]+))?)?$";

void ParseRemoteTextForm(benchmark::State& state)
{
  const std::string text = "data.bin@server:4000&timeout=30";
  for (auto _ : state) {
    FileInfo finfo(text);
    benchmark::DoNotOptimize(finfo.port);
  }
}
BENCHMARK(ParseRemoteTextForm);

void ParseLocalTextForm(benchmark::State& state)
{
  const std::string text = "C:\\data\\input\\data.bin";
  for (auto _ : state) {
    FileInfo finfo(text);
    benchmark::DoNotOptimize(finfo.filename);
  }
}
BENCHMARK(ParseLocalTextForm);

// The baseline: the pattern the text form is defined by, compiled once and
// matched with std::regex_match, captures and nothing else.
void RegexMatchRemoteTextForm(benchmark::State& state)
{
  const std::regex pattern(TEXT_FORM_PATTERN);
  const std::string text = "data.bin@server:4000&timeout=30";
  for (auto _ : state) {
    std::smatch matches;
    benchmark::DoNotOptimize(std::regex_match(text, matches, pattern));
  }
}
BENCHMARK(RegexMatchRemoteTextForm);

void RegexMatchLocalTextForm(benchmark::State& state)
{
  const std::regex pattern(TEXT_FORM_PATTERN);
  const std::string text = "C:\\data\\input\\data.bin";
  for (auto _ : state) {
    std::smatch matches;
    benchmark::DoNotOptimize(std::regex_match(text, matches, pattern));
  }
}
BENCHMARK(RegexMatchLocalTextForm);

// Rejecting a text of 4 MiB of "@": the parser reads it once, and the error
// quotes it whole, so it costs what building that message costs.
void RejectFourMiBOfAtSigns(benchmark::State& state)
{
  const std::string text(4 * MIB, '@');
  for (auto _ : state) {
    try {
      FileInfo finfo(text);
      benchmark::DoNotOptimize(finfo.port);
    } catch (const std::runtime_error& error) {
      benchmark::DoNotOptimize(error.what());
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(RejectFourMiBOfAtSigns)->Unit(benchmark::kMicrosecond);

// The baseline: the rejection's message alone, thrown and caught. Pages of
// fresh memory for a text this long cost as much as copying it, so a parser
// that is linear in the text's length shows a ratio close to 1.
void ThrowTheSameMessage(benchmark::State& state)
{
  const std::string text(4 * MIB, '@');
  for (auto _ : state) {
    try {
      std::string message;
      message.reserve(text.size() + 100);
      message.append("'").append(text).append(
          "' does not match the <filename> nor "
          "<filename>@<address>:<port>[&timeout=<timeout>] formats.");
      throw std::runtime_error(message);
    } catch (const std::runtime_error& error) {
      benchmark::DoNotOptimize(error.what());
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(ThrowTheSameMessage)->Unit(benchmark::kMicrosecond);

// Takes --transfer_mib=N out of the arguments, before the benchmark library
// sees them; false when N is not a positive number.
bool takeTransferArgument(int& argc, char** argv)
{
  static const std::string FLAG = "--transfer_mib=";
  int kept = 0;
  for (int i = 0; i < argc; ++i) {
    const std::string argument = argv[i];
    if (i > 0 && argument.compare(0, FLAG.size(), FLAG) == 0) {
      char* end = nullptr;
      const unsigned long long mebibytes = std::strtoull(argument.c_str() + FLAG.size(), &end, 10);
      if (*end != '\0' || mebibytes == 0 || argument.size() == FLAG.size()) {
        std::fprintf(stderr, "%s: expected a positive number of MiB\n", argument.c_str());
        return false;
      }
      transfer = static_cast<std::size_t>(mebibytes) * MIB;
      continue;
    }
    argv[kept++] = argv[i];
  }
  argc = kept;
  argv[argc] = nullptr;
  return true;
}

} // namespace

int main(int argc, char** argv)
{
  if (!takeTransferArgument(argc, argv)) {
    return 1;
  }
  const int result = Orvan::Bench::runAndCompare(argc, argv,
                                                 {{"ParseRemoteTextForm", "RegexMatchRemoteTextForm", 0},
                                                  {"ParseLocalTextForm", "RegexMatchLocalTextForm", 0},
                                                  {"RejectFourMiBOfAtSigns", "ThrowTheSameMessage", 1.5}});
  if (!served.empty()) {
    std::error_code ignored;
    std::filesystem::remove(served, ignored);
  }
  if (best.ours > 0 && best.plain > 0) {
    const double gigabytes = static_cast<double>(transfer) / 1e9;
    std::printf(
        "\nremote read of %zu MiB, best of 5 alternating rounds: makeStream %.2f GB/s, plain recv %.2f GB/s, "
        "throughput ratio %.2f (target >= 0.90)\n",
        transfer / MIB, gigabytes / best.ours, gigabytes / best.plain, best.plain / best.ours);
  }
  std::printf(
      "text form parsing: target <= 150 ns for ParseRemoteTextForm; 4 MiB of '@' rejected at the cost of its message "
      "(ratio <= 1.5)\n");
  return result;
}
