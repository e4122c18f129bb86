// A host built with UndefinedBehaviorSanitizer and no recovery reads a remote
// file through the stream makeStream returns, then exits with 0 when it got
// every byte up to the end of the file.
//
// The stream holds its 1 MiB buffer inside, before its virtual std::ios base,
// further from the object's start than the sanitizer's vptr check accepts:
// built with -fsanitize=vptr the first call through the std::istream* aborts
// ("possibly invalid vptr"); built with -fno-sanitize=vptr, every other check
// still on, it reads the file.

#include <Core/FileServer.h>
#include <Core/StreamDiagnostics.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <istream>
#include <memory>
#include <string>

int main(int argc, char** argv)
{
  if (argc != 2) {
    std::fprintf(stderr, "usage: sanitized_host SCRATCH_FILE\n");
    return 2;
  }
  const std::filesystem::path path = argv[1];
  std::ofstream(path, std::ios::binary) << "read by a sanitized host";
  Orvan::Core::setStreamDiagnostics(Orvan::Core::StreamDiagnostics::Silent);
  Orvan::Core::FileServer server(path);
  const std::unique_ptr<std::istream> stream = server.descriptor().makeStream(std::ios::binary);
  std::string text;
  for (char character = 0; stream->get(character);) {
    text += character;
  }
  std::printf("%s\n", text.c_str());
  return text == "read by a sanitized host" && stream->eof() ? 0 : 1;
}
