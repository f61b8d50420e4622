// Suggestions for a mistyped name: the valid names nearest to it by edit
// distance (insertions, deletions and substitutions; letter case counts as a
// difference of one, so "mempersistent" still finds "MemPersistent").
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

size_t editDistance(std::string_view a, std::string_view b);

// Up to `limit` candidates nearest to `name`, nearest first (ties in the
// candidates' order): a match ignoring case first, then names that begin
// with `name`, then by edit distance.  Candidates further away than a third of the
// longer of the two names are left out.
std::vector<std::string> closestNames(std::string_view name,
                                      const std::vector<std::string>& candidates, size_t limit = 3);

// "Did you mean: A, B, C?" or "" when there is nothing close.
std::string suggestion(std::string_view name, const std::vector<std::string>& candidates);
