"""Pictures of what a computation does to numbers, drawn with matplotlib where it is installed.

Each function draws on `axes`, or on those of a new figure, and returns them; nothing is shown. The numbers that are
drawn are in the lines of the axes.
"""

from __future__ import annotations

from typing import Any, Callable, Iterable, Optional, Union

import numpy as np

from . import _torvo
from ._plan import Plan

__all__ = ["approximation", "error_through"]

#: Points at which a function is drawn.
_POINTS = 1001
#: What an error of 0 is drawn as: below it a double has no more digits.
_LEAST = 2.0**-60


def _axes(axes: Any, count: int) -> Any:
    """`axes`, or `count` new ones, one above the other."""
    if axes is not None:
        return axes
    try:
        from matplotlib import pyplot  # type: ignore[import]
    except ImportError:
        raise ImportError("torvo.plot draws with matplotlib, which is not installed; install matplotlib") from None
    figure, made = pyplot.subplots(count, sharex=True, layout="constrained")
    return made


def _steps(circuit: Any) -> list[tuple[str, Callable[[Any], Any]]]:
    """Names and functions of the steps of a circuit."""
    if callable(circuit):
        circuit = [circuit]
    steps = []
    for step in circuit:
        name, function = step if isinstance(step, tuple) else (getattr(step, "__name__", "step"), step)
        if not callable(function):
            raise TypeError(f"a step is {function!r}; give functions of a ciphertext, or pairs of a name and one")
        steps.append((str(name), function))
    if not steps:
        raise ValueError("the circuit has no step; give at least one function")
    return steps


def error_through(
    circuit: Union[Callable[[Any], Any], Iterable[Any]],
    values: Any,
    context: _torvo.Context,
    *,
    level: Optional[int] = None,
    axes: Any = None,
) -> Any:
    """The error behind each step of a circuit, in bits, and the level: predicted by a `torvo.Plan`, without a key.

    `circuit` is a function of a ciphertext, or several that follow one another, each alone or as a pair of a name and
    a function, `[("first", torvo.functions.sigmoid), ("second", torvo.functions.exp)]`, made of those of
    `torvo.functions`. `values` are typical numbers.

    There are two lines, log2 of the largest error of a slot and of its root mean square, over the steps; the first
    point is the fresh encryption, and the labels below tell the levels. An error is that of the noise, against the
    same operations without it: that of an approximation is not in it (`approximation` draws that).
    """
    steps = _steps(circuit)
    with Plan(context) as plan:
        states = [plan.encrypt(values, level=level)]
        for _, function in steps:
            states.append(function(states[-1]))
    labels = [f"{name}\nlevel {state.level}" for (name, _), state in zip([("fresh", None), *steps], states)]
    axes = _axes(axes, 1)
    for name, errors in [
        ("largest", [state.largest_error for state in states]),
        ("root mean square", [state.error for state in states]),
    ]:
        axes.plot(range(len(states)), np.log2(np.maximum(errors, _LEAST)), marker="o", label=name)
    axes.set_xticks(range(len(states)), labels)
    axes.set_ylabel("log2 of the error")
    axes.legend()
    return axes


def approximation(
    series: _torvo.ChebyshevSeries, function: Optional[Callable[[float], float]] = None, *, axes: Any = None
) -> Any:
    """A series on its interval; with a `function`, that one too, and below the difference of both.

    `axes` is one, or with a function a pair. A complex series is drawn by its real part.
    """
    x = np.linspace(series.lower, series.upper, _POINTS)
    y = np.array([series(float(point)) for point in x]).real
    if function is None:
        one = _axes(axes, 1)
        one.plot(x, y, label=f"series of degree {series.degree}")
        one.legend()
        return one
    upper, lower = _axes(axes, 2)
    exact = np.array([function(float(point)) for point in x])
    upper.plot(x, exact, label="function")
    upper.plot(x, y, label=f"series of degree {series.degree}")
    upper.legend()
    lower.plot(x, y - exact)
    lower.set_ylabel("series - function")
    return upper, lower
