"""Arguments of the right and of the wrong kind, in any mixture: an exception for each call at the worst."""

from __future__ import annotations

import ast
from dataclasses import dataclass
from pathlib import Path
from typing import Any

import numpy as np
import pytest
from sanitizer import SANITIZED

import torvo
from torvo import _torvo

#: What a call may raise.
ALLOWED = (torvo.Error, TypeError, ValueError, BufferError, MemoryError, IndexError, OverflowError, ZeroDivisionError)

#: Calls that take long or measure time, and what is made by pickles alone.
LEFT_OUT = {"advise_presets", "estimate_seconds", "__getstate__", "__setstate__", "minimax", "minimax_within"}

JUNK = [None, -1, 2.5, True, "x", b"", b"\0" * 64, [], [None], {}, 1j, object(), np.zeros(4), lambda *a: "no number"]
INTEGERS = [0, 1, 2, 3, 4, 5, 7, 8, -1, -3] + ([] if SANITIZED else [2**63, 2**64 - 1])
REALS = [0.0, 1.0, -1.0, 0.5, 1e-3, 2.0, 8.0, float("nan"), float("inf"), 1e300]
COMPLEX = [0, 1, -1, 0.5, 1j, 2 - 3j, complex("nan"), 1e300]
FUNCTIONS = [lambda x: 0.5, lambda x: x, lambda x: 1 / 0, lambda x: float("nan"), lambda x: "no number"]
VALUES = {"_Source": "Union[HomEvaluator, Plan]", "_Value": "Union[Ciphertext, PlannedCiphertext, Message]"}


@dataclass
class Signature:
    """A call as the stubs describe it."""

    owner: str
    name: str
    types: list[str]
    optional: int
    kind: str  # function, class, static, property, setter or method


def signatures() -> list[Signature]:
    found: list[Signature] = []
    tree = ast.parse((Path(torvo.__file__).parent / "_torvo.pyi").read_text())
    for node in tree.body:
        if isinstance(node, ast.FunctionDef):
            found.append(signature("", node))
        elif isinstance(node, ast.ClassDef) and not node.name.startswith("_") and node.name != "Error":
            found += [signature(node.name, member) for member in node.body if isinstance(member, ast.FunctionDef)]
    return [one for one in found if one.name not in LEFT_OUT]


def signature(owner: str, node: ast.FunctionDef) -> Signature:
    decorators = {ast.unparse(decorator).split(".")[-1] for decorator in node.decorator_list}
    kind = "class" if node.name == "__init__" else "method" if owner else "function"
    for decorator, meaning in (("staticmethod", "static"), ("property", "property"), ("setter", "setter")):
        if decorator in decorators:
            kind = meaning
    arguments = node.args.args[1:] if owner and kind != "static" else node.args.args
    types = [ast.unparse(argument.annotation) if argument.annotation else "Any" for argument in arguments]
    return Signature(owner, node.name, types, len(node.args.defaults), kind)


def split(types: str) -> list[str]:
    """The parts of a list of types."""
    parts, depth = [""], 0
    for letter in types:
        depth += (letter == "[") - (letter == "]")
        if letter == "," and depth == 0:
            parts.append("")
        else:
            parts[-1] += letter
    return [part.strip() for part in parts]


class Caller:
    """Calls with arguments that are drawn."""

    def __init__(self, rng: np.random.Generator, folder: Path) -> None:
        self.rng = rng
        self.folder = folder
        context, module = torvo.Context("FX"), torvo.Context("SD3D6R2")
        self.contexts = [context, torvo.Context.custom(7, 4, 50, 40, 55, 2), module]
        self.numbers = torvo.LWEContext(torvo.LWEParameterPreset.SD3)
        self.keys = torvo.keygen(context, bootstrap=True, rotations="all")
        self.evaluator = torvo.HomEvaluator(context, self.keys.pack)
        self.bootstrapper = torvo.Bootstrapper(self.evaluator, context.log_slots)
        self.things = self.fresh()

    def fresh(self) -> list[Any]:
        """Objects of every kind: some of the calls leave them useless."""
        keys, message, number = self.keys, torvo.Message(3, 0.5), torvo.LWECiphertext(self.numbers)
        context, other, module = self.contexts
        secrets = [keys.secret, torvo.SecretKey(other), torvo.ModuleSecretKey(module), torvo.LWESecretKey(self.numbers)]
        coefficients = torvo.ModuleCiphertext(module)
        torvo.Encryptor(module).encrypt_coefficients([0.5, 0.25], secrets[2], coefficients)
        torvo.LWEEncryptor(self.numbers).encrypt(0.5, secrets[3], number)
        generator, plan = torvo.KeyGenerator(context, keys.secret), torvo.Plan(context)
        return [
            *self.contexts, self.numbers, *secrets, self.evaluator, self.bootstrapper, message, torvo.Message(), number,
            keys.pack, torvo.KeyPack(context), torvo.keygen(other).pack, coefficients, plan, plan.encrypt([0.5] * 4),
            generator, generator.gen_compose_key(keys.secret), torvo.ModPackKeyBundle(context, 1),
            torvo.Encryptor(context).encrypt_compact(message, keys.secret), torvo.CompactCiphertext(context),
            torvo.ChebyshevSeries([0, 1, 0.5]), torvo.EnDecoder(context).encode(message), keys.encrypt([0.5] * 4),
            keys.encrypt([0.25] * 32), keys.encrypt([0.1] * 8, level=3), torvo.Ciphertext(other), torvo.RingPacker(),
            torvo.EnDecoder(context), torvo.Encryptor(context), torvo.Decryptor(context), torvo.LWEEncryptor(self.numbers),
            torvo.LWEDecryptor(self.numbers), torvo.LWEHomEvaluator(self.numbers), torvo.Accuracy(4, 4), torvo.Device(),
            *self.transforms(), keys.pack.get_mult_key(), keys.pack.get_enc_key(), torvo.inspect(str(self.folder)),
            plan.report,
        ]  # fmt: skip

    def transforms(self) -> list[Any]:
        context, swap = self.contexts[0], torvo.LinearTransform.from_permutation([1, 0])
        return [
            swap, torvo.TransformOptions(4), torvo.CachedTransform(swap), torvo.CachedMatrixProduct(2),
            torvo.EncodedTransform(context, swap, 2, 12), torvo.EncodedTransform(context),
            torvo.MatrixProduct(context, 2, 2, 12),
        ]  # fmt: skip

    def pick(self, things: list[Any]) -> Any:
        return things[self.rng.integers(len(things))]

    def chance(self, probability: float) -> bool:
        return bool(self.rng.random() < probability)

    def value(self, kind: str) -> Any:
        """An argument of a type of the stubs; now and then something else."""
        kind = VALUES.get(kind, kind)
        if self.chance(0.03):
            return self.pick(JUNK)
        if kind.startswith("Optional["):
            return None if self.chance(0.4) else self.value(kind[9:-1])
        if kind.startswith("Union["):
            return self.value(self.pick(split(kind[6:-1])))
        if kind.startswith("Sequence["):
            return [self.value(kind[9:-1]) for _ in range(self.pick([0, 1, 2, 3, 4, 8, 64]))]
        plain = {"int": INTEGERS, "float": REALS, "complex": COMPLEX, "bool": [True, False]}
        if kind in plain:
            return self.pick(plain[kind])
        if kind.startswith("Callable"):
            return self.pick(FUNCTIONS)
        if kind == "str":
            return self.pick([str(self.folder), str(self.folder / "a"), str(self.folder / "none" / "b"), "FX", ""])
        if kind == "bytes":
            return self.damaged()
        named = getattr(_torvo, "Device" if kind == "_Place" else kind, None)
        if hasattr(named, "__members__"):
            return named(self.pick([0, 1, 2, 3, 12, 15, 77]))
        fitting = [thing for thing in self.things if isinstance(named, type) and isinstance(thing, named)]
        return self.pick(fitting or JUNK)

    def damaged(self) -> bytes:
        """The file of an object, whole, cut, or with another byte."""
        data = self.pick([self.keys.encrypt([0.5]), self.numbers, self.contexts[0], torvo.Message(2)]).to_bytes()
        where = int(self.rng.integers(len(data)))
        changed = data[:where] + bytes([int(self.rng.integers(256))]) + data[where + 1 :]
        return self.pick([data, data[:where], changed])

    def call(self, one: Signature) -> None:
        count = len(one.types) - int(self.rng.integers(one.optional + 1))
        arguments = [self.value(kind) for kind in one.types[:count]]
        if one.kind in ("function", "class"):
            getattr(_torvo, one.name if one.kind == "function" else one.owner)(*arguments)
        elif one.kind == "static":
            getattr(getattr(_torvo, one.owner), one.name)(*arguments)
        else:
            fitting = [thing for thing in self.things if isinstance(thing, getattr(_torvo, one.owner))]
            if not fitting:
                return
            thing = self.pick(fitting)
            if one.kind == "setter":
                setattr(thing, one.name, arguments[0])
            elif one.kind == "property":
                getattr(thing, one.name)
            else:
                getattr(thing, one.name)(*arguments)


def test_no_call_does_worse_than_an_exception(rng, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)  # some calls take a name for a file and write it
    caller = Caller(rng, tmp_path)
    calls = signatures()
    assert len(calls) > 400
    done = 0
    for i in range(3000):
        if i % 300 == 299:
            caller.things = caller.fresh()
        one = caller.pick(calls)
        try:
            caller.call(one)
            done += 1
        except ALLOWED:
            pass
        except BaseException as failure:
            pytest.fail(f"{one.owner}.{one.name} raised {type(failure).__name__}: {failure}")
    assert done > 1000  # most arguments go together
