"""Writes AVI files by hand: streams with their headers, chunks in the given order, and an idx1. It knows nothing of the
library or of the tool."""

import struct


def chunk(code, payload):
    return code + struct.pack("<I", len(payload)) + payload + b"\0" * (len(payload) % 2)


def lists(kind, payload, code=b"LIST"):
    return code + struct.pack("<I", len(payload) + 4) + kind + payload


def video(codec, rate=25, width=64, height=48, data=b"", kind=b"vids"):
    """A video stream; `data` is what its format has behind the fixed record."""
    strf = struct.pack("<IiiHH4sIiiII", 40 + len(data), width, height, 1, 24, codec, width * height * 3, 0, 0, 0, 0) + data
    return kind, codec, (1, rate, 0), strf


def audio(tag=1, rate=8000, channels=1, bits=16, block=None, extension=b"", sample=None):
    block = channels * bits // 8 if block is None else block
    strf = struct.pack("<HHIIHHH", tag, channels, rate, rate * block, block, bits, len(extension)) + extension
    return b"auds", b"\0\0\0\0", (block, rate * block, block if sample is None else sample), strf


def text():
    return b"txts", b"\0\0\0\0", (1, 1000, 0), b""


def avi(streams, chunks, texts=b"", streams_told=None, index=True):
    """`chunks` are (stream, two-letter code, payload, key)."""
    counts = [sum(len(c[2]) if s[2][2] else 1 for c in chunks if c[0] == n) // (s[2][2] or 1) for n, s in enumerate(streams)]
    headers = b""
    for (kind, handler, (scale, rate, sample), strf), length in zip(streams, counts):
        strh = struct.pack("<4s4sIHHIIIIIIIIhhhh", kind, handler, 0, 0, 0, 0, scale, rate, 0, length, 0, 0, sample, 0, 0, 0, 0)
        headers += lists(b"strl", chunk(b"strh", strh) + chunk(b"strf", strf))
    first = next((s for s in streams if s[0] in (b"vids", b"iavs")), None)
    frame = round(1e6 * first[2][0] / first[2][1]) if first else 0
    width, height = struct.unpack_from("<ii", first[3], 4) if first else (0, 0)
    frames = counts[streams.index(first)] if first else 0
    avih = struct.pack("<14I", frame, 0, 0, 0x10, frames, 0, streams_told or len(streams), 0, width, abs(height), 0, 0, 0, 0)
    media, records = [], []
    at = 4
    for stream, code, payload, key in chunks:
        name = b"%02d" % stream + code
        media.append(chunk(name, payload))
        records.append(struct.pack("<4sIII", name, 0x10 if key else 0, at, len(payload)))
        at += len(media[-1])
    body = lists(b"hdrl", chunk(b"avih", avih) + headers) + texts + lists(b"movi", b"".join(media))
    return lists(b"AVI ", body + (chunk(b"idx1", b"".join(records)) if index else b""), b"RIFF")


def mpeg4_frame(key, size=100, fill=0):
    """The first bytes of an MPEG-4 part 2 frame: what tells a key frame."""
    return bytes([0, 0, 1, 0xB6, 0x10 if key else 0x50]) + bytes([fill & 0xFF]) * (size - 5)
