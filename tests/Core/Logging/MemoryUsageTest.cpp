#include "SystemMemory.h"

#include <Core/Logging/MemorySpy.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

using Orvan::Core::Logging::MemorySpy;
using Orvan::Core::Logging::MemoryUsageCapture;
using Orvan::Testing::Platform::readSystemMemory;
using Orvan::Testing::Platform::SystemMemory;

namespace {

constexpr std::uint64_t MIB = 1024 * 1024;

// The library's reading lies between two independent readings taken just
// before and just after it, give or take `slack` for what moved in between
// (other processes allocate too).
void expectBetween(std::uint64_t value, std::uint64_t before, std::uint64_t after, std::uint64_t slack,
                   const char* field)
{
  const std::uint64_t low = std::min(before, after);
  const std::uint64_t high = std::max(before, after);
  EXPECT_GE(value + slack, low) << field;
  EXPECT_LE(value, high + slack) << field;
}

} // namespace

TEST(MemoryUsage, CaptureAgreesWithTheSystemsOwnFigures)
{
  const SystemMemory before = readSystemMemory();
  const MemoryUsageCapture usage = MemorySpy::captureMemoryUsage();
  const SystemMemory after = readSystemMemory();

  // The machine's figures move with every process on it; the process's own
  // move little between two readings.
  const std::uint64_t machineSlack = 512 * MIB;
  const std::uint64_t processSlack = 32 * MIB;
  expectBetween(usage.virtualTotal, before.virtualTotal, after.virtualTotal, machineSlack, "virtualTotal");
  expectBetween(usage.virtualUsed, before.virtualUsed, after.virtualUsed, machineSlack, "virtualUsed");
  expectBetween(usage.virtualUsedByApplication, before.virtualUsedByApplication, after.virtualUsedByApplication,
                processSlack, "virtualUsedByApplication");
  expectBetween(usage.physicalTotal, before.physicalTotal, after.physicalTotal, 0, "physicalTotal");
  expectBetween(usage.physicalUsed, before.physicalUsed, after.physicalUsed, machineSlack, "physicalUsed");
  expectBetween(usage.physicalUsedByApplication, before.physicalUsedByApplication, after.physicalUsedByApplication,
                processSlack, "physicalUsedByApplication");
}

TEST(MemoryUsage, FiguresAreConsistentWithOneAnother)
{
  const MemoryUsageCapture usage = MemorySpy::captureMemoryUsage();
  EXPECT_GT(usage.physicalTotal, 0u);
  EXPECT_GT(usage.physicalUsed, 0u);
  EXPECT_LE(usage.physicalUsed, usage.physicalTotal);
  EXPECT_GE(usage.virtualTotal, usage.physicalTotal);
  EXPECT_GT(usage.physicalUsedByApplication, 0u);
  EXPECT_LE(usage.physicalUsedByApplication, usage.physicalTotal);
}

TEST(MemoryUsage, ProcessFiguresFollowAnAllocationThatIsTouched)
{
  const MemoryUsageCapture before = MemorySpy::captureMemoryUsage();
  constexpr std::size_t SIZE = 64 * MIB;
  std::vector<char> block(SIZE, '\1'); // written, so resident
  const MemoryUsageCapture during = MemorySpy::captureMemoryUsage();
  EXPECT_GE(during.physicalUsedByApplication + 8 * MIB, before.physicalUsedByApplication + SIZE);
  EXPECT_EQ(block[SIZE / 2], '\1');
}
