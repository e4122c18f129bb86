#pragma once

#include <Core/FileInfo.h>

#include <cstdint>
#include <string>

namespace Orvan::Testing {

// The remote descriptor of `name` served on 127.0.0.1 at `port`, with
// `timeout` seconds to connect (0: none). Its text is toString() of it.
inline Core::FileInfo loopbackFile(const std::string& name, unsigned short port, std::int64_t timeout = 0)
{
  return Core::FileInfo(name, "127.0.0.1", port, Core::FileInfo::Seconds(timeout));
}

} // namespace Orvan::Testing
