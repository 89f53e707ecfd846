"""Models on a plan: what is done to one ciphertext, and the errors that its numbers get."""

from __future__ import annotations

from typing import Any, Sequence

import numpy as np

from . import _torvo, functions
from ._layers import Dense
from ._linear import _Map
from ._numbers import Array, log_slots_for, padded
from ._plan import Plan

#: Ciphertexts, and sums of one, that errors are drawn for. Further ones get the same: errors hardly depend on numbers.
DRAWN = 16
#: Of each product of a model what else is known of it, its level, and its map.
_Steps = Sequence[tuple[Any, int, _Map]]


def _noisy(planned: _torvo.PlannedCiphertext) -> Array:
    numbers: Array = np.asarray(planned.noisy_message)
    return numbers


def _in_blocks(numbers: Array, slots: int, length: int) -> Array:
    """Numbers in the slots, once, or in each block of `length`."""
    block = np.zeros(length or slots, numbers.dtype)
    block[: len(numbers)] = numbers
    return np.tile(block, slots // len(block))


class _Product:
    """A transform, and the sums of rotations behind it.

    Operands are encrypted anew for the plan; what becomes of the errors of that encryption is taken out again.
    """

    def __init__(self, plan: Plan, one: _Map, level: int) -> None:
        self._plan, self._one, self._level = plan, one, level
        self._transform = one.transform()
        self._cached = _torvo.CachedTransform(self._transform)

    def exact(self, numbers: Array) -> Array:
        """The product of numbers in as many slots as it begins with."""
        result = _torvo.Message()
        self._transform.apply(padded(numbers, log_slots_for(len(numbers))), result)
        folded: Array = np.asarray(result).reshape(-1, self._one.slots_out).sum(axis=0)
        return folded

    def own_errors(self, numbers: Array) -> Array:
        """Those of the transform, with what the sums make of them."""
        operand = self._plan.encrypt(numbers, level=self._level)
        result = _noisy(functions.apply_transform(operand, self._cached))
        folded: Array = result.reshape(-1, self._one.slots_out).sum(axis=0)
        return folded - self.exact(_noisy(operand))

    def errors_of_sums(self) -> Array:
        """Those of the rotations of the sums. They are drawn with no more slots than there are to sum.

        A sum is read with fewer slots than its rotations have: the mean of those that repeat it. The variance of an
        error grows with the slots in use.
        """
        slots, count = self._one.slots_out, self._one.slots_in // self._one.slots_out

        def draw() -> complex:
            operand = self._plan.encrypt(np.zeros(count), level=self._level - 1)
            return complex(_noisy(functions.sum(operand)).mean() - _noisy(operand).sum())

        drawn = np.array([draw() for _ in range(min(slots, DRAWN))])
        found: Array = np.resize(drawn * np.sqrt(slots), slots)
        return found


def counted(context: _torvo.Context, layers: Sequence[Dense], steps: _Steps) -> Plan:
    """A plan of what is done to one ciphertext."""
    with Plan(context) as plan:
        for layer, (_, level, one) in zip(layers, steps):
            functions.apply_transform(plan.encrypt(np.zeros(one.slots_in), level=level), one.transform())
            if one.slots_out < one.slots_in:
                functions.sum(plan.encrypt(np.zeros(one.slots_in // one.slots_out), level=level - 1))
            if layer.activation is not None:
                operand = plan.encrypt(np.zeros(one.slots_out), level=level - 1)
                functions.evaluate(operand, layer.activation.series)
    return plan


class Prediction:
    """The errors that a plan predicts, ciphertext by ciphertext.

    Those of the encodings of biases, smaller than those of a rescale, are not among them.
    """

    def __init__(self, context: _torvo.Context, layers: Sequence[Dense], steps: _Steps, length: int) -> None:
        self._plan = Plan(context)
        self._layers, self._length = layers, length
        self._level = context.encryption_level
        self._steps = [(_Product(self._plan, one, level), level, one) for _, level, one in steps]
        self._signs = np.random.default_rng(0)

    def answer(self, numbers: Array) -> Array:
        """The answer in the slots for numbers in the slots, with its errors."""
        with self._plan:
            # Sums of rotations are read with more slots as repeated, with nearly all of their errors: `repeated` has
            # only those, `noisy` has all.
            repeated, noisy = numbers, _noisy(self._plan.encrypt(numbers, level=self._level))
            for layer, (product, level, one) in zip(self._layers, self._steps):
                copies = one.slots_in // len(noisy)
                wide = np.tile(repeated, copies) + self._other_errors(noisy - repeated, copies)
                repeated = product.exact(np.tile(repeated, copies))
                noisy = product.exact(wide) + product.own_errors(wide)
                if one.slots_out < one.slots_in:
                    repeated = noisy = noisy + product.errors_of_sums()
                biases = _in_blocks(layer.scaled()[1], one.slots_out, self._length)
                repeated, noisy = repeated + biases, noisy + biases
                if layer.activation is not None:
                    operand = self._plan.encrypt(noisy, level=level - 1)
                    result = _noisy(functions.evaluate(operand, layer.activation.series))
                    errors = result - layer.activation.polynomial(_noisy(operand))
                    repeated = layer.activation.polynomial(repeated)
                    noisy = layer.activation.polynomial(noisy) + errors
        return noisy

    def _other_errors(self, errors: Array, copies: int) -> Array:
        """Errors read with so many times the slots: others in each copy, of as many times the coefficients."""
        if copies == 1:
            return errors
        signs: Array = self._signs.choice([-1.0, 1.0], copies * len(errors))
        scaled: Array = np.tile(errors, copies) * np.sqrt(copies)
        return scaled * signs
