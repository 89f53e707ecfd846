# %% [markdown]
# 1. Quick start: encrypt an array, compute with it, decrypt the result.
#
# The cells run one after the other, in an editor that knows `# %%` or as a program.

# %% A context is a parameter set. Keys are made for it: a secret one to decrypt, public ones for all the rest.
import numpy as np

import torvo

context = torvo.Context("ST11")
keys = torvo.keygen(context, rotations=[1, 2])
print(context)

# %% An array is encrypted as a whole. Whoever has the ciphertext and the public keys computes with it.
x = np.array([0.5, 0.25, -1.0, 0.75])
ct = keys.encrypt(x)
print(ct)

# %% Operators are those of numpy, with numbers, arrays and ciphertexts. A product spends one level of eleven.
matrix = np.array([[1.0, 2.0], [0.5, 0.0], [-1.0, 1.0], [0.0, 3.0]])
with torvo.Evaluator(keys.public()):
    polynomial = ct * ct + 1.5
    shifted = ct << 1
    product = ct @ matrix
    probability = torvo.functions.sigmoid(ct, bound=1)

# %% Only the secret key reads the results. They are exact to some 30 bits; each operation adds a little noise.
for name, result, expected in [
    ("x * x + 1.5", polynomial, x * x + 1.5),
    ("x << 1", shifted, np.roll(x, -1)),
    ("x @ matrix", product, x @ matrix),
    ("sigmoid(x)", probability, 1 / (1 + np.exp(-x))),
]:
    seen = keys.decrypt(result)
    print(f"{name:12} {np.round(seen, 4)}  level {result.level}, largest error {np.abs(seen - expected).max():.1e}")
    assert np.abs(seen - expected).max() < 1.1e-5  # the sigmoid's polynomial has an error of 1e-5

# %% What a function needs is known before any key exists.
print("rotation keys of x @ matrix:", torvo.rotations_for(matrix, context))
with torvo.Plan(context) as plan:
    planned = torvo.functions.sigmoid(plan.encrypt(x), bound=1)
print(f"a sigmoid spends {context.encryption_level - planned.level} levels and {plan.report.tensors} products")
