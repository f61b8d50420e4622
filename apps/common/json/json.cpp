#include "settings-service/json.h"

#include <stdexcept>

template <> Json::State Json::nextChar<Json::Begin>(char c) {
    if (c == '[') {
        outerClose = ']';
        outerIsArray = true;
        return ValueStart;
    }
    if (c == '{') {
        outerClose = '}';
        return outerIsArray ? ValueStart : NameStart;
    }
    return Failed;
}

template <> Json::State Json::nextChar<Json::NameStart>(char c) {
    if (isString(c)) {
        nameQuote = c;
    } else {
        nameQuote = 0;
        name += c;
    }
    return Name;
}

template <> Json::State Json::nextChar<Json::Name>(char c) {
    if (c == ':')
        return ValueStart;
    if (isWhitespace(c) || c == nameQuote)
        return NameEnd;
    name += c;
    return Name;
}

template <> Json::State Json::nextChar<Json::NameEnd>(char c) {
    return c == ':' ? ValueStart : Failed;
}

template <> Json::State Json::nextChar<Json::ValueStart>(char c) {
    if (char close = isObjectStart(c)) {
        openChar = c;
        closeChar = close;
        depth = 1;
        valueIsObject = true;
        valueText += c;
    } else if (isString(c)) {
        openChar = 0;
        closeChar = c;
        depth = 1;
    } else {
        openChar = 0;
        closeChar = 0;
        valueText += c;
    }
    return Value;
}

// The separator after a value: a comma starts the next item, the top-level
// closing bracket ends the document; anything else is Failed.
Json::State Json::afterSeparator(char c) {
    if (c == ',')
        return outerIsArray ? ValueStart : NameStart;
    if (c == outerClose)
        return Finished;
    return Failed;
}

template <> Json::State Json::nextChar<Json::Value>(char c) {
    if (c == openChar)
        ++depth;
    if (c == closeChar) {
        --depth;
        if (depth == 0) {
            if (valueIsObject)
                valueText += c;
            return ValueEnd;
        }
    }
    if (closeChar == 0) {
        if (isWhitespace(c))
            return ValueEnd;
        State next = afterSeparator(c);
        if (next != Failed)
            return next;
    }
    valueText += c;
    return Value;
}

template <> Json::State Json::nextChar<Json::ValueEnd>(char c) {
    return afterSeparator(c);
}

template <> Json::State Json::nextChar<Json::Finished>(char c) {
    return isWhitespace(c) ? Finished : Failed;
}

template <> Json::State Json::nextChar<Json::Failed>(char) {
    return Failed;
}

void Json::finishItem() {
    items.emplace_back(std::move(name), ObjectValue{std::move(valueText), valueIsObject});
    name.clear();
    valueText.clear();
    valueIsObject = false;
    closeChar = 0;
    nameQuote = 0;
}

// The state's function for one character.
Json::State Json::step(char c) {
    switch (state) {
    case Begin:
        return nextChar<Begin>(c);
    case NameStart:
        return nextChar<NameStart>(c);
    case Name:
        return nextChar<Name>(c);
    case NameEnd:
        return nextChar<NameEnd>(c);
    case ValueStart:
        return nextChar<ValueStart>(c);
    case Value:
        return nextChar<Value>(c);
    case ValueEnd:
        return nextChar<ValueEnd>(c);
    case Finished:
        return nextChar<Finished>(c);
    case Failed:
        break;
    }
    return nextChar<Failed>(c);
}

// Appends to `to` the characters of `text` from `from` on while `plain` holds
// for them; the index of the first one for which it does not (or the end).
template <typename Plain>
std::string::size_type Json::appendRun(const std::string& text, std::string::size_type from,
                                       std::string& to, Plain plain) {
    std::string::size_type stop = from;
    while (stop < text.size() && plain(text[stop])) {
        ++stop;
    }
    to.append(text, from, stop - from);
    return stop;
}

bool Json::parse(const std::string& text) {
    errorPosition = -1;
    state = Begin;
    name.clear();
    nameQuote = 0;
    valueText.clear();
    valueIsObject = false;
    openChar = 0;
    closeChar = 0;
    depth = 0;

    const std::string::size_type size = text.size();
    for (std::string::size_type i = 0; i < size; ++i) {
        // Runs of characters that the state only appends are copied at once.
        if (state == Value && closeChar != 0) {
            i = appendRun(text, i, valueText,
                          [this](char c) { return c != openChar && c != closeChar; });
        } else if (state == Name) {
            i = appendRun(text, i, name, [this](char c) {
                return c != ':' && !isWhitespace(c) && c != nameQuote;
            });
        }
        if (i == size) {
            break;
        }
        const char c = text[i];
        if (state != Name && state != Value && isWhitespace(c))
            continue;
        const State previous = state;
        state = step(c);
        if (state == Failed) {
            errorPosition = static_cast<int>(i);
            return false;
        }
        if (previous == Value && state != Value)
            finishItem();
    }
    return true;
}

const Json::ObjectValue* Json::find(const std::string& key) const {
    for (const Item& item : items)
        if (item.first == key)
            return &item.second;
    return nullptr;
}

const Json::ObjectValue& Json::operator[](const std::string& key) const {
    if (const ObjectValue* found = find(key))
        return *found;
    throw std::runtime_error("Not found");
}
