#!/usr/bin/env python3
"""Writes the seed corpora of the fuzz targets (small files, kept in the
repository). Run from anywhere; it replaces the seeds it knows about."""
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))
MAGIC = 0x000609CE


def header(version, frames, block, replaceable, width, height, packing,
           rate=25.0, interlacing=0):
    h = struct.pack(">iiiiiiii", MAGIC, version, frames, block, replaceable,
                    width, height, packing) + struct.pack(">d", rate)
    if version >= 2:
        h += struct.pack(">i", interlacing)
    return h


def clip(version, frames, block, width, height, packing=1008, replaceable=1,
         stored=None):
    """A whole clip: header, padding to frame 0, `stored` frames of data."""
    frame = width * height * 2 if packing == 1008 else width * height * 3
    slot = -(-frame // block) * block
    offset = slot if version == 3 else block
    h = header(version, frames, block, replaceable, width, height, packing)
    body = h + bytes(offset - len(h))
    for i in range(frames if stored is None else stored):
        body += bytes((i * 37 + k * 11) & 0xFF for k in range(slot))
    return body


def put(target, name, data):
    d = os.path.join(HERE, "corpus", target)
    os.makedirs(d, exist_ok=True)
    with open(os.path.join(d, name), "wb") as f:
        f.write(data)


# clip_header: the file itself.
put("clip_header", "v3-2frames", clip(3, 2, 64, 8, 4))
put("clip_header", "v2-1frame", clip(2, 1, 64, 8, 4))
put("clip_header", "v1-1frame", clip(1, 1, 64, 8, 4))
put("clip_header", "v3-preserved", clip(3, 1, 64, 8, 4, replaceable=0))
put("clip_header", "v3-truncated", clip(3, 3, 64, 8, 4, stored=1))
put("clip_header", "v3-rgb", clip(3, 1, 128, 8, 4, packing=1000))
put("clip_header", "header-only", header(3, 0, 4096, 1, 720, 576, 1008))
put("clip_header", "cut-short", header(3, 0, 4096, 1, 720, 576, 1008)[:22])
put("clip_header", "not-a-clip", b"RIFF\x00\x00\x00\x00WAVE")

# conversion: one option byte (see conversionTarget.cpp), then the clip.
for opt, name, body in [
        (0x00, "4x576-1frame", clip(3, 1, 512, 4, 576)),
        (0x01, "8x576-2frames-scaled4", clip(3, 2, 4096, 8, 576)),
        (0x03, "8x576-2frames-scaled2", clip(3, 2, 4096, 8, 576)),
        (0x00, "4x576-0frames", clip(3, 0, 512, 4, 576)),
        (0x00, "v1-4x576-1frame", clip(1, 1, 512, 4, 576)),
        (0x04, "4x576-truncated", clip(3, 2, 512, 4, 576, stored=1)),
        (0x01, "2x8-1frame-scaled", clip(3, 1, 64, 2, 8)),
        (0x45, "odd-scale-3", clip(3, 1, 512, 4, 576)),
        (0x18, "alignment-24", clip(3, 1, 512, 4, 576)),
        (0x20, "junk-output", clip(3, 1, 512, 4, 576)),
]:
    put("conversion", name, bytes([opt]) + body)

# string_match: depth byte, text, NUL, pattern (its first bytes also drive Align).
for name, data in [
        ("literal", b"\x00abc\x00a?c"),
        ("star-end", b"\x00abcdef\x00abc*"),
        ("many-stars", b"\x00" + b"a" * 40 + b"b\x00" + b"*a" * 12 + b"*c"),
        ("depth1-empty", b"\x01xyz\x00"),
        ("center", b"\x00ab\x00\x01\x43."),
        ("bad-mode", b"\x00ab\x00\x03\x50-"),
]:
    put("string_match", name, data)
