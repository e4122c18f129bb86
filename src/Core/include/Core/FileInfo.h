#pragma once

#include <Core/Export.h>
#include <Utils/Enum.h>
#include <Utils/FileHelper.h>
#include <Utils/Timer.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <istream>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>

namespace Orvan::Core {

namespace Process {
class CancelationToken;
}

// A file the host wants to read: a local path, or the bytes a TCP server
// sends from `address`:`port`.
//
// Its one-line text form is
//   <filename>
//   <filename>@<address>:<port>[&timeout=<seconds>]
// A drive letter and its colon may start the filename; otherwise neither the
// filename nor the address may hold ':', and the filename may hold no '@'.
struct FileInfo {
  // Decides, after a failed connection, whether to wait and try again.
  // Descriptors only point at policies; nothing deletes one through this
  // interface.
  struct ORVAN_CORE_EXPORT RetryInterface {
    // True: wait and try again; false: give up. `timer` started before the
    // first attempt, with the descriptor's timeout as its delay.
    virtual bool operator()(const FileInfo& finfo, const Utils::Timer<std::chrono::system_clock>& timer) = 0;

  protected:
    RetryInterface() = default;
    RetryInterface(const RetryInterface&) = default;
    RetryInterface& operator=(const RetryInterface&) = default;
    ~RetryInterface() = default;
  };

  // The capture slots of the text form's pattern.
  enum class Match : std::size_t { Whole, Filename, Address, Port, Timeout };

  using Seconds = std::chrono::duration<std::int64_t>;

  static constexpr std::uint16_t INVALID_PORT = 0;

  // Parses the text form; throws std::runtime_error when the text is not a
  // descriptor, and std::out_of_range when the port or timeout digits do not
  // fit a 32-bit integer. `retry` starts null.
  ORVAN_CORE_EXPORT explicit FileInfo(const std::string& s);
  ORVAN_CORE_EXPORT explicit FileInfo(const char* s);

  // Parses the path's text (UTF-8) exactly as the text form: a path holding
  // '@', or ':' anywhere but after a leading drive letter, is rejected.
  ORVAN_CORE_EXPORT explicit FileInfo(const std::filesystem::path& path);

  // A remote descriptor from its fields. Empty names, an invalid port and a
  // negative timeout are reported through CORE_ASSERT, never thrown.
  ORVAN_CORE_EXPORT FileInfo(const std::filesystem::path& filename, const char* address, std::uint16_t p, Seconds d);

  FileInfo(const FileInfo&) = default;
  FileInfo& operator=(const FileInfo&) = default;

  // Moving empties the source's filename and address and leaves the rest.
  FileInfo(FileInfo&& other) noexcept
      : filename(std::move(other.filename))
      , address(std::move(other.address))
      , retry(other.retry)
      , port(other.port)
      , timeout(other.timeout)
  {
    other.filename.clear();
    other.address.clear();
  }

  FileInfo& operator=(FileInfo&& other) noexcept
  {
    if (this != &other) {
      filename = std::move(other.filename);
      address = std::move(other.address);
      retry = other.retry;
      port = other.port;
      timeout = other.timeout;
      other.filename.clear();
      other.address.clear();
    }
    return *this;
  }

  ~FileInfo() = default;

  // Remote exactly when an address is set.
  ORVAN_CORE_EXPORT bool isRemote() const;

  // Orders by filename only: the same path on two servers is equivalent.
  ORVAN_CORE_EXPORT bool operator<(const FileInfo& other) const;

  // Opens the file for reading. A local file is opened with `mode` (plus the
  // input bit) in a mode that lets others read, write and delete it
  // meanwhile; a remote one is connected to, retried under `retry`, with
  // Connecting, Connected and Failed events. Throws std::system_error when
  // the file cannot be opened or the connection fails for good, and
  // std::runtime_error when the server's name cannot be resolved.
  //
  // A connection attempt that hangs is given up (with the connection's own
  // error when the system has one, else the socket layer's "timed out" or
  // "cancelled" code, then handled as any failed attempt) once a positive
  // `timeout` has run out since that attempt began, or within 200 ms of a
  // cancellation of the token of a Process::TimeoutRetry policy; the pause
  // between attempts ends early on cancellation too. That token bounds
  // connecting only: an open stream reads until the server closes. A FIFO
  // waits for its writer, as a file stream does. A filename or address
  // holding a NUL character is refused with std::system_error of
  // std::errc::invalid_argument before anything is opened.
  ORVAN_CORE_EXPORT std::unique_ptr<std::istream> makeStream(std::optional<int> mode) const;

  // How makeStream(const StreamOptions&) opens and reads.
  struct StreamOptions {
    // The open mode of a local file, as for makeStream(mode).
    std::optional<int> mode;
    // A remote read fails once no byte has come for this long: the stream
    // sets its bad state, or throws std::system_error of std::errc::timed_out
    // when its exception mask asks for it. A local FIFO opened for reading
    // waits this long at most for its writer's first bytes (or its close),
    // then fails to open with std::errc::timed_out. 0: no limit.
    std::chrono::milliseconds idleTimeout{0};
    // Cancelling it ends a blocked remote read within 100 ms (as above, with
    // std::errc::operation_canceled), a pending connection within 200 ms,
    // and a FIFO's wait for its writer within 100 ms (the opening fails with
    // std::errc::operation_canceled). Null: none. It must outlive the
    // stream.
    const Process::CancelationToken* token = nullptr;
  };

  // As makeStream(mode), with the bounds of `options` on a remote stream and
  // on a local FIFO's wait for its writer (other local files ignore them).
  // Events, log lines and errors are those of makeStream(mode); the
  // per-chunk line follows streamDiagnostics(). The token of a
  // Process::TimeoutRetry policy bounds connecting only; reads end on the
  // token of `options`.
  ORVAN_CORE_EXPORT std::unique_ptr<std::istream> makeStream(const StreamOptions& options) const;

  std::filesystem::path filename;
  std::string address;
  RetryInterface* retry = nullptr;
  std::uint16_t port = INVALID_PORT;
  Seconds timeout{0};
};

// The descriptor's text form: the bare filename (UTF-8) for a local file;
// "@address:port" for a remote one, then "&timeout=seconds" when the timeout
// is positive. Numbers are always decimal.
ORVAN_CORE_EXPORT std::string toString(const FileInfo& finfo);

// Writes toString(finfo), whatever the stream's flags.
inline std::ostream& operator<<(std::ostream& stream, FileInfo finfo)
{
  return stream << toString(finfo);
}

} // namespace Orvan::Core

namespace Orvan::Utils::Enum {

template<>
struct Traits<Core::FileInfo::Match> {
  static constexpr std::size_t count = 5;
};

} // namespace Orvan::Utils::Enum
