"""The examples of this language, as programs; and the medical demo against the one in C++."""

from __future__ import annotations

import os
import re
import subprocess
import sys
from pathlib import Path

import pytest

import torvo

EXAMPLES = Path(__file__).resolve().parent.parent.parent / "examples" / "python"


def run(*command: str) -> str:
    package = str(Path(torvo.__file__).parent.parent)
    environment = {**os.environ, "PYTHONPATH": package, "OMP_NUM_THREADS": "1", "PYTHONDONTWRITEBYTECODE": "1"}
    result = subprocess.run(command, env=environment, capture_output=True, text=True, timeout=600)
    assert result.returncode == 0, result.stdout + result.stderr
    return result.stdout


def has_sklearn() -> bool:
    return subprocess.run([sys.executable, "-c", "import sklearn"], capture_output=True).returncode == 0


def test_the_quick_start_runs():
    printed = run(sys.executable, str(EXAMPLES / "01_quick_start.py"))
    assert "x @ matrix   [1.625 2.25 ]" in printed


@pytest.mark.skipif(not has_sklearn(), reason="scikit-learn is not installed")
def test_the_network_reads_encrypted_digits():
    printed = run(sys.executable, str(EXAMPLES / "03_digits_network.py"), "64")
    agreement = re.search(r"agree +(\d+) of 64", printed)
    assert agreement is not None and int(agreement[1]) >= 62, printed


#: What both demos print of their numbers, but for times.
NUMBERS = r"^(preset|ring degree|levels used|accuracy|predictions|digest).*$"


@pytest.mark.skipif("TORVO_DEMO" not in os.environ, reason="TORVO_DEMO does not name the demo of C++; ctest sets it")
def test_the_medical_demo_decrypts_the_numbers_of_the_one_in_cpp_bit_by_bit():
    data = EXAMPLES.parent / "data" / "breast_cancer.csv"
    python = run(sys.executable, str(EXAMPLES / "02_medical_demo.py"), "7")
    cpp = run(os.environ["TORVO_DEMO"], str(data), "7")
    seen, expected = ([m[0] for m in re.finditer(NUMBERS, text, re.MULTILINE)] for text in (python, cpp))
    assert len(expected) == 6 and expected[-1].startswith("digest")
    assert seen == expected
    other = run(sys.executable, str(EXAMPLES / "02_medical_demo.py"), "8")
    assert re.search("^digest.*$", other, re.MULTILINE)[0] != expected[-1]


def test_the_medical_demo_agrees_with_its_model():
    assert "agree   114 of 114" in run(sys.executable, str(EXAMPLES / "02_medical_demo.py"))
