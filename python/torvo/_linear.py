"""Products of ciphertexts with matrices in the clear."""

from __future__ import annotations

import hashlib
import itertools
import os
import threading
from dataclasses import dataclass
from typing import Any, Callable, Iterator, Optional, Sequence
from weakref import WeakKeyDictionary

import numpy as np

from . import _current, _torvo
from ._numbers import Array, as_matrix, log_slots_for

#: What `matrix_cache` holds at most where nobody says otherwise.
_CACHE_BYTES = 2 << 30


@dataclass
class _Entry:
    encoded: _torvo.EncodedTransform
    size: int
    used: int


class MatrixCache:
    """The encoded matrices of `@`: encoding one takes several times as long as the product.

    They are found by their content, by level and by number of slots. Those that were not used for longest go first
    where there are more than `limit` bytes; those of a context go with it. There is one for the process,
    `torvo.matrix_cache`; threads share it.
    """

    def __init__(self, limit: int = _CACHE_BYTES) -> None:
        self._limit = limit
        self._clock = itertools.count()
        self._of_context: WeakKeyDictionary[_torvo.Context, dict[Any, _Entry]] = WeakKeyDictionary()
        self._renew_lock()
        # Another thread may hold the lock while this one forks.
        os.register_at_fork(after_in_child=self._renew_lock)

    def _renew_lock(self) -> None:
        self._lock = threading.RLock()  # a context may be collected while this thread holds it

    @property
    def limit(self) -> int:
        """Bytes that are held at most. A matrix that is larger is encoded for every product."""
        return self._limit

    @limit.setter
    def limit(self, value: int) -> None:
        with self._lock:
            self._limit = int(value)
            self._shrink()

    @property
    def bytes(self) -> int:
        """Bytes that are held."""
        with self._lock:
            return sum(entry.size for _, _, entry in self._entries())

    def __len__(self) -> int:
        with self._lock:
            return sum(1 for _ in self._entries())

    def clear(self) -> None:
        """Drops everything."""
        with self._lock:
            self._of_context.clear()

    def _entries(self) -> Iterator[tuple[dict[Any, _Entry], Any, _Entry]]:
        for entries in list(self._of_context.values()):
            for key, entry in entries.items():
                yield entries, key, entry

    def _shrink(self) -> None:
        oldest_first = sorted(self._entries(), key=lambda found: found[2].used)
        total = sum(entry.size for _, _, entry in oldest_first)
        for entries, key, entry in oldest_first:
            if total <= self._limit:
                return
            del entries[key]
            total -= entry.size

    def _get(
        self, context: _torvo.Context, key: Any, make: Callable[[], _torvo.EncodedTransform]
    ) -> _torvo.EncodedTransform:
        with self._lock:
            found = self._of_context.setdefault(context, {}).get(key)
            if found is not None:
                found.used = next(self._clock)
                return found.encoded
        # Two threads may encode the same matrix; neither keeps others waiting.
        encoded = make()
        entry = _Entry(encoded, encoded.saved_size, next(self._clock))
        with self._lock:
            if entry.size <= self._limit:
                self._of_context.setdefault(context, {})[key] = entry
                self._shrink()
        return encoded


#: The encoded matrices of this process.
matrix_cache = MatrixCache()


class _Map:
    """y = M x on slots: a linear transform of few diagonals, and sums of rotations behind it.

    M has n rows, and x lies in the first of S slots; n and S are powers of two after padding with zeros. For n below
    S, slot i takes the n diagonals (i + d) mod S of row i mod n, and the sum of its rotations by multiples of n takes
    the others: y is then repeated with period n, which is the same as y in n slots. For n above S, x is
    repeated with period S first, so that S diagonals suffice. With a `length`, M maps each block of so many slots.
    """

    def __init__(self, matrix: Array, slots: int, length: int = 0, least_rows: int = 1) -> None:
        self._matrix = matrix
        self._slots = slots
        self._length = length
        rows = 1 << log_slots_for(max(matrix.shape[0], least_rows))
        #: Slots of the operand, of the result.
        self.slots_in = slots if length else max(slots, rows)
        self.slots_out = slots if length else rows
        self._content: Optional[bytes] = None

    def key(self, level: int) -> Any:
        """What the cache finds it by."""
        if self._content is None:
            self._content = hashlib.blake2b(self._matrix.tobytes(), digest_size=32).digest()
        place = (self._slots, self._length, self.slots_out, level)
        return self._content, self._matrix.dtype.char, self._matrix.shape, place

    def transform(self) -> _torvo.LinearTransform:
        """The diagonals."""
        if self._length:
            padded = np.zeros((self._length, self._length), self._matrix.dtype)
        else:
            padded = np.zeros((self.slots_out, self._slots), self._matrix.dtype)
        padded[: self._matrix.shape[0], : self._matrix.shape[1]] = self._matrix
        if self._length:
            return _torvo.LinearTransform.from_matrix(padded)
        place = np.arange(self.slots_in)
        diagonals = {}
        for d in range(min(padded.shape)):
            diagonal = padded[place % self.slots_out, (place + d) % self._slots]
            if diagonal.any():
                diagonals[d] = diagonal
        return _torvo.LinearTransform.from_diagonals(self.slots_in, diagonals)

    def constants(self) -> int:
        """Rotations by which the transform is made: one for each diagonal that is not zero, on more slots than a block
        has two, to the left and to the right.
        """
        transform = self.transform()
        if transform.size == self.slots_in:
            return len(transform.diagonal_indices)
        i, j = np.nonzero(self._matrix)
        return max(1, len(set((j - i).tolist())))

    def sums(self) -> list[int]:
        """The rotations behind the transform."""
        steps, gap = [], self.slots_out
        while gap < self.slots_in:
            steps.append(gap)
            gap *= 2
        return steps

    def rotations(self, context: _torvo.Context, level: int) -> set[int]:
        """All rotations to the left that need a key."""
        of_transform = self.transform().rotations(context, log_slots_for(self.slots_in), level)
        return {*of_transform, *self.sums()}

    def encoded(self, context: _torvo.Context, level: int) -> _torvo.EncodedTransform:
        """The transform for ciphertexts of a level, from the cache if it is there."""

        def encode() -> _torvo.EncodedTransform:
            return _torvo.EncodedTransform(context, self.transform(), log_slots_for(self.slots_in), level)

        return matrix_cache._get(context, self.key(level), encode)

    def apply(self, operand: _torvo.Ciphertext, out: _torvo.Ciphertext) -> None:
        """The product with a ciphertext that owes nothing, at one level less. `out` is another one."""
        evaluator = _current.evaluator()
        if not operand.context.is_same_ring(evaluator.context):
            raise _torvo.Error(
                f"the ciphertext is not of the ring of the evaluator: {operand.context}, but {evaluator.context}; "
                "use the evaluator of the keys that it was encrypted under"
            )
        encoded = self.encoded(evaluator.context, operand.level)
        needed = sorted({*encoded.rotations, *self.sums()})
        missing = [index for index in needed if not evaluator.pack.has_left_rotation_key(index)]
        if missing:
            raise _torvo.Error(
                f"the product with a matrix needs the rotation keys {needed}, and {missing} are missing; "
                "make keys with keygen(context, rotations=torvo.rotations_for(matrix, context, ...)), "
                f"for a ciphertext of {operand_slots(operand)} slots at level {operand.level}"
            )
        if operand_slots(operand) != self.slots_in:
            wide = _torvo.Ciphertext(evaluator.context)
            wide.assign(operand)
            wide.log_slots = log_slots_for(self.slots_in)  # the same words, read as repeated
            operand = wide
        encoded.apply(evaluator.native, operand, out)
        if self.slots_out < self.slots_in:
            count = self.slots_in // self.slots_out
            evaluator.native.left_rotate_reduce(out, self.slots_out, count, out)
            out.log_slots = log_slots_for(self.slots_out)


def operand_slots(operand: _torvo.Ciphertext) -> int:
    """The slots in use, the padding included."""
    return 1 << operand.log_slots


def maps_of(matrix: Array, lengths: Sequence[int], slots: Sequence[int], most: int) -> list[list[_Map]]:
    """The maps of M x where x lies in several ciphertexts, of which each has so many numbers and slots.

    One list for each ciphertext of the result, with one map for each of x. `most` are the slots of a full
    ciphertext, of which a result of several ciphertexts is made.
    """
    edges = np.cumsum(lengths)[:-1]
    count = matrix.shape[0]
    least = most if count > most else 1
    return [
        [_Map(block, part, least_rows=least) for block, part in zip(np.split(rows, edges, axis=1), slots)]
        for rows in (matrix[begin : begin + most] for begin in range(0, count, most))
    ]


def require_block(matrix: Array, length: int, slots: int) -> None:
    """Refuses a length of blocks that the matrix or the slots do not go with. Raises ValueError."""
    if length < 1 or length & (length - 1) or length > slots:
        raise ValueError(f"length is {length}; give a power of two, at most the {slots} slots of the ciphertext")
    if max(matrix.shape) > length:
        raise ValueError(
            f"a matrix of shape {matrix.shape} does not go with blocks of {length} slots; "
            "give a length that is not less than its rows and columns"
        )


def rotations_for(
    matrix: Any,
    context: _torvo.Context,
    *,
    slots: Optional[int] = None,
    level: Optional[int] = None,
    length: int = 0,
) -> list[int]:
    """The rotations that `ciphertext @ matrix` needs keys for, for `keygen`. For `matrix @ ciphertext` give `matrix.T`.

    They depend on the slots of the ciphertext and on its level: by default those of a fresh encryption of as many
    numbers as the matrix has rows, or with a `length`, as in `torvo.matmul`, those of a full ciphertext.
    """
    array = as_matrix(matrix)
    array = array[None, :] if array.ndim == 1 else array.T
    at = context.encryption_level if level is None else level
    if length:
        full = context.slots if slots is None else slots
        require_block(array, length, full)
        return sorted(_Map(array, full, length).rotations(context, at))
    count = array.shape[1]
    lengths = [min(context.slots, count - i) for i in range(0, count, context.slots)]
    if slots is None:
        slots = 1 << log_slots_for(lengths[0])
    if slots & (slots - 1) or not lengths[0] <= slots <= context.slots:
        raise ValueError(
            f"slots is {slots}; give a power of two from the {lengths[0]} rows to the {context.slots} of the context"
        )
    maps = maps_of(array, lengths, [slots] * len(lengths), context.slots)
    found: set[int] = set()
    return sorted(found.union(*(one.rotations(context, at) for row in maps for one in row)))
