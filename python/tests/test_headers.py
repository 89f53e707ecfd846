"""Everything that the public C++ headers declare is in the package, or stands here with the reason why not."""

from __future__ import annotations

import re
from typing import Any

import headers
import pytest

import torvo
from torvo import _torvo

#: Headers, and members, that are not bound yet. Take out a name when it is.
PENDING: set[str] = set()

#: What has another name in Python.
RENAMED = {
    "CiphertextBase": ("Ciphertext", "ModuleCiphertext"),
    "SecretKeyBase": ("SecretKey", "ModuleSecretKey"),
    "RuntimeException": "Error",
    "BootstrappingEvaluator.Precision": "Precision",
    "ChebyshevSeries.Symmetry": "Symmetry",
    "ChebyshevSeries.Symmetry.None": "Symmetry.None_",
    "SecurityLevel.None": "SecurityLevel.None_",
    "Bootstrapper.getLevelAfterFullSlotBootstrap": "Bootstrapper.level_after",
    "Bootstrapper.getMinLevelForBootstrap": "Bootstrapper.min_level",
    "Bootstrapper.isBootstrapReady": "Bootstrapper.is_ready",
    "Bootstrapper.makeBootConstants": "Bootstrapper.make_constants",
    "Bootstrapper.mapBootConstants": "Bootstrapper.map_constants",
    "Bootstrapper.readBootConstants": "Bootstrapper.read_constants",
    "Bootstrapper.saveBootConstants": "Bootstrapper.save_constants",
    "ChebyshevSeries.evaluate": "ChebyshevSeries.__call__",
    "ChebyshevSeries.getLowerBound": "ChebyshevSeries.lower",
    "ChebyshevSeries.getUpperBound": "ChebyshevSeries.upper",
    "CiphertextBase.getCurrentScaleFactor": ("Ciphertext.scale_factor", "ModuleCiphertext.scale_factor"),
    "CiphertextBase.getNumPoly": ("Ciphertext.size", "ModuleCiphertext.size"),
    "CiphertextBase.setNumPoly": ("Ciphertext.size", "ModuleCiphertext.size"),
    "KeyPack.isConjKeyLoaded": "KeyPack.is_conjugation_key_loaded",
    "KeyPack.isEncKeyLoaded": "KeyPack.is_encryption_key_loaded",
    "KeyPack.isLeftRotKeyLoaded": "KeyPack.is_left_rotation_key_loaded",
    "KeyPack.isMultKeyLoaded": "KeyPack.is_multiplication_key_loaded",
    "KeyPack.isRightRotKeyLoaded": "KeyPack.is_right_rotation_key_loaded",
    "KeyPack.load": "KeyPack.load_bytes",
    "Message.getSize": "Message.__len__",
    "CachedMatrixProduct.getRotationIndices": "CachedMatrixProduct.rotations",
    "CachedTransform.getRotationIndices": "CachedTransform.rotations",
    "EncodedTransform.getRotationIndices": "EncodedTransform.rotations",
    "LinearTransform.getRotationIndices": "LinearTransform.rotations",
    "MatrixProduct.getRotationIndices": "MatrixProduct.rotations",
    "getDefaultScaleFactorList": "Context.scale_factors",
    "getDegree": "Context.degree",
    "getEncryptionLevel": "Context.encryption_level",
    "getLogFullSlots": "Context.log_slots",
    "getPrimeList": "Context.primes",
    "getRank": "Context.rank",
    "getSecurityLevel": "Context.security_level",
    "isBootstrappableParameter": "Context.is_bootstrappable",
    "isExtendedBootstrapSupported": "Context.has_extended_bootstrap",
    "isSameContext": "Context.__eq__",
    "isSameRing": "Context.is_same_ring",
    "isSparseSecretEncapsulationSupported": "Context.has_sparse_secret_encapsulation",
    "makeContext": ("Context.__init__", "Context.custom", "Context.from_bytes"),
    "makeContextFromFile": "Context.load",
    "saveContext": "Context.to_bytes",
    "saveContextToFile": "Context.save",
    "LWE.getDefaultScaleFactorList": "LWEContext.scale_factors",
    "LWE.getDimension": "LWEContext.dimension",
    "LWE.getEncryptionLevel": "LWEContext.encryption_level",
    "LWE.getPrimeList": "LWEContext.primes",
    "LWE.getSecurityLevel": "LWEContext.security_level",
    "LWE.makeContext": ("LWEContext.__init__", "LWEContext.custom", "LWEContext.from_bytes"),
    "LWE.makeContextFromFile": "LWEContext.load",
    "LWE.saveContext": "LWEContext.to_bytes",
    "LWE.saveContextToFile": "LWEContext.save",
}

_WORDS = "words of ring elements are reached by programs in C++; Python has the numbers that they stand for"
_INNER = "for the library itself"
_SECRET = "a secret stays in memory that is wiped, which Python's is not"
_WHOLE_KEYS = "a key of a pack is read whole by the loads of KeyPack, and never changed under those who use it"
_DEVICES = "only the object as a whole is moved to a device"

#: What is not in Python, and why. A name behind `*.` stands for that member of every class.
EXCEPTIONS = {
    "*.impl": _INNER,
    "*.getImpl": _INNER,
    "*.allocate": "storage without content is for programs that write words",
    "*.getAx": _WORDS,
    "*.getBx": _WORDS,
    "*.getSx": _SECRET,
    "*.getCoefficients": _SECRET,
    "CiphertextBase.getPoly": _WORDS,
    "CiphertextBase.getPolyData": _WORDS,
    "CiphertextBase.getPolys": _WORDS,
    "EvaluationKey.getAxIter": _WORDS,
    "EvaluationKey.getBxIter": _WORDS,
    "Plaintext.getMx": _WORDS,
    "Plaintext.getMxData": _WORDS,
    "EncryptionKey.load": _WHOLE_KEYS,
    "EncryptionKey.to": _WHOLE_KEYS,
    "EvaluationKey.load": _WHOLE_KEYS,
    "SparseSecretEncapsulationKey.load": _WHOLE_KEYS,
    "SparseSecretEncapsulationKey.getDTSPart": _WHOLE_KEYS,
    "SparseSecretEncapsulationKey.getSTDPart": _WHOLE_KEYS,
    "ModPackKeyBundle.getModPackKey": _WHOLE_KEYS,
    "RingSwitchKey.getKey": _WHOLE_KEYS,
    "makeEmptyConjKey": _WHOLE_KEYS,
    "makeEmptyModPackKey": _WHOLE_KEYS,
    "makeEmptyMultKey": _WHOLE_KEYS,
    "makeEmptyRingSwitchKey": _WHOLE_KEYS,
    "makeEmptyRotKey": _WHOLE_KEYS,
    "makeEmptySparseSecretEncapsulationKey": _WHOLE_KEYS,
    "save": _WHOLE_KEYS,
    "load": _WHOLE_KEYS,
    "*.copyTo": _DEVICES,
    "*.removeExcept": _DEVICES,
    "Bootstrapper.loadBootConstants": _DEVICES,
    "KeyGenerator.flush": "threads share a generator; another one is made with another pack",
    "Message.begin": "the buffer of a message: numpy.asarray(message)",
    "Message.end": "the buffer of a message: numpy.asarray(message)",
    "Message.Value": "tells kinds of C++ numbers apart",
    "FunctionEvaluator": "what functions make of their first argument; Python gives them that itself",
    "FunctionEvaluator.operations": _INNER,
    "GlobalConfiguration": "a JSON document for applications in C++; Python has dictionaries",
    "GlobalConfiguration.*": "a JSON document for applications in C++; Python has dictionaries",
    "ObjectKind": "FileContent.kind is the kind in words",
    "ObjectKind.*": "FileContent.kind is the kind in words",
    "toString": "FileContent.kind is the kind in words",
    "Pointer": "a pointer of C++ that copies what it points to",
    "LinearBounds": "its numbers are the arguments bound, is_real and result_bound",
    "LinearBounds.*": "its numbers are the arguments bound, is_real and result_bound",
    "SlotBlocks": "its numbers are the arguments length and bound",
    "SlotBlocks.*": "its numbers are the arguments length and bound",
}


def names(things: dict[str, str]) -> list[str]:
    return sorted(name for name, header in things.items() if not {header, name} & PENDING)


FOUND = headers.declared()
EVERYTHING = names(FOUND.classes) + names(FOUND.members) + names(FOUND.functions) + names(FOUND.values)


def snake(name: str) -> str:
    """largestErrorOfNTT: largest_error_of_ntt."""
    return re.sub(r"(?<=[a-z0-9])(?=[A-Z])|(?<=[A-Z])(?=[A-Z][a-z])", "_", name).lower()


def class_names(name: str) -> tuple[str, ...]:
    """A class of C++ in Python."""
    renamed = RENAMED.get(name, name.replace("LWE.", "LWE"))
    return renamed if isinstance(renamed, tuple) else (renamed,)


def has(path: str) -> bool:
    """Whether the module has a name, such as Class.member."""
    thing: Any = _torvo
    for part in path.split("."):
        if part == "__init__" or not hasattr(thing, part):
            return part == "__init__"
        thing = getattr(thing, part)
    return True


def is_there(name: str) -> bool:
    """Whether what C++ names so is in the module under a name that follows from it."""
    if name in FOUND.classes:
        return all(has(one) for one in class_names(name))
    if name in FOUND.values:
        enumeration, value = name.rsplit(".", 1)
        return all(has(f"{one}.{value}") for one in class_names(enumeration))
    if name in FOUND.functions:
        group, _, function = name.rpartition(".")
        return has(f"{group}.{snake(function)}" if group else snake(function))
    owner, member = name.rsplit(".", 1)
    spelled = snake(member)
    spellings = {spelled, re.sub(r"^(get|set)_", "", spelled)}
    return all(any(has(f"{one}.{spelling}") for spelling in spellings) for one in class_names(owner))


def exception_of(name: str) -> str | None:
    """The entry that leaves out a name."""
    owner, _, member = name.rpartition(".")
    for entry in (name, f"*.{member}", f"{owner}.*"):
        if entry in EXCEPTIONS:
            return entry
    return None


def test_the_headers_are_read_as_they_are_meant():
    assert {"Context.hpp", "HomEvaluator.hpp"} <= {path.name for path in headers.HEADERS.glob("*.hpp")}
    assert {"HomEvaluator", "LWE.Ciphertext", "BootstrappingEvaluator.Precision", "PlanReport"} <= set(FOUND.classes)
    assert {"HomEvaluator.add", "KeyPack.isEncKeyLoaded", "PlanReport.keyBytes", "FileContent.kind"} <= set(FOUND.members)
    assert {"makeContext", "topK", "LWE.getDimension", "CudaTools.nvtxPop", "weightedMean"} <= set(FOUND.functions)
    assert {"ParameterPreset.FX", "Order.Descending", "ChebyshevSeries.Symmetry.Odd"} <= set(FOUND.values)
    # Neither what is private, nor what a body holds, nor what only helps templates.
    assert not {name for name in FOUND.members if name.endswith("_") or name.startswith(("detail.", "KeyPack.left"))}
    assert not {"operationsOf", "detail.operationsOf", "if", "return", "for"} & set(FOUND.functions)


@pytest.mark.parametrize("name", EVERYTHING)
def test_a_public_name_of_cpp_is_in_python(name):
    if name in RENAMED and name not in FOUND.classes:
        renamed = RENAMED[name]
        assert all(has(one) for one in (renamed if isinstance(renamed, tuple) else (renamed,)))
    elif exception_of(name) is None:
        assert is_there(name), f"{name} is in no binding; bind it, or write the reason why not into EXCEPTIONS"


def test_no_entry_of_the_lists_is_left_over():
    for name in RENAMED:
        assert name in EVERYTHING, f"{name} is in no header"
    used = {exception_of(name) for name in EVERYTHING}
    assert set(EXCEPTIONS) - used == set()
    needless = [name for name in EVERYTHING if exception_of(name) == name and is_there(name)]
    assert needless == []
    for name in PENDING:
        assert (headers.HEADERS / name).exists() or name in FOUND.members
        assert name.endswith(".hpp") or not is_there(name)


def test_the_package_names_every_class_of_the_module():
    # A plan and a ciphertext of the package stand in front of those of the module.
    missing = [
        name
        for name, thing in vars(_torvo).items()
        if isinstance(thing, type) and not name.startswith("_") and not hasattr(torvo, name)
    ]
    assert missing == []
