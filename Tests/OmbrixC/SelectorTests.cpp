#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "OmbrixC/OmbrixC.h"

namespace ombrix::c {
namespace {

struct Selector {
  const char *className, *selector, *function;
  bool isThere;
};

const Selector kSelectors[] = {
#define OMBRIX_SELECTOR(className, selector, function) \
  {#className, selector, #function, reinterpret_cast<void*>(&function) != nullptr},
#include "OmbrixC/selectors.def"
};

// Catches a selector that is published without its function, or under a name no caller can guess.
TEST(SelectorTests, EachHasItsFunctionUnderItsName) {
  for (const Selector& entry : kSelectors) {
    std::string name = std::string("ombrix_") + entry.className + "_" + entry.selector;
    std::ranges::replace(name, ':', '_');
    EXPECT_EQ(name, entry.function);
    EXPECT_TRUE(entry.isThere) << entry.function;
  }
}

}  // namespace
}  // namespace ombrix::c
