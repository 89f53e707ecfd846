"""Batches of ciphertexts over a cluster of Dask.

    from distributed import Client
    from torvo.distributed import Pool

    keys.save("/shared/keys")                       # the public keys, where every worker reads them
    with Pool(Client("scheduler:8786"), "/shared/keys") as pool:
        scores = pool.map(score, ciphertexts)       # in the order of the inputs
        mean = pool.mean(ciphertexts)

Workers share a key directory. Each process reads a key when it first needs it, and keeps it. Ciphertexts travel in
their file format; a `pathlib.Path` among the inputs is the file of a ciphertext, which the worker reads. Dask runs
the batches of a worker that is lost again, elsewhere.

No secret leaves the client: secret keys do not pickle, and a pool takes no `Keys` and no directory with the file of
a secret key in it. Whoever may talk to the scheduler runs code on the workers and on the client, though;
docs/scaling.md says where the secret should be instead.
"""

from __future__ import annotations

import os
import pickle
import time
import uuid
import warnings
import zlib
from collections import deque
from collections.abc import Iterable, Iterator, Sized
from itertools import count
from typing import Any, Callable, Optional, Union

try:
    import cloudpickle  # type: ignore[import]
    import distributed
except ImportError:
    raise ImportError(
        "torvo.distributed needs Dask; install python3-distributed, or distributed with pip"
    ) from None

from . import _torvo, _worker, functions
from ._ciphertext import Ciphertext, add, multiply
from ._keys import Keys, PublicKeys
from ._worker import Batch, Failure

__all__ = ["BatchError", "Failure", "Pool"]

#: A batch ends behind so many inputs or bytes: enough that a task of Dask, some milliseconds, is little beside it.
_MOST_INPUTS = 64
_MOST_BYTES = 16 << 20
#: Batches under way for each thread of the cluster. More would only lie in the memory of the scheduler.
_AHEAD = 3
#: And so many bytes of them, however many threads there are.
_BYTES_AHEAD = 2 << 30
#: How many partial results are combined at a time.
_FAN_IN = 8

class BatchError(_torvo.Error):
    """Some inputs failed. The others have their results."""

    def __init__(self, failures: list[Failure], count: int, results: Optional[list[Any]] = None) -> None:
        kept = "" if results is None else "; `results` has those of the others"
        super().__init__(f"{len(failures)} of {count} inputs failed, the first of them: {failures[0]}{kept}")
        #: A `Failure` for each input that failed, in their order.
        self.failures = failures
        #: Of `map` the results, with None where an input failed. Of reductions None.
        self.results = results


class Pool:
    """The workers of a Dask cluster, with the public keys of a directory.

    `client` is a `distributed.Client`. `keys` is the key directory under the path that it has on the workers, or
    public keys that were loaded from it. It is looked at here too if it is there under the same path.

    `bootstrap`, `compact` and `extended` are those of `torvo.Evaluator`. Calls use `threads` OpenMP threads; more
    than one pays only where a worker has that many cores for each of its threads. A batch that fails as a whole,
    for instance because a worker cannot read the keys, is tried again `retries` times. With `timeout` a call gives
    up when the next result takes longer than so many seconds.

    `close`, or the end of a `with`, drops the keys from the workers' memory; the client stays.
    """

    def __init__(
        self,
        client: Any,
        keys: Union[str, "os.PathLike[str]", PublicKeys],
        *,
        bootstrap: Union[bool, int] = False,
        compact: bool = False,
        extended: bool = False,
        threads: int = 1,
        retries: int = 2,
        timeout: Optional[float] = None,
    ) -> None:
        if not isinstance(client, distributed.Client) or client.asynchronous:
            raise TypeError(f"the client is {client!r}; give a distributed.Client without asynchronous=True")
        if isinstance(threads, bool) or not isinstance(threads, int) or threads < 1:
            raise ValueError(f"threads is {threads!r}; give a positive integer")
        directory, context = _directory_of(keys)
        self.client: Any = client
        self._setup = _worker.Setup(uuid.uuid4().hex, directory, context, bootstrap, compact, extended, threads)
        self._retries = retries
        self._timeout = timeout
        self._is_closed = False
        self._numbers = count()
        self._threads_then, self._asked = 1, float("-inf")

    def __enter__(self) -> "Pool":
        return self

    def __exit__(self, *exception: object) -> None:
        self.close()

    def close(self) -> None:
        """Drops the keys from the workers' memory. The pool computes no more. A second call does nothing."""
        if not self._is_closed and self.client.status == "running":
            self.client.run(_worker.forget, self._setup.pool)
        self._is_closed = True

    def map(
        self, function: Callable[..., Any], items: Iterable[Any], *shared: Any, batch: Optional[int] = None
    ) -> list[Any]:
        """`function(item, *shared)` for each item, computed by the workers; results in the order of the items.

        The function runs inside `with torvo.Evaluator(...)`. It, its inputs and its results are pickled; `shared`
        travels with each batch. `batch` is the number of items that travel together, by default up to 64 of them or
        16 MiB, and fewer if some threads would have none.

        Raises BatchError where some items failed, with the results of the others; TypeError for secrets, which do
        not travel; torvo.Error for a closed client or pool, keys that workers cannot use, and a timeout.
        """
        results = list(self.imap(function, items, *shared, batch=batch))
        failures = [result for result in results if isinstance(result, Failure)]
        if failures:
            kept = [None if isinstance(result, Failure) else result for result in results]
            raise BatchError(failures, len(results), kept)
        return results

    def imap(
        self, function: Callable[..., Any], items: Iterable[Any], *shared: Any, batch: Optional[int] = None
    ) -> Iterator[Any]:
        """As `map`, one result after the other; a `Failure` in place of those that failed.

        Items are taken from the iterable as workers get free, so that not all of them are in memory at a time.
        Where the iteration is left early, batches that have not begun are given up.
        """
        self._require_open()
        job = cloudpickle.dumps((_packed(function), shared))
        return self._results(job, self._batches(items, batch))

    def map_reduce(
        self,
        function: Optional[Callable[..., Any]],
        items: Iterable[Any],
        *shared: Any,
        combine: Callable[[Any, Any], Any] = add,
        batch: Optional[int] = None,
    ) -> Any:
        """`function(item, *shared)` for each item, combined two at a time, by default added; None for the items
        themselves.

        A batch is combined where it is computed, and the batches in a tree of eight at a time, in their order;
        partial results travel between workers. The scheduler keeps the items until the end, to compute again what
        is lost; where they are many, give paths of files.

        Raises what `map` raises, and ValueError where there is no item. One that fails leaves no result.
        """
        return self._reduced(function, items, shared, combine, batch)[0]

    def sum(self, items: Iterable[Any], batch: Optional[int] = None) -> Any:
        """The sum of ciphertexts, slot by slot. Words are the same whatever the batches are, at equal levels."""
        return self.map_reduce(None, items, batch=batch)

    def mean(self, items: Iterable[Any], batch: Optional[int] = None) -> Any:
        """The mean of ciphertexts, slot by slot; one level."""
        total, number = self._reduced(None, items, (), add, batch)
        return self.map(multiply, [total], 1.0 / number)[0]

    def bootstrap(self, items: Iterable[Any], batch: Optional[int] = None) -> list[Any]:
        """The ciphertexts with their levels back, as by `torvo.functions.bootstrap`. The pool needs `bootstrap`."""
        return self.map(functions.bootstrap, items, self._setup.extended, batch=batch)

    def _require_open(self) -> None:
        if self._is_closed:
            raise _torvo.Error("the pool is closed; make another one")
        if self.client.status != "running":
            raise _torvo.Error(
                f"the client of the pool is {self.client.status}; make a new client, and a pool with it"
            )

    def _threads(self) -> int:
        """Threads of all workers; 1 while there are none. Asked for once a second, since it takes as long as a batch
        of small inputs.
        """
        now = time.monotonic()
        if now - self._asked > 1:
            counts = self._patiently(self.client.nthreads).values()
            self._threads_then, self._asked = max(1, sum(counts)), now
        return self._threads_then

    def _batches(self, items: Iterable[Any], batch: Optional[int]) -> Iterator[Batch]:
        """The items pickled and numbered, so many at a time."""
        if batch is not None and (isinstance(batch, bool) or not isinstance(batch, int) or batch < 1):
            raise ValueError(f"batch is {batch!r}; give a positive integer")
        most, most_bytes = _MOST_INPUTS, _MOST_BYTES
        if batch is not None:
            most, most_bytes = batch, 1 << 62
        elif isinstance(items, Sized):
            most = max(1, min(most, len(items) // (2 * self._threads())))
        return _grouped(items, most, most_bytes)

    def _submit(self, name: str, task: Callable[..., Any], *arguments: Any) -> Any:
        """A future of the task. The name is what Dask's pictures show."""
        key = f"torvo-{name}-{self._setup.pool}-{next(self._numbers)}"
        with warnings.catch_warnings():
            # That a batch has megabytes is meant: it must be there again where its worker is lost.
            warnings.filterwarnings("ignore", "(Large object|Sending large graph)")
            return self._patiently(
                lambda: self.client.submit(task, self._setup, *arguments, key=key, pure=False, retries=self._retries)
            )

    def _results(self, job: bytes, batches: Iterator[Batch]) -> Iterator[Any]:
        waiting: deque[tuple[Batch, Any]] = deque()
        try:
            while True:
                for batch in batches:
                    waiting.append((batch, self._submit("map", _worker.map_batch, job, batch)))
                    if len(waiting) >= _AHEAD * self._threads() or sum(b.size for b, _ in waiting) >= _BYTES_AHEAD:
                        break
                if not waiting:
                    return
                batch, future = waiting[0]
                for outcome in self._outcomes(job, batch, future, [other for _, other in waiting]):
                    yield outcome if isinstance(outcome, Failure) else pickle.loads(outcome)
                waiting.popleft()
        finally:
            _release(future for _, future in waiting)

    def _outcomes(self, job: bytes, batch: Batch, future: Any, running: list[Any]) -> list[Any]:
        try:
            return list(self._wait_for(future))
        except distributed.KilledWorker:
            return self._alone(job, batch, running)

    def _alone(self, job: bytes, batch: Batch, running: list[Any]) -> list[Any]:
        """The outcomes of a batch whose workers died, each input by itself.

        Dask blames all that a dead worker had, so nothing else runs meanwhile: an input that fails now did it.
        """
        self._patiently(lambda: distributed.wait(running, timeout=self._timeout))  # type: ignore[no-untyped-call]
        outcomes: list[Any] = []
        for index, data in batch.items:
            try:
                outcomes += self._wait_for(self._submit("alone", _worker.map_batch, job, Batch([(index, data)])))
            except distributed.KilledWorker as error:
                text = "every worker that computed it died, for want of memory or by a crash"
                outcomes.append(Failure(index, type(error).__name__, text))
        return outcomes

    def _wait_for(self, future: Any) -> Any:
        return self._patiently(lambda: future.result(timeout=self._timeout))

    def _patiently(self, call: Callable[[], Any]) -> Any:
        """What a call of Dask gives. Where there is no cluster for it any more, a torvo.Error says so."""
        try:
            return call()
        except distributed.KilledWorker:
            raise
        except distributed.TimeoutError:
            raise _torvo.Error(
                f"no result came for {self._timeout} s; look whether the cluster has workers, or allow more time"
            ) from None
        except distributed.CancelledError:
            raise _torvo.Error(
                "the cluster gave up a batch, since its client or scheduler was closed or restarted; call again"
            ) from None
        except Exception:
            if self.client.status == "running":
                raise
        self._require_open()  # here, since the text of Dask's exception holds the whole message

    def _reduced(
        self,
        function: Optional[Callable[..., Any]],
        items: Iterable[Any],
        shared: tuple[Any, ...],
        combine: Callable[[Any, Any], Any],
        batch: Optional[int],
    ) -> tuple[Any, int]:
        """What the items come to, and how many they are."""
        self._require_open()
        job = cloudpickle.dumps((_packed(function), shared, _packed(combine)))
        batches: list[Batch] = []
        leaves: list[Any] = []
        futures: list[Any] = []
        try:
            for one in self._batches(items, batch):
                batches.append(one)
                leaves.append(self._submit("reduce", _worker.reduce_batch, job, one))
            if not batches:
                raise ValueError("no input is given to combine; give at least one")
            number = batches[-1].items[-1][0] + 1
            root = self._combined(_packed(combine), leaves, futures)
            partial = self._partial(root, batches, leaves, cloudpickle.dumps((_packed(function), shared)))
        finally:
            _release(leaves + futures)
        if partial.failures:
            raise BatchError(partial.failures, number)
        return pickle.loads(partial.data), number

    def _combined(self, combine: bytes, nodes: list[Any], futures: list[Any]) -> Any:
        """The future of all nodes combined, in a tree. Those on the way are added to the futures."""
        while len(nodes) > 1:
            groups = [nodes[i : i + _FAN_IN] for i in range(0, len(nodes), _FAN_IN)]
            nodes = [self._submit("combine", _worker.combine_partials, combine, group) for group in groups]
            futures += nodes
        return nodes[0]

    def _partial(self, root: Any, batches: list[Batch], leaves: list[Any], job: bytes) -> Any:
        """The result of the root. Where workers died over a batch, its inputs are tried one by one to name it."""
        try:
            return self._wait_for(root)
        except distributed.KilledWorker:
            self._patiently(lambda: distributed.wait(leaves, timeout=self._timeout))  # type: ignore[no-untyped-call]
            dead = [one for one, leaf in zip(batches, leaves) if leaf.status == "error"]
            outcomes = [outcome for one in dead for outcome in self._alone(job, one, [])]
            failures = [outcome for outcome in outcomes if isinstance(outcome, Failure)]
            if failures:
                return _worker.Partial(0, None, failures)
            raise _torvo.Error(
                "workers died over a batch whose inputs pass one by one; give a smaller batch, or workers more memory"
            ) from None


def _packed(function: Any) -> bytes:
    """The function, pickled and compressed: where Dask finds the name of a script's module in a task, it pickles the
    whole task once more, megabytes of ciphertexts too.
    """
    return zlib.compress(cloudpickle.dumps(function))


def _release(futures: Iterable[Any]) -> None:
    """Lets the cluster forget them: what has not begun is not computed any more."""
    for future in futures:
        future.release()


def _directory_of(keys: Any) -> tuple[str, Optional[bytes]]:
    """The key directory, and the context's file as far as it can be known here."""
    if isinstance(keys, Keys):
        raise TypeError(
            "keys with a secret do not go to a cluster; write the public ones with keys.save(directory), and give that "
            "directory"
        )
    if isinstance(keys, PublicKeys):
        if keys._directory is None:
            raise TypeError(
                "the public keys are in memory alone; save them where the workers read, and give that directory"
            )
        keys, context = keys._directory, keys.context.to_bytes()
    else:
        keys, context = os.path.abspath(os.fspath(keys)), None
    if os.path.isdir(keys):
        context = _worker.public_keys(keys, context).context.to_bytes()
    return keys, context


def _grouped(items: Iterable[Any], most: int, most_bytes: int) -> Iterator[Batch]:
    """Numbered pickles, in lists of at most so many items, and but for a single one of at most so many bytes."""
    group: list[tuple[int, bytes]] = []
    size = 0
    for index, item in enumerate(items):
        # What cloudpickle can do besides, functions and classes of a script, costs a copy that ciphertexts are spared.
        data = pickle.dumps(item) if isinstance(item, Ciphertext) else cloudpickle.dumps(item)
        if group and (len(group) == most or size + len(data) > most_bytes):
            yield Batch(group)
            group, size = [], 0
        group.append((index, data))
        size += len(data)
    if group:
        yield Batch(group)
