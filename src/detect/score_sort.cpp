// Descending partition sort of the candidate scores, carrying candidate
// numbers along.
//
// The permutation it leaves decides which of several equally scored boxes
// survives suppression, so it has to be exactly the one the plain recursive
// partition sort leaves: the first element is the pivot, a hole travels
// between a right cursor (stepping down over scores <= pivot) and a left
// cursor (stepping up over scores >= pivot), and elements equal to the pivot
// never move. Taken literally that is quadratic whenever partitions end far
// from the middle, which many equal scores make routine: a frame where all
// 8525 cells pass with a handful of distinct dequantized logits costs tens of
// millions of steps. Two changes keep the result identical and the cost near
// n log^2 n:
//
//  - A cursor walk only looks for the nearest index in a range whose score is
//    above (right cursor) or below (left cursor) the pivot. A max/min tree over
//    the scores answers that in O(log n) instead of walking, and the partition
//    then makes exactly the same assignments in the same order. The number of
//    assignments per partition is at most twice the smaller side plus one, so
//    their total is O(n log n).
//  - The two sides of a partition are disjoint and each side's result depends
//    only on its own contents, so they are sorted from an explicit stack,
//    smaller side first, instead of by recursion that can go n deep.
//
// Short ranges walk the cursors directly. A NaN score would stop both
// cursors for good (neither "<= key" nor ">= key" holds), so the plain sort
// never finishes on one; decoding never keeps a NaN, and a range holding one
// is left as it is.
#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "detect/postprocess_calculator.h"

namespace {

// Ranges up to this length are partitioned by walking: the walk is cheaper
// than tree upkeep there, and its worst case is bounded by the square of it.
constexpr int kWalkedRangeMax = 64;

// Cursor moves of the literal algorithm.
struct WalkingCursors {
    const float* s;

    // while (low < high && s[high] <= key) --high;
    int DownToAbove(int low, int high, float key) const {
        while (low < high && s[high] <= key) --high;
        return high;
    }
    // while (low < high && s[low] >= key) ++low;
    int UpToBelow(int low, int high, float key) const {
        while (low < high && s[low] >= key) ++low;
        return low;
    }
    void Moved(int, float) {}
};

// The same cursor moves answered by a max/min tree over s[base .. base+size).
//
// Invariant: every node holds the exact max/min of the current scores below it
// at positions that are still to be sorted. Positions that are done (pivots in
// their final place, short ranges finished by walking) are not written back, so
// nodes spanning them may hold stale values; such a node can only over-state
// its max and under-state its min for the positions a query asks about, which
// costs an extra descent but never hides an answer. Nodes lying wholly inside a
// queried range cover only positions still to be sorted and are exact.
class TreeCursors {
  public:
    TreeCursors(const float* s, int base, int size) : base_(base) {
        leaves_ = 1;
        while (leaves_ < size) leaves_ *= 2;
        hi_.assign(2 * leaves_, -std::numeric_limits<float>::infinity());
        lo_.assign(2 * leaves_, std::numeric_limits<float>::infinity());
        std::copy(s + base, s + base + size, hi_.begin() + leaves_);
        std::copy(s + base, s + base + size, lo_.begin() + leaves_);
        for (int k = leaves_ - 1; k >= 1; --k) {
            hi_[k] = std::max(hi_[2 * k], hi_[2 * k + 1]);
            lo_[k] = std::min(lo_[2 * k], lo_[2 * k + 1]);
        }
    }

    // Rightmost index in (low, high] with s > key, else low.
    int DownToAbove(int low, int high, float key) const {
        if (low >= high) return high;
        const int found = RightmostAbove(1, 0, leaves_ - 1, low + 1 - base_, high - base_, key);
        return found < 0 ? low : found + base_;
    }
    // Leftmost index in [low, high) with s < key, else high.
    int UpToBelow(int low, int high, float key) const {
        if (low >= high) return low;
        const int found = LeftmostBelow(1, 0, leaves_ - 1, low - base_, high - 1 - base_, key);
        return found < 0 ? high : found + base_;
    }
    void Moved(int pos, float value) {
        int k = leaves_ + pos - base_;
        hi_[k] = lo_[k] = value;
        for (k /= 2; k >= 1; k /= 2) {
            const float hi = std::max(hi_[2 * k], hi_[2 * k + 1]);
            const float lo = std::min(lo_[2 * k], lo_[2 * k + 1]);
            if (hi == hi_[k] && lo == lo_[k]) break;  // ancestors unchanged too
            hi_[k] = hi;
            lo_[k] = lo;
        }
    }

  private:
    int RightmostAbove(int node, int nl, int nr, int a, int b, float key) const {
        if (nr < a || nl > b || !(hi_[node] > key)) return -1;
        if (nl == nr) return nl;
        const int mid = (nl + nr) / 2;
        const int r = RightmostAbove(2 * node + 1, mid + 1, nr, a, b, key);
        return r >= 0 ? r : RightmostAbove(2 * node, nl, mid, a, b, key);
    }
    int LeftmostBelow(int node, int nl, int nr, int a, int b, float key) const {
        if (nr < a || nl > b || !(lo_[node] < key)) return -1;
        if (nl == nr) return nl;
        const int mid = (nl + nr) / 2;
        const int l = LeftmostBelow(2 * node, nl, mid, a, b, key);
        return l >= 0 ? l : LeftmostBelow(2 * node + 1, mid + 1, nr, a, b, key);
    }

    int base_;
    int leaves_;
    std::vector<float> hi_;
    std::vector<float> lo_;
};

// One partition of s[left..right] around s[left], moving o in step; returns
// the pivot's final position. The cursor walks are delegated, every
// assignment is the literal one.
template <class Cursors>
int Partition(float* s, int* o, int left, int right, Cursors& cursors) {
    const float key = s[left];
    const int keyIndex = o[left];
    int low = left;
    int high = right;
    while (low < high) {
        high = cursors.DownToAbove(low, high, key);
        s[low] = s[high];
        o[low] = o[high];
        cursors.Moved(low, s[low]);
        low = cursors.UpToBelow(low, high, key);
        s[high] = s[low];
        o[high] = o[low];
        cursors.Moved(high, s[high]);
    }
    s[low] = key;
    o[low] = keyIndex;
    return low;
}

struct Range {
    int left;
    int right;
};

// Sorts s[left..right] by repeated partitions, the smaller side first so that
// the stack holds at most log2(n) pending ranges. Ranges no longer than
// `walkedMax` are handed to the walking variant. Returns the position of the
// first pivot.
template <class Cursors>
int SortRange(float* s, int* o, int left, int right, Cursors& cursors, int walkedMax);

int SortWalking(float* s, int* o, int left, int right) {
    WalkingCursors walk{s};
    return SortRange(s, o, left, right, walk, 0);
}

template <class Cursors>
int SortRange(float* s, int* o, int left, int right, Cursors& cursors, int walkedMax) {
    Range stack[64];
    int depth = 0;
    int first = left;
    bool top = true;
    Range r{left, right};
    for (;;) {
        while (r.left < r.right) {
            int pivot;
            if (r.right - r.left < walkedMax) {
                pivot = SortWalking(s, o, r.left, r.right);
                if (top) first = pivot;
                top = false;
                break;
            }
            pivot = Partition(s, o, r.left, r.right, cursors);
            if (top) first = pivot;
            top = false;
            Range lower{r.left, pivot - 1};
            Range upper{pivot + 1, r.right};
            if (lower.right - lower.left > upper.right - upper.left) std::swap(lower, upper);
            stack[depth++] = upper;
            r = lower;
        }
        if (depth == 0) break;
        r = stack[--depth];
    }
    return first;
}

}  // namespace

int CodeDetectPostprocesCalculator::quickSortIndiceInverse(std::vector<float>& scores, int left,
                                                           int right, std::vector<int>& order) {
    if (left >= right) return left;
    // A range outside either list is a caller's mistake: leave both untouched
    // rather than write out of bounds.
    if (left < 0 || right >= static_cast<int>(scores.size()) ||
        right >= static_cast<int>(order.size())) {
        return left;
    }
    float* s = scores.data();
    int* o = order.data();
    if (std::any_of(s + left, s + right + 1, [](float v) { return std::isnan(v); })) return left;
    if (right - left < kWalkedRangeMax) return SortWalking(s, o, left, right);
    TreeCursors tree(s, left, right - left + 1);
    return SortRange(s, o, left, right, tree, kWalkedRangeMax);
}
