// From a cancellation to the return of the call it ends: a remote read that
// waits for a byte that never comes, and a connection that stays pending.
// Each is measured 100 times beside a baseline of the same wait done as the
// library used to do it: in 50 ms slices, looking at an atomic flag between
// two slices.

#include "Comparison.h"

#include <Core/FileInfo.h>
#include <Core/Process/CancelationToken.h>
#include <Core/StreamDiagnostics.h>
#include <LoopbackFile.h>
#include <SilentListener_posix.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace {

using Orvan::Core::FileInfo;
using Orvan::Core::Process::CancelationToken;
using Clock = std::chrono::steady_clock;

constexpr int RUNS = 100;
// How long the call waits before it is cancelled: long enough for it to be
// blocked in its wait.
constexpr std::chrono::milliseconds BLOCKED_FOR{5};
// The old design's slice.
constexpr int SLICE_MS = 50;

// Milliseconds from `cancel` (called on another thread once the call has
// waited BLOCKED_FOR) to the return of `wait`.
template<class Wait, class Cancel>
double latency(Wait wait, Cancel cancel)
{
  Clock::time_point cancelled;
  std::thread canceller([&] {
    std::this_thread::sleep_for(BLOCKED_FOR);
    cancelled = Clock::now();
    cancel();
  });
  wait();
  const Clock::time_point ended = Clock::now();
  canceller.join();
  return std::chrono::duration<double, std::milli>(ended - cancelled).count();
}

void keepMedianAndWorst(benchmark::State& state, const std::string& name, std::vector<double> latencies)
{
  std::sort(latencies.begin(), latencies.end());
  state.counters[name + "_median_ms"] = latencies[latencies.size() / 2];
  state.counters[name + "_worst_ms"] = latencies.back();
}

// A plain socket to the listener on `port` of 127.0.0.1, connecting without
// blocking; -1 when it cannot be made.
int startConnecting(unsigned short port)
{
  const int client = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  if (::connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 && errno != EINPROGRESS) {
    ::close(client);
    return -1;
  }
  return client;
}

// The old design: poll `events` in 50 ms slices until they come or `stop` is
// set.
void pollInSlices(int socket, short events, const std::atomic<bool>& stop)
{
  pollfd watched{socket, events, 0};
  while (!stop.load() && ::poll(&watched, 1, SLICE_MS) == 0) {
  }
}

double libraryRead(const FileInfo& quiet)
{
  CancelationToken token;
  return latency(
      [&] {
        FileInfo::StreamOptions options;
        options.token = &token;
        const auto stream = quiet.makeStream(options);
        char byte = 0;
        stream->get(byte);
      },
      [&] { token.requestCancel(); });
}

double libraryConnection(const FileInfo& hanging)
{
  CancelationToken token;
  return latency(
      [&] {
        FileInfo::StreamOptions options;
        options.token = &token;
        try {
          hanging.makeStream(options);
        } catch (const std::exception&) {
          // cancelled, as expected
        }
      },
      [&] { token.requestCancel(); });
}

double slicedRead(unsigned short port)
{
  std::atomic<bool> stop{false};
  const int client = startConnecting(port);
  pollfd connected{client, POLLOUT, 0};
  ::poll(&connected, 1, -1);
  const double took = latency([&] { pollInSlices(client, POLLIN, stop); }, [&] { stop = true; });
  ::close(client);
  return took;
}

double slicedConnection(unsigned short port)
{
  std::atomic<bool> stop{false};
  const int client = startConnecting(port);
  const double took = latency([&] { pollInSlices(client, POLLOUT, stop); }, [&] { stop = true; });
  ::close(client);
  return took;
}

// A blocked read and a pending connection, each cancelled 100 times, ours and
// the baseline's in turn.
void CancellationLatency(benchmark::State& state)
{
  std::vector<double> reads;
  std::vector<double> slicedReads;
  std::vector<double> connections;
  std::vector<double> slicedConnections;
  // Each cancelled connection would print its error on the console.
  Orvan::Core::setStreamDiagnostics(Orvan::Core::StreamDiagnostics::Silent);
  for (auto _ : state) {
    const Orvan::Testing::SilentListener full(true);
    if (!full.isReady()) {
      state.SkipWithError("the listener's queue could not be filled");
      return;
    }
    const FileInfo hanging = Orvan::Testing::loopbackFile("bench.bin", full.port());
    for (int run = 0; run < RUNS; ++run) {
      // Connections that are never accepted stay in the listener's queue:
      // one listener for each round keeps its queue from filling.
      const Orvan::Testing::SilentListener silent(false);
      const FileInfo quiet = Orvan::Testing::loopbackFile("bench.bin", silent.port());
      reads.push_back(libraryRead(quiet));
      slicedReads.push_back(slicedRead(silent.port()));
      connections.push_back(libraryConnection(hanging));
      slicedConnections.push_back(slicedConnection(full.port()));
    }
  }
  keepMedianAndWorst(state, "read", reads);
  keepMedianAndWorst(state, "read_sliced", slicedReads);
  keepMedianAndWorst(state, "connect", connections);
  keepMedianAndWorst(state, "connect_sliced", slicedConnections);
}
BENCHMARK(CancellationLatency)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
  return Orvan::Bench::runAndCompare(argc, argv, {});
}
