// Descending partition sort of the candidate scores, carrying candidate
// numbers along.
//
// The permutation it leaves decides which of several equally scored boxes
// survives suppression, so it has to be exactly the one the plain recursive
// partition sort leaves: the first element is the pivot, a hole travels
// between a right cursor (stepping down over scores <= pivot) and a left
// cursor (stepping up over scores >= pivot), and elements equal to the pivot
// never move. Taken literally that is quadratic whenever partitions end far
// from the middle, which many equal scores make routine: a frame where every
// cell of every head passes with a handful of distinct dequantized logits
// costs tens of millions of steps. Two changes keep the result identical and the cost close
// to that of a balanced sort:
//
//  - A cursor walk only looks for the nearest index in a range whose score is
//    above (right cursor) or below (left cursor) the pivot. Bounds kept per
//    block of scores, with a tree over the blocks, let a walk jump over every
//    block that cannot stop it, and the partition then makes exactly the same
//    assignments in the same order. The number of assignments per partition
//    is at most twice the smaller side plus one, so their total is
//    O(n log n); long walks no longer cost their length.
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
// than block upkeep there, and its worst case is bounded by the square of it.
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

// The same cursor moves, stepping over whole blocks of 32 scores when their
// bounds show that the literal walk would step over every one of them.
//
// Each block has an upper bound of its scores' max and a lower bound of their
// min, and a binary tree over the blocks holds bounds of its subtrees, so the
// nearest block that may stop a cursor is found in O(log n) however far away
// it lies. A move into a block only widens the bounds on its path (usually
// stopping at once); a block scanned in full without a stop gets exact bounds
// again. Blocks only partly inside the walked range are walked unless their
// bounds rule a stop out; only blocks wholly inside it are skipped by the tree
// or tightened. Bounds hold for every position still to be sorted, as each
// write to one goes through Moved; positions that are done (pivots in their
// final place, short ranges finished by the plain walk) are never walked
// again, and stale bounds of blocks containing them only over-state.
class BlockCursors {
  public:
    BlockCursors(const float* s, int base, int size) : s_(s), base_(base), end_(base + size) {
        const int blocks = (size + kBlock - 1) >> kShift;
        leaves_ = 1;
        while (leaves_ < blocks) leaves_ *= 2;
        hi_.assign(2 * leaves_, -std::numeric_limits<float>::infinity());
        lo_.assign(2 * leaves_, std::numeric_limits<float>::infinity());
        for (int b = 0; b < blocks; ++b) ExactLeaf(b);
        for (int k = leaves_ - 1; k >= 1; --k) Pull(k);
    }

    // while (low < high && s[high] <= key) --high;
    int DownToAbove(int low, int high, float key) {
        if (low >= high) return high;
        // Most walks stop within a few steps; those need no bookkeeping.
        for (const int plain = std::max(low, high - kPlainSteps); high > plain; --high) {
            if (!(s_[high] <= key)) return high;
        }
        if (high == low) return low;
        const int first = low + 1;  // the walk covers first .. high, downward
        const int top = BlockOf(high);
        const int bottom = BlockOf(first);
        int found = WalkDown(std::max(first, BlockStart(top)), high, top, key);
        if (found >= 0 || top == bottom) return found >= 0 ? found : low;
        for (int b = top - 1; b > bottom; --b) {
            if (!(hi_[leaves_ + b] > key)) {
                // Ask the tree for the next block that may stop the walk.
                b = b - 1 > bottom ? RightmostAbove(1, 0, leaves_ - 1, bottom + 1, b - 1, key) : -1;
                if (b < 0) break;
            }
            found = WalkDown(BlockStart(b), BlockStart(b + 1) - 1, b, key);
            if (found >= 0) return found;
            Tighten(b);
        }
        found = WalkDown(first, BlockStart(bottom + 1) - 1, bottom, key);
        return found >= 0 ? found : low;
    }

    // while (low < high && s[low] >= key) ++low;
    int UpToBelow(int low, int high, float key) {
        if (low >= high) return low;
        for (const int plain = std::min(high, low + kPlainSteps); low < plain; ++low) {
            if (!(s_[low] >= key)) return low;
        }
        if (low == high) return high;
        const int last = high - 1;  // the walk covers low .. last, upward
        const int bottom = BlockOf(low);
        const int top = BlockOf(last);
        int found = WalkUp(low, std::min(last, BlockStart(bottom + 1) - 1), bottom, key);
        if (found >= 0 || top == bottom) return found >= 0 ? found : high;
        for (int b = bottom + 1; b < top; ++b) {
            if (!(lo_[leaves_ + b] < key)) {
                b = b + 1 < top ? LeftmostBelow(1, 0, leaves_ - 1, b + 1, top - 1, key) : -1;
                if (b < 0) break;
            }
            found = WalkUp(BlockStart(b), BlockStart(b + 1) - 1, b, key);
            if (found >= 0) return found;
            Tighten(b);
        }
        found = WalkUp(BlockStart(top), last, top, key);
        return found >= 0 ? found : high;
    }

    void Moved(int pos, float value) {
        const int leaf = leaves_ + ((pos - base_) >> kShift);
        // Parents bound their children, so widening stops at the first node
        // that already covers the value.
        for (int k = leaf; k >= 1 && !(hi_[k] >= value); k /= 2) hi_[k] = value;
        for (int k = leaf; k >= 1 && !(lo_[k] <= value); k /= 2) lo_[k] = value;
    }

  private:
    static constexpr int kShift = 5;
    static constexpr int kBlock = 1 << kShift;
    static constexpr int kPlainSteps = 8;

    int BlockStart(int b) const { return base_ + (b << kShift); }
    int BlockOf(int pos) const { return (pos - base_) >> kShift; }

    // The literal walks over from..to of block b, unless the block's bounds
    // show they would not stop there. Return the stop, or -1.
    int WalkDown(int from, int to, int b, float key) const {
        if (!(hi_[leaves_ + b] > key)) return -1;
        for (int i = to; i >= from; --i) {
            if (!(s_[i] <= key)) return i;
        }
        return -1;
    }
    int WalkUp(int from, int to, int b, float key) const {
        if (!(lo_[leaves_ + b] < key)) return -1;
        for (int i = from; i <= to; ++i) {
            if (!(s_[i] >= key)) return i;
        }
        return -1;
    }

    void ExactLeaf(int b) {
        const float* first = s_ + BlockStart(b);
        const float* last = std::min(first + kBlock, s_ + end_);
        const auto range = std::minmax_element(first, last);
        lo_[leaves_ + b] = *range.first;
        hi_[leaves_ + b] = *range.second;
    }
    // Returns whether the node's bounds changed.
    bool Pull(int k) {
        const float hi = std::max(hi_[2 * k], hi_[2 * k + 1]);
        const float lo = std::min(lo_[2 * k], lo_[2 * k + 1]);
        const bool changed = hi != hi_[k] || lo != lo_[k];
        hi_[k] = hi;
        lo_[k] = lo;
        return changed;
    }
    void Tighten(int b) {
        ExactLeaf(b);
        for (int k = (leaves_ + b) / 2; k >= 1 && Pull(k); k /= 2) {
        }
    }

    // Rightmost block in [a, b] whose bounds allow a score above key, or -1.
    int RightmostAbove(int node, int nl, int nr, int a, int b, float key) const {
        if (nr < a || nl > b || !(hi_[node] > key)) return -1;
        if (nl == nr) return nl;
        const int mid = (nl + nr) / 2;
        const int r = RightmostAbove(2 * node + 1, mid + 1, nr, a, b, key);
        return r >= 0 ? r : RightmostAbove(2 * node, nl, mid, a, b, key);
    }
    // Leftmost block in [a, b] whose bounds allow a score below key, or -1.
    int LeftmostBelow(int node, int nl, int nr, int a, int b, float key) const {
        if (nr < a || nl > b || !(lo_[node] < key)) return -1;
        if (nl == nr) return nl;
        const int mid = (nl + nr) / 2;
        const int l = LeftmostBelow(2 * node, nl, mid, a, b, key);
        return l >= 0 ? l : LeftmostBelow(2 * node + 1, mid + 1, nr, a, b, key);
    }

    const float* s_;
    int base_;
    int end_;
    int leaves_;
    std::vector<float> hi_;  // node 1 is the root, leaves_ + b is block b
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
