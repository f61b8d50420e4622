#include "subscriptionset.h"

#include <gtest/gtest.h>

namespace {

constexpr EventId FOCUS = static_cast<EventId>(167);
constexpr EventId IRIS = static_cast<EventId>(168);

// Feeds the records and returns which of them were taken as commands.
std::vector<bool> feed(SubscriptionSet& set, std::initializer_list<Notify> records) {
    std::vector<bool> taken;
    for (const Notify& record : records) {
        taken.push_back(set.apply(record));
    }
    return taken;
}

TEST(SubscriptionSet, StartsEmpty) {
    SubscriptionSet set;
    EXPECT_FALSE(set.contains(FOCUS));
    EXPECT_FALSE(set.contains(0));
}

TEST(SubscriptionSet, SubscribeTakesTheIdOfTheFollowingRecord) {
    SubscriptionSet set;
    EXPECT_EQ(feed(set, {{Subscribe, 0, 0}, {FOCUS, 1, 7}}), (std::vector<bool>{true, true}));
    EXPECT_TRUE(set.contains(FOCUS));
    EXPECT_FALSE(set.contains(IRIS));
}

TEST(SubscriptionSet, OtherRecordsAreNotCommands) {
    SubscriptionSet set;
    EXPECT_EQ(feed(set, {{FOCUS, 0, 0}, {Invalid, 0, 0}, {CalibAllMotor, 0, 0}}),
              (std::vector<bool>{false, false, false}));
    EXPECT_FALSE(set.contains(FOCUS));
}

TEST(SubscriptionSet, TheOperandOfACommandMayBeACommandId) {
    SubscriptionSet set;
    feed(set, {{Subscribe, 0, 0}, {SubscribeAll, 0, 0}});
    EXPECT_TRUE(set.contains(SubscribeAll));
    EXPECT_FALSE(set.contains(FOCUS));
}

TEST(SubscriptionSet, UnsubscribeRemovesOneId) {
    SubscriptionSet set;
    feed(set, {{Subscribe, 0, 0}, {FOCUS, 0, 0}, {Subscribe, 0, 0}, {IRIS, 0, 0}});
    EXPECT_EQ(feed(set, {{Unsubscribe, 0, 0}, {FOCUS, 0, 0}}), (std::vector<bool>{true, true}));
    EXPECT_FALSE(set.contains(FOCUS));
    EXPECT_TRUE(set.contains(IRIS));
}

TEST(SubscriptionSet, SubscribeAllTakesEveryId) {
    SubscriptionSet set;
    EXPECT_EQ(feed(set, {{SubscribeAll, 0, 0}}), std::vector<bool>{true});
    EXPECT_TRUE(set.contains(FOCUS));
    EXPECT_TRUE(set.contains(0xFFFFFFFFu));
}

TEST(SubscriptionSet, UnsubscribeAfterSubscribeAllExcludesOneId) {
    SubscriptionSet set;
    feed(set, {{SubscribeAll, 0, 0}, {Unsubscribe, 0, 0}, {FOCUS, 0, 0}});
    EXPECT_FALSE(set.contains(FOCUS));
    EXPECT_TRUE(set.contains(IRIS));
    feed(set, {{Subscribe, 0, 0}, {FOCUS, 0, 0}});
    EXPECT_TRUE(set.contains(FOCUS));
}

TEST(SubscriptionSet, UnsubscribeAllCancelsEverything) {
    SubscriptionSet set;
    feed(set, {{Subscribe, 0, 0}, {FOCUS, 0, 0}, {SubscribeAll, 0, 0}});
    EXPECT_EQ(feed(set, {{UnsubscribeAll, 0, 0}}), std::vector<bool>{true});
    EXPECT_FALSE(set.contains(FOCUS));
    EXPECT_FALSE(set.contains(IRIS));
    feed(set, {{Subscribe, 0, 0}, {IRIS, 0, 0}});
    EXPECT_TRUE(set.contains(IRIS));
    EXPECT_FALSE(set.contains(FOCUS));
}

TEST(SubscriptionSet, SubscribeAllForgetsEarlierExclusions) {
    SubscriptionSet set;
    feed(set, {{SubscribeAll, 0, 0}, {Unsubscribe, 0, 0}, {FOCUS, 0, 0}, {SubscribeAll, 0, 0}});
    EXPECT_TRUE(set.contains(FOCUS));
}

} // namespace
