#include <gtest/gtest.h>
TEST(SmokeApi, Builds) { SUCCEED(); }
