#include "subscriptionset.h"

bool SubscriptionSet::apply(const Notify& record) {
    if (pending != Invalid) {
        const bool include = pending == Subscribe;
        pending = Invalid;
        if (record.id >= EVENT_ID_COUNT) {
            ++refusedCount;
            lastRefusedId = record.id;
        } else {
            ids.set(record.id, include != all);
        }
        return true;
    }
    switch (record.id) {
    case Subscribe:
    case Unsubscribe:
        pending = record.id;
        return true;
    case SubscribeAll:
    case UnsubscribeAll:
        all = record.id == SubscribeAll;
        ids.reset();
        return true;
    default:
        return false;
    }
}
