#include "closest.h"

#include <algorithm>
#include <cctype>
#include <numeric>

namespace {

bool sameIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

} // namespace

size_t editDistance(std::string_view a, std::string_view b) {
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t above = row[j];
            row[j] = std::min({above + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])});
            diagonal = above;
        }
    }
    return row[b.size()];
}

std::vector<std::string> closestNames(std::string_view name,
                                      const std::vector<std::string>& candidates, size_t limit) {
    std::vector<std::pair<size_t, size_t>> ranked; // (distance, candidate position)
    for (size_t i = 0; i < candidates.size(); ++i) {
        const std::string& candidate = candidates[i];
        const size_t distance = editDistance(name, candidate);
        if (sameIgnoringCase(name, candidate)) {
            ranked.emplace_back(0, i);
        } else if (!name.empty() && candidate.starts_with(name)) {
            ranked.emplace_back(1, i);
        } else if (distance * 3 <= std::max(name.size(), candidate.size())) {
            ranked.emplace_back(distance, i);
        }
    }
    std::stable_sort(ranked.begin(), ranked.end(),
                     [](const auto& x, const auto& y) { return x.first < y.first; });
    std::vector<std::string> result;
    for (size_t i = 0; i < ranked.size() && i < limit; ++i) {
        result.push_back(candidates[ranked[i].second]);
    }
    return result;
}

std::string suggestion(std::string_view name, const std::vector<std::string>& candidates) {
    const std::vector<std::string> names = closestNames(name, candidates);
    if (names.empty()) {
        return "";
    }
    std::string text = "Did you mean: ";
    for (size_t i = 0; i < names.size(); ++i) {
        text += (i ? ", " : "") + names[i];
    }
    return text + "?";
}
