#include <TraductionInterface/DefaultTranslator.h>

#include <gtest/gtest.h>

#include <stdexcept>

using Orvan::TraductionInterface::DefaultTranslator;
using Orvan::TraductionInterface::ErrorTranslator;
using Orvan::Utils::ErrorManagement::ReturnStatus;

TEST(DefaultTranslator, SuccessReadsSuccess)
{
  EXPECT_EQ(DefaultTranslator().translate(ReturnStatus()), "Success");
}

TEST(DefaultTranslator, FailureReadsErrorCodeAndMessage)
{
  EXPECT_EQ(DefaultTranslator().translate(ReturnStatus(42, "no route")), "Error 42: no route");
  EXPECT_EQ(DefaultTranslator().translate(ReturnStatus(-3, "")), "Error -3: ");
}

TEST(DefaultTranslator, ExceptionReadsItsWhat)
{
  EXPECT_EQ(DefaultTranslator().translate(std::runtime_error("socket closed")), "socket closed");
}

TEST(DefaultTranslator, AcceptsEverythingThroughTheInterface)
{
  const DefaultTranslator translator;
  const ErrorTranslator& asInterface = translator;
  EXPECT_TRUE(asInterface.canTranslate(ReturnStatus(1, "x")));
  EXPECT_TRUE(asInterface.canTranslate(std::logic_error("y")));
  EXPECT_EQ(asInterface.name(), "default");
  EXPECT_EQ(asInterface.translate(ReturnStatus(1, "x")), "Error 1: x");
}

namespace {
struct SilentTranslator : ErrorTranslator {
  bool canTranslate(const std::exception&) const override { return false; }
  bool canTranslate(const ReturnStatus&) const override { return false; }
  std::string translate(const std::exception&) const override { return {}; }
  std::string translate(const ReturnStatus&) const override { return {}; }
};
} // namespace

TEST(ErrorTranslator, NameIsEmptyByDefault)
{
  EXPECT_EQ(SilentTranslator().name(), "");
}
