#include <AssertRecorder.h>
#include <Core/Logging/LoggingCallback.h>
#include <Core/ReturnStatusError.h>
#include <FacadeReset.h>
#include <TraductionInterface/DefaultTranslator.h>

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

namespace Logging = Orvan::Core::Logging;
using Orvan::Core::ReturnStatusError;
using Orvan::Testing::AssertRecorder;
using Orvan::TraductionInterface::DefaultTranslator;
using Orvan::TraductionInterface::ErrorTranslator;
using Orvan::Utils::ErrorManagement::ReturnStatus;

namespace {

struct PoliteTranslator : ErrorTranslator {
  bool canTranslate(const std::exception&) const override { return true; }
  bool canTranslate(const ReturnStatus&) const override { return true; }
  std::string translate(const std::exception&) const override { return "exception"; }
  std::string translate(const ReturnStatus& status) const override { return "Sorry: " + status.message(); }
};

struct ThrowingTranslator : PoliteTranslator {
  std::string translate(const ReturnStatus&) const override { throw std::logic_error("cannot translate"); }
};

} // namespace

using ReturnStatusErrorTest = Orvan::Testing::FacadeReset;

TEST_F(ReturnStatusErrorTest, WithoutTranslatorItsTextIsTheDefaultTranslation)
{
  const ReturnStatus status(12, "file locked");
  EXPECT_STREQ(ReturnStatusError(status).what(), DefaultTranslator().translate(status).c_str());
  EXPECT_STREQ(ReturnStatusError(status).what(), "Error 12: file locked");
}

TEST_F(ReturnStatusErrorTest, TextIsTakenFromTheTranslatorWhenTheExceptionIsBuilt)
{
  auto translator = std::make_shared<PoliteTranslator>();
  Logging::setTranslator(translator);
  const ReturnStatusError error(ReturnStatus(12, "file locked"));
  EXPECT_STREQ(error.what(), "Sorry: file locked");

  Logging::setTranslator({});
  const ReturnStatusError before(ReturnStatus(3, "x"));
  Logging::setTranslator(translator);
  EXPECT_STREQ(before.what(), "Error 3: x");
}

TEST_F(ReturnStatusErrorTest, CopiesAndMovesKeepTheStatus)
{
  const ReturnStatus status(4, "gone");
  const ReturnStatusError original(status);
  ReturnStatusError copy(original);
  EXPECT_EQ(copy.getStatus(), status);
  ReturnStatusError moved(std::move(copy));
  EXPECT_EQ(moved.getStatus(), status);
  EXPECT_STREQ(moved.what(), "Error 4: gone");

  ReturnStatusError assigned(ReturnStatus(1, "other"));
  assigned = original;
  EXPECT_EQ(assigned.getStatus(), status);
  ReturnStatusError moveAssigned(ReturnStatus(1, "other"));
  moveAssigned = std::move(assigned);
  EXPECT_EQ(moveAssigned.getStatus(), status);
  EXPECT_STREQ(moveAssigned.what(), "Error 4: gone");
}

TEST_F(ReturnStatusErrorTest, SuccessfulStatusIsReportedOnceAndStillBuildsTheException)
{
  AssertRecorder recorder;
  const ReturnStatusError error{ReturnStatus()};
  const auto reports = recorder.reports();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].message, "CORE_ASSERT failed: '!rs'");
  EXPECT_EQ(reports[0].file, "src/Core/src/Core/ReturnStatusError.cpp");
  EXPECT_STREQ(error.what(), "Success");
  EXPECT_TRUE(static_cast<bool>(error.getStatus()));
}

TEST_F(ReturnStatusErrorTest, TranslatorFailureLeavesTheConstructor)
{
  auto translator = std::make_shared<ThrowingTranslator>();
  Logging::setTranslator(translator);
  EXPECT_THROW(ReturnStatusError(ReturnStatus(1, "x")), std::logic_error);
}
