"""What the medical demo needs in the clear: patients, a split, a logistic model fitted to them.

It computes what the C++ example of the same name computes, operation by operation in the same order, so that both
encrypt the same doubles. That is why sums run one after the other (`accumulate`) and exponentials come from the C
library (`math.exp`): numpy's own are as exact, but round otherwise.
"""

from __future__ import annotations

import math
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path
from typing import Union

import numpy as np


@dataclass
class Patients:
    """Features, one patient a row, and diagnoses: 1 for benign, 0 for malignant."""

    features: np.ndarray
    benign: np.ndarray


def read_patients(path: Union[str, Path]) -> Patients:
    """The patients of a file of examples/data. Its first line holds counts and names."""
    lines = Path(path).read_text().splitlines()[1:]
    rows = np.array([[float(field) for field in line.split(",")] for line in lines if line])
    return Patients(rows[:, :-1], rows[:, -1])


def mersenne_twister(seed: int) -> Iterator[int]:
    """The words of the 64-bit Mersenne Twister (Matsumoto and Nishimura, 2004), which numpy has with 32 bits only."""
    mask, n, m = 2**64 - 1, 312, 156
    state = [seed]
    for i in range(1, n):
        state.append((6364136223846793005 * (state[-1] ^ (state[-1] >> 62)) + i) & mask)
    while True:
        for i in range(n):
            x = (state[i] & 0xFFFFFFFF80000000) | (state[(i + 1) % n] & 0x7FFFFFFF)
            state[i] = state[(i + m) % n] ^ (x >> 1) ^ (0xB5026F5AA96619E9 if x & 1 else 0)
        for word in list(state):
            word ^= (word >> 29) & 0x5555555555555555
            word ^= (word << 17) & 0x71D67FFFEDA60000
            word ^= (word << 37) & 0xFFF7EEE000000000
            yield (word ^ (word >> 43)) & mask


def split(patients: Patients, fraction: float) -> tuple[Patients, Patients]:
    """Shuffles with a fixed seed and cuts after `fraction` of the patients: for training, for a test."""
    order = list(range(len(patients.benign)))
    random = mersenne_twister(20)
    for i in range(len(order), 1, -1):
        j = next(random) % i
        order[i - 1], order[j] = order[j], order[i - 1]
    cut = math.floor(fraction * len(order) + 0.5)
    parts = order[:cut], order[cut:]
    return tuple(Patients(patients.features[part], patients.benign[part]) for part in parts)  # type: ignore


def total(terms: np.ndarray) -> np.ndarray:
    """The sum over the rows, one after the other."""
    return np.add.accumulate(terms, axis=0)[-1]


class Standardiser:
    """Brings features to mean 0 and standard deviation 1."""

    def __init__(self, features: np.ndarray) -> None:
        count = float(len(features))
        self.mean = total(features / count)
        off = features - self.mean
        self.deviation = np.sqrt(total(off * off / count))

    def __call__(self, features: np.ndarray) -> np.ndarray:
        return (features - self.mean) / self.deviation


def sigmoid(z: np.ndarray) -> np.ndarray:
    """1 / (1 + e^-z)."""
    return 1.0 / (1.0 + np.array([math.exp(-x) for x in z]))


@dataclass
class LogisticModel:
    """The chance of "benign" is sigmoid(x . weights + bias) for standardised features x."""

    weights: np.ndarray
    bias: float

    def score(self, rows: np.ndarray) -> np.ndarray:
        """x . weights + bias for each row x."""
        scores = np.full(len(rows), self.bias)
        for column, weight in zip(rows.T, self.weights):
            scores = scores + column * weight
        return scores


def fit(rows: np.ndarray, labels: np.ndarray, penalty: float, iterations: int) -> LogisticModel:
    """Nesterov's accelerated gradient descent with a ridge penalty."""
    count = float(len(rows))
    # The curvature of the mean loss is at most a quarter of the mean squared length of a row with its bias.
    lengths = total((rows * rows).T)
    mean_square = float(total(np.concatenate([[1.0], lengths / count])))
    step = 1.0 / (mean_square / 4 + penalty)
    features = rows.shape[1]
    model, ahead = LogisticModel(np.zeros(features), 0.0), LogisticModel(np.zeros(features), 0.0)
    for iteration in range(iterations):
        residual = (sigmoid(ahead.score(rows)) - labels) / count
        gradient = total(residual[:, None] * rows)
        momentum = iteration / (iteration + 3.0)
        weights = ahead.weights - step * (gradient + penalty * ahead.weights)
        bias = ahead.bias - step * float(total(residual))
        ahead = LogisticModel(
            weights + momentum * (weights - model.weights), bias + momentum * (bias - model.bias)
        )
        model = LogisticModel(weights, bias)
    return model


def fit_sigmoid(bound: float) -> list[float]:
    """c1, c3, c5, c7 with sigmoid(bound y) ~ 0.5 + c1 y + c3 y^3 + c5 y^5 + c7 y^7 on [-1, 1].

    Least squares on the Chebyshev points: sigmoid - 1/2 is odd.
    """
    points = 64
    angles = [math.pi * (j + 0.5) / points for j in range(points)]
    t = [0.0] * 8
    for k in (1, 3, 5, 7):
        for angle in angles:
            value = 1.0 / (1.0 + math.exp(-bound * math.cos(angle))) - 0.5
            t[k] += 2 * value * math.cos(k * angle) / points
    # T3 = 4y^3 - 3y, T5 = 16y^5 - 20y^3 + 5y, T7 = 64y^7 - 112y^5 + 56y^3 - 7y.
    return [
        t[1] - 3 * t[3] + 5 * t[5] - 7 * t[7],
        4 * t[3] - 20 * t[5] + 56 * t[7],
        16 * t[5] - 112 * t[7],
        64 * t[7],
    ]
