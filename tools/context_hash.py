#!/usr/bin/env python3
"""Prints the context hash of every preset, from the literals of the prime lists.

Written apart from the library, as the origin of the known answers in tests/context/ContextContentTest.cpp.

usage: tools/context_hash.py [path of PrimeLists.cpp]
"""

import pathlib
import re
import sys

WORD = (1 << 64) - 1

LOG_DEGREE = {
    "FVa": 17, "FVb": 17, "FVc": 17, "FGa": 16, "FGb": 16, "FGd": 16, "FX": 6, "FTa": 15, "FTb": 15,
    "ST19": 15, "ST14": 15, "ST11": 15, "ST8": 15, "ST7": 15, "SS7": 14, "SD3": 13, "SD3D6R2": 6,
    "SGd0": 16, "FGbL0": 16, "FGbD12L0": 12, "FGbD8R4L0": 8, "FGbD6R6L0": 6,
}


def mix(x):
    x ^= x >> 30
    x = x * 0xBF58476D1CE4E5B9 & WORD
    x ^= x >> 27
    x = x * 0x94D049BB133111EB & WORD
    return x ^ x >> 31


def combine(h, v):
    return h ^ mix(v) + 0x9E3779B9 + (h << 6) + (h >> 2) & WORD


def context_hash(primes, degree):
    h = 0
    for p in primes:
        h = combine(h, p)
    return combine(h, degree)


def chains(source):
    """Name of each array of literals in the C++ text, with its numbers."""
    arrays = re.findall(r"constexpr unsigned long (\w+)\[\] = \{(.*?)\};", source, re.S)
    return {name: [int(word, 16) for word in re.findall(r"0x[0-9a-f]+", body)] for name, body in arrays}


def main():
    default = pathlib.Path(__file__).resolve().parent.parent / "src" / "arithmetic" / "chain" / "PrimeLists.cpp"
    source = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else default).read_text()
    arrays = chains(source)
    for preset, array in re.findall(r"\{(\w+), listOf\((chainOf\w+)\)\}", source):
        print(f"{preset:10} 0x{context_hash(arrays[array], 1 << LOG_DEGREE[preset]):016x}")


if __name__ == "__main__":
    main()
