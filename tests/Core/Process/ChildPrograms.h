#pragma once

#include <chrono>
#include <string>

// Child programs for the process runner's tests, and the system's codes for
// their failures, chosen per platform: the shell's utilities on POSIX,
// cmd.exe and a sleeping child built with the tests on Windows.
namespace Orvan::Testing::ChildPrograms {

// A program that ends at once with `code` (0 to 255).
std::string exitingWith(int code);

// A program that runs for `duration` and then ends with 0.
std::string runningFor(std::chrono::milliseconds duration);

// A program that writes its current directory into `fileName`, relative to
// that directory.
std::string writingItsDirectoryTo(const std::string& fileName);

// The path of the tests' own child program (ExecuteChild.cpp), built beside
// the test program.
std::string testChild();

// A program name that the system's search does not find.
std::string missing();

// Whether a command line of 100,000 characters can start a program.
bool acceptsVeryLongCommandLines();

// The codes that the system gives for these failures.
unsigned long programNotFoundError();
unsigned long invalidHandleError();
unsigned long emptyCommandError();
unsigned long missingDirectoryError();
unsigned long notADirectoryError();

// Blocks until the program with this identifier, a child of this process,
// has ended, without collecting its exit code. False if it cannot be waited
// for.
bool waitUntilEnded(unsigned long long processId);

} // namespace Orvan::Testing::ChildPrograms
