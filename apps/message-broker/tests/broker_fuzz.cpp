// Fuzz entry for the broker's record stream, without sockets: arbitrary bytes
// from several clients go through the framing (RecordReader) and the
// broker's routing (takeRecords, SubscriptionSet, OutputBuffer), and what
// each client has queued must match an independent model.
//
// Input: a sequence of operations.  Each starts with one byte: its low two
// bits pick one of four clients, the rest the operation:
//   0 to 5: send; the next byte is a length, that many following bytes are
//           what the client writes (cut where the input ends);
//   6:      the client hangs up and another connects in its place (its
//           incomplete record and subscriptions go with it);
//   7:      the client's queue is checked against the model.
// Every queue is checked at the end.
//
// The model keeps each client's bytes whole and cuts records from them at
// 12-byte steps; a client's subscription to an id is decided by replaying
// its command history backwards (the last SubscribeAll, UnsubscribeAll, or
// Subscribe/Unsubscribe of that id wins; none: not subscribed); a
// Subscribe/Unsubscribe of an id outside the event table decides nothing.
#include "routing.h"
#include "settings-service/brokerprotocol.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace {

constexpr size_t CLIENTS = 4;
// Three records of scratch: reads are cut short often.
constexpr size_t SCRATCH_RECORDS = 3;

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

bool same(const Notify& a, const Notify& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

struct Decision {
    enum Kind { All, None, Include, Exclude } kind;
    uint32_t id;
};

// What the model knows of one client.
struct Model {
    std::vector<uint8_t> sent;
    size_t recordsTaken = 0;
    std::vector<Decision> history;
    uint32_t pendingCommand = Invalid;
    std::vector<uint8_t> expected;

    bool subscribed(uint32_t id) const {
        for (auto decision = history.rbegin(); decision != history.rend(); ++decision) {
            switch (decision->kind) {
            case Decision::All:
                return true;
            case Decision::None:
                return false;
            case Decision::Include:
            case Decision::Exclude:
                if (decision->id == id) {
                    return decision->kind == Decision::Include;
                }
                break;
            }
        }
        return false;
    }

    // Returns true when the record is to be forwarded.
    bool take(const Notify& record) {
        if (pendingCommand != Invalid) {
            // An operand outside the event table is refused: no decision.
            if (record.id < EVENT_ID_COUNT) {
                history.push_back(
                    {pendingCommand == Subscribe ? Decision::Include : Decision::Exclude,
                     record.id});
            }
            pendingCommand = Invalid;
            return false;
        }
        if (record.id == SubscribeAll || record.id == UnsubscribeAll) {
            history.push_back({record.id == SubscribeAll ? Decision::All : Decision::None, 0});
            return false;
        }
        if (record.id == Subscribe || record.id == Unsubscribe) {
            pendingCommand = record.id;
            return false;
        }
        return true;
    }
};

class Exchange {
public:
    Exchange() {
        for (size_t i = 0; i < CLIENTS; ++i) {
            peers.push_back(std::make_unique<Peer>());
        }
    }

    void send(size_t client, const uint8_t* data, size_t size) {
        Peer& peer = *peers[client];
        while (size > 0) {
            std::span<uint8_t> room = peer.reader.prepare(scratch);
            size_t part = size < room.size() ? size : room.size();
            std::memcpy(room.data(), data, part);
            models[client].sent.insert(models[client].sent.end(), data, data + part);
            size_t records = peer.reader.complete(scratch, part);
            data += part;
            size -= part;
            expectRecords(client, std::span(scratch).first(records));
            takeRecords(peer, std::span(scratch).first(records), peers, total,
                        [](Peer&, QueueLimit) {
                            // Inputs are far too short to fill a queue.
                            check(false);
                        });
        }
    }

    void reconnect(size_t client) {
        checkQueue(client);
        total.bytes -= peers[client]->output.pending();
        peers[client]->open = false;
        peers[client] = std::make_unique<Peer>();
        models[client] = Model();
    }

    void checkQueue(size_t client) const {
        std::span<const uint8_t> queued = peers[client]->output.queued();
        const std::vector<uint8_t>& expected = models[client].expected;
        check(queued.size() == expected.size());
        check(queued.empty() || std::memcmp(queued.data(), expected.data(), queued.size()) == 0);
    }

private:
    // The records the reader produced must be the model's next whole records;
    // the model then routes them.
    void expectRecords(size_t sender, std::span<const Notify> records) {
        Model& model = models[sender];
        for (const Notify& record : records) {
            check((model.recordsTaken + 1) * sizeof(Notify) <= model.sent.size());
            Notify cut;
            std::memcpy(&cut, model.sent.data() + model.recordsTaken * sizeof(Notify), sizeof cut);
            ++model.recordsTaken;
            check(same(cut, record));
            if (!model.take(cut)) {
                continue;
            }
            for (Model& receiver : models) {
                if (receiver.subscribed(cut.id)) {
                    const auto* bytes = reinterpret_cast<const uint8_t*>(&cut);
                    receiver.expected.insert(receiver.expected.end(), bytes, bytes + sizeof cut);
                }
            }
        }
        check(model.sent.size() / sizeof(Notify) == model.recordsTaken);
    }

    std::vector<std::unique_ptr<Peer>> peers;
    QueueTotal total;
    Model models[CLIENTS];
    std::vector<Notify> scratch = std::vector<Notify>(SCRATCH_RECORDS);
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Exchange exchange;
    size_t at = 0;
    while (at < size) {
        uint8_t operation = data[at++];
        size_t client = operation % CLIENTS;
        switch (operation / CLIENTS % 8) {
        case 6:
            exchange.reconnect(client);
            break;
        case 7:
            exchange.checkQueue(client);
            break;
        default: {
            size_t length = at < size ? data[at++] : 0;
            if (length > size - at) {
                length = size - at;
            }
            exchange.send(client, data + at, length);
            at += length;
            break;
        }
        }
    }
    for (size_t client = 0; client < CLIENTS; ++client) {
        exchange.checkQueue(client);
    }
    return 0;
}
