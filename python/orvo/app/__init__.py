"""Application services of orvo that are written in Python."""
