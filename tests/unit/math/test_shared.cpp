// The shared library loaded by a program: its C interface from C code.
#include <gtest/gtest.h>

extern "C" int qzmath_c_smoke(void);

TEST(MathSharedLibrary, CInterfaceFromC) {
  EXPECT_EQ(qzmath_c_smoke(), 0);
}
