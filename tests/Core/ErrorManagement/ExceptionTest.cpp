#include <Core/Exception.h>
#include <Core/IOException.h>
#include <Core/ReturnStatusError.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

using Orvan::Core::Exception;
using Orvan::Core::IOException;
using Orvan::Core::ReturnStatusError;
using Orvan::Utils::ErrorManagement::ReturnStatus;

TEST(Exception, WhatReturnsExactlyTheGivenText)
{
  EXPECT_STREQ(Exception("disk on fire").what(), "disk on fire");
}

TEST(Exception, DefaultBuiltExceptionHasAnEmptyText)
{
  const Exception exception;
  ASSERT_NE(exception.what(), nullptr);
  EXPECT_STREQ(exception.what(), "");
}

TEST(Exception, CaughtAsStdExceptionGivesTheSameText)
{
  try {
    throw Exception("thrown");
  } catch (const std::exception& caught) {
    EXPECT_STREQ(caught.what(), "thrown");
  }
}

TEST(Exception, CopiesCarryTheMessage)
{
  const Exception original("copied");
  Exception copy(original);
  EXPECT_STREQ(copy.what(), "copied");
  Exception assigned;
  assigned = original;
  EXPECT_STREQ(assigned.what(), "copied");
  const Exception& self = assigned;
  assigned = self;
  EXPECT_STREQ(assigned.what(), "copied");
}

namespace {

// Which handler of a chain catches `exception`.
template<class Thrown>
std::string catcherOf(const Thrown& exception)
{
  try {
    throw exception;
  } catch (const Exception&) {
    return "Exception";
  } catch (const std::runtime_error&) {
    return "runtime_error";
  } catch (const std::exception&) {
    return "exception";
  }
}

} // namespace

TEST(Exception, IOExceptionAndReturnStatusErrorAreNotCaughtAsException)
{
  EXPECT_EQ(catcherOf(IOException("io")), "runtime_error");
  EXPECT_EQ(catcherOf(ReturnStatusError(ReturnStatus(1, "failed"))), "runtime_error");
  EXPECT_EQ(catcherOf(Exception("general")), "Exception");
}

TEST(IOException, CarriesTheTextGivenAsCharactersOrString)
{
  EXPECT_STREQ(IOException("read failed").what(), "read failed");
  EXPECT_STREQ(IOException(std::string("write failed")).what(), "write failed");
}

TEST(IOException, CopiesAndMovesKeepTheText)
{
  IOException original("kept");
  IOException copy(original);
  IOException moved(std::move(copy));
  EXPECT_STREQ(moved.what(), "kept");
  IOException assigned("other");
  assigned = original;
  EXPECT_STREQ(assigned.what(), "kept");
  IOException moveAssigned("other");
  moveAssigned = std::move(assigned);
  EXPECT_STREQ(moveAssigned.what(), "kept");
  EXPECT_STREQ(original.what(), "kept");
}
