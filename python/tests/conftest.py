"""What the tests share: contexts and keys that are made once, seeds that a failure prints, profiles of hypothesis."""

from __future__ import annotations

import os
from collections.abc import Iterator
from typing import Any

import numpy as np
import pytest
from hypothesis import HealthCheck, settings

import torvo

_LENIENT: dict[str, Any] = {
    "deadline": None,
    "suppress_health_check": list(HealthCheck),
    "database": None,
    "print_blob": True,
}
settings.register_profile("short", max_examples=100, derandomize=True, **_LENIENT)
settings.register_profile("long", max_examples=2000, **_LENIENT)
settings.load_profile(os.environ.get("TORVO_HYPOTHESIS", "short"))


class Scheme:
    """A context with keys for everything that operators do."""

    def __init__(self, preset: str) -> None:
        self.context = torvo.Context(preset)
        self.keys = torvo.keygen(self.context, rotations="all", conjugation=True)

    def encrypt(self, values: Any, **options: Any) -> Any:
        return self.keys.encrypt(values, **options)

    def decrypt(self, ciphertext: Any, **options: Any) -> Any:
        return self.keys.decrypt(ciphertext, **options)


@pytest.fixture(scope="session")
def toy() -> Scheme:
    """The preset of degree 64, with 32 slots and 12 levels."""
    return Scheme("FX")


@pytest.fixture(scope="session", params=["FX", "SD3"])
def scheme(request: pytest.FixtureRequest, toy: Scheme) -> Scheme:
    """The toy and the smallest real preset."""
    return toy if request.param == "FX" else Scheme(request.param)


@pytest.fixture
def evaluator(toy: Scheme) -> Iterator[torvo.Evaluator]:
    """The toy's evaluator, entered."""
    with torvo.Evaluator(toy.keys) as entered:
        yield entered


@pytest.fixture(scope="session")
def every() -> torvo.Keys:
    """The toy with the keys of every rotation, so that any matrix finds its own."""
    context = torvo.Context("FX")
    return torvo.keygen(context, rotations=range(1, context.slots))


@pytest.fixture
def entered(every: torvo.Keys) -> Iterator[torvo.Evaluator]:
    """Its evaluator, entered."""
    with torvo.Evaluator(every) as evaluator:
        yield evaluator


@pytest.fixture
def rng(request: pytest.FixtureRequest) -> np.random.Generator:
    """Random numbers of a seed that a failure prints."""
    seed = int(os.environ.get("TORVO_SEED", np.random.SeedSequence().entropy % 2**32))  # type: ignore[operator]
    print(f"TORVO_SEED={seed}")
    return np.random.default_rng(seed)
