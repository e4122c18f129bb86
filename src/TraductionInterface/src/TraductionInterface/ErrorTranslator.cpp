#include <TraductionInterface/ErrorTranslator.h>

namespace Orvan::TraductionInterface {

ErrorTranslator::~ErrorTranslator() = default;

std::string ErrorTranslator::name() const
{
  return {};
}

} // namespace Orvan::TraductionInterface
