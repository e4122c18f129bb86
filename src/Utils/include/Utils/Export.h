#pragma once

// Marks the symbols that Orvan_Utils exports; everything else stays hidden.
#if defined(_WIN32)
#  if defined(ORVAN_UTILS_BUILDING)
#    define ORVAN_UTILS_EXPORT __declspec(dllexport)
#  else
#    define ORVAN_UTILS_EXPORT __declspec(dllimport)
#  endif
#else
#  define ORVAN_UTILS_EXPORT __attribute__((visibility("default")))
#endif
