#include "runtime/base/result.h"

#include <cerrno>
#include <gtest/gtest.h>

using velda::Error;
using velda::Result;

TEST(Result, AValueIsOkAndCanBeTaken)
{
    Result<int> result = 5;
    ASSERT_TRUE(result.ok());
    EXPECT_EQ(*result, 5);
}

TEST(Result, AnErrorKeepsItsNumberAndMessage)
{
    const Result<int> result = Error{17, "exists"};
    ASSERT_FALSE(result.ok());
    EXPECT_EQ(result.error().number, 17);
    EXPECT_EQ(result.error().message, "exists");
}

TEST(Result, ASystemErrorNamesTheThingAndTheReason)
{
    const Error error = velda::system_error(ENOENT, "cannot open file", "ORDERS");
    EXPECT_EQ(error.number, 2);
    EXPECT_EQ(error.message, "cannot open file 'ORDERS': No such file or directory");
}
