// A child program for the tests of execute, the same on every platform:
//   exit N            ends with N
//   sleep MS          waits MS milliseconds, then ends with 0
//   started FILE MS   creates FILE, then waits MS milliseconds
//   write OUT ERR     writes OUT bytes to standard output and ERR bytes to
//                     standard error, in turns, 64 KiB at a time
//   env NAME          prints the variable's value
//   cwd               prints the current directory
//   args WORD...      prints each word in brackets
//   read              prints how many bytes standard input held
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace {

void writeSome(std::FILE* stream, std::size_t& left, const std::vector<char>& block)
{
  const std::size_t size = std::min(left, block.size());
  std::fwrite(block.data(), 1, size, stream);
  left -= size;
}

} // namespace

int main(int argc, char** argv)
{
  if (argc < 2) {
    return 100;
  }
  const std::string command = argv[1];
  if (command == "exit" && argc == 3) {
    return std::atoi(argv[2]);
  }
  if (command == "sleep" && argc == 3) {
    std::this_thread::sleep_for(std::chrono::milliseconds(std::atol(argv[2])));
    return 0;
  }
  if (command == "started" && argc == 4) {
    std::fclose(std::fopen(argv[2], "w"));
    std::this_thread::sleep_for(std::chrono::milliseconds(std::atol(argv[3])));
    return 0;
  }
  if (command == "write" && argc == 4) {
    std::size_t output = std::strtoull(argv[2], nullptr, 10);
    std::size_t error = std::strtoull(argv[3], nullptr, 10);
    const std::vector<char> block(65536, 'o');
    const std::vector<char> errorBlock(65536, 'e');
    while (output > 0 || error > 0) {
      writeSome(stdout, output, block);
      writeSome(stderr, error, errorBlock);
    }
    return 0;
  }
  if (command == "env" && argc == 3) {
    const char* value = std::getenv(argv[2]);
    std::printf("%s", value != nullptr ? value : "<unset>");
    return 0;
  }
  if (command == "cwd") {
    std::printf("%s", std::filesystem::current_path().string().c_str());
    return 0;
  }
  if (command == "args") {
    for (int i = 2; i < argc; ++i) {
      std::printf("[%s]", argv[i]);
    }
    return 0;
  }
  if (command == "read") {
    std::size_t count = 0;
    while (std::fgetc(stdin) != EOF) {
      ++count;
    }
    std::printf("%zu", count);
    return 0;
  }
  return 100;
}
