#pragma once

#include <cstddef>
#include <optional>

// What a test can count of its own process, on Linux and Windows.
namespace Orvan::Testing::ProcessResources {

// The process's open descriptors (Linux: the entries of /proc/self/fd) or
// handles (Windows); empty where the system does not count them (Wine
// answers 0).
std::optional<std::size_t> openHandleCount();

// Whether the thread with this operating-system number is waiting in a
// socket receive at this moment; empty where the system cannot tell.
std::optional<bool> waitingInReceive(unsigned long long threadId);

} // namespace Orvan::Testing::ProcessResources
