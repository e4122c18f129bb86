// Parses a descriptor and logs through a callback: prints the descriptor's
// text form, the language standard it was compiled with and the logged line.
#include <Core/FileInfo.h>
#include <Core/Logging/LoggingCallback.h>

#include <iostream>
#include <string>

int main()
{
  std::string logged;
  const auto guard = Orvan::Core::Logging::setLoggingCallback([&logged](const std::string& text) { logged += text; });
  const Orvan::Core::FileInfo finfo("data.bin@127.0.0.1:4000&timeout=30");
  Orvan::Core::Logging::logInfo("consumed");
  std::cout << finfo << ' ' << __cplusplus << ' ' << logged;
  return finfo.isRemote() ? 0 : 1;
}
