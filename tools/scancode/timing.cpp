#include "timing.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

double Percentile(std::vector<double> values, double p) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    const double rank = std::ceil(p / 100 * values.size());
    const size_t index = static_cast<size_t>(std::clamp(rank, 1.0, double(values.size()))) - 1;
    return values[index];
}

std::string Timing::Summary() const {
    std::string s;
    char buf[160];
    if (!warmUp_.empty()) {
        double total = 0;
        for (double ms : warmUp_) total += ms;
        snprintf(buf, sizeof buf, "warm-up %.1f ms", total / warmUp_.size());
        s += buf;
        if (warmUp_.size() > 1) s += " (mean of " + std::to_string(warmUp_.size()) + " sessions)";
    }
    if (!steady_.empty()) {
        snprintf(buf, sizeof buf,
                 "%s%zu frame(s) after it: median %.1f ms, 90th percentile %.1f ms",
                 s.empty() ? "" : "; ", steady_.size(), Percentile(steady_, 50),
                 Percentile(steady_, 90));
        s += buf;
    }
    return s;
}
