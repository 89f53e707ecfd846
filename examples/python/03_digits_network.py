# %% [markdown]
# 3. Handwritten digits: a network that scikit-learn trained, on encrypted images.
#
# A client has images of digits that nobody else may see; a server has a network. The client encrypts as many images
# as fit one ciphertext; the server computes the decisions for all of them at once; the client decrypts those.
#
# `python 03_digits_network.py [images]`

# %%
import sys
import time
from pathlib import Path

import numpy as np

import torvo

try:
    from sklearn.neural_network import MLPClassifier
except ImportError:
    sys.exit("This example trains with scikit-learn, which is not installed; install scikit-learn.")

DATA = Path(__file__).resolve().parent.parent / "data" / "digits.csv"

# %% The server's model, in the clear. Each line of the file is 64 pixels from 0 to 16, and the digit.
rows = np.loadtxt(DATA, delimiter=",")
rows = np.random.default_rng(1).permutation(rows)
images, digits = rows[:, :-1] / 16, rows[:, -1].astype(int)
count = int(sys.argv[1]) if len(sys.argv) > 1 else 256
classifier = MLPClassifier((32,), activation="tanh", alpha=0.1, max_iter=200, random_state=1, tol=2e-3)
classifier.fit(images[count:], digits[count:])

# %% The same network for encrypted images. Activations become polynomials, on domains that training images tell.
model = torvo.learn.MLP.from_sklearn(classifier, data=images[count:], error=0.01)
print(model, *model.activations, sep="\n")
plan = model.plan(samples=count, data=images[count : 2 * count])
print(f"{plan.preset}: {plan.samples} images in {plan.slots} slots, {plan.levels} of {plan.level} levels, "
      f"{len(plan.rotations)} rotation keys")
print(f"keys {plan.key_bytes / 2**20:.0f} MiB, encoded matrices {plan.encoded_bytes / 2**20:.0f} MiB, "
      f"a ciphertext {plan.ciphertext_bytes / 2**20:.1f} MiB")

# %% The client's keys, as the plan says, and its images.
keys = plan.keygen()
encrypted = keys.encrypt(model.pack(images[:count]))

# %% The server, with public keys only. The first call encodes the matrices, later ones find them encoded.
with torvo.Evaluator(keys.public()):
    for name in ("first batch", "next batch"):
        start = time.perf_counter()
        answer = model.encrypt_predict(encrypted)
        print(f"{name}: {time.perf_counter() - start:.2f} s")

# %% The client reads decisions, and takes the largest of ten.
decisions = model.unpack(keys.decrypt(answer))
seen, clear = model.labels(decisions), classifier.predict(images[:count])
error = np.abs(decisions - model.exact(images[:count])).max()
agree = int((seen == clear).sum())
print(f"largest error            {error:.3f} of decisions up to {np.abs(decisions).max():.1f}, "
      f"{plan.largest_error:.3f} predicted from others")
print(f"accuracy                 {100 * (seen == digits[:count]).mean():.2f} % encrypted, "
      f"{100 * (clear == digits[:count]).mean():.2f} % in the clear")
print(f"predictions that agree   {agree} of {count}")
# Only where the two best decisions are closer than twice the error may predictions differ.
best = np.sort(model.exact(images[:count]), axis=1)
assert (best[:, -1] - best[:, -2])[seen != clear].max(initial=0) <= 2 * error
