#pragma once

#include <TraductionInterface/ErrorTranslator.h>
#include <TraductionInterface/Export.h>

namespace Orvan::TraductionInterface {

// The built-in translator: accepts every input.
//   success           -> "Success"
//   failure (c, text) -> "Error c: text"
//   exception         -> exception.what()
class ORVAN_TRADUCTIONINTERFACE_EXPORT DefaultTranslator : public ErrorTranslator {
public:
  DefaultTranslator();
  ~DefaultTranslator() override;

  bool canTranslate(const std::exception& exception) const override;
  bool canTranslate(const Utils::ErrorManagement::ReturnStatus& status) const override;
  std::string name() const override;
  std::string translate(const std::exception& exception) const override;
  std::string translate(const Utils::ErrorManagement::ReturnStatus& status) const override;
};

} // namespace Orvan::TraductionInterface
