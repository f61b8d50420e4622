#include "subscriptionset.h"

bool SubscriptionSet::apply(const Notify& record) {
    if (pending != Invalid) {
        bool include = pending == Subscribe;
        pending = Invalid;
        if (include != all) {
            ids.insert(record.id);
        } else {
            ids.erase(record.id);
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
        ids.clear();
        return true;
    default:
        return false;
    }
}
