// Entry points: written by the frame work.
