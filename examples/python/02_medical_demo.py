# %% [markdown]
# 2. The medical demo: a diagnosis on encrypted patients.
#
# A hospital (the client) wants to know for each patient of a test set whether a tumour is benign. A company (the
# server) has a model. The hospital encrypts its patients; the server computes on ciphertexts alone and sees neither
# a measurement nor a diagnosis; the hospital decrypts the answers.
#
# It is the C++ demo in Python. With the same seed and one thread both decrypt the same numbers, bit by bit:
# `OMP_NUM_THREADS=1 python 02_medical_demo.py 42` and `OMP_NUM_THREADS=1 demo <data> 42` print the same digest.

# %%
import math
import sys
import time
from pathlib import Path

import numpy as np

import torvo
from medical_data import Standardiser, fit, fit_sigmoid, read_patients, sigmoid, split

DATA = Path(__file__).resolve().parent.parent / "data" / "breast_cancer.csv"
WIDTH = 32  # slots of a patient: 30 features, a one for the bias, a zero
times: dict[str, float] = {}


def timed(name, work):
    """The result of `work`, whose time is kept."""
    start = time.perf_counter()
    result = work()
    times[name] = time.perf_counter() - start
    return result


# %% In the clear: read, split 80/20, standardise by the training part, fit.
training, test = split(read_patients(DATA), 0.8)
standardise = Standardiser(training.features)
training_rows, test_rows = standardise(training.features), standardise(test.features)
model = timed("fit in the clear", lambda: fit(training_rows, training.benign, 0.01, 2000))
# Scores are taken to lie in [-bound, bound]: test patients may lie a little further out.
bound = float(np.abs(model.score(training_rows)).max()) * 1.25

# %% The client makes parameters and keys, with a seed for those who want to compare. Never seed real keys.
context = timed("build the context", lambda: torvo.Context("ST11"))
if len(sys.argv) > 1:
    torvo.set_seed([int(sys.argv[1]), 0, 0, 0])
keys = timed("generate keys", lambda: torvo.keygen(context, rotations=[1, 2, 4, 8, 16]))

# %% The client encrypts: one patient after the other, WIDTH slots each.
patients, features = test_rows.shape
packed = np.zeros((1 << (patients - 1).bit_length(), WIDTH))
packed[:patients, :features] = test_rows
packed[:patients, features] = 1
encrypted = timed("encode and encrypt", lambda: keys.encrypt(packed.ravel()))


# %% The server, with public keys only, classifies.
def classify(evaluator, patients):
    """In slot 32 i of the result: 0.5 + c1 y + c3 y^3 + c5 y^5 + c7 y^7, with y = score / bound of patient i.

    One level for the weights, three for the powers.
    """
    c = fit_sigmoid(bound)
    weights = np.zeros((len(patients) // WIDTH, WIDTH))
    weights[:, : len(model.weights)] = model.weights / bound
    weights[:, len(model.weights)] = model.bias / bound
    y = patients * weights.ravel()
    evaluator.native.left_rotate_reduce(y, 1, WIDTH, y)  # in slot 32 i: the sum over patient i
    y2 = y**2
    y4 = y2**2
    return (y * c[1]) * y2 + y * c[0] + ((y * c[3]) * y2 + y * c[2]) * y4 + 0.5


with torvo.Evaluator(keys.public()) as evaluator:
    answer = timed("classify on ciphertexts", lambda: classify(evaluator, encrypted))

# %% The client decrypts, and compares with the model in the clear.
scores = timed("decrypt and decode", lambda: keys.decrypt(answer, full=True))
answers = scores[::WIDTH][:patients]
benign = answers > 0.5
clear = sigmoid(model.score(test_rows)) > 0.5


def polynomial(z):
    """What the server computes, in the clear."""
    c1, c3, c5, c7 = fit_sigmoid(bound)
    y = z / bound
    return 0.5 + y * (c1 + y**2 * (c3 + y**2 * (c5 + y**2 * c7)))


expected = polynomial(model.score(test_rows))
largest_error = float(np.abs(answers - expected).max())
agree = int((benign == clear).sum())
print(f"preset                   ST11, {int(context.security_level)}-bit security")
print(f"ring degree, slots       {context.degree}, {context.slots}")
print(f"levels used              {encrypted.level - answer.level} of {encrypted.level}")
for name, seconds in times.items():
    print(f"{name:24} {seconds:.3f} s")
print(f"largest error            2^{math.log2(largest_error):.1f} against the same circuit in the clear")
print(f"accuracy                 {100 * (benign == (test.benign > 0.5)).mean():.2f} % encrypted, "
      f"{100 * (clear == (test.benign > 0.5)).mean():.2f} % in the clear")
print(f"predictions that agree   {agree} of {len(clear)}")


# %% For a comparison with the C++ demo: FNV-1a over the bits of what was decrypted.
def digest(numbers):
    """One number for all bits of an array of float64."""
    value = 0xCBF29CE484222325
    for byte in numbers.astype("<f8").tobytes():
        value = ((value ^ byte) * 0x100000001B3) % 2**64
    return f"{value:016x}"


if len(sys.argv) > 1:
    print(f"digest of the scores     {digest(scores)}")
assert agree == len(clear) and largest_error < 2**-20
