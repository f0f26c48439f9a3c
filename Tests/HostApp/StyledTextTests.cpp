#include "Examples/HostApp/Terminal/StyledText.hpp"

#include <gtest/gtest.h>

#include <cstdlib>

#include "Examples/HostApp/Texts/FigureTexts.hpp"
#include "OmbrixCore/Formatting/OmbrixValueFormatter.hpp"

namespace ombrix::hostapp {
namespace {

// Catches escape sequences that are left open, or runs that are drawn out of order.
TEST(StyledTextTests, DrawsNumbersBoldAndUnitsQuiet) {
  const auto text = OmbrixValueFormatter::shared().attributedStringWithDefaultAttributes(
      "4,520 FT", valueAttributes());
  ::setenv("COLORTERM", "truecolor", 1);
  EXPECT_EQ(drawnForTerminal(*text), "\x1b[1m4,520 \x1b[0m\x1b[38;2;140;140;140mFT\x1b[0m");
  ::unsetenv("COLORTERM");
  EXPECT_EQ(drawnForTerminal(*text), "\x1b[1m4,520 \x1b[0m\x1b[38;5;145mFT\x1b[0m");
  EXPECT_EQ(drawnForTerminal(platform::NSAttributedString("plain ′")), "plain ′");
}

}  // namespace
}  // namespace ombrix::hostapp
