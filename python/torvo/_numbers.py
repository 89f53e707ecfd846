"""Arrays of Python on their way into messages: what is a number, what shape it has, how it is padded."""

from __future__ import annotations

import numbers
from typing import Any

import numpy as np
import numpy.typing as npt

from . import _torvo

Array = npt.NDArray[Any]
#: Kinds of numpy that are numbers: signed, unsigned, real, complex.
_NUMBER_KINDS = "iufc"


def is_scalar(value: Any) -> bool:
    """Whether it is one number. A truth value is none."""
    kind = type(value)
    if kind is float or kind is int or kind is complex:  # most of them; the test below takes longer
        return True
    return isinstance(value, numbers.Complex) and not isinstance(value, (bool, np.bool_))


def _as_array(values: Any) -> Array:
    """The values as an array of float64 or complex128. Raises TypeError for what is no number."""
    array = np.asarray(values)
    if array.dtype.kind not in _NUMBER_KINDS:
        raise TypeError(
            f"numbers are needed, but the values are of dtype {array.dtype}; "
            "give integers, real or complex ones"
        )
    return array.astype(np.complex128 if array.dtype.kind == "c" else np.float64, copy=False)


def as_numbers(values: Any) -> Array:
    """The values as an array of no or one dimension of float64 or complex128.

    Raises TypeError for what is no number, ValueError for more dimensions and for no value at all.
    """
    array = _as_array(values)
    if array.ndim > 1:
        raise ValueError(
            f"an array of shape {array.shape} has more than one dimension; "
            "give a row at a time, or ravel it"
        )
    if array.size == 0:
        raise ValueError("an empty array has no number to encrypt or to compute with; give at least one")
    return array


def as_matrix(values: Any) -> Array:
    """The values as an array of one or two dimensions of float64 or complex128.

    Raises TypeError for what is no number, ValueError for other dimensions and for no value at all, torvo.Error for
    what is infinite or NaN.
    """
    array = _as_array(values)
    if array.ndim not in (1, 2):
        raise ValueError(f"an array of shape {array.shape} is no matrix; give one or two dimensions")
    if array.size == 0:
        raise ValueError(f"a matrix of shape {array.shape} has no entry; give at least one row and one column")
    finite = np.isfinite(array)
    if not finite.all():
        place = tuple(int(i) for i in np.argwhere(~finite)[0])
        raise _torvo.Error(f"the entry at {place} of the matrix is {array[place]}; give finite numbers")
    return array


def log_slots_for(length: int) -> int:
    """log2 of the least power of two that `length` numbers fit in."""
    return (length - 1).bit_length()


def padded(array: Array, log_slots: int) -> _torvo.Message:
    """A message of 2^log_slots slots, the array first and zeros behind it."""
    message = _torvo.Message(log_slots)
    np.asarray(message)[: array.size] = array
    return message
