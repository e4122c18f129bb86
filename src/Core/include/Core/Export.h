#pragma once

// Marks the symbols that Orvan_Core exports; everything else stays hidden.
#if defined(_WIN32)
#  if defined(ORVAN_CORE_BUILDING)
#    define ORVAN_CORE_EXPORT __declspec(dllexport)
#  else
#    define ORVAN_CORE_EXPORT __declspec(dllimport)
#  endif
#else
#  define ORVAN_CORE_EXPORT __attribute__((visibility("default")))
#endif
