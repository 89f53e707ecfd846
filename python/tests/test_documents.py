"""The programs in the documents run, where the tree is there."""

from __future__ import annotations

import re
import subprocess
import sys
from pathlib import Path

import pytest

import torvo

TREE = Path(__file__).resolve().parents[2]


def run(program: str, folder: Path) -> str:
    environment = {"PYTHONPATH": str(Path(torvo.__file__).parents[1]), "OMP_WAIT_POLICY": "passive"}
    command = [sys.executable, "-c", program]
    result = subprocess.run(command, cwd=folder, env=environment, capture_output=True, text=True, timeout=300)
    assert result.returncode == 0, result.stderr
    return result.stdout


def first_program(document: Path) -> str:
    if not document.is_file():
        pytest.skip("the documents are not beside the tests")
    found = re.search(r"```python\n(import.*?)```", document.read_text(), re.DOTALL)
    assert found, f"{document.name} holds no program"
    return found[1]


def test_the_program_of_the_front_page_prints_what_it_says(tmp_path):
    program = first_program(TREE / "README.md")
    said = re.search(r"# .* = (\S+)$", program, re.MULTILINE)
    assert said and run(program, tmp_path).strip() == said[1]


def test_the_first_program_of_the_manual_runs(tmp_path):
    assert run(first_program(TREE / "docs" / "python.md"), tmp_path).startswith("[")
