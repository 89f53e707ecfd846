"""What the processes of a cluster run for `torvo.distributed`. Nothing here is for users, and nothing needs Dask.

A task holds a setup, a function and pickled inputs. Each input is unpickled, computed and pickled by itself, so that
what is wrong with one of them stays with it.
"""

from __future__ import annotations

import os
import pickle
import socket
import threading
import traceback
import zlib
from collections.abc import Iterator
from contextlib import contextmanager
from dataclasses import dataclass
from pathlib import PurePath
from typing import Any, Callable, NamedTuple, Optional, Union

from . import _current, _torvo
from ._ciphertext import Ciphertext
from ._evaluator import Evaluator
from ._keys import PublicKeys

#: Evaluators that a process keeps, each with the keys that it has read. Pools that nobody closed would pile up.
_KEPT = 4
#: More files than any set of keys has. A scan for secrets must not go through a whole disk.
_MOST_FILES = 10_000


@dataclass(frozen=True)
class Failure:
    """Why one input has no result."""

    #: The place of the input among those that were given, from 0.
    index: int
    #: The name of the exception's class.
    kind: str
    #: Its text.
    text: str
    #: Where it was raised, as Python prints it.
    traceback: str = ""

    def __str__(self) -> str:
        return f"input {self.index}: {self.kind}: {self.text}"


class Setup(NamedTuple):
    """What a process needs to know to compute for a pool. Equal setups share an evaluator and its keys."""

    pool: str
    directory: str
    context: Optional[bytes]
    bootstrap: Union[bool, int]
    compact: bool
    extended: bool
    threads: int


class Batch:
    """Pickled inputs, each with its place among all. Dask would take bare bytes for the name of another task, and hash
    them.
    """

    __slots__ = ("items",)

    def __init__(self, items: list[tuple[int, bytes]]) -> None:
        self.items = items

    @property
    def size(self) -> int:
        """Bytes of all."""
        return sum(len(data) for _, data in self.items)


class Partial(NamedTuple):
    """The inputs of a batch, or of many, combined: pickled, or nothing where some of them failed."""

    first: int
    data: Optional[bytes]
    failures: list[Failure]


_lock = threading.Lock()
_evaluators: dict[Setup, Evaluator] = {}


def _files_of(directory: str) -> Iterator[str]:
    """Every file below the directory, behind links too."""
    seen = set()
    for folder, folders, files in os.walk(directory, followlinks=True):
        real = os.path.realpath(folder)
        if real in seen:  # a link to a folder above would never end
            folders.clear()
            continue
        seen.add(real)
        yield from (os.path.join(folder, name) for name in files)


def require_no_secret(directory: str) -> None:
    """Raises torvo.Error if a file in the directory can be loaded as a secret key."""
    for count, path in enumerate(_files_of(directory)):
        if count == _MOST_FILES:
            raise _torvo.Error(
                f"the key directory {directory} has more than {_MOST_FILES} files; "
                "give the public keys a directory of their own"
            )
        if any(content.kind.endswith("secret key") for content in _torvo.inspect(path).kinds):
            raise _torvo.Error(
                f"the key directory {directory} holds a secret key, {path}; "
                "take it away from where workers read, and save only public keys there"
            )


def public_keys(directory: str, context: Optional[bytes]) -> PublicKeys:
    """The public keys of a directory. Raises torvo.Error where there are none, or a secret, or of another context."""
    require_no_secret(directory)
    keys = PublicKeys.load(directory)
    if context is not None and keys.context != _torvo.Context.from_bytes(context):
        raise _torvo.Error(
            f"the key directory {directory} is of another context than the pool; "
            "make the pool with the directory that the workers have"
        )
    return keys


def _evaluator_of(setup: Setup) -> Evaluator:
    """The evaluator of this process for the setup, made once; each of its keys is read when it is first needed."""
    with _lock:
        made = _evaluators.get(setup)
        if made is None:
            try:
                keys = public_keys(setup.directory, setup.context)
            except _torvo.Error as error:
                raise _torvo.Error(f"a worker on {socket.gethostname()} cannot use the keys: {error}") from None
            made = Evaluator(keys, bootstrap=setup.bootstrap, compact=setup.compact, extended=setup.extended)
            while len(_evaluators) >= _KEPT:
                del _evaluators[next(iter(_evaluators))]
            _evaluators[setup] = made
        return made


def forget(pool: str) -> None:
    """Drops evaluators and keys of a pool."""
    with _lock:
        for setup in [setup for setup in _evaluators if setup.pool == pool]:
            del _evaluators[setup]


@contextmanager
def _computing(setup: Setup) -> Iterator[None]:
    """The evaluator of the setup, and as many OpenMP threads as it says, for this thread."""
    before = _torvo.get_thread_count()
    _torvo.set_thread_count(setup.threads)
    try:
        with _evaluator_of(setup):
            yield
    finally:
        _torvo.set_thread_count(before)


def _read(value: Any) -> Any:
    """The value, with a ciphertext in place of each path of a file."""
    if isinstance(value, PurePath):
        ciphertext = Ciphertext(_current.evaluator().context)
        ciphertext.load(os.fspath(value))
        return ciphertext
    if type(value) in (list, tuple):
        return type(value)(_read(part) for part in value)
    return value


def _guarded(index: int, call: Callable[[], Any]) -> Any:
    """What the call gives, or a failure with this index."""
    try:
        return call()
    except Exception as error:
        return Failure(index, type(error).__name__, str(error), traceback.format_exc())


def _unpacked(data: bytes) -> Any:
    """A function that the client compressed."""
    return pickle.loads(zlib.decompress(data))


def _apply(function: Optional[Callable[..., Any]], data: bytes, shared: Any) -> Any:
    """The function of a pickled input, or the input itself where there is none."""
    value = _read(pickle.loads(data))
    return value if function is None else function(value, *shared)


def map_batch(setup: Setup, job: bytes, batch: Batch) -> list[Union[bytes, Failure]]:
    """The pickled results of the inputs, or why there is none."""
    with _computing(setup):
        packed, shared = pickle.loads(job)
        function, shared = _unpacked(packed), _read(shared)
        return [_guarded(index, lambda: pickle.dumps(_apply(function, data, shared))) for index, data in batch.items]


def reduce_batch(setup: Setup, job: bytes, batch: Batch) -> Partial:
    """The results of the inputs, combined in their order."""
    with _computing(setup):
        packed, shared, packed_combine = pickle.loads(job)
        function, shared, combine = _unpacked(packed), _read(shared), _unpacked(packed_combine)
        first = batch.items[0][0]
        total: Any = None
        failures: list[Failure] = []
        for index, data in batch.items:
            value = _guarded(index, lambda: _apply(function, data, shared))
            # Behind a failure there is no total any more, but the other inputs are looked at all the same.
            if index != first and not failures and not isinstance(value, Failure):
                value = _guarded(index, lambda: combine(total, value))
            if isinstance(value, Failure):
                failures.append(value)
            total = value
        return _partial(first, total, failures)


def combine_partials(setup: Setup, combine: bytes, partials: list[Partial]) -> Partial:
    """Partial results, combined in their order."""
    failures = [failure for partial in partials for failure in partial.failures]
    first = partials[0].first
    if failures:
        return Partial(first, None, failures)
    with _computing(setup):
        function = _unpacked(combine)
        total = _loaded(partials[0])
        for partial in partials[1:]:
            total = _guarded(partial.first, lambda: function(total, _loaded(partial)))
            if isinstance(total, Failure):
                return Partial(first, None, [total])
        return _partial(first, total, [])


def _loaded(partial: Partial) -> Any:
    return pickle.loads(partial.data or b"")


def _partial(first: int, total: Any, failures: list[Failure]) -> Partial:
    """The partial result, pickled; a total that does not pickle is a failure too."""
    data = None if failures else _guarded(first, lambda: pickle.dumps(total))
    if isinstance(data, Failure):
        return Partial(first, None, [data])
    return Partial(first, data, failures)
