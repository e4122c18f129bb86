#include <TraductionInterface/DefaultTranslator.h>

namespace Orvan::TraductionInterface {

using Utils::ErrorManagement::ReturnStatus;

DefaultTranslator::DefaultTranslator() = default;

DefaultTranslator::~DefaultTranslator() = default;

bool DefaultTranslator::canTranslate(const std::exception&) const
{
  return true;
}

bool DefaultTranslator::canTranslate(const ReturnStatus&) const
{
  return true;
}

std::string DefaultTranslator::name() const
{
  return "default";
}

std::string DefaultTranslator::translate(const std::exception& exception) const
{
  return exception.what();
}

std::string DefaultTranslator::translate(const ReturnStatus& status) const
{
  if (status) {
    return "Success";
  }
  return "Error " + std::to_string(status.code()) + ": " + status.message();
}

} // namespace Orvan::TraductionInterface
