"""What operators compute with: the evaluator of the innermost `with`."""

from __future__ import annotations

from typing import Optional, Union

from . import _current, _torvo
from ._keys import PublicKeys


class Evaluator:
    """Computes with the public keys of `keys`; `with torvo.Evaluator(keys):` sets what operators use.

    It holds no secret, even if `keys` does. `bootstrap` makes functions bootstrap where levels would run out: True
    for full ciphertexts, or the number of slots that the ciphertexts use; the keys must be made with `bootstrap`
    too. `compact` says that they were made with `compact`. `extended` bootstraps in two passes, for more bits.

    The setting is a context variable: it holds in this thread or task alone, and ends with the `with`. Any number
    of threads may enter one evaluator.
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
        #: The keys that it computes with.
        self.pack = keys.pack
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
        _current.evaluators.set(_current.evaluators.get() + (self,))
        return self

    def __exit__(self, *exception: object) -> None:
        _current.evaluators.set(_current.evaluators.get()[:-1])
