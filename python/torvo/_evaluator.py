"""What operators compute with: the evaluator of the innermost `with`."""

from __future__ import annotations

from contextvars import ContextVar
from typing import Optional, Union

from . import _torvo
from ._keys import PublicKeys

#: The evaluators of the `with` statements around, the innermost last. A thread begins with none.
_evaluators: ContextVar[tuple["Evaluator", ...]] = ContextVar("torvo_evaluators", default=())


class Evaluator:
    """Computes with the public keys of `keys`; `with torvo.Evaluator(keys):` sets what operators use.

    It holds no secret, even if `keys` does. `bootstrap` makes functions bootstrap where levels would run out: True for
    full ciphertexts, or the number of slots that the ciphertexts use; the keys must be made with `bootstrap` too.
    `compact` says that they were made with `compact`. `extended` bootstraps in two passes, for more bits.

    The setting is a context variable: it holds in this thread or task alone, and ends with the `with`. Any number of
    threads may enter one evaluator.
    """

    def __init__(
        self,
        keys: PublicKeys,
        *,
        bootstrap: Union[bool, int] = False,
        compact: bool = False,
        extended: bool = False,
    ) -> None:
        self.context = keys.context
        #: The evaluator of the library, for its operations with output parameters.
        self.native = _torvo.HomEvaluator(keys.context, keys.pack)
        self.bootstrapper: Optional[_torvo.Bootstrapper] = None
        #: What functions compute with.
        self.on: Union[_torvo.HomEvaluator, _torvo.BootstrappingEvaluator] = self.native
        if bootstrap is not False:
            log_slots = keys.context.log_slots if bootstrap is True else (int(bootstrap) - 1).bit_length()
            self.bootstrapper = _torvo.Bootstrapper(self.native, log_slots, compact)
            precision = _torvo.Precision.Extended if extended else _torvo.Precision.Standard
            self.on = _torvo.BootstrappingEvaluator(self.native, self.bootstrapper, precision)

    def __enter__(self) -> "Evaluator":
        _evaluators.set(_evaluators.get() + (self,))
        return self

    def __exit__(self, *exception: object) -> None:
        _evaluators.set(_evaluators.get()[:-1])


def current() -> Evaluator:
    """The evaluator of the innermost `with torvo.Evaluator(keys):` of this thread.

    Raises torvo.Error where there is none.
    """
    evaluators = _evaluators.get()
    if not evaluators:
        raise _torvo.Error(
            "no evaluator is set in this thread; write `with torvo.Evaluator(keys):` around what computes, in each thread"
        )
    return evaluators[-1]
