"""Operands of functions: which kind they are of, what computes on them, and whether their padding would count."""

from __future__ import annotations

from typing import Any, Callable, Optional, Sequence

from . import _current, _torvo
from ._ciphertext import Ciphertext, CiphertextArray, _match, _settled
from ._numbers import as_matrix

#: What is computed on without a ciphertext of Python's, and so without a shape.
_PLAIN = (_torvo.PlannedCiphertext, _torvo.Message)
#: What helps where blocks have a length that is given.
_LENGTHS = "encrypt as many numbers as a power of two, or give a length that divides their number"


def _computing(x: Any) -> Any:
    """What computes on an operand: the plan for a planned ciphertext, else the evaluator."""
    if isinstance(x, _torvo.PlannedCiphertext):
        return _current.plan()
    evaluator = _current.evaluator()
    return evaluator.native if isinstance(x, _torvo.Message) else evaluator.on


def _plainly(x: Any, out: Any, call: Callable[[Any, Any], None]) -> Any:
    """`call(on, out)` for what has no shape. `x` is the first operand."""
    made = type(x)() if out is None else out
    call(_computing(x), made)
    return made


def _slotwise(x: Any, out: Any, call: Callable[[Any, Any, Any], None], is_complex: bool = False) -> Any:
    """`call(on, x, out)` for a ciphertext, for each part of an array, or for a planned ciphertext."""
    if isinstance(x, CiphertextArray):
        if out is not None:
            raise TypeError("a CiphertextArray has no single out to write; give none")
        return x.map(lambda part: _slotwise(part, None, call, is_complex))
    if isinstance(x, _PLAIN):
        return _plainly(x, out, lambda on, made: call(on, x, made))
    if not isinstance(x, Ciphertext):
        raise TypeError(
            f"the operand is a {type(x).__name__}; "
            "give a Ciphertext, a CiphertextArray, a Message or what Plan.encrypt gives"
        )
    made = Ciphertext(x.context) if out is None else out
    shape, kind = x._shape, "c" if is_complex or x._kind == "c" else "f"
    call(_computing(x), _settled(x), made)
    made._describe(shape, kind)
    return made


def _require_whole_blocks(operands: Sequence[Any], length: int, advice: str = _LENGTHS) -> None:
    """A padding would count as numbers, so blocks must end where the numbers do."""
    for x in operands:
        if isinstance(x, Ciphertext):
            block = length if length > 0 else x.slots
            count = x.shape[0] if x.shape else 1
            if count % block != 0:
                raise ValueError(
                    f"{count} numbers stand in {x.slots} slots, so that the padding would count in blocks of {block}; "
                    + advice
                )


def _operands(x: Any) -> list[Any]:
    """One operand or many as a list."""
    if isinstance(x, CiphertextArray):
        return list(x.parts)
    operands = [x] if isinstance(x, (Ciphertext, *_PLAIN)) else list(x)
    for one in operands:
        if not isinstance(one, (Ciphertext, *_PLAIN)):
            raise TypeError(f"an operand is a {type(one).__name__}; give ciphertexts")
    return operands


def _require_ciphertexts(operands: Sequence[Any]) -> None:
    for one in operands:
        if not isinstance(one, Ciphertext):
            raise TypeError(f"a Ciphertext and a {type(one).__name__} are given together; give operands of one kind")


def _statistic(
    lists: Sequence[Any], length: int, out: Any, call: Callable[[Any, list[list[Any]], Any], None]
) -> Any:
    """`call(on, operands, out)` for lists of operands. The result has the shape of the first operand."""
    operands = [_operands(x) for x in lists]
    everything = [one for some in operands for one in some]
    _require_whole_blocks(everything, length)
    return _combined(operands, out, call)


def _combined(
    operands: list[list[Any]], out: Any, call: Callable[[Any, list[list[Any]], Any], None], is_complex: bool = False
) -> Any:
    """`call(on, operands, out)` for operands of one kind."""
    everything = [one for some in operands for one in some]
    if not everything:
        raise ValueError("no ciphertext is given; give at least one")
    first = everything[0]
    if isinstance(first, _PLAIN):
        return _plainly(first, out, lambda on, made: call(on, operands, made))
    _require_ciphertexts(everything)
    made = Ciphertext(first.context) if out is None else out
    shape, kind = first._shape, "c" if is_complex or any(one._kind == "c" for one in everything) else "f"
    call(_computing(first), [[_settled(one) for one in some] for some in operands], made)
    made._describe(shape, kind)
    return made


def _pairwise(x: Any, y: Any, out: Any, call: Callable[[Any, Any, Any, Any], None]) -> Any:
    """`call(on, x, y, out)` for two operands of one kind, as numpy would broadcast them."""
    if isinstance(x, CiphertextArray) and isinstance(y, (CiphertextArray, Ciphertext)):
        if out is not None:
            raise TypeError("a CiphertextArray has no single out to write; give none")
        if isinstance(y, Ciphertext):
            return x.map(lambda part: _pairwise(part, y, None, call))
        return x._zip(y, lambda part, other: _pairwise(part, other, None, call))
    if isinstance(y, CiphertextArray) and isinstance(x, Ciphertext):
        if out is not None:
            raise TypeError("a CiphertextArray has no single out to write; give none")
        return y.map(lambda part: _pairwise(x, part, None, call))
    for one in (x, y):
        if not isinstance(one, (Ciphertext, *_PLAIN)):
            raise TypeError(f"an operand is a {type(one).__name__}; give ciphertexts")
    if isinstance(x, _PLAIN):
        return _plainly(x, out, lambda on, made: call(on, x, y, made))
    _require_ciphertexts([x, y])
    made = Ciphertext(x.context) if out is None else out
    kind = "c" if "c" in (x._kind, y._kind) else "f"
    left, right, shape = _match(x, y)
    call(_computing(x), _settled(left), _settled(right), made)
    made._describe(shape, kind)
    return made


def _cached(transform: Any) -> tuple[_torvo.CachedTransform, bool]:
    """What is applied, and whether real numbers may become complex by it."""
    if isinstance(transform, _torvo.CachedTransform):
        return transform, True
    if isinstance(transform, _torvo.LinearTransform):
        return _torvo.CachedTransform(transform), True
    if isinstance(transform, (Ciphertext, CiphertextArray, *_PLAIN)):
        raise TypeError(
            f"the transform is a {type(transform).__name__}; give a CachedTransform, or a matrix in the clear"
        )
    matrix = as_matrix(transform)
    if matrix.ndim != 2:
        raise ValueError(f"the transform is an array of shape {matrix.shape}; give a matrix, of two dimensions")
    return _torvo.CachedTransform(_torvo.LinearTransform.from_matrix(matrix)), matrix.dtype.kind == "c"


def _require_matrix_blocks(x: Any, length: int) -> None:
    """A padding would count in a linear map of each block. Blocks above the slots are left to the library to refuse."""
    parts = x.parts if isinstance(x, CiphertextArray) else [x]
    served = [one for one in parts if not isinstance(one, Ciphertext) or length <= one.slots]
    _require_whole_blocks(served, length, "encrypt whole blocks; `matrix @ ciphertext` leaves the padding out")


def _are_real(operands: Sequence[Any], is_real: Optional[bool]) -> bool:
    """What the caller says, or whether all are ciphertexts that only real numbers went into."""
    if is_real is not None:
        return is_real
    return all(isinstance(one, (Ciphertext, CiphertextArray)) and one.dtype.kind != "c" for one in operands)
