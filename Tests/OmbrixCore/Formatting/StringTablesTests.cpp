#include <gtest/gtest.h>

#include <set>

#include "OmbrixCore/Extensions/ResourceBundle.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "OmbrixTesting/ScopedLocale.hpp"

namespace ombrix {
namespace {

constexpr const char* kKeys[] = {"httperror.badRequestError",   "httperror.forbidden",
                                 "httperror.generic",           "formatter.not_a_number",
                                 "httperror.invalidBody",       "httperror.networkError",
                                 "httperror.notfound",          "httperror.rateLimitError",
                                 "httperror.serverError",       "httperror.serverOfflineError",
                                 "httperror.unauthorizedError", "units.abbreviate_millions",
                                 "units.abbreviate_thousands",  "units.bpm"};

// Catches a table that is not delivered, cannot be read, or lacks or repeats a text.
TEST(StringTablesTests, EveryLanguageHasEveryText) {
  for (const char* language :
       {"en_US", "de_DE", "fr_FR", "it_IT", "es_ES", "ja_JP", "pt_BR", "ca_ES"}) {
    const testing::ScopedLocale locale(language);
    std::set<std::string> texts;
    for (const char* key : kKeys) {
      const std::string text = localizedString(key, "missing");
      EXPECT_NE(text, "missing") << language << key;
      EXPECT_TRUE(texts.insert(text).second) << language << key;
    }
  }
}

// Catches a language without a table that shows keys, and a damaged entry of a host's own table
// that takes the others along or shows English.
TEST(StringTablesTests, MissingAndDamagedTextsHaveTheirFallback) {
  {
    const testing::ScopedLocale dutch("nl_NL");
    EXPECT_EQ(localizedString("units.abbreviate_thousands", "-"), "k");
    EXPECT_EQ(localizedString("httperror.notfound", "-"),
              "Sorry it looks like that link isn't valid.");
  }
  const testing::ScopedDir dir;
  dir.write("de.lproj/Localizable.strings",
            "\"units.bpm\" = \"S/min\";\n\"units.abbreviate_millions\" = \n");
  const auto previous = setResourceBundle(
      std::make_shared<platform::Bundle>(platform::URL::fileURL(dir.path().string(), true)));
  const testing::ScopedLocale german("de_DE");
  EXPECT_EQ(localizedString("units.bpm", "BPM"), "S/min");
  EXPECT_EQ(localizedString("units.abbreviate_millions", "mil"), "\u00A0Mio.");
  EXPECT_EQ(localizedString("units.abbreviate_thousands", "k"), "\u00A0Tsd.");
  setResourceBundle(previous);
}

}  // namespace
}  // namespace ombrix
