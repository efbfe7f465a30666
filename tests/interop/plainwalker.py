"""A simple walk over the structure of an AVI file, written for the tests without the library."""

import pathlib
import struct
import zlib
from dataclasses import dataclass, field

MEDIA = (b"dc", b"db", b"wb", b"st", b"sb")


@dataclass
class Chunk:
    offset: int
    code: bytes
    size: int
    crc: int

    @property
    def stream(self):
        return (self.code[0] - 48) * 10 + self.code[1] - 48


@dataclass
class Walk:
    chunks: list = field(default_factory=list)
    types: list = field(default_factory=list)  # of the streams, b"vids" …
    idx1: list = field(default_factory=list)  # (code, flags, offset, size)
    complete: bool = True


def walk(path):
    data = pathlib.Path(path).read_bytes()
    result = Walk()
    _list(data, 0, len(data), False, result)
    return result


def _list(data, at, end, in_movi, result):
    while at + 8 <= end:
        code, size = data[at:at + 4], struct.unpack_from("<I", data, at + 4)[0]
        body, limit = at + 8, at + 8 + size
        if limit > end:
            result.complete = False
            limit = end
        if code in (b"RIFF", b"LIST") and body + 4 <= limit:
            kind = data[body:body + 4]
            _list(data, body + 4, limit, kind == b"movi" or (in_movi and kind == b"rec "), result)
        elif code == b"strh":
            result.types.append(data[body:body + 4])
        elif code == b"idx1":
            result.idx1 = [struct.unpack_from("<4sIII", data, i) for i in range(body, limit - 15, 16)]
        elif in_movi and code[2:4] in MEDIA:
            result.chunks.append(Chunk(at, code, size, zlib.crc32(data[body:body + size])))
        at += 8 + size + (size & 1)
