// Where the sweep puts each code's centre: spread over the frame, but at a
// chosen phase of the detector's coarsest cell, so that over the offsets
// every stride (8, 16, 32, 64 input px) sees the code at each of its phases.
#pragma once

// The phase, as a fraction of the cell, of offset `offset` of `offsets` on
// the x (axis 0) or y (axis 1) axis. The two axes step differently (5 is
// prime to the offset counts in use), so x and y phases do not move in step.
double CellPhase(int offset, int offsets, int axis);

// A coordinate in [lo, hi]: near lo + coarse * (hi - lo), moved onto the grid
// of `cell` pixels plus `phase` pixels. Where the range is narrower than a
// cell, the phase is wrapped into the range: the offsets still spread the
// code over it, but no longer at their exact phases.
double PlaceOnCellGrid(double lo, double hi, double coarse, double cell, double phase);

// The least room, in frame pixels, a sweep code's truth box keeps from the
// edge band: 8 px, and 5 % of its side for large codes, so that a box off by
// a step of the coarsest head still clears the band.
double ClearOfBand(double side);

// The largest truth side, in frame pixels, that fits in `frameSide` with
// `band` px at each edge and ClearOfBand(side) inside it.
double LargestClearSide(double frameSide, double band);
