#!/usr/bin/env python3
"""Writes a two-cue SRT file with Chinese text in the given encoding."""
import sys

CUES = (
    "1\n00:00:00,000 --> 00:00:01,000\n\u4e2d\u6587\u5b57\u5e55\n\n"
    "2\n00:00:01,000 --> 00:00:02,000\n\u7b2c\u4e8c\u884c\n\n"
)

out, encoding = sys.argv[1], sys.argv[2]
with open(out, "wb") as f:
    f.write(CUES.encode(encoding))
