// How long FileServer::stop() takes with a transfer under way to a client
// that reads nothing, set against a server that looks at its stop flag every
// 50 ms and cuts its transfers with shutdown(), as the server once did.
#include "Comparison.h"

#include <Core/FileServer.h>

#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fcntl.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int RUNS = 100;
constexpr std::size_t FILE_SIZE = 64 * 1024 * 1024;

// The served file, made once.
const std::filesystem::path& servedFile()
{
  static const std::filesystem::path path = [] {
    const auto made = std::filesystem::temp_directory_path() / ("orvan-stop-bench-" + std::to_string(::getpid()));
    std::ofstream(made, std::ios::binary) << std::string(FILE_SIZE, 's');
    return made;
  }();
  return path;
}

// A client that connects, takes the first byte (the transfer is then under
// way) and reads nothing more.
int stalledClient(std::uint16_t port)
{
  const int client = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  char first = 0;
  if (::connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      ::recv(client, &first, 1, 0) != 1) {
    std::perror("client");
  }
  return client;
}

double milliseconds(Clock::duration duration)
{
  return std::chrono::duration<double, std::milli>(duration).count();
}

void keepMedianAndWorst(benchmark::State& state, const std::string& name, std::vector<double> latencies)
{
  std::sort(latencies.begin(), latencies.end());
  state.counters[name + "_median_ms"] = latencies[latencies.size() / 2];
  state.counters[name + "_worst_ms"] = latencies.back();
}

// The former server: the accepting thread waits 50 ms at a time and looks at
// its flag; stop() sets the flag, joins it, then shuts the client's socket
// down so that its blocking sendfile returns.
class PollingServer {
public:
  PollingServer()
  {
    listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ::bind(listener, reinterpret_cast<sockaddr*>(&address), length);
    ::listen(listener, SOMAXCONN);
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    boundPort = ntohs(address.sin_port);
    acceptor = std::thread([this] { acceptClients(); });
  }

  ~PollingServer() { ::close(listener); }

  std::uint16_t port() const { return boundPort; }

  void stop()
  {
    stopping = true;
    acceptor.join();
    ::shutdown(client.load(), SHUT_RDWR);
    if (transfer.joinable()) {
      transfer.join();
    }
    ::close(client.load());
  }

private:
  void acceptClients()
  {
    while (!stopping) {
      pollfd entry{listener, POLLIN, 0};
      if (::poll(&entry, 1, 50) <= 0 || transfer.joinable()) {
        continue;
      }
      client = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
      transfer = std::thread([this] {
        const int input = ::open(servedFile().c_str(), O_RDONLY | O_CLOEXEC);
        while (::sendfile(client.load(), input, nullptr, FILE_SIZE) > 0) {
        }
        ::close(input);
      });
    }
  }

  int listener = -1;
  std::uint16_t boundPort = 0;
  std::atomic<bool> stopping{false};
  std::atomic<int> client{-1};
  std::thread acceptor;
  std::thread transfer;
};

template<class Server>
double stopLatency()
{
  Server server(servedFile());
  const int client = stalledClient(server.port());
  // Some time for the transfer to fill the socket's buffers and block.
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  const auto stopping = Clock::now();
  server.stop();
  const double latency = milliseconds(Clock::now() - stopping);
  ::close(client);
  return latency;
}

struct LibraryServer : Orvan::Core::FileServer {
  explicit LibraryServer(const std::filesystem::path& file)
      : FileServer(file)
  {
  }
};

struct FormerServer : PollingServer {
  explicit FormerServer(const std::filesystem::path&) {}
};

// Ours and the former server's, run after run, so that a burst of load on
// the machine falls on both.
void FileServerStopLatency(benchmark::State& state)
{
  std::signal(SIGPIPE, SIG_IGN);
  std::vector<double> ours;
  std::vector<double> former;
  for (auto _ : state) {
    for (int run = 0; run < RUNS; ++run) {
      ours.push_back(stopLatency<LibraryServer>());
      former.push_back(stopLatency<FormerServer>());
    }
  }
  keepMedianAndWorst(state, "stop", ours);
  keepMedianAndWorst(state, "polling_stop", former);
}
BENCHMARK(FileServerStopLatency)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
  const int status = Orvan::Bench::runAndCompare(argc, argv, {});
  std::error_code ignored;
  std::filesystem::remove(servedFile(), ignored);
  return status;
}
