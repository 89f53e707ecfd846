"""What a pickle calls to make its object again. Nothing here is for users; the names stand in pickles and stay."""

from __future__ import annotations

from typing import Any, Optional

from . import _torvo
from ._ciphertext import Ciphertext, CiphertextArray
from ._keys import PublicKeys


def ciphertext(context: _torvo.Context, data: bytes, shape: tuple[int, ...], kind: str) -> Ciphertext:
    """A ciphertext from its file, with the shape and the kind of numbers that only Python remembers."""
    return Ciphertext.from_bytes(context, data, shape, kind)


def array(parts: list[Ciphertext], length: int) -> CiphertextArray:
    """An array from its ciphertexts."""
    return CiphertextArray(parts, length)


def public_keys(context: _torvo.Context, directory: Optional[str], data: bytes) -> PublicKeys:
    """Public keys: those of a directory where they came from one, else from the file of the pack."""
    if directory is not None:
        return PublicKeys.load(directory, context)
    pack = _torvo.KeyPack(context)
    pack.load_bytes(data)
    return PublicKeys(context, pack)


def loaded(kind: str, arguments: tuple[Any, ...]) -> Any:
    """An object of this class of the module, from what its `from_bytes` takes."""
    return getattr(_torvo, kind).from_bytes(*arguments)
