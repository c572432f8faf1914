#include <stddef.h>

#include <algorithm>
#include <numeric>

#include "host/settings.h"

namespace erps::host {

namespace {

// Levenshtein distance.
size_t distance(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t above = row[j];
      const size_t replaced = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
      row[j] = std::min({above + 1, row[j - 1] + 1, replaced});
      diagonal = above;
    }
  }
  return row[b.size()];
}

}  // namespace

std::string nearest(std::string_view word, const std::vector<std::string>& known) {
  std::string best;
  size_t best_distance = std::max<size_t>(2, word.size() / 2);
  for (const std::string& candidate : known) {
    const size_t d = distance(word, candidate);
    if (d < best_distance || (d == best_distance && best.empty())) {
      best = candidate;
      best_distance = d;
    }
  }
  return best;
}

}  // namespace erps::host
