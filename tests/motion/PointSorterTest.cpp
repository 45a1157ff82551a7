#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <vector>

#include "kxPointSorter.h"

namespace {

using Vec2 = Wm4::Vector2<double>;

bool xThenY(const Vec2& a, const Vec2& b) { return a[0] < b[0] || (a[0] == b[0] && a[1] < b[1]); }

struct PointSetCase {
    const char* name;
    std::function<Vec2(std::mt19937&, size_t)> point;  // the i-th point
};

// The sorted sequence must be std::sort's, element by element, where points
// that compare equal count as the same (so ±0 twins may trade places).
TEST(PointSorter, SortsLikeAComparisonSort)
{
    std::uniform_real_distribution<double> unit(-0.5, 0.5);
    const double inf = std::numeric_limits<double>::infinity();
    const PointSetCase cases[] = {
        {"spread", [&](std::mt19937& g, size_t) { return Vec2(unit(g), unit(g)); }},
        {"near a line", [&](std::mt19937& g, size_t) { const double t = unit(g); return Vec2(t, 0.3 * t + 1e-15 * unit(g)); }},
        {"few x values", [&](std::mt19937& g, size_t) { return Vec2(std::floor(4.0 * unit(g)) / 4.0, unit(g)); }},
        {"one x", [&](std::mt19937& g, size_t) { return Vec2(0.25, unit(g)); }},
        {"duplicates", [&](std::mt19937& g, size_t) { return Vec2(std::round(8 * unit(g)), std::round(2 * unit(g))); }},
        {"signed zeros", [&](std::mt19937& g, size_t i) { return Vec2(i % 3 ? 0.0 : -0.0, unit(g) < 0 ? -0.0 : 0.0); }},
        {"clustered", [&](std::mt19937& g, size_t i) { return Vec2(i % 7 ? 1e-12 * unit(g) : unit(g), unit(g)); }},
        {"infinite x", [&](std::mt19937& g, size_t i) { return Vec2(i % 50 ? unit(g) : (i % 100 ? inf : -inf), 0.0); }},
        {"huge range", [&](std::mt19937& g, size_t i) { return Vec2(i % 2 ? 1.5e308 : -1.5e308 * (unit(g) + 0.5), unit(g)); }},
        {"tiny range", [&](std::mt19937& g, size_t i) { return Vec2(i % 2 ? 4.9e-324 : 0.0, unit(g)); }},
    };
    for (const PointSetCase& c : cases) {
        for (const size_t count : {size_t(0), size_t(1), size_t(5), size_t(63), size_t(64), size_t(1000), size_t(20000)}) {
            std::mt19937 generator{unsigned(count)};
            std::vector<Vec2> points(count);
            for (size_t i = 0; i < count; ++i)
                points[i] = c.point(generator, i);
            std::vector<Vec2> expected = points;
            std::sort(expected.begin(), expected.end(), xThenY);
            kxPointSorter sorter;
            for (int round = 0; round < 2; ++round) {  // scratch left from a first call must not matter
                std::vector<Vec2> sorted = points;
                sorter.sortByXThenY(sorted);
                ASSERT_EQ(sorted.size(), count) << c.name;
                for (size_t i = 0; i < count; ++i) {
                    ASSERT_TRUE(sorted[i] == expected[i])
                        << c.name << ", " << count << " points, position " << i << ": (" << sorted[i][0] << ", "
                        << sorted[i][1] << ") instead of (" << expected[i][0] << ", " << expected[i][1] << ")";
                }
            }
        }
    }
}

}  // namespace
