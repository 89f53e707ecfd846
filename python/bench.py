"""What an operator of Python costs beside the call of the library that it makes.

Both are measured in turn, in one process, with one OpenMP thread, and the least of many rounds are compared. The
call of the library is that of the compiled module with an output; for a new object the output is made first, as a
C++ caller would.

    OMP_NUM_THREADS=1 python python/bench.py [rounds]
"""

from __future__ import annotations

import sys
import time
from pathlib import Path
from typing import Callable

import numpy as np

# The sources of the package lie beside this script and have no module; the built package is meant.
HERE = Path(__file__).resolve().parent
sys.path[:] = [path for path in sys.path if Path(path).resolve() != HERE]

import torvo
from torvo import _torvo


def seconds(call: Callable[[], object], count: int) -> float:
    start = time.perf_counter()
    for _ in range(count):
        call()
    return (time.perf_counter() - start) / count


def main() -> None:
    rounds = int(sys.argv[1]) if len(sys.argv) > 1 else 200
    print(f"{'preset':8}{'operator':22}{'call, us':>12}{'operator, us':>14}{'overhead, us':>14}")
    for preset, level in (("SD3", 1), ("ST11", 1)):
        context = torvo.Context(preset)
        keys = torvo.keygen(context)
        with torvo.Evaluator(keys) as evaluator:
            a = keys.encrypt(np.ones(4), level=level)
            b = keys.encrypt(np.ones(4), level=level)
            out = a.copy()
            native = evaluator.native
            new = lambda: _torvo.Ciphertext(context)  # noqa: E731
            pairs = {
                "add(a, b, out=out)": (lambda: native.add(a, b, out), lambda: torvo.add(a, b, out=out)),
                "add(a, 1.5, out=out)": (lambda: native.add(a, 1.5 + 0j, out), lambda: torvo.add(a, 1.5, out=out)),
                "negative(a, out=out)": (lambda: native.negate(a, out), lambda: torvo.negative(a, out=out)),
                "a + b": (lambda: native.add(a, b, new()), lambda: a + b),
            }
            for name, (call, operator) in pairs.items():
                times = np.array([(seconds(call, 10), seconds(operator, 10)) for _ in range(rounds)]) * 1e6
                least = times.min(axis=0)
                print(f"{preset:8}{name:22}{least[0]:12.2f}{least[1]:14.2f}{least[1] - least[0]:14.2f}")


if __name__ == "__main__":
    main()
