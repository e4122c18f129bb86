#pragma once

#include <cstddef>

namespace Orvan::Utils::Enum {

// Tells how many enumerators an enumeration has. Specialise it next to the
// enumeration:
//   template<> struct Traits<Colour> { static constexpr std::size_t count = 3; };
template<class E>
struct Traits;

template<class E>
constexpr std::size_t count()
{
  return Traits<E>::count;
}

} // namespace Orvan::Utils::Enum
