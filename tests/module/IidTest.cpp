#include <gtest/gtest.h>

#include "module/Iid.h"

TEST(Iid, Placeholder) { EXPECT_EQ(__IIDOfc(""), IID_NULL); }
