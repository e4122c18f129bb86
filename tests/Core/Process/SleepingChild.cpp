// A child program for the process runner's tests where the system has no
// sleep utility: waits for the number of milliseconds given as its argument,
// then ends with 0.
#include <chrono>
#include <cstdlib>
#include <thread>

int main(int argc, char** argv)
{
  if (argc != 2) {
    return 2;
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(std::strtol(argv[1], nullptr, 10)));
  return 0;
}
