#include "closest.h"

#include <gtest/gtest.h>

namespace {

using Names = std::vector<std::string>;

TEST(EditDistance, CountsSingleCharacterEdits) {
    EXPECT_EQ(editDistance("", ""), 0u);
    EXPECT_EQ(editDistance("abc", ""), 3u);
    EXPECT_EQ(editDistance("", "abc"), 3u);
    EXPECT_EQ(editDistance("kitten", "sitting"), 3u);
    EXPECT_EQ(editDistance("MemApp", "MemAp"), 1u);
    EXPECT_EQ(editDistance("MemApp", "MemAppX"), 1u);
    EXPECT_EQ(editDistance("MemApp", "MemAqp"), 1u);
    EXPECT_EQ(editDistance("AUXTorque", "auxtorque"), 4u);
}

TEST(ClosestNames, NearestFirstWithinAThirdOfTheLength) {
    const Names memories = {"MemPersistent", "MemDynamic", "MemDebug", "MemApp", "MemMedia"};
    EXPECT_EQ(closestNames("MemDebg", memories), (Names{"MemDebug"}));
    EXPECT_EQ(closestNames("MemMedai", memories), (Names{"MemMedia"}));
    EXPECT_EQ(closestNames("MemPersistant", memories), (Names{"MemPersistent"}));
    EXPECT_EQ(closestNames("Zzzzzzzz", memories), Names{});
}

TEST(ClosestNames, CaseAndPrefixRankFirst) {
    const Names names = {"FocusTorque", "IrisTorque", "ZoomTorque", "focustorque2"};
    EXPECT_EQ(closestNames("focustorque", names), (Names{"FocusTorque", "focustorque2"}));
    EXPECT_EQ(closestNames("Iris", names), (Names{"IrisTorque"}));
}

TEST(ClosestNames, LimitKeepsTheNearest) {
    const Names names = {"ab", "abc", "abcd", "abcde"};
    EXPECT_EQ(closestNames("ab", names, 2), (Names{"ab", "abc"}));
}

TEST(Suggestion, Text) {
    EXPECT_EQ(suggestion("MemAp", {"MemApp", "MemDebug"}), "Did you mean: MemApp?");
    EXPECT_EQ(suggestion("xyz", {"MemApp"}), "");
}

} // namespace
