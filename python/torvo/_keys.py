"""Keys: making them, and what encrypts and decrypts with them."""

from __future__ import annotations

import os
import sys
from pathlib import Path
from typing import Any, Callable, Iterable, Optional, Union

import numpy as np

from . import _torvo
from ._ciphertext import Ciphertext, CiphertextArray
from ._numbers import Array, as_numbers, log_slots_for, padded

_PathLike = Union[str, "os.PathLike[str]"]
#: The file of the context in a key directory.
_CONTEXT_FILE = "Context.bin"


class PublicKeys:
    """The keys that a server may have: to encrypt, to compute with, and no secret. `Keys.public` makes them.

    A pickle holds the keys that are in memory; of keys that were loaded from a directory it holds the path, so
    that each process reads the keys that it needs.
    """

    def __init__(self, context: _torvo.Context, pack: _torvo.KeyPack, directory: Optional[str] = None) -> None:
        self.context = context
        #: The pack of the library.
        self.pack = pack
        self._directory = directory
        self._encryptor = _torvo.Encryptor(context)

    @classmethod
    def load(cls, directory: _PathLike, context: Optional[_torvo.Context] = None) -> "PublicKeys":
        """The keys of a directory that `save` wrote. Each is read when it is first needed.

        The context is that of the directory, unless one is given. Raises torvo.Error where there are no keys.
        """
        path = os.fspath(directory)
        if context is None:
            context = _torvo.Context.load(os.path.join(path, _CONTEXT_FILE))
        return PublicKeys(context, _torvo.KeyPack(context, path), os.path.abspath(path))

    def save(self, directory: _PathLike) -> None:
        """Writes the context and the public keys that are in memory into a directory, which is made if it is
        missing.
        """
        path = Path(directory)
        path.mkdir(parents=True, exist_ok=True)
        self.context.save(str(path / _CONTEXT_FILE))
        self.pack.save(str(path))

    def encrypt(
        self,
        values: Any,
        *,
        level: Optional[int] = None,
        slots: Optional[int] = None,
        out: Optional[Ciphertext] = None,
    ) -> Any:
        """Encrypts a number, a list or an array of one dimension, real or complex, under the public key.

        The values are padded with zeros to `slots`, by default the least power of two; the ciphertext remembers
        how many there were. An array that is longer than the context's slots becomes a `CiphertextArray`. `level`
        is that of the ciphertext, by default the highest; `out` is a ciphertext to write.

        Raises TypeError for what is no number, ValueError for a wrong shape, torvo.Error for NaN, infinity,
        numbers that are too large, and where there is no encryption key.
        """
        return self._encrypt(values, self.pack, level, slots, out)

    def _encrypt(
        self,
        values: Any,
        key: Union[_torvo.KeyPack, _torvo.SecretKey],
        level: Optional[int],
        slots: Optional[int],
        out: Optional[Ciphertext],
    ) -> Any:
        array = as_numbers(values)
        if array.size > self.context.slots and slots is None:
            if out is not None:
                raise ValueError(f"{array.size} numbers do not fit one ciphertext of {self.context.slots} slots, so there is no single out to write")
            size = self.context.slots
            parts = [self._encrypt(array[i : i + size], key, level, size, None) for i in range(0, array.size, size)]
            return CiphertextArray(parts, array.size)
        log_slots = log_slots_for(array.size if slots is None else slots)
        if slots is not None and slots != 1 << log_slots:
            raise ValueError(f"slots is {slots}; give a power of two")
        if array.size > 1 << log_slots or log_slots > self.context.log_slots:
            raise ValueError(
                f"{array.size} numbers and slots={slots} are given; "
                f"give slots from the number of values to the {self.context.slots} of the context"
            )
        if out is None:
            out = Ciphertext(self.context)
        self._encryptor.encrypt(padded(array, log_slots), key, out, level)
        out._describe(array.shape, array.dtype.kind)
        return out

    def __reduce__(self) -> tuple[Any, ...]:
        from . import _pickling

        data = b"" if self._directory is not None else self.pack.to_bytes()
        return _pickling.public_keys, (self.context, self._directory, data)


class Keys(PublicKeys):
    """A secret key and the public keys made from it: who has them reads everything. `torvo.keygen` makes them.

    They are not pickled. `keys.save(directory)` writes the public ones, `keys.secret.save(path)` the secret.
    """

    def __init__(
        self,
        context: _torvo.Context,
        secret: _torvo.SecretKey,
        pack: _torvo.KeyPack,
        directory: Optional[str] = None,
    ) -> None:
        super().__init__(context, pack, directory)
        #: The secret key of the library.
        self.secret = secret
        self._decryptor = _torvo.Decryptor(context)

    @classmethod
    def load(  # type: ignore[override]
        cls, directory: _PathLike, secret: _PathLike, context: Optional[_torvo.Context] = None
    ) -> "Keys":
        """The keys of a directory that `save` wrote, with the secret key of the file `secret`."""
        public = PublicKeys.load(directory, context)
        key = _torvo.SecretKey(public.context, os.fspath(secret))
        return Keys(public.context, key, public.pack, public._directory)

    def public(self) -> PublicKeys:
        """The same public keys without the secret, for a server."""
        return PublicKeys(self.context, self.pack, self._directory)

    def encrypt(
        self,
        values: Any,
        *,
        level: Optional[int] = None,
        slots: Optional[int] = None,
        out: Optional[Ciphertext] = None,
        symmetric: bool = False,
    ) -> Any:
        """As `PublicKeys.encrypt`; with `symmetric` under the secret key, which adds less noise."""
        return self._encrypt(values, self.secret if symmetric else self.pack, level, slots, out)

    def decrypt(self, ciphertext: Any, *, full: bool = False, out: Optional[Array] = None) -> Any:
        """The numbers in a ciphertext, as many as went in: an array of float64, or complex128 where some were
        complex.

        With `full` all slots, the padding included. `out` is an array to write. The low bits are noise that
        depends on the secret key: do not publish raw decryptions.
        """
        if isinstance(ciphertext, CiphertextArray):
            numbers = np.concatenate([self.decrypt(part, full=full) for part in ciphertext.parts])
        elif isinstance(ciphertext, _torvo.Ciphertext):
            numbers = self._numbers_of(ciphertext, full)
        else:
            raise TypeError(
                f"a {type(ciphertext).__name__} is given to decrypt; "
                "give a Ciphertext or a CiphertextArray"
            )
        if out is None:
            return numbers
        out[...] = numbers
        return out

    def _numbers_of(self, ciphertext: _torvo.Ciphertext, full: bool) -> Any:
        message = _torvo.Message()
        self._decryptor.decrypt(ciphertext, self.secret, message)
        numbers = np.asarray(message)
        if not isinstance(ciphertext, Ciphertext):
            return numbers
        if ciphertext.dtype.kind == "f":
            numbers = numbers.real.copy()
        if full:
            return numbers
        return numbers[: ciphertext.shape[0]] if ciphertext.shape else numbers[0]

    def __reduce__(self) -> tuple[Any, ...]:
        raise TypeError(
            "keys with a secret are not pickled; "
            "pickle keys.public(), and write the secret with keys.secret.save(path)"
        )

    def __repr__(self) -> str:
        return "<torvo.Keys: with a secret>"


def _steps(
    context: _torvo.Context,
    generator: _torvo.KeyGenerator,
    rotations: Union[str, Iterable[int]],
    conjugation: bool,
) -> list[Callable[[], None]]:
    """One call for each key, so that an interrupt comes through between two."""
    steps: list[Callable[[], None]] = [generator.gen_enc_key, generator.gen_mult_key]
    if conjugation:
        steps.append(generator.gen_conj_key)
    if isinstance(rotations, str):
        if rotations != "all":
            raise ValueError(f'rotations is "{rotations}"; give "all" or the indices')
        rotations = [sign << i for i in range(context.log_slots) for sign in (1, -1)]
    for index in rotations:
        if not isinstance(index, (int, np.integer)) or isinstance(index, bool):
            raise TypeError(f"a rotation index is {index!r}; give integers, negative ones to the right")
        steps.append(lambda i=int(index): generator.gen_rot_key_if_not_exist(i))  # type: ignore[misc]
    return steps


def _with_progress(steps: list[Callable[[], None]], progress: Optional[bool]) -> Iterable[Callable[[], None]]:
    """The steps behind a progress bar where tqdm is there and somebody looks, or where one is asked for."""
    if progress is False or (progress is None and not sys.stderr.isatty()):
        return steps
    try:
        from tqdm import tqdm  # type: ignore[import]
    except ImportError:
        if progress:
            raise ImportError(
                "a progress bar is asked for, but tqdm is not installed; "
                "install it or give progress=None"
            ) from None
        return steps
    bar: Iterable[Callable[[], None]] = tqdm(steps, desc="keys", unit="key")
    return bar


def keygen(
    context: _torvo.Context,
    rotations: Union[str, Iterable[int]] = (),
    *,
    conjugation: bool = False,
    bootstrap: Union[bool, int] = False,
    compact: bool = False,
    secret: Optional[_torvo.SecretKey] = None,
    progress: Optional[bool] = None,
) -> Keys:
    """A new secret key, or `secret`, and the public keys made from it: for encryption, products and `rotations`.

    `rotations` are the indices that `<<` rotates by, negative ones for `>>`; "all" makes the powers of two, of
    which every rotation is composed. `conjugation` makes the key for complex conjugation. `bootstrap` makes those
    for bootstrapping: True for full ciphertexts, or the number of slots; `compact` fewer of them, for a slower
    bootstrap.

    A progress bar is shown on a terminal if tqdm is installed; `progress` True asks for it, False for none. An
    interrupt ends the call between two keys.
    """
    if secret is None:
        secret = _torvo.SecretKey(context)
    pack = _torvo.KeyPack(context)
    generator = _torvo.KeyGenerator(context, secret, pack)
    steps = _steps(context, generator, rotations, conjugation or bootstrap is not False)
    if bootstrap is not False:
        log_slots = context.log_slots if bootstrap is True else log_slots_for(int(bootstrap))
        steps.append(lambda: generator.gen_rot_keys_for_bootstrap(log_slots, compact))
    for step in _with_progress(steps, progress):
        step()
    return Keys(context, secret, pack)
