"""What a pickle calls to make its object again. Nothing here is for users; the names stand in pickles and stay."""

from __future__ import annotations

from typing import Any, Optional

from . import _torvo
from ._ciphertext import Ciphertext, CiphertextArray
from ._keys import PublicKeys


def context(data: bytes) -> _torvo.Context:
    """The context of this process with this content."""
    return _torvo.Context.from_bytes(data)


def message(data: bytes) -> _torvo.Message:
    """A message from its file."""
    return _torvo.Message.from_bytes(data)


def plaintext(context: _torvo.Context, data: bytes) -> _torvo.Plaintext:
    """A plaintext from its file."""
    return _torvo.Plaintext.from_bytes(context, data)


def series(data: bytes) -> _torvo.ChebyshevSeries:
    """A series from its file."""
    return _torvo.ChebyshevSeries.from_bytes(data)


def encoded_transform(context: _torvo.Context, data: bytes) -> _torvo.EncodedTransform:
    """An encoded transform from its file."""
    return _torvo.EncodedTransform.from_bytes(context, data)


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
