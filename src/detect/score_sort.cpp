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

// The same cursor moves, stepping over whole blocks of 32 scores at once when
// the block's bounds show that the literal walk would step over every one.
//
// Each block keeps an upper bound of its scores' max and a lower bound of
// their min. A move into a block only widens them; a block scanned in full
// without a stop gets its exact bounds back. Only blocks lying wholly inside
// the walked range are skipped or tightened, and those hold nothing but
// positions still to be sorted, each written through Moved, so their bounds
// are valid. Positions that are done (pivots in their final place, short
// ranges finished by the plain walk) are never walked again.
class BlockCursors {
  public:
    static constexpr int kShift = 5;
    static constexpr int kBlock = 1 << kShift;

    BlockCursors(const float* s, int base, int size) : s_(s), base_(base), end_(base + size) {
        const int blocks = (size + kBlock - 1) >> kShift;
        hi_.resize(blocks);
        lo_.resize(blocks);
        for (int b = 0; b < blocks; ++b) Tighten(b);
    }

    // while (low < high && s[high] <= key) --high;
    int DownToAbove(int low, int high, float key) {
        int i = high;
        while (i > low) {
            const int rel = i - base_;
            const int blk = rel >> kShift;
            const int first = i - (kBlock - 1);
            if ((rel & (kBlock - 1)) == kBlock - 1 && first > low) {
                if (!(hi_[blk] > key)) {
                    i = first - 1;
                    continue;
                }
                for (; i >= first; --i) {
                    if (!(s_[i] <= key)) return i;
                }
                Tighten(blk);
                continue;
            }
            if (!(s_[i] <= key)) return i;
            --i;
        }
        return low;
    }

    // while (low < high && s[low] >= key) ++low;
    int UpToBelow(int low, int high, float key) {
        int i = low;
        while (i < high) {
            const int rel = i - base_;
            const int blk = rel >> kShift;
            const int last = i + (kBlock - 1);
            if ((rel & (kBlock - 1)) == 0 && last < high) {
                if (!(lo_[blk] < key)) {
                    i = last + 1;
                    continue;
                }
                for (; i <= last; ++i) {
                    if (!(s_[i] >= key)) return i;
                }
                Tighten(blk);
                continue;
            }
            if (!(s_[i] >= key)) return i;
            ++i;
        }
        return high;
    }

    void Moved(int pos, float value) {
        const int blk = (pos - base_) >> kShift;
        hi_[blk] = std::max(hi_[blk], value);
        lo_[blk] = std::min(lo_[blk], value);
    }

  private:
    void Tighten(int blk) {
        const float* first = s_ + base_ + (blk << kShift);
        const float* last = std::min(first + kBlock, s_ + end_);
        const auto range = std::minmax_element(first, last);
        lo_[blk] = *range.first;
        hi_[blk] = *range.second;
    }

    const float* s_;
    int base_;
    int end_;
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
    BlockCursors blocks(s, left, right - left + 1);
    return SortRange(s, o, left, right, blocks, kWalkedRangeMax);
}
