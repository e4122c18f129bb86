#include <Utils/ReturnStatus.h>

#include <gtest/gtest.h>

#include <utility>

using Orvan::Utils::ErrorManagement::ReturnStatus;

TEST(ReturnStatus, DefaultIsSuccess)
{
  const ReturnStatus status;
  EXPECT_TRUE(static_cast<bool>(status));
  EXPECT_EQ(status.code(), 0);
  EXPECT_EQ(status.message(), "");
}

TEST(ReturnStatus, NonZeroCodeIsFailure)
{
  const ReturnStatus status(7, "disk full");
  EXPECT_FALSE(static_cast<bool>(status));
  EXPECT_EQ(status.code(), 7);
  EXPECT_EQ(status.message(), "disk full");
}

TEST(ReturnStatus, ZeroCodeWithTextIsSuccess)
{
  EXPECT_TRUE(static_cast<bool>(ReturnStatus(0, "fine")));
}

TEST(ReturnStatus, CopiesAndMovesCompareEqual)
{
  const ReturnStatus original(3, "broken");
  ReturnStatus copy(original);
  EXPECT_EQ(copy, original);
  ReturnStatus moved(std::move(copy));
  EXPECT_EQ(moved, original);
  ReturnStatus assigned;
  assigned = moved;
  EXPECT_EQ(assigned, original);
  ReturnStatus moveAssigned;
  moveAssigned = std::move(assigned);
  EXPECT_EQ(moveAssigned, original);
  EXPECT_NE(moveAssigned, ReturnStatus());
  EXPECT_NE(ReturnStatus(3, "other"), original);
}
