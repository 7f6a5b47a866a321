#include <gtest/gtest.h>

#include <cstdlib>

#include "host/env.h"

namespace {

TEST(EnvParse, IntegersAcceptSignsAndBlanksButNothingElse) {
    EXPECT_EQ(OrvoParseInteger("42"), 42);
    EXPECT_EQ(OrvoParseInteger("  -7\t"), -7);
    EXPECT_EQ(OrvoParseInteger("+12"), 12);
    EXPECT_EQ(OrvoParseInteger("9223372036854775807"), 9223372036854775807LL);
    EXPECT_FALSE(OrvoParseInteger("9223372036854775808")); // one past the top
    EXPECT_FALSE(OrvoParseInteger(""));
    EXPECT_FALSE(OrvoParseInteger("   "));
    EXPECT_FALSE(OrvoParseInteger("+"));
    EXPECT_FALSE(OrvoParseInteger("+-3"));
    EXPECT_FALSE(OrvoParseInteger("12MB"));
    EXPECT_FALSE(OrvoParseInteger("1 2"));
    EXPECT_FALSE(OrvoParseInteger("0x10"));
}

TEST(EnvParse, DoublesTakeFractionsAndExponents) {
    EXPECT_DOUBLE_EQ(*OrvoParseDouble("0.25"), 0.25);
    EXPECT_DOUBLE_EQ(*OrvoParseDouble(" 1e3 "), 1000.0);
    EXPECT_DOUBLE_EQ(*OrvoParseDouble("+.5"), 0.5);
    EXPECT_DOUBLE_EQ(*OrvoParseDouble("-2"), -2.0);
    EXPECT_FALSE(OrvoParseDouble("1.5x"));
    EXPECT_FALSE(OrvoParseDouble("."));
}

TEST(EnvCache, ValueIsReadOnceUntilRefreshed) {
    ::setenv("ORVO_TEST_ENV_VALUE", "128", 1);
    OrvoEnvRefresh();
    EXPECT_EQ(OrvoGetEnvInt("ORVO_TEST_ENV_VALUE", -1), 128);

    // A change underneath is not seen: a render keeps the value it started with.
    ::setenv("ORVO_TEST_ENV_VALUE", "256", 1);
    EXPECT_EQ(OrvoGetEnvInt("ORVO_TEST_ENV_VALUE", -1), 128);

    OrvoEnvRefresh();
    EXPECT_EQ(OrvoGetEnvInt("ORVO_TEST_ENV_VALUE", -1), 256);

    ::setenv("ORVO_TEST_ENV_VALUE", "lots", 1);
    OrvoEnvRefresh();
    EXPECT_EQ(OrvoGetEnvInt("ORVO_TEST_ENV_VALUE", -1), -1);
    EXPECT_DOUBLE_EQ(OrvoGetEnvDouble("ORVO_TEST_ENV_VALUE", 2.5), 2.5);
    ::unsetenv("ORVO_TEST_ENV_VALUE");
    OrvoEnvRefresh();
}

TEST(EnvCache, SetMeansNonEmpty) {
    ::unsetenv("ORVO_TEST_ENV_FLAG");
    OrvoEnvRefresh();
    EXPECT_FALSE(OrvoEnvIsSet("ORVO_TEST_ENV_FLAG"));
    EXPECT_FALSE(OrvoGetEnv("ORVO_TEST_ENV_FLAG").has_value());

    ::setenv("ORVO_TEST_ENV_FLAG", "", 1);
    OrvoEnvRefresh();
    EXPECT_FALSE(OrvoEnvIsSet("ORVO_TEST_ENV_FLAG"));
    EXPECT_EQ(OrvoGetEnv("ORVO_TEST_ENV_FLAG"), std::string());

    ::setenv("ORVO_TEST_ENV_FLAG", "0", 1);
    OrvoEnvRefresh();
    EXPECT_TRUE(OrvoEnvIsSet("ORVO_TEST_ENV_FLAG"));
    ::unsetenv("ORVO_TEST_ENV_FLAG");
    OrvoEnvRefresh();
}

} // namespace
