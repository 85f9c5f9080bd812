#include "delay_audio/PluginException.h"

#include <gtest/gtest.h>

namespace harvane {
namespace {

TEST(PluginException, CarriesItsTextAndItsCode) {
  const PluginException failure("no such node", 4);
  EXPECT_STREQ(failure.what(), "no such node");
  EXPECT_EQ(failure.code, 4U);
}

TEST(PluginException, IsAStandardException) {
  const auto raise = [] { throw PluginException("tables", kTablesFailure); };
  EXPECT_THROW(raise(), std::exception);
}

TEST(PluginException, KeepsItsTextInACopy) {
  const PluginException copy = [] {
    const PluginException original(std::string(300, 'x'), kDocumentFailure);
    return PluginException(original);
  }();
  EXPECT_EQ(copy.what(), std::string(300, 'x'));
  EXPECT_EQ(copy.code, 4U);
}

TEST(PluginException, CodesOfTheTwoPlacesAreThreeAndFour) {
  EXPECT_EQ(kTablesFailure, 3U);
  EXPECT_EQ(kDocumentFailure, 4U);
}

}  // namespace
}  // namespace harvane
