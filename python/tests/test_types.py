"""Stubs, docstrings, names."""

from __future__ import annotations

import inspect
import re
import subprocess
import sys
from pathlib import Path
from typing import Any

import pytest
from sanitizer import not_sanitized

import torvo

PACKAGE = Path(torvo.__file__).parent


def run(*command: str, folder: Path) -> subprocess.CompletedProcess[str]:
    """In an empty folder: tools look for what they check there first."""
    environment = {"PYTHONPATH": str(PACKAGE.parent), "PATH": "/usr/bin:/bin"}
    return subprocess.run(command, cwd=folder, env=environment, capture_output=True, text=True, timeout=300)


def has_module(name: str) -> bool:
    return subprocess.run([sys.executable, "-c", f"import {name}"], capture_output=True).returncode == 0


@not_sanitized
@pytest.mark.skipif(not has_module("mypy.stubtest"), reason="mypy is not installed")
def test_the_stubs_say_what_the_module_has(tmp_path):
    result = run(sys.executable, "-m", "mypy.stubtest", "torvo._torvo", folder=tmp_path)
    assert result.returncode == 0, result.stdout + result.stderr


@not_sanitized
@pytest.mark.skipif(not has_module("mypy"), reason="mypy is not installed")
def test_a_wrong_type_is_found_by_mypy_and_a_right_one_passes(tmp_path):
    good = "import torvo\nkeys: torvo.Keys = torvo.keygen(torvo.Context('FX'), [1], conjugation=True)\n"
    (tmp_path / "good.py").write_text(good + "ct = torvo.Ciphertext(keys.context)\nlevel: int = ct.level\n")
    (tmp_path / "bad.py").write_text(good + "torvo.Context(1.5)\nlevel: str = torvo.Message(3).log_slots\n")
    mypy = (sys.executable, "-m", "mypy", "--strict", "--cache-dir", str(tmp_path / "cache"))
    accepted = run(*mypy, "good.py", folder=tmp_path)
    assert accepted.returncode == 0, accepted.stdout
    refused = run(*mypy, "bad.py", folder=tmp_path)
    assert refused.returncode == 1 and refused.stdout.count("error:") == 2, refused.stdout


def documented(module: Any) -> Any:
    """Every public class and function of a module, and every public member of its classes."""
    for name, thing in vars(module).items():
        if name.startswith("_") or inspect.ismodule(thing):
            continue
        if inspect.isclass(thing):
            yield name, thing
            if hasattr(thing, "__members__"):
                continue  # an enumeration: its members are numbers, and the rest is that of every enumeration
            for member, value in vars(thing).items():
                kinds = (property, staticmethod, classmethod)
                if not member.startswith("_") and (callable(value) or isinstance(value, kinds)):
                    yield f"{name}.{member}", value
        elif callable(thing):
            yield name, thing


MODULES = [torvo, torvo._torvo, torvo.functions, torvo.learn, torvo.plot]


@pytest.mark.parametrize("module", MODULES, ids=lambda module: module.__name__)
def test_everything_public_has_a_docstring(module):
    bare = [name for name, thing in documented(module) if not inspect.getdoc(thing)]
    assert bare == []


def test_the_names_of_the_package_are_those_it_lists():
    wanted = {"Ciphertext", "Context", "Error", "Evaluator", "Keys", "Message", "keygen", "functions"}
    assert wanted <= set(torvo.__all__)
    assert all(hasattr(torvo, name) for name in torvo.__all__)


@pytest.mark.parametrize("module", [torvo, torvo.functions], ids=lambda module: module.__name__)
def test_the_manual_names_everything_public(module):
    manual = (Path(__file__).resolve().parents[2] / "docs" / "python.md").read_text()
    code = re.findall(r"```.*?```|`[^`]*`", manual, re.S)
    named = set(re.findall(r"\w+", " ".join(code)))
    assert set(module.__all__) - named == set()
