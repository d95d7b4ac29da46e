#include "support/invariant.hpp"

#include <gtest/gtest.h>

namespace {

TEST(Invariant, EndsATestBuildAndIsNotEvaluatedInOthers) {
  int evaluated = 0;
#if defined(ZAL_INVARIANTS)
  EXPECT_DEATH(ZAL_INVARIANT(++evaluated == 2), "broken invariant: \\+\\+evaluated == 2");
#else
  ZAL_INVARIANT(++evaluated == 2);
#endif
  EXPECT_EQ(evaluated, 0);
}

}  // namespace
