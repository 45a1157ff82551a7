// kxPointSorter: sorts 2D points by x, then by y, in close to linear time when
// the x coordinates are spread out (contact samples seen along a direction).
//
// The result is the sequence std::sort gives with the comparison
// "a.x < b.x or (a.x == b.x and a.y < b.y)", up to the arrangement of points
// that compare equal (identical points, or points whose coordinates differ
// only in the sign of a zero). The points are dealt into as many buckets as
// there are points by a non-decreasing function of x, so every point of one
// bucket comes after every point of an earlier bucket in that order; then each
// bucket is sorted with that comparison. Points with a non-finite x, or all
// with one x, are sorted directly. The sorter keeps its scratch between calls.
#pragma once

#include <vector>

#include "Wm4.h"

class kxPointSorter {
public:
    void sortByXThenY(std::vector<Wm4::Vector2<double>>& points);

private:
    std::vector<Wm4::Vector2<double>> mDealt;
    std::vector<unsigned> mBucketStarts;
};
