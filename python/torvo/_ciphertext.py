"""Ciphertexts with the operators of Python."""

from __future__ import annotations

import operator
import os
from math import isfinite
from typing import Any, Callable, Optional, Sequence, Union

import numpy as np

from . import _current, _torvo
from ._linear import _Map, maps_of, require_block
from ._numbers import Array, as_matrix, as_numbers, is_scalar, log_slots_for, padded

_DTYPES = {"f": np.dtype(np.float64), "c": np.dtype(np.complex128)}


class Ciphertext(_torvo.Ciphertext):
    """An encrypted number or array of one dimension.

    `ct + x`, `ct - x`, `ct * x` and `ct / x` take numbers, arrays of the same length and, but for `/`,
    ciphertexts; `ct ** n` a positive integer. They use the evaluator of `with torvo.Evaluator(keys):`, rescale and
    match levels. A product spends one level, one with an integer none; `ct ** n` spends ceil(log2(n)).

    `ct @ matrix` and `matrix @ ct` are products with a matrix in the clear, as numpy has them, for one level.

    `ct << n` and `ct >> n` rotate the slots: `(ct << 1)[i]` is `ct[i + 1]`. The slots are as many as a power of
    two, and a shorter array is padded, so zeros (or what operators made of them) come in where it ends.

    Every operator makes a new ciphertext; `+=` and its like write the left side, and `torvo.add(a, b, out=c)`
    another one. `keys.decrypt` gives an array of the shape and the kind that went in.

    Any number of threads may read one ciphertext; who writes waits for them, and they for it.
    """

    __slots__ = ("_context", "_shape", "_kind")
    #: numpy leaves operators between an array and a ciphertext to the ciphertext.
    __array_ufunc__ = None
    __hash__ = object.__hash__

    _context: _torvo.Context
    _shape: Optional[tuple[int, ...]]
    _kind: str

    def __init__(self, context: _torvo.Context) -> None:
        """Zeros, at the highest level and in all slots."""
        super().__init__(context)
        # Operators make an output for each result: to ask the library for the context costs them time.
        self._context = context
        self._shape = None
        self._kind = "c"

    def _describe(self, shape: Optional[tuple[int, ...]], kind: str) -> None:
        self._shape = shape
        self._kind = kind

    @property
    def shape(self) -> tuple[int, ...]:
        """() for a number, (n,) for an array of n."""
        slots = self.slots
        # A call with output parameters may have left other slots than the length was remembered for.
        return (slots,) if self._shape is None or (self._shape and self._shape[0] > slots) else self._shape

    @property
    def dtype(self) -> np.dtype[Any]:
        """float64, or complex128 where complex numbers went in."""
        return _DTYPES[self._kind]

    @property
    def slots(self) -> int:
        """The number of slots in use, the padding included."""
        return 1 << self.log_slots

    def __len__(self) -> int:
        if not self.shape:
            raise TypeError("an encrypted number has no length")
        return self.shape[0]

    def __repr__(self) -> str:
        return f"<torvo.Ciphertext: shape {self.shape}, {self.dtype}, {self.slots} slots, level {self.level}>"

    @classmethod
    def from_native(
        cls, native: _torvo.Ciphertext, shape: Optional[tuple[int, ...]] = None, kind: str = "c"
    ) -> "Ciphertext":
        """A copy of a ciphertext of the library. Without a shape it has all its slots."""
        made = cls(native.context)
        made.assign(native)
        made._describe(shape, kind)
        return made

    @staticmethod
    def from_bytes(
        context: _torvo.Context, data: bytes, shape: Optional[tuple[int, ...]] = None, kind: str = "c"
    ) -> "Ciphertext":
        """The ciphertext whose `to_bytes` gave these.

        The bytes tell neither length nor kind: give them, or get all slots.
        """
        return Ciphertext.from_native(_torvo.Ciphertext.from_bytes(context, data), shape, kind)

    def load(self, path: Union[str, "os.PathLike[str]"]) -> None:
        """Replaces the content by that of a file; a failed load changes nothing.

        A file tells neither length nor kind, so the ciphertext has all its slots then.
        """
        super().load(os.fspath(path))
        self._describe(None, "c")

    def assign(self, other: _torvo.Ciphertext) -> None:
        """Takes a copy of the data of `other`, and its length if it remembers one."""
        super().assign(other)
        if isinstance(other, Ciphertext):
            self._describe(other._shape, other._kind)
        else:
            self._describe(None, "c")

    def copy(self) -> "Ciphertext":
        """A copy of the data, which shares the context."""
        return Ciphertext.from_native(self, self._shape, self._kind)

    def __copy__(self) -> "Ciphertext":
        return self.copy()

    def __deepcopy__(self, memo: Any) -> "Ciphertext":
        return self.copy()

    def __reduce__(self) -> tuple[Any, ...]:
        from . import _pickling

        return _pickling.ciphertext, (self.context, self.to_bytes(), self._shape, self._kind)

    def __add__(self, other: Any) -> Any:
        return _operate(self, other, None, "add")

    __radd__ = __add__

    def __iadd__(self, other: Any) -> Any:
        return _operate(self, other, self, "add")

    def __sub__(self, other: Any) -> Any:
        return _operate(self, other, None, "sub")

    def __rsub__(self, other: Any) -> Any:
        difference = _operate(self, other, None, "sub")
        return difference if difference is NotImplemented else negative(difference, out=difference)

    def __isub__(self, other: Any) -> Any:
        return _operate(self, other, self, "sub")

    def __mul__(self, other: Any) -> Any:
        return _operate(self, other, None, "mult")

    __rmul__ = __mul__

    def __imul__(self, other: Any) -> Any:
        return _operate(self, other, self, "mult")

    def __truediv__(self, other: Any) -> Any:
        return _divide(self, other, None)

    def __itruediv__(self, other: Any) -> Any:
        return _divide(self, other, self)

    def __matmul__(self, other: Any) -> Any:
        return _matrix_product(self, other, False)

    def __rmatmul__(self, other: Any) -> Any:
        return _matrix_product(self, other, True)

    def __neg__(self) -> "Ciphertext":
        return negative(self)

    def __pos__(self) -> "Ciphertext":
        return self.copy()

    def __pow__(self, exponent: Any) -> Any:
        return power(self, exponent)

    def __lshift__(self, index: Any) -> Any:
        return rotate(self, index)

    def __rshift__(self, index: Any) -> Any:
        return rotate(self, -_index(index))

    def __ilshift__(self, index: Any) -> Any:
        return rotate(self, index, out=self)

    def __irshift__(self, index: Any) -> Any:
        return rotate(self, -_index(index), out=self)

    def conjugate(self, out: Optional["Ciphertext"] = None) -> "Ciphertext":
        """The complex conjugates. Needs the key of `keygen(..., conjugation=True)`."""
        out = _output(self, out)
        _current.evaluator().native.conjugate(self, out)
        out._describe(self._shape, self._kind)
        return out


def _output(like: Ciphertext, out: Optional[Ciphertext]) -> Ciphertext:
    if out is None:
        return Ciphertext(like._context)
    if not isinstance(out, Ciphertext):
        raise TypeError(f"out is a {type(out).__name__}; give a torvo.Ciphertext")
    return out


def _index(index: Any) -> int:
    if not isinstance(index, (int, np.integer)) or isinstance(index, bool):
        raise TypeError(f"a rotation by {index!r} is asked for; give an integer")
    return int(index)


def _settled(operand: Any) -> Any:
    """The operand, or a copy that owes no rescale."""
    if not isinstance(operand, _torvo.Ciphertext) or operand.rescale_counter == 0:
        return operand
    paid = _torvo.Ciphertext(operand.context)
    paid.assign(operand)
    evaluator = _current.evaluator().native
    while paid.rescale_counter > 0:
        evaluator.rescale(paid)
    return paid


def _call(name: str, a: Any, b: Any, out: _torvo.Ciphertext) -> None:
    """`out = a b`. Operators leave no rescale owed, but their operands may come from elsewhere."""
    call = getattr(_current.evaluator().native, name)
    try:
        call(a, b, out)
    except _torvo.Error:
        paid_a, paid_b = _settled(a), _settled(b)
        if paid_a is a and paid_b is b:
            raise
        call(paid_a, paid_b, out)


def _repeated(ciphertext: Ciphertext, log_slots: int) -> _torvo.Ciphertext:
    """One number in every slot: a ciphertext of one slot is the same words read with more slots."""
    if ciphertext.log_slots == log_slots:
        return ciphertext
    wide = _torvo.Ciphertext(ciphertext.context)
    wide.assign(ciphertext)
    wide.log_slots = log_slots
    return wide


def _is_one_number(operand: Ciphertext) -> bool:
    return operand.slots == 1 and operand.shape in ((), (1,))


def _match(a: Ciphertext, b: Ciphertext) -> tuple[Any, Any, Optional[tuple[int, ...]]]:
    """Two ciphertexts as numpy would broadcast them: of one shape, or one of them a single number."""
    if a._shape == b._shape or a.shape == b.shape:
        return a, b, a._shape
    if _is_one_number(b):
        return a, _repeated(b, a.log_slots), a._shape if a.shape else b._shape
    if _is_one_number(a):
        return _repeated(a, b.log_slots), b, b._shape
    raise ValueError(
        f"ciphertexts of shapes {a.shape} and {b.shape} do not go together; give equal shapes, or one number"
    )


def _values_for(a: Ciphertext, values: Any) -> Optional[Array]:
    """An array that goes with a ciphertext; of no dimension for one number; None for what is no array of numbers.
    """
    if not isinstance(values, (np.ndarray, list, tuple)):
        return None
    array = as_numbers(values)
    if array.size == 1:
        return array.reshape(())
    if a.shape != array.shape and not _is_one_number(a):
        raise ValueError(
            f"an array of shape {array.shape} does not go with a ciphertext of shape {a.shape}; "
            "give equal shapes, or one number"
        )
    return array


def _operate(a: Ciphertext, b: Any, out: Optional[Ciphertext], name: str) -> Any:
    """`a + b`, `a - b` or `a * b`, into `out` or a new ciphertext; NotImplemented for what `b` cannot be."""
    left: Any = a
    right: Any = b
    shape = a._shape
    is_complex = a._kind == "c"
    if isinstance(b, Ciphertext):
        is_complex = is_complex or b._kind == "c"
        if a._shape != b._shape:
            left, right, shape = _match(a, b)
    elif is_scalar(b):
        is_complex = is_complex or isinstance(b, (complex, np.complexfloating))
        right = complex(b)
    elif isinstance(b, (_torvo.Message, _torvo.Plaintext)):
        is_complex = True
    else:
        array = _values_for(a, b)
        if array is None:
            return NotImplemented
        is_complex = is_complex or array.dtype.kind == "c"
        if array.ndim == 0:
            right = complex(array)
        else:
            if a.shape != array.shape:
                left, shape = _repeated(a, log_slots_for(array.size)), array.shape
            right = padded(array, left.log_slots)
    if out is a and shape != a._shape:
        raise ValueError(
            f"an operation in place would turn shape {a.shape} into {shape}; "
            "use the operator that makes a new ciphertext"
        )
    made = _output(a, out)
    if name == "mult" and isinstance(right, complex) and _is_nearly_whole(right):
        _multiply_exactly(left, right, made)
    else:
        _call(name, left, right, made)
    made._describe(shape, "c" if is_complex else "f")
    return made


def _is_nearly_whole(c: complex) -> bool:
    """Whether the library would round a factor that is no integer to one: 1e-9 to 0."""
    if c.real.is_integer() and c.imag.is_integer():
        return False
    return all(isfinite(part) and abs(part - round(part)) <= 1e-8 for part in (c.real, c.imag))


def _multiply_exactly(a: Any, c: complex, out: Ciphertext) -> None:
    """`out = a c` with the factor as it is. `out` is written once, by the last of the calls, as by other operators."""
    product = _torvo.Ciphertext(a.context)
    _call("mult_without_rescale", a, c, product)
    _current.evaluator().native.rescale(product)
    _torvo.Ciphertext.assign(out, product)


def _divide(a: Ciphertext, b: Any, out: Optional[Ciphertext]) -> Any:
    """`a / b` for numbers in the clear."""
    if isinstance(b, _torvo.Ciphertext):
        raise TypeError(
            "a division by a ciphertext needs bounds on it; "
            "multiply by torvo.functions.inverse(ct, lower, upper)"
        )
    if is_scalar(b):
        return _operate(a, 1 / b, out, "mult")
    array = _values_for(a, b)
    if array is None:
        return NotImplemented
    if (array == 0).any():
        raise ZeroDivisionError("division of a ciphertext by zero")
    return _operate(a, 1 / array, out, "mult")


def _into(a: Any, b: Any, out: Optional[Ciphertext], name: str) -> Any:
    if not isinstance(a, (Ciphertext, CiphertextArray)):
        raise TypeError(f"the first operand is a {type(a).__name__}; give a Ciphertext or a CiphertextArray")
    if isinstance(a, CiphertextArray):
        if out is not None:
            raise TypeError("a CiphertextArray has no single out to write; use the operators")
        result = a._zip(b, lambda part, value: _into(part, value, None, name))
    else:
        result = _operate(a, b, out, name)
    if result is NotImplemented:
        raise TypeError(f"the second operand is a {type(b).__name__}; give a number, an array or a ciphertext")
    return result


def add(a: Any, b: Any, out: Optional[Ciphertext] = None) -> Any:
    """`a + b`, written into `out` if one is given; `out` may be an operand."""
    return _into(a, b, out, "add")


def subtract(a: Any, b: Any, out: Optional[Ciphertext] = None) -> Any:
    """`a - b`, written into `out` if one is given; `out` may be an operand."""
    return _into(a, b, out, "sub")


def multiply(a: Any, b: Any, out: Optional[Ciphertext] = None) -> Any:
    """`a * b` slot by slot, for one level, written into `out` if one is given; `out` may be an operand."""
    return _into(a, b, out, "mult")


def negative(a: Ciphertext, out: Optional[Ciphertext] = None) -> Ciphertext:
    """`-a`, written into `out` if one is given; `out` may be the operand."""
    made = _output(a, out)
    _current.evaluator().native.negate(a, made)
    made._describe(a._shape, a._kind)
    return made


def square(a: Ciphertext, out: Optional[Ciphertext] = None) -> Ciphertext:
    """`a ** 2`, written into `out` if one is given; `out` may be the operand."""
    made = _output(a, out)
    _current.evaluator().native.square(_settled(a), made)
    made._describe(a._shape, a._kind)
    return made


def power(a: Ciphertext, exponent: int) -> Ciphertext:
    """`a ** exponent` for a positive integer, at ceil(log2(exponent)) levels.

    An interrupt ends it between two products.
    """
    if not isinstance(exponent, (int, np.integer)) or isinstance(exponent, bool):
        raise TypeError(f"the exponent is {exponent!r}; give a positive integer")
    if exponent < 1:
        raise ValueError(f"the exponent is {exponent}; give a positive integer")
    squares, result, left = a, None, int(exponent)
    while True:
        if left & 1:
            result = squares if result is None else _operate(squares, result, None, "mult")
        left >>= 1
        if left == 0:
            return result.copy() if result is a else result  # type: ignore[return-value]
        squares = square(squares)


def rotate(a: Ciphertext, index: int, out: Optional[Ciphertext] = None) -> Ciphertext:
    """The slots of `a` rotated to the left by `index`, or to the right for a negative one.

    Needs keys of `keygen(..., rotations=...)` for the index or for powers of two. Raises torvo.Error without them.
    """
    count = _index(index)
    made = _output(a, out)
    if count >= 0:
        _current.evaluator().native.left_rotate(a, count % a.slots, made)
    else:
        _current.evaluator().native.right_rotate(a, -count % a.slots, made)
    made._describe(a._shape, a._kind)
    return made


def _map(part: Ciphertext, function: _Map, shape: tuple[int, ...], is_complex: bool) -> Ciphertext:
    """A linear map of one ciphertext."""
    result = Ciphertext(part._context)
    function.apply(_settled(part), result)
    result._describe(shape, "c" if is_complex or part._kind == "c" else "f")
    return result


def _matrix_product(a: Any, matrix: Any, is_right: bool) -> Any:
    """`a @ matrix`, or `matrix @ a` where `a` is on the right; NotImplemented for what is no matrix."""
    if not isinstance(matrix, (np.ndarray, list, tuple)):
        return NotImplemented
    array = as_matrix(matrix)
    if not a.shape:
        raise ValueError("an encrypted number has no dimension that @ could sum over; use *")
    count = array.shape[-1] if is_right else array.shape[0]
    if count != a.shape[0]:
        raise ValueError(
            f"a matrix of shape {array.shape} does not go with a ciphertext of shape {a.shape}; "
            "ciphertext @ matrix takes as many rows as there are numbers, matrix @ ciphertext as many columns"
        )
    parts = a.parts if isinstance(a, CiphertextArray) else [a]
    rows = array[None, :] if array.ndim == 1 else array if is_right else array.T
    most = parts[0]._context.slots
    is_complex = array.dtype.kind == "c"
    results: list[Ciphertext] = []
    for maps in maps_of(rows, [len(part) for part in parts], [part.slots for part in parts], most):
        shape = () if array.ndim == 1 else (min(most, rows.shape[0] - most * len(results)),)
        terms = [_map(part, one, shape, is_complex) for part, one in zip(parts, maps)]
        for term in terms[1:]:
            add(terms[0], term, out=terms[0])
        results.append(terms[0])
    return results[0] if len(results) == 1 else CiphertextArray(results, rows.shape[0])


def _blocks_product(a: Any, matrix: Any, length: int, is_right: bool) -> Any:
    """The product of each block of `length` slots."""
    if isinstance(a, CiphertextArray):
        return a.map(lambda part: _blocks_product(part, matrix, length, is_right))
    array = as_matrix(matrix)
    if array.ndim != 2:
        raise ValueError(f"an array of shape {array.shape} is no matrix for blocks; give two dimensions")
    rows = array if is_right else array.T
    require_block(rows, length, a.slots)
    if not a.shape or a.shape[0] % length != 0:
        raise ValueError(f"a ciphertext of shape {a.shape} is not made of blocks of {length} numbers")
    return _map(a, _Map(rows, a.slots, length), a.shape, array.dtype.kind == "c")


def matmul(a: Any, b: Any, length: int = 0, out: Optional[Ciphertext] = None) -> Any:
    """`a @ b`, of which one is a ciphertext and the other a matrix, or a vector, in the clear; for one level.

    A ciphertext of n numbers times a matrix of n rows, or a matrix of n columns times that ciphertext. The keys that
    it needs are those of `torvo.rotations_for`; torvo.Error names all that are missing. The matrix is encoded once
    for each level and number of slots (`torvo.matrix_cache`).

    With a `length`, a power of two, every block of so many slots is a vector of its own, and the numbers in it that
    the matrix has no row for are not looked at. The result has the shape of the ciphertext, with zeros where a vector
    of the result ends before its block.
    """
    is_right = isinstance(b, (Ciphertext, CiphertextArray))
    ciphertext, matrix = (b, a) if is_right else (a, b)
    if not isinstance(ciphertext, (Ciphertext, CiphertextArray)) or isinstance(matrix, (Ciphertext, CiphertextArray)):
        raise TypeError(
            f"{type(a).__name__} @ {type(b).__name__} is asked for; give one ciphertext and one matrix in the clear "
            "(torvo.functions.inner_product multiplies two ciphertexts)"
        )
    if length:
        result = _blocks_product(ciphertext, matrix, operator.index(length), is_right)
    else:
        result = _matrix_product(ciphertext, matrix, is_right)
    if result is NotImplemented:
        raise TypeError(f"the matrix is a {type(matrix).__name__}; give an array")
    if out is None:
        return result
    if not isinstance(result, Ciphertext):
        raise TypeError("the result is a CiphertextArray, which has no single out to write; give none")
    out = _output(result, out)
    out.assign(result)
    return out


class CiphertextArray:
    """An array that is longer than one ciphertext: full ciphertexts, one after the other, the last one padded.

    The operators are those of `Ciphertext`, but for rotations. `parts` are the ciphertexts, `length` is how many
    numbers there are.
    """

    __array_ufunc__ = None
    __hash__ = object.__hash__

    def __init__(self, parts: Sequence[Ciphertext], length: int) -> None:
        self.parts = list(parts)
        self.length = int(length)
        if sum(len(part) for part in self.parts) != self.length:
            raise ValueError(f"the parts hold {[len(part) for part in self.parts]} numbers, and not {length} in all")

    @property
    def shape(self) -> tuple[int]:
        """(n,) for n numbers."""
        return (self.length,)

    @property
    def dtype(self) -> np.dtype[Any]:
        """float64, or complex128 where complex numbers went in."""
        return np.result_type(*(part.dtype for part in self.parts))

    def __len__(self) -> int:
        return self.length

    def __repr__(self) -> str:
        return f"<torvo.CiphertextArray: {self.length} numbers in {len(self.parts)} ciphertexts>"

    def map(self, function: Callable[[Ciphertext], Any]) -> "CiphertextArray":
        """`function` of each part. An interrupt ends it between two parts."""
        return CiphertextArray([function(part) for part in self.parts], self.length)

    def _zip(self, other: Any, function: Callable[[Ciphertext, Any], Any]) -> Any:
        """`function` of each part and what goes with it."""
        if isinstance(other, CiphertextArray):
            if other.length != self.length or len(other.parts) != len(self.parts):
                raise ValueError(
                    f"arrays of {self.length} and {other.length} numbers do not go together; "
                    "give equal lengths"
                )
            values: list[Any] = other.parts
        elif is_scalar(other):
            values = [other] * len(self.parts)
        elif isinstance(other, (np.ndarray, list, tuple)):
            array = as_numbers(other)
            if array.size != 1 and array.shape != self.shape:
                raise ValueError(
                    f"an array of shape {array.shape} does not go with {self.length} numbers; "
                    "give equal lengths, or one number"
                )
            ends = np.cumsum([len(part) for part in self.parts])[:-1]
            values = [array.reshape(())[()]] * len(self.parts) if array.size == 1 else np.split(array, ends)
        else:
            return NotImplemented
        return CiphertextArray([function(part, value) for part, value in zip(self.parts, values)], self.length)

    def __add__(self, other: Any) -> Any:
        return self._zip(other, lambda part, value: part + value)

    __radd__ = __add__

    def __sub__(self, other: Any) -> Any:
        return self._zip(other, lambda part, value: part - value)

    def __rsub__(self, other: Any) -> Any:
        return self._zip(other, lambda part, value: value - part)

    def __mul__(self, other: Any) -> Any:
        return self._zip(other, lambda part, value: part * value)

    __rmul__ = __mul__

    def __truediv__(self, other: Any) -> Any:
        if isinstance(other, CiphertextArray):
            raise TypeError(
                "a division by ciphertexts needs bounds on them; "
                "multiply by torvo.functions.inverse(array, lower, upper)"
            )
        return self._zip(other, lambda part, value: part / value)

    def __matmul__(self, other: Any) -> Any:
        return _matrix_product(self, other, False)

    def __rmatmul__(self, other: Any) -> Any:
        return _matrix_product(self, other, True)

    def __neg__(self) -> "CiphertextArray":
        return self.map(negative)

    def __pow__(self, exponent: Any) -> "CiphertextArray":
        return self.map(lambda part: power(part, exponent))

    def __reduce__(self) -> tuple[Any, ...]:
        from . import _pickling

        return _pickling.array, (self.parts, self.length)
