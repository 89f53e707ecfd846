"""Layers of networks: matrices, convolutions, and activations as polynomials."""

from __future__ import annotations

from dataclasses import dataclass
from math import exp, tanh
from typing import Any, Callable, Mapping, Optional, Sequence

import numpy as np

from . import _torvo
from ._numbers import Array, as_matrix

#: What an activation is approximated to where nobody says otherwise, and the degree for those with a corner.
ERROR, CORNER_DEGREE = 1e-3, 31
#: A domain is wider than what was seen, on each side, by this part of its width.
_MARGIN = 0.125
_FUNCTIONS: dict[str, Callable[[float], float]] = {
    "identity": lambda z: z,
    "logistic": lambda z: 1 / (1 + exp(-z)) if z > 0 else exp(z) / (1 + exp(z)),
    "relu": lambda z: max(z, 0.0),
    "tanh": tanh,
}
#: Names of other libraries.
_ALIASES = {"sigmoid": "logistic", "linear": "identity", "none": "identity"}


class Activation:
    """A function between two layers and the polynomial for it, on a domain from `lower` to `upper`."""

    def __init__(self, name: str, lower: float, upper: float, error: float, degree: int) -> None:
        if not lower < upper or not np.isfinite([lower, upper]).all():
            raise ValueError(f"the domain of {name} is from {lower} to {upper}; give a lower bound below the upper one")
        self.name = name
        if name == "tanh":  # an odd polynomial has half of the products
            upper = max(abs(lower), abs(upper))
            lower = -upper
        self.lower, self.upper = float(lower), float(upper)
        self.centre, self.radius = (self.upper + self.lower) / 2, (self.upper - self.lower) / 2
        #: The polynomial, of (z - centre) / radius in [-1, 1].
        self.series = self._series(error, degree)
        #: How far it is from the function on the domain.
        self.largest_error = self.series.largest_error(lambda t: complex(self._at(t)))

    def _at(self, t: float) -> float:
        return _FUNCTIONS[self.name](self.centre + self.radius * t)

    def _series(self, error: float, degree: int) -> _torvo.ChebyshevSeries:
        if self.name == "relu":
            if self.lower >= 0 or self.upper <= 0:  # no corner: a line
                return _torvo.ChebyshevSeries.interpolate(self._at, 1)
            return _torvo.ChebyshevSeries.minimax(self._at, degree)
        if self.name == "tanh":
            return _torvo.ChebyshevSeries.minimax_within(self._at, error, 0.0, 1.0, _torvo.Symmetry.Odd)
        return _torvo.ChebyshevSeries.minimax_within(self._at, error)

    @property
    def levels(self) -> int:
        """Levels that it spends: ceil(log2(degree + 1))."""
        return self.series.degree.bit_length()

    def exact(self, z: Array) -> Array:
        """The function itself."""
        values: Array = np.vectorize(_FUNCTIONS[self.name], otypes=[float])(z)
        return values

    def __call__(self, z: Array) -> Array:
        """The polynomial in the clear."""
        return self.polynomial((z - self.centre) / self.radius)

    def polynomial(self, y: Array) -> Array:
        """The same of y = (z - centre) / radius."""
        coefficients = np.array(self.series.coefficients).real
        values: Array = np.polynomial.chebyshev.chebval(y, coefficients)  # type: ignore[no-untyped-call]
        return values

    def __repr__(self) -> str:
        return (
            f"<{self.name} on [{self.lower:.4g}, {self.upper:.4g}]: degree {self.series.degree}, "
            f"error {self.largest_error:.2g}>"
        )


@dataclass
class Dense:
    """W x + b, and the activation behind it."""

    weights: Array
    biases: Array
    activation: Optional[Activation] = None

    def scaled(self) -> tuple[Array, Array]:
        """Weights and biases that bring the domain of the activation to [-1, 1]."""
        if self.activation is None:
            return self.weights, self.biases
        return self.weights / self.activation.radius, (self.biases - self.activation.centre) / self.activation.radius


def rows_of(samples: Any, inputs: int) -> Array:
    """Samples of so many real numbers, one a row. Raises ValueError for others."""
    rows = as_matrix(samples)
    rows = rows[None, :] if rows.ndim == 1 else rows
    if rows.shape[1] != inputs or rows.dtype.kind == "c":
        raise ValueError(
            f"samples of shape {np.shape(samples)}, {rows.dtype}, are given; give {inputs} real numbers each"
        )
    return rows


def through(layers: Sequence[Dense], rows: Array, apply: Callable[[Activation, Array], Array]) -> Array:
    """What layers make of samples, with `apply` for the activations."""
    for layer in layers:
        rows = rows @ layer.weights.T + layer.biases
        if layer.activation is not None:
            rows = apply(layer.activation, rows)
    return rows


def _merged(pairs: Sequence[tuple[Any, Any]], names: Sequence[str]) -> list[tuple[Array, Array, str]]:
    """Matrices, biases and names of activations, in which no matrix follows another one directly."""
    merged: list[tuple[Array, Array, str]] = []
    for (weights, biases), name in zip(pairs, names):
        name = _ALIASES.get(name, name)
        if name not in _FUNCTIONS:
            raise ValueError(f"the activation is {name}; give one of {', '.join([*_FUNCTIONS, *_ALIASES])}")
        w, b = as_matrix(weights), as_matrix(biases)
        if w.ndim != 2 or b.shape != (w.shape[0],) or "c" in (w.dtype.kind, b.dtype.kind):
            raise ValueError(
                f"weights of shape {w.shape} and biases of shape {b.shape} are given; "
                "give real ones, with a row and a bias for each output"
            )
        if merged and merged[-1][0].shape[0] != w.shape[1]:
            raise ValueError(
                f"a layer of {w.shape[1]} inputs follows one of {merged[-1][0].shape[0]} outputs; give equal numbers"
            )
        if merged and merged[-1][2] == "identity":
            before, bias, _ = merged.pop()
            w, b = w @ before, w @ bias + b
        merged.append((w, b, name))
    return merged


def layers_of(
    pairs: Sequence[tuple[Any, Any]],
    names: Sequence[str],
    data: Any,
    bound: Optional[float],
    error: float,
    degree: int,
) -> list[Dense]:
    """Layers with the domains of their activations: from typical data, or all of them [-bound, bound]."""
    layers: list[Dense] = []
    merged = _merged(pairs, names)
    if all(name == "identity" for _, _, name in merged):
        return [Dense(w, b) for w, b, _ in merged]
    if (data is None) == (bound is None):
        raise ValueError(
            "activations need a domain: give data, typical samples, or a bound on what comes to an activation, "
            "and not both"
        )
    rows = None if data is None else rows_of(data, merged[0][0].shape[1])
    for w, b, name in merged:
        layer = Dense(w, b)
        if name != "identity":
            if rows is None:
                lower, upper = -float(bound or 0), float(bound or 0)
            else:
                z = rows @ w.T + b
                lower, upper = float(z.min()), float(z.max())
                margin = (upper - lower) * _MARGIN or 1.0
                lower, upper = lower - margin, upper + margin
            layer.activation = Activation(name, lower, upper, error, degree)
        layers.append(layer)
        if rows is not None:
            rows = through([layer], rows, lambda activation, z: activation.exact(z))
    return layers


def _plain(value: Any) -> Array:
    """An array of any number of dimensions, or what a tensor holds."""
    array = np.asarray(value.detach().cpu().numpy() if hasattr(value, "detach") else value)
    return as_matrix(array.reshape(-1)).reshape(array.shape)


def torch_layers(
    mapping: Mapping[str, Any], activation: str, input_shape: Optional[Sequence[int]]
) -> tuple[list[tuple[Array, Array]], list[str]]:
    """Weights and biases of dense layers, and what stands behind each."""
    pairs: list[tuple[Array, Array]] = []
    names: list[str] = []
    shape = None if input_shape is None else tuple(int(n) for n in input_shape)
    has_names = any(isinstance(value, str) for value in mapping.values())
    for key, value in mapping.items():
        if isinstance(value, str):
            if not pairs or names[-1] != "identity":
                raise ValueError(f'the activation "{key}" stands behind no layer; give it behind the weights of one')
            names[-1] = value
        elif key.endswith("weight"):
            prefix = key[: -len("weight")]
            weights = _plain(value)
            bias = mapping.get(prefix + "bias")
            if weights.ndim == 4:
                stride, padding = int(mapping.get(prefix + "stride", 1)), int(mapping.get(prefix + "padding", 0))
                weights, shape = _convolution(key, weights, shape, stride, padding)
                per_place = 1 if shape is None else shape[1] * shape[2]
                channels = len(weights) // per_place
                biases = np.repeat(np.zeros(channels) if bias is None else _plain(bias), per_place)
            else:
                shape = None
                biases = np.zeros(len(weights)) if bias is None else _plain(bias)
            pairs.append((weights, biases))
            names.append("identity")
        elif key.rpartition(".")[2] not in ("bias", "stride", "padding"):
            raise ValueError(f'"{key}" is no weight, bias, stride, padding or activation; leave it out')
    if not pairs:
        raise ValueError('there is no layer; give "0.weight" and so on')
    if not has_names:
        names = [activation] * (len(pairs) - 1) + ["identity"]
    return pairs, names


def _convolution(
    key: str, kernel: Array, shape: Optional[tuple[int, ...]], stride: int, padding: int
) -> tuple[Array, tuple[int, ...]]:
    """The matrix of a convolution of images of `shape`, and the shape of its results."""
    if shape is None or len(shape) != 3 or shape[0] != kernel.shape[1] or min(shape) < 1:
        raise ValueError(
            f'"{key}" is a convolution of {kernel.shape[1]} channels, but its images are of shape {shape}; '
            "give input_shape=(channels, rows, columns)"
        )
    if stride < 1 or padding < 0:
        raise ValueError(
            f'"{key}" has stride {stride} and padding {padding}; give a stride from 1 on, and no negative padding'
        )
    channels, height, width = shape
    outputs, _, rows, columns = kernel.shape
    out_height, out_width = (height + 2 * padding - rows) // stride + 1, (width + 2 * padding - columns) // stride + 1
    if out_height < 1 or out_width < 1:
        raise ValueError(f'"{key}" has a window of {rows} by {columns}, which is larger than images of shape {shape}')
    matrix = np.zeros((outputs, out_height, out_width, channels, height, width))
    y, x = np.arange(out_height), np.arange(out_width)
    for dy in range(rows):
        for dx in range(columns):
            source_y, source_x = y * stride + dy - padding, x * stride + dx - padding
            ys = np.flatnonzero((source_y >= 0) & (source_y < height))
            xs = np.flatnonzero((source_x >= 0) & (source_x < width))
            at_y, at_x = np.meshgrid(ys, xs, indexing="ij")
            # Places first, then the two slices: an array of places, outputs, channels.
            matrix[:, at_y, at_x, :, source_y[at_y], source_x[at_x]] = kernel[None, None, :, :, dy, dx]
    return matrix.reshape(outputs * out_height * out_width, -1), (outputs, out_height, out_width)
