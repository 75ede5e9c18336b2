#include <gtest/gtest.h>
#include "zelva/src/utility/logging.h"
TEST(Smoke, Builds) { EXPECT_EQ(zelva::utility::QualifiedFunctionName("int a::b::c(int)"), "a::b::c"); }
