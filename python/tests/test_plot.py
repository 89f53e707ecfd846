"""Pictures: what is drawn, by the numbers in the lines."""

from __future__ import annotations

import os
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest

import torvo
from torvo import functions as F


def has_matplotlib() -> bool:
    return subprocess.run([sys.executable, "-c", "import matplotlib"], capture_output=True).returncode == 0


@pytest.fixture
def figures():
    if not has_matplotlib():
        pytest.skip("matplotlib is not installed")
    import matplotlib

    matplotlib.use("Agg")
    from matplotlib import pyplot

    yield pyplot
    pyplot.close("all")


def test_the_errors_through_a_circuit_are_those_of_the_plan(toy, figures):
    x = np.linspace(-1, 1, 32)
    cube = lambda ct: F.polynomial(ct, [0, 0, 0, 1])  # noqa: E731
    axes = torvo.plot.error_through([("sigmoid", F.sigmoid), ("cube", cube)], x, toy.context, level=11)
    with torvo.Plan(toy.context) as plan:
        fresh = plan.encrypt(x, level=11)
        sigmoid = F.sigmoid(fresh)
        states = [fresh, sigmoid, cube(sigmoid)]
    largest, mean = (line.get_ydata() for line in axes.lines)
    np.testing.assert_allclose(largest, [np.log2(state.largest_error) for state in states])
    np.testing.assert_allclose(mean, [np.log2(state.error) for state in states])
    assert (largest >= mean).all() and largest[-1] < -20
    labels = [label.get_text() for label in axes.get_xticklabels()]
    names = ("fresh", "sigmoid", "cube")
    assert labels == [f"{name}\nlevel {state.level}" for name, state in zip(names, states)]


def test_a_circuit_may_be_one_function_and_axes_may_be_given(toy, figures):
    _, axes = figures.subplots()
    assert torvo.plot.error_through(F.exp, [0.5, 0.25], toy.context, axes=axes) is axes
    assert [label.get_text().split("\n")[0] for label in axes.get_xticklabels()] == ["fresh", "exp"]


def test_an_approximation_is_drawn_with_its_function_and_the_difference(figures):
    series = torvo.ChebyshevSeries.minimax(np.tanh, 9, -2, 2)
    upper, lower = torvo.plot.approximation(series, np.tanh)
    function, drawn = upper.lines
    x = drawn.get_xdata()
    assert x[0] == -2 and x[-1] == 2
    np.testing.assert_allclose(function.get_ydata(), np.tanh(x))
    np.testing.assert_allclose(drawn.get_ydata(), [series(t).real for t in x])
    assert np.abs(lower.lines[0].get_ydata()).max() == pytest.approx(series.largest_error(np.tanh), rel=1e-3)
    assert len(torvo.plot.approximation(series).lines) == 1


def test_what_is_no_circuit_is_refused(toy, figures):
    with pytest.raises(TypeError, match="functions of a ciphertext"):
        torvo.plot.error_through([("name", 5)], [1.0], toy.context)
    with pytest.raises(ValueError, match="no step"):
        torvo.plot.error_through([], [1.0], toy.context)
    with pytest.raises(torvo.Error, match="levels"):
        torvo.plot.error_through(F.sigmoid, [1.0], toy.context, level=1)


def test_without_matplotlib_one_sentence_says_what_to_do():
    program = (
        "import sys; sys.modules['matplotlib'] = None\n"
        "import torvo\n"
        "try:\n    torvo.plot.approximation(torvo.ChebyshevSeries([0, 1]))\n"
        "except ImportError as error:\n    print(error)\n"
    )
    environment = {**os.environ, "PYTHONPATH": str(Path(torvo.__file__).parent.parent)}
    result = subprocess.run([sys.executable, "-c", program], env=environment, capture_output=True, text=True)
    assert result.returncode == 0, result.stderr
    assert result.stdout == "torvo.plot draws with matplotlib, which is not installed; install matplotlib\n"
