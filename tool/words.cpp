#include "tool/words.h"

#include <algorithm>

namespace yfs::tool {

namespace {

// Edit distance with swaps of neighbours (optimal string alignment).
std::size_t distance(std::string_view a, std::string_view b)
{
    std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                d[i][j] = i + j;
                continue;
            }
            const std::size_t change = a[i - 1] == b[j - 1] ? 0 : 1;
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + change});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
    }
    return d[a.size()][b.size()];
}

} // namespace

std::string nearest(std::string_view word, const std::vector<std::string>& known)
{
    const auto closer = [&](const std::string& a, const std::string& b) {
        return distance(word, a) < distance(word, b);
    };
    const auto best = std::min_element(known.begin(), known.end(), closer);
    return best == known.end() ? std::string() : *best;
}

} // namespace yfs::tool
