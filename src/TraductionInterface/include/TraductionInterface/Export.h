#pragma once

// Marks the symbols that Orvan_TraductionInterface exports; everything else
// stays hidden.
#if defined(_WIN32)
#  if defined(ORVAN_TRADUCTIONINTERFACE_BUILDING)
#    define ORVAN_TRADUCTIONINTERFACE_EXPORT __declspec(dllexport)
#  else
#    define ORVAN_TRADUCTIONINTERFACE_EXPORT __declspec(dllimport)
#  endif
#else
#  define ORVAN_TRADUCTIONINTERFACE_EXPORT __attribute__((visibility("default")))
#endif
