// Process times: the first frame of a session pays for warm-up (caches,
// the network's first run) and is kept apart from the steady frames.
#pragma once

#include <string>
#include <vector>

class Timing {
  public:
    void Add(double ms, bool warmUp) { (warmUp ? warmUp_ : steady_).push_back(ms); }
    // "warm-up 41.0 ms; 12 frames: median 15.2 ms, 90th percentile 17.9 ms";
    // empty without frames.
    std::string Summary() const;

  private:
    std::vector<double> warmUp_, steady_;
};

// The p-th percentile (0..100) of `values`, nearest rank; 0 when empty.
double Percentile(std::vector<double> values, double p);
