# %% [markdown]
# # Scoring on a cluster
#
# A model scores the records of many patients, and is trained on them, on the workers of a Dask cluster. The workers
# see ciphertexts and public keys; the secret key stays here. The cells run one by one in a notebook, or all of them
# with `python 04_distributed_scoring.py`; with `--small` on toy parameters, in seconds.

# %%
import shutil
import sys
import tempfile
from pathlib import Path

import numpy as np
from distributed import Client, LocalCluster

import torvo
from torvo.distributed import BatchError, Pool

SMALL = "--small" in sys.argv
PRESET, COUNT = ("FX", 6) if SMALL else ("ST11", 8)
FEATURES = 4

# %% [markdown]
# ## What workers compute
#
# Functions of a ciphertext, with the operators of every day. A pool enters the evaluator for them. One ciphertext holds
# a feature of as many patients as it has slots, and an item is the list of all features of these patients.


# %%
def score(columns, weights, bias):
    """sigmoid(w x + b) for each patient."""
    total = columns[0] * weights[0]
    for column, weight in zip(columns[1:], weights[1:]):
        total += column * weight
    return torvo.functions.sigmoid(total + bias, bound=4, error=1e-3)


def gradient(item, weights):
    """Of half the squared error of w x: a ciphertext for each weight. Each slot has a model of its own."""
    columns, target = item
    error = sum(column * weight for column, weight in zip(columns, weights)) - target
    return [error * column for column in columns]


def add_all(a, b):
    return [x + y for x, y in zip(a, b)]


# %% [markdown]
# ## A cluster
#
# Here two processes on this machine; on many machines `Client("scheduler:8786")` instead, and a key directory that
# all of them see. Each process reads a key when it first needs it.


# %%
def main():
    rng = np.random.default_rng(1)
    context = torvo.Context(PRESET)
    keys = torvo.keygen(context)
    directory = Path(tempfile.mkdtemp(prefix="torvo-keys-"))
    keys.save(directory)  # public ones only

    patients = context.slots
    x = rng.uniform(-1, 1, (COUNT, FEATURES, patients))
    weights = rng.uniform(-0.5, 0.5, FEATURES)
    batch = [[keys.encrypt(column) for column in columns] for columns in x]

    cluster = LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=":0")
    with cluster, Client(cluster) as client, Pool(client, directory) as pool:
        scores = pool.map(score, batch, weights.tolist(), 0.1)
        expected = 1 / (1 + np.exp(-(np.einsum("f,cfp->cp", weights, x) + 0.1)))
        error = max(np.abs(keys.decrypt(s) - e).max() for s, e in zip(scores, expected))
        print(f"{COUNT * patients} scores from {len(client.nthreads())} processes, largest error {error:.5f}")
        assert error < 2e-3

        # What is wrong with one input stays with it: a ciphertext without levels has no products left.
        poisoned = batch[:2] + [[keys.encrypt(column, level=0) for column in x[2]]]
        try:
            pool.map(score, poisoned, weights.tolist(), 0.1)
            raise AssertionError("a ciphertext at level 0 was multiplied")
        except BatchError as refused:
            print(f"refused: {refused.failures[0].text}")
            assert [failure.index for failure in refused.failures] == [2]
            assert refused.results[0].to_bytes() == scores[0].to_bytes()

        # Means over all ciphertexts: partial sums on the workers, combined in a tree.
        mean = keys.decrypt(pool.mean([columns[0] for columns in batch]))
        print(f"mean of feature 0: error {np.abs(mean - x[:, 0].mean(axis=0)).max():.2e}")
        assert np.allclose(mean, x[:, 0].mean(axis=0), atol=1e-5)

        train(pool, keys, batch, x, weights)
    shutil.rmtree(directory)


# %% [markdown]
# ## Training
#
# Each step sums gradients over the partitions. The encrypted weights go out with each step, and the sums come back: a
# model that nobody but the owner of the secret key can read.


# %%
def train(pool, keys, batch, x, truth):
    targets = np.einsum("f,cfp->cp", truth, x)
    items = [(columns, keys.encrypt(target)) for columns, target in zip(batch, targets)]
    weights, clear = [keys.encrypt(0.0) for _ in truth], np.zeros((len(truth), x.shape[2]))
    for _ in range(2):
        slope = pool.map_reduce(gradient, items, weights, combine=add_all)
        rate = 1.0 / len(items)
        weights = pool.map(lambda pair: [w - g * rate for w, g in zip(*pair)], [(weights, slope)])[0]
        off = np.einsum("fp,cfp->cp", clear, x) - targets
        clear = clear - rate * np.einsum("cp,cfp->fp", off, x)
    error = np.abs(np.array([keys.decrypt(w) for w in weights]) - clear).max()
    print(f"two steps of training: error {error:.2e}")
    assert error < 1e-4


if __name__ == "__main__":
    main()
