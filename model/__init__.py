"""The QR detector's network, synthetic training data, training and export.

Run its entry points from the repository root, e.g. `python3 -m model.train`.
Importing the package itself loads nothing heavy: `python3 -m model.layout` must
work without torch or OpenCV.
"""
