#include <Core/Process/Execute.h>

#include "Platform/CommandLine.h"

namespace Orvan::Core::Process {

std::string quoteWindowsCommandLine(const std::vector<std::string>& arguments)
{
  return Platform::quoteWindowsCommandLine(arguments);
}

std::string quoteCommandLine(const std::vector<std::string>& arguments)
{
  return Platform::quoteWindowsCommandLine(arguments);
}

} // namespace Orvan::Core::Process
