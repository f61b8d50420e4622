#include "cli.h"

#include "closest.h"

#include <charconv>

Result<Arguments> Arguments::parse(const std::vector<std::string>& input,
                                   const std::set<std::string>& flags,
                                   const std::set<std::string>& valued) {
    Arguments parsed;
    std::vector<std::string>& words = parsed.words;
    std::set<std::string>& present = parsed.present;
    std::map<std::string, std::string>& values = parsed.values;
    std::vector<std::string> known(flags.begin(), flags.end());
    known.insert(known.end(), valued.begin(), valued.end());
    for (size_t i = 0; i < input.size(); ++i) {
        const std::string& word = input[i];
        if (word == "--") {
            words.insert(words.end(), input.begin() + i + 1, input.end());
            break;
        }
        if (!word.starts_with("--")) {
            words.push_back(word);
            continue;
        }
        const size_t equals = word.find('=');
        const std::string name = word.substr(0, equals);
        if (flags.count(name) != 0 && equals == std::string::npos) {
            present.insert(name);
        } else if (valued.count(name) != 0) {
            if (equals != std::string::npos) {
                values[name] = word.substr(equals + 1);
            } else if (i + 1 < input.size()) {
                values[name] = input[++i];
            } else {
                return usageError("option " + name + " needs a value");
            }
            present.insert(name);
        } else {
            const std::string hint = suggestion(name, known);
            return usageError("unknown option " + word + (hint.empty() ? "" : ". " + hint));
        }
    }
    return parsed;
}

std::optional<std::string> Arguments::value(const std::string& option) const {
    const auto found = values.find(option);
    if (found == values.end()) {
        return std::nullopt;
    }
    return found->second;
}

Result<unsigned> Arguments::number(const std::string& option, unsigned fallback) const {
    const std::optional<std::string> text = value(option);
    if (!text) {
        return fallback;
    }
    const std::optional<unsigned> parsed = parseNumber(*text);
    if (!parsed) {
        return usageError("option " + option + " needs a number, not \"" + *text + "\"");
    }
    return *parsed;
}

Result<void> Arguments::expectPositional(size_t least, size_t most) const {
    if (words.size() < least) {
        return usageError("missing arguments");
    }
    if (words.size() > most) {
        return usageError("too many arguments, from \"" + words[most] + "\" on");
    }
    return {};
}

std::optional<unsigned> parseNumber(const std::string& text) {
    unsigned number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (text.empty() || error != std::errc() || stop != end) {
        return std::nullopt;
    }
    return number;
}
