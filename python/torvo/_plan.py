"""Dry runs."""

from __future__ import annotations

from typing import Any, Callable, Optional

from . import _current, _torvo
from ._numbers import as_numbers, log_slots_for, padded


class Plan(_torvo.Plan):
    """A dry run: `with torvo.Plan(context) as plan:`, then functions of what `plan.encrypt` gives need no key.

    They count what they would do, refuse what they would refuse, and predict the error. `plan.report` has the
    counts. With a `torvo.Precision` the plan bootstraps where levels would run out.
    """

    def encrypt(self, values: Any, level: Optional[int] = None) -> _torvo.PlannedCiphertext:
        """A planned ciphertext of typical numbers, as `keys.encrypt` would make a real one."""
        if isinstance(values, _torvo.Message):
            return super().encrypt(values, level)
        array = as_numbers(values)
        return super().encrypt(padded(array, log_slots_for(array.size)), level)

    def __enter__(self) -> "Plan":
        _current.plans.set(_current.plans.get() + (self,))
        return self

    def __exit__(self, *exception: object) -> None:
        _current.plans.set(_current.plans.get()[:-1])


def advise_presets(
    circuit: Callable[[Plan], _torvo.PlannedCiphertext], error: float
) -> list[_torvo.PresetAdvice]:
    """The presets on which a circuit errs by at most `error`: those of the smallest ring first.

    `circuit` gets a plan, which is entered as by `with`, encrypts typical numbers with it, and returns the result of
    its functions. Each preset of 128 bits of security is tried, without bootstraps first. A circuit that a preset
    refuses with torvo.Error is tried with the next one; any other exception passes through.
    """

    def entered(native: _torvo.Plan) -> _torvo.PlannedCiphertext:
        with Plan(native) as plan:
            return circuit(plan)

    return _torvo.advise_presets(entered, error)
