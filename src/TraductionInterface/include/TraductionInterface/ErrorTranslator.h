#pragma once

#include <TraductionInterface/Export.h>
#include <Utils/ReturnStatus.h>

#include <exception>
#include <string>

namespace Orvan::TraductionInterface {

// Turns statuses and exceptions into text for people. A translator may decline
// an input; the caller then falls back to the DefaultTranslator.
class ORVAN_TRADUCTIONINTERFACE_EXPORT ErrorTranslator {
public:
  ErrorTranslator() = default;
  ErrorTranslator(const ErrorTranslator&) = default;
  ErrorTranslator& operator=(const ErrorTranslator&) = default;
  virtual ~ErrorTranslator();

  virtual bool canTranslate(const std::exception& exception) const = 0;
  virtual bool canTranslate(const Utils::ErrorManagement::ReturnStatus& status) const = 0;

  // A short name of the translator, for diagnostics; empty by default.
  virtual std::string name() const;

  virtual std::string translate(const std::exception& exception) const = 0;
  virtual std::string translate(const Utils::ErrorManagement::ReturnStatus& status) const = 0;
};

} // namespace Orvan::TraductionInterface
