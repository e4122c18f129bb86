#include <Core/StreamDiagnostics.h>

#include <atomic>

namespace Orvan::Core {

namespace {

std::atomic<StreamDiagnostics> current{StreamDiagnostics::Console};

} // namespace

void setStreamDiagnostics(StreamDiagnostics diagnostics)
{
  current.store(diagnostics, std::memory_order_relaxed);
}

StreamDiagnostics streamDiagnostics()
{
  return current.load(std::memory_order_relaxed);
}

} // namespace Orvan::Core
