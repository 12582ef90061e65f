// Greedy suppression of candidates that touch or overlap a better one.
//
// Walking the sorted positions, a candidate is dropped when an earlier kept
// candidate of the requested class overlaps it by more than the threshold;
// this is exactly what the pairwise double loop computes, because a position's
// fate depends only on earlier positions. The double loop is quadratic when
// many candidates survive (a frame full of small, separate boxes), so larger
// lists keep the kept candidates in a coarse grid and test each new candidate
// only against those registered in the grid cells it touches. The overlap test
// itself is the same `CalculateOverlap` call with the same arguments, so the
// grid only decides which pairs are worth asking about.
//
// Why the grid cannot miss a pair: CalculateOverlap > threshold >= 0 needs a
// positive intersection, hence float(min(xmax0, xmax1) - max(xmin0, xmin1))
// > -1, hence (rounding being monotone and -1.5 representable) the exact
// difference is > -1.5: xmin1 < xmax0 + 1.5 and xmin0 < xmax1 + 1.5, likewise
// in y. Tests and intervals use a margin of 2 added in double; at the
// coordinates allowed on the grid the rounding of that addition is far below
// the 0.5 of slack. Each box is registered under the grid cells its widened
// interval [xmin, xmax + 2] covers through a monotone coordinate-to-cell map,
// so two boxes that may overlap share a cell. Boxes with non-finite or very
// large coordinates, and boxes covering many cells, skip the grid and are
// tested against everything.
#include <algorithm>
#include <cmath>
#include <vector>

#include "detect/postprocess_calculator.h"

namespace {

// Lists up to this length use the double loop directly.
constexpr int kPairwiseCountMax = 64;

// Cells per grid side: about one kept box per cell when boxes are small and
// spread, within bounds that keep the grid cheap to set up.
constexpr int kMinGridSide = 16;
constexpr int kMaxGridSide = 128;
// A kept box covering more cells than this is tested against every candidate
// instead of being registered cell by cell.
constexpr int kMaxCellsPerBox = 64;
// Coordinates within this magnitude go on the grid.
constexpr double kGridCoordMax = 1 << 20;

struct Span {
    float x0, y0, x1, y1;  // left, top, left + width, top + height
};

Span SpanOf(const std::vector<float>& boxes, int m) {
    const float* b = &boxes[4 * static_cast<size_t>(m)];
    return {b[0], b[1], b[0] + b[2], b[1] + b[3]};
}

bool Finite(const Span& s) {
    return std::isfinite(s.x0) && std::isfinite(s.y0) && std::isfinite(s.x1) && std::isfinite(s.y1);
}

bool OnGrid(const Span& s) {
    for (float v : {s.x0, s.y0, s.x1, s.y1}) {
        if (!(std::fabs(v) <= kGridCoordMax)) return false;  // also NaN
    }
    return true;
}

// The widened interval [min(a, b + 2), max(a, b + 2)] of one axis; the min/max
// keeps it valid for boxes of negative size too.
struct Interval {
    double lo, hi;
};
Interval Widened(float start, float end) {
    const double a = start;
    const double b = static_cast<double>(end) + 2.0;
    return {std::min(a, b), std::max(a, b)};
}

// The necessary condition above, for two boxes on the grid; it spares the
// overlap computation for neighbours that are clearly apart.
bool MayTouch(const Span& a, const Span& b) {
    return static_cast<double>(b.x0) < static_cast<double>(a.x1) + 2.0 &&
           static_cast<double>(a.x0) < static_cast<double>(b.x1) + 2.0 &&
           static_cast<double>(b.y0) < static_cast<double>(a.y1) + 2.0 &&
           static_cast<double>(a.y0) < static_cast<double>(b.y1) + 2.0;
}

// Monotone map from a coordinate to a grid column or row.
struct Axis {
    double origin = 0.0;
    double scale = 0.0;
    double last = 0.0;  // highest cell index
    int Cell(double v) const {
        const double c = std::floor((v - origin) * scale);
        return static_cast<int>(std::min(std::max(c, 0.0), last));
    }
};

struct CellRange {
    int c0, c1, r0, r1;
    int Cells() const { return (c1 - c0 + 1) * (r1 - r0 + 1); }
};

class KeptGrid {
  public:
    KeptGrid(const std::vector<float>& boxes, const std::vector<int>& order, int count) {
        double x0 = 0, x1 = 0, y0 = 0, y1 = 0;
        bool any = false;
        const int boxCount = static_cast<int>(boxes.size() / 4);
        for (int i = 0; i < count; ++i) {
            const int m = order[i];
            if (m < 0 || m >= boxCount) continue;
            const Span s = SpanOf(boxes, m);
            if (!OnGrid(s)) continue;
            const Interval ix = Widened(s.x0, s.x1);
            const Interval iy = Widened(s.y0, s.y1);
            x0 = any ? std::min(x0, ix.lo) : ix.lo;
            x1 = any ? std::max(x1, ix.hi) : ix.hi;
            y0 = any ? std::min(y0, iy.lo) : iy.lo;
            y1 = any ? std::max(y1, iy.hi) : iy.hi;
            any = true;
        }
        side_ = std::clamp(static_cast<int>(std::sqrt(static_cast<double>(count))), kMinGridSide,
                           kMaxGridSide);
        x_ = {x0, x1 > x0 ? side_ / (x1 - x0) : 0.0, side_ - 1.0};
        y_ = {y0, y1 > y0 ? side_ / (y1 - y0) : 0.0, side_ - 1.0};
        head_.assign(static_cast<size_t>(side_) * side_, -1);
        kept_.reserve(count);
        seen_.reserve(count);
    }

    CellRange CellsOf(const Span& s) const {
        const Interval ix = Widened(s.x0, s.x1);
        const Interval iy = Widened(s.y0, s.y1);
        return {x_.Cell(ix.lo), x_.Cell(ix.hi), y_.Cell(iy.lo), y_.Cell(iy.hi)};
    }

    // Calls hit(kept span) for each kept box that may overlap `s`, each at
    // most once, until hit returns true; returns whether one did.
    template <class Hit>
    bool AnyNear(const Span& s, int stamp, Hit hit) {
        if (!OnGrid(s)) {
            for (const Span& k : kept_) {
                if (hit(k)) return true;
            }
            return false;
        }
        const CellRange cr = CellsOf(s);
        for (int r = cr.r0; r <= cr.r1; ++r) {
            for (int c = cr.c0; c <= cr.c1; ++c) {
                for (int e = head_[r * side_ + c]; e >= 0; e = entries_[e].next) {
                    const int k = entries_[e].kept;
                    if (seen_[k] == stamp) continue;
                    seen_[k] = stamp;
                    if (MayTouch(kept_[k], s) && hit(kept_[k])) return true;
                }
            }
        }
        for (int k : unplaced_) {
            if (hit(kept_[k])) return true;
        }
        return false;
    }

    void Add(const Span& s) {
        const int k = static_cast<int>(kept_.size());
        kept_.push_back(s);
        seen_.push_back(-1);
        const bool placed = OnGrid(s) && CellsOf(s).Cells() <= kMaxCellsPerBox;
        if (!placed) {
            unplaced_.push_back(k);
            return;
        }
        const CellRange cr = CellsOf(s);
        for (int r = cr.r0; r <= cr.r1; ++r) {
            for (int c = cr.c0; c <= cr.c1; ++c) {
                int& head = head_[r * side_ + c];
                entries_.push_back({head, k});
                head = static_cast<int>(entries_.size()) - 1;
            }
        }
    }

  private:
    struct Entry {
        int next;
        int kept;
    };
    int side_;
    Axis x_, y_;
    std::vector<int> head_;  // first entry of each cell, row by row
    std::vector<Entry> entries_;
    std::vector<Span> kept_;
    std::vector<int> seen_;      // last query that tested each kept box
    std::vector<int> unplaced_;  // kept boxes tested against every candidate
};

}  // namespace

float CodeDetectPostprocesCalculator::CalculateOverlap(float xmin0, float ymin0, float xmax0,
                                                       float ymax0, float xmin1, float ymin1,
                                                       float xmax1, float ymax1) {
    // Inclusive pixel coordinates: boxes less than one pixel apart overlap.
    const float iw = static_cast<float>(
        std::max(0.0, static_cast<double>(std::min(xmax0, xmax1) - std::max(xmin0, xmin1)) + 1.0));
    const float ih = static_cast<float>(
        std::max(0.0, static_cast<double>(std::min(ymax0, ymax1) - std::max(ymin0, ymin1)) + 1.0));
    const float inter = iw * ih;
    const float unionArea = static_cast<float>(
        (static_cast<double>(xmax0 - xmin0) + 1.0) * (static_cast<double>(ymax0 - ymin0) + 1.0) +
        (static_cast<double>(xmax1 - xmin1) + 1.0) * (static_cast<double>(ymax1 - ymin1) + 1.0) -
        inter);
    return unionArea > 0 ? inter / unionArea : 0;
}

int CodeDetectPostprocesCalculator::nms(int count, std::vector<float>& boxes,
                                        std::vector<int> classIds, std::vector<int>& order,
                                        int classId, float threshold) {
    // Positions beyond either list, or candidate numbers without a box, are a
    // caller's mistake: they are left alone instead of read out of bounds.
    count = std::min({count, static_cast<int>(order.size()), static_cast<int>(classIds.size())});
    const int boxCount = static_cast<int>(boxes.size() / 4);
    auto valid = [boxCount](int m) { return m >= 0 && m < boxCount; };

    if (count <= kPairwiseCountMax || !(threshold >= 0.0f)) {
        for (int i = 0; i < count; ++i) {
            const int n = order[i];
            if (!valid(n) || classIds[i] != classId) continue;
            const Span a = SpanOf(boxes, n);
            for (int j = i + 1; j < count; ++j) {
                const int m = order[j];
                if (!valid(m) || classIds[i] != classId) continue;
                const Span b = SpanOf(boxes, m);
                if (CalculateOverlap(a.x0, a.y0, a.x1, a.y1, b.x0, b.y0, b.x1, b.y1) > threshold) {
                    order[j] = -1;
                }
            }
        }
        return 0;
    }

    KeptGrid grid(boxes, order, count);
    for (int i = 0; i < count; ++i) {
        const int m = order[i];
        if (!valid(m)) continue;
        const Span b = SpanOf(boxes, m);
        // A box with a non-finite edge never overlaps by more than a
        // threshold >= 0, in either role: its area term is infinite or NaN,
        // so CalculateOverlap's union is infinite or NaN and the ratio 0 or
        // NaN. Such boxes stay as they are and are never registered; asking
        // anyway would test each of them against every kept box, which made
        // a frame of overflowing log distances test every pair of cells.
        if (!Finite(b)) continue;
        const bool suppressed = grid.AnyNear(b, i, [&](const Span& a) {
            return CalculateOverlap(a.x0, a.y0, a.x1, a.y1, b.x0, b.y0, b.x1, b.y1) > threshold;
        });
        if (suppressed) {
            order[i] = -1;
        } else if (classIds[i] == classId) {
            grid.Add(b);
        }
    }
    return 0;
}
