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

TEST(SubscriptionSet, AnIdOutsideTheEventTableIsRefusedAndCounted) {
    SubscriptionSet set;
    const auto beyond = static_cast<EventId>(EVENT_ID_COUNT);
    const auto far = static_cast<EventId>(0xFFFFFFF0);
    EXPECT_EQ(feed(set, {{Subscribe, 0, 0}, {beyond, 0, 0}, {Subscribe, 0, 0}, {far, 0, 0}}),
              (std::vector<bool>{true, true, true, true}));
    EXPECT_FALSE(set.contains(beyond));
    EXPECT_FALSE(set.contains(far));
    EXPECT_EQ(set.refusals(), 2u);
    EXPECT_EQ(set.lastRefusal(), 0xFFFFFFF0u);
    // The last id of the table is taken; an Unsubscribe outside it is refused too.
    feed(set, {{Subscribe, 0, 0}, {static_cast<EventId>(EVENT_ID_COUNT - 1), 0, 0}});
    EXPECT_TRUE(set.contains(EVENT_ID_COUNT - 1));
    feed(set, {{Unsubscribe, 0, 0}, {beyond, 0, 0}});
    EXPECT_EQ(set.refusals(), 3u);
}

TEST(SubscriptionSet, SubscribeAllStillDeliversIdsOutsideTheTable) {
    SubscriptionSet set;
    feed(set, {{SubscribeAll, 0, 0}, {Unsubscribe, 0, 0}, {static_cast<EventId>(5000), 0, 0}});
    EXPECT_TRUE(set.contains(5000));
    EXPECT_TRUE(set.contains(0xFFFFFFFF));
    EXPECT_EQ(set.refusals(), 1u);
}

TEST(SubscriptionSet, ItsSizeIsFixedWhateverIsSubscribed) {
    static_assert(sizeof(SubscriptionSet) <= 160, "a bitset over the event table and a few words");
    SubscriptionSet set;
    for (uint32_t id = 0; id < 200000; ++id) {
        set.apply({Subscribe, 0, 0});
        set.apply({static_cast<EventId>(id), 0, 0});
    }
    for (uint32_t id = 6; id < EVENT_ID_COUNT; ++id) {
        EXPECT_TRUE(set.contains(id)) << id;
    }
    EXPECT_EQ(set.refusals(), 200000u - EVENT_ID_COUNT);
}

} // namespace
