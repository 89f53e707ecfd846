"""What workers of a Dask cluster on this machine score in a second: threads against processes, and what Dask costs.

Ciphertexts of all slots are scored, sigmoid(w x + b) over blocks of 16 slots, by `torvo.distributed.Pool`; ten
different ones again and again. Scores are checked. In the last rows ciphertexts and scores are files, and only their
names travel. The table is the one of docs/scaling.md.

    python python/bench_distributed.py [--preset ST11] [--count 200] [--rounds 1]

Each row is the best of the rounds, which go through all rows in turn: what else the machine does shows less then.
"""

from __future__ import annotations

import argparse
import os
import sys
import tempfile
import time
from pathlib import Path
from typing import Any, NamedTuple

# The sources of the package lie beside this script and have no module; the built package is meant.
HERE = Path(__file__).resolve().parent
sys.path[:] = [path for path in sys.path if Path(path).resolve() != HERE]

import numpy as np
from distributed import Client, LocalCluster

import torvo
from torvo.distributed import Pool

FEATURES, BIAS = 16, -0.2
WEIGHTS = 0.3 * np.cos(0.7 * np.arange(FEATURES))
#: Workers, Dask threads of each, OpenMP threads of each call, whether by files.
Row = tuple[int, int, int, bool]
ROWS: tuple[Row, ...] = (
    (1, 1, 1, False), (1, 1, 2, False), (1, 2, 1, False), (2, 1, 1, False),
    (1, 1, 1, True), (1, 2, 1, True), (2, 1, 1, True),
)


def score(ct: Any, weights: Any, bias: float) -> Any:
    total = torvo.functions.sum(ct * np.tile(weights, len(ct) // len(weights)), length=len(weights)) + bias
    return torvo.functions.sigmoid(total, bound=4, error=1e-3)


def score_file(item: Any, weights: Any, bias: float) -> None:
    ct, path = item
    score(ct, weights, bias).save(path)


def resident_mib() -> float:
    """Memory of this process: of a worker, with the keys that it has read."""
    return int(Path("/proc/self/statm").read_text().split()[1]) * os.sysconf("SC_PAGE_SIZE") / 2**20


class Figures(NamedTuple):
    seconds: float
    #: Processor seconds of all workers, and of client and scheduler: what other programs do moves them little.
    workers_cpu: float
    client_cpu: float
    #: Of the largest worker.
    mib: float


def measure(row: Row, keys: str, items: list[Any]) -> tuple[Figures, list[Any]]:
    """What a row takes, and the first results."""
    workers, threads, openmp, by_files = row
    function = score_file if by_files else score
    cluster = LocalCluster(
        n_workers=workers, threads_per_worker=threads, dashboard_address=":0", env={"OMP_NUM_THREADS": str(openmp)}
    )
    with cluster, Client(cluster, direct_to_workers=True) as client, Pool(client, keys, threads=openmp) as pool:
        pool.map(function, items[: 4 * workers * threads], WEIGHTS, BIAS, batch=1)  # reads the keys
        before = sum(client.run(time.process_time).values())
        start, cpu = time.perf_counter(), time.process_time()
        scores = []
        for index, result in enumerate(pool.imap(function, items, WEIGHTS, BIAS)):
            scores += [result] if index < 10 else []
        seconds, cpu = time.perf_counter() - start, time.process_time() - cpu
        workers_cpu = sum(client.run(time.process_time).values()) - before
        return Figures(seconds, workers_cpu, cpu, max(client.run(resident_mib).values())), scores


def empty_task(keys: str) -> float:
    """Seconds for a task of Dask that does nothing, of many at once on two workers."""
    cluster = LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=":0")
    with cluster, Client(cluster) as client, Pool(client, keys) as pool:
        pool.map(abs, [0] * 4, batch=1)
        start = time.perf_counter()
        pool.map(abs, [0] * 500, batch=1)
        return (time.perf_counter() - start) / 500


def check(keys: torvo.Keys, scores: list[Any], x: Any) -> None:
    expected = 1 / (1 + np.exp(-(x.reshape(len(x), -1, FEATURES) @ WEIGHTS + BIAS)))
    got = np.array([keys.decrypt(ct).real for ct in scores]).reshape(len(x), -1, FEATURES)
    error = np.abs(got - expected[:, :, None]).max()
    assert error < 2e-3, f"scores are wrong by {error}"


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--preset", default="ST11")
    parser.add_argument("--count", type=int, default=200)
    parser.add_argument("--rounds", type=int, default=1)
    options = parser.parse_args()

    context = torvo.Context(options.preset)
    keys = torvo.keygen(context, rotations=[sign << i for i in range(4) for sign in (1, -1)])
    x = np.random.default_rng(1).uniform(-1, 1, (min(10, options.count), context.slots))
    torvo.set_thread_count(1)
    with torvo.Evaluator(keys):
        # At the level that the circuit spends: what is above it would only travel.
        level = context.encryption_level - score(keys.encrypt(x[0]), WEIGHTS, BIAS).level
        cts = [keys.encrypt(row, level=level) for row in x]
        items = [cts[index % len(cts)] for index in range(options.count)]
        score(cts[0], WEIGHTS, BIAS)
        start = time.perf_counter()
        results = [score(ct, WEIGHTS, BIAS) for ct in cts]
        local = (time.perf_counter() - start) / len(cts)

    with tempfile.TemporaryDirectory() as directory:
        keys.save(directory)
        key_bytes = sum(path.stat().st_size for path in Path(directory).rglob("*.bin"))
        empty = empty_task(directory)
        folder = Path(directory, "batch")
        folder.mkdir()
        files = []
        for index, ct in enumerate(cts):
            ct.save(str(folder / f"{index}.bin"))
            files.append((folder / f"{index}.bin", str(folder / f"{index}.score")))
        best: dict[Row, Figures] = {}
        for _ in range(options.rounds):
            for row in ROWS:
                sources = [files[index % len(files)] for index in range(options.count)] if row[3] else items
                figures, scores = measure(row, directory, sources)
                if row[3]:
                    scores = [torvo.Ciphertext(context) for _ in files]
                    for ct, (_, path) in zip(scores, files):
                        ct.load(path)
                check(keys, scores, x)
                print(f"  {row}: {figures.seconds:.1f} s, load {os.getloadavg()[0]:.1f}", file=sys.stderr, flush=True)
                if row not in best or figures.seconds < best[row].seconds:
                    best[row] = figures

    print(f"{options.preset}, {options.count} ciphertexts, {os.cpu_count()} cores, load {os.getloadavg()[0]:.1f}")
    print(f"without Dask, one thread: {local * 1e3:.0f} ms for a ciphertext")
    out, back = (len(ct.to_bytes()) / 2**20 for ct in (cts[0], results[0]))
    print(f"a ciphertext: {out:.2f} MiB out, {back:.2f} MiB back")
    print(f"keys: {key_bytes / 2**20:.0f} MiB; an empty task of Dask: {empty * 1e3:.1f} ms")
    columns = ("ciphertexts travel", "workers", "threads of each", "OpenMP threads of a call", "seconds",
               "ciphertexts a second", "against one worker with one thread", "ms of processor for each: workers",
               "client and scheduler", "MiB of a worker")
    print(f"| {' | '.join(columns)} |\n|{' --- |' * len(columns)}")
    for (workers, threads, openmp, by_files), of in best.items():
        times = f"{of.seconds:.1f} | {options.count / of.seconds:.2f} | {best[(1, 1, 1, by_files)].seconds / of.seconds:.2f}"
        cpu = " | ".join(f"{seconds / options.count * 1e3:.0f}" for seconds in (of.workers_cpu, of.client_cpu))
        numbers = f"{times} | {cpu} | {of.mib:.0f}"
        print(f"| {'as files' if by_files else 'through Dask'} | {workers} | {threads} | {openmp} | {numbers} |")


if __name__ == "__main__":
    main()
