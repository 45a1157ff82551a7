#include "kxPointSorter.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

using Vec2 = Wm4::Vector2<double>;

// A function object, not a function: std::sort then inlines the comparison.
constexpr auto xThenY = [](const Vec2& a, const Vec2& b) { return a[0] < b[0] || (a[0] == b[0] && a[1] < b[1]); };

// Below this many points a plain sort is as quick.
constexpr size_t kFewPoints = 64;

}  // namespace

void kxPointSorter::sortByXThenY(std::vector<Vec2>& points)
{
    const size_t count = points.size();
    double low = std::numeric_limits<double>::infinity(), high = -low;
    bool finite = true;
    for (const Vec2& p : points) {
        finite = finite && std::isfinite(p[0]);
        low = std::min(low, p[0]);
        high = std::max(high, p[0]);
    }
    const double bucketsPerUnit = double(count) / (high - low);
    if (count < kFewPoints || !finite || !(high > low) || !std::isfinite(high - low) ||
        !std::isfinite(bucketsPerUnit)) {
        std::sort(points.begin(), points.end(), xThenY);
        return;
    }
    // Every rounded operation here is non-decreasing in x, so is the bucket:
    // x ≤ x' gives bucket(x) ≤ bucket(x'), and equal x share a bucket.
    const double lastBucket = double(count - 1);
    const auto bucketOf = [&](const Vec2& p) { return size_t(std::min((p[0] - low) * bucketsPerUnit, lastBucket)); };

    mBucketStarts.assign(count + 1, 0);
    for (const Vec2& p : points)
        ++mBucketStarts[bucketOf(p) + 1];
    for (size_t b = 0; b < count; ++b)
        mBucketStarts[b + 1] += mBucketStarts[b];
    mDealt.resize(count);
    for (const Vec2& p : points)
        mDealt[mBucketStarts[bucketOf(p)]++] = p;
    // Each start has moved on to the next bucket's start.
    size_t begin = 0;
    for (size_t b = 0; b < count; ++b) {
        const size_t end = mBucketStarts[b];
        if (end - begin > 1)
            std::sort(mDealt.begin() + std::ptrdiff_t(begin), mDealt.begin() + std::ptrdiff_t(end), xThenY);
        begin = end;
    }
    points.swap(mDealt);
}
