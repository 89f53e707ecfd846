"""Functions of encrypted numbers: linear ones, polynomials, analysis, statistics, comparisons and sorting.

They take a `Ciphertext` and, but for statistics of blocks and sorting, a `CiphertextArray`, and compute with the
evaluator of `with torvo.Evaluator(keys):`. One that was made with `bootstrap` bootstraps where levels would run out.
They take what `Plan.encrypt` gives too, and then need no key; of a `Message` they compute the same in the clear.

Every slot holds a real number, and a domain is stated for it: an interval from `lower` to `upper`, or [-bound,
bound]. There a result differs from the function that is named by at most `error`, an absolute number, and by the
errors of the operations. Outside the domain the result is any number. A smaller error costs levels; `Plan` says
how many.

`out` is a ciphertext to write, which may be the operand. Refused calls raise torvo.Error and leave it as it was.
"""

from __future__ import annotations

import operator
from typing import Any, Callable, Optional, Sequence, Union

import numpy.typing as npt

from . import _current, _torvo
from ._ciphertext import Ciphertext, CiphertextArray, _settled
from ._numbers import as_numbers, padded
from ._operands import (
    _PLAIN,
    _are_real,
    _cached,
    _combined,
    _computing,
    _operands,
    _pairwise,
    _require_ciphertexts,
    _require_matrix_blocks,
    _require_whole_blocks,
    _slotwise,
    _statistic,
)

__all__ = [
    "Accuracy",
    "Order",
    "Variance",
    "abs",
    "apply_transform",
    "apply_transforms",
    "argmax",
    "bootstrap",
    "clamp",
    "correlation",
    "cos",
    "covariance",
    "distance",
    "evaluate",
    "evaluate_blockwise",
    "exp",
    "gelu",
    "histogram",
    "inner_product",
    "inverse",
    "inverse_sqrt",
    "is_below",
    "is_in_interval",
    "log",
    "max",
    "maximum",
    "mean",
    "minimum",
    "multiply_matrices",
    "polynomial",
    "rank",
    "relu",
    "sigmoid",
    "sign",
    "sin",
    "softmax",
    "sort",
    "sqrt",
    "squared_distance",
    "step",
    "sum",
    "sum_of_transforms",
    "tanh",
    "top_k",
    "variance",
    "weighted_mean",
]

Accuracy = _torvo.Accuracy
Order = _torvo.Order
Variance = _torvo.Variance
_Number = Union[Ciphertext, CiphertextArray, _torvo.PlannedCiphertext, _torvo.Message]
#: A linear transform: of the library, or a square or other matrix in the clear.
_Transform = Union[_torvo.CachedTransform, _torvo.LinearTransform, npt.ArrayLike]
#: The accuracy of a comparison where nobody says otherwise.
_CLOSE = _torvo.Accuracy()
#: What a function is computed to where nobody says otherwise.
_ERROR = 1e-5


def apply_transform(
    x: _Number,
    transform: _Transform,
    bound: float = 1.0,
    *,
    is_real: Optional[bool] = None,
    result_bound: float = 0.0,
    out: Any = None,
) -> Any:
    """The linear transform of each block of slots, of as many as a power of two takes for the matrix; for one level.

    `transform` is a matrix in the clear or a `torvo.LinearTransform`, which is encoded for this call, or a
    `torvo.CachedTransform`, which keeps what was encoded. `CachedTransform.rotations` tells the rotation keys.

    `bound` is what real and imaginary parts of the numbers do not exceed, and `result_bound` those of the results, or
    0 for what follows; `is_real` says that imaginary parts are but errors, as they are by default where real numbers
    were encrypted. Only an evaluator that bootstraps asks. The same holds for all linear functions.
    """
    cached, is_complex = _cached(transform)
    _require_matrix_blocks(x, cached.size)
    real = _are_real([x], is_real)
    return _slotwise(
        x, out, lambda on, a, b: _torvo.apply_transform(on, a, cached, b, bound, real, result_bound), is_complex
    )


def apply_transforms(
    x: Any,
    transforms: Sequence[_Transform],
    bound: float = 1.0,
    *,
    is_real: Optional[bool] = None,
    result_bound: float = 0.0,
) -> list[Any]:
    """Several transforms of one operand, which share its decomposition and rotations: a list of as many results."""
    cached = [_cached(transform) for transform in transforms]
    real = _are_real([x], is_real)
    for one, _ in cached:
        _require_matrix_blocks(x, one.size)
    kept = [one for one, _ in cached]
    rows = []
    for part in x.parts if isinstance(x, CiphertextArray) else _operands([x]):
        results = _torvo.apply_transforms(_computing(part), _settled(part), kept, bound, real, result_bound)
        if isinstance(part, Ciphertext):
            kinds = ["c" if is_complex else part._kind for _, is_complex in cached]
            results = [Ciphertext.from_native(one, part._shape, kind) for one, kind in zip(results, kinds)]
        rows.append(results)
    return [CiphertextArray(row, x.length) for row in zip(*rows)] if isinstance(x, CiphertextArray) else rows[0]


def sum_of_transforms(
    xs: Any,
    transforms: Sequence[_Transform],
    bound: float = 1.0,
    *,
    is_real: Optional[bool] = None,
    result_bound: float = 0.0,
    out: Any = None,
) -> Any:
    """The sum of the transforms, one for each operand, rescaled once: what a matrix makes of a longer vector."""
    operands, cached = _operands(xs), [_cached(transform) for transform in transforms]
    for x, (one, _) in zip(operands, cached):
        _require_matrix_blocks(x, one.size)
    shapes = sorted({x.shape for x in operands if isinstance(x, Ciphertext)})
    if len(shapes) > 1:
        raise ValueError(f"operands of shapes {', '.join(map(str, shapes))} are given; give equal ones")
    real = _are_real(operands, is_real)
    kept = [one for one, _ in cached]
    return _combined(
        [operands],
        out,
        lambda on, a, b: _torvo.sum_of_transforms(on, a[0], kept, b, bound, real, result_bound),
        any(is_complex for _, is_complex in cached),
    )


def multiply_matrices(
    a: Any,
    b: Any,
    product: Union[int, _torvo.CachedMatrixProduct],
    bound: float = 1.0,
    *,
    is_real: Optional[bool] = None,
    result_bound: float = 0.0,
    out: Any = None,
) -> Any:
    """The products of the encrypted matrices of `a` with those of `b`, row by row in the slots; for three levels.

    `product` is the rows of a matrix, a power of two, or a `torvo.CachedMatrixProduct`, which keeps what it encodes
    and tells the rotation keys. Several matrices may lie one behind the other.
    """
    if isinstance(product, _torvo.CachedMatrixProduct):
        kept = product
    else:
        kept = _torvo.CachedMatrixProduct(operator.index(product))
    for x in (a, b):
        _require_matrix_blocks(x, kept.dimension**2)
    real = _are_real([a, b], is_real)
    return _pairwise(
        a, b, out, lambda on, x, y, made: _torvo.multiply_matrices(on, x, y, kept, made, bound, real, result_bound)
    )


def inverse(x: _Number, lower: float, upper: float, error: float = _ERROR, out: Any = None) -> Any:
    """1 / x, for x from `lower` to `upper`: both positive, or both negative."""
    return _slotwise(x, out, lambda on, a, b: _torvo.inverse(on, a, lower, upper, error, b))


def sqrt(x: _Number, lower: float, upper: float, error: float = _ERROR, out: Any = None) -> Any:
    """The square root, for x from `lower`, which is 0 or more, to `upper`."""
    return _slotwise(x, out, lambda on, a, b: _torvo.sqrt(on, a, lower, upper, error, b))


def inverse_sqrt(x: _Number, lower: float, upper: float, error: float = _ERROR, out: Any = None) -> Any:
    """1 / sqrt(x), for x from `lower`, which is positive, to `upper`."""
    return _slotwise(x, out, lambda on, a, b: _torvo.inverse_sqrt(on, a, lower, upper, error, b))


def exp(x: _Number, lower: float = -1.0, upper: float = 1.0, error: float = _ERROR, out: Any = None) -> Any:
    """e^x, for x from `lower` to `upper`."""
    return _slotwise(x, out, lambda on, a, b: _torvo.exp(on, a, lower, upper, error, b))


def log(x: _Number, lower: float, upper: float, error: float = _ERROR, out: Any = None) -> Any:
    """The natural logarithm, for x from `lower`, which is positive, to `upper`."""
    return _slotwise(x, out, lambda on, a, b: _torvo.log(on, a, lower, upper, error, b))


def sigmoid(x: _Number, bound: float = 8.0, error: float = _ERROR, out: Any = None) -> Any:
    """1 / (1 + e^-x), for |x| up to `bound`."""
    return _slotwise(x, out, lambda on, a, b: _torvo.sigmoid(on, a, bound, error, b))


def tanh(x: _Number, bound: float = 4.0, error: float = _ERROR, out: Any = None) -> Any:
    """The hyperbolic tangent, for |x| up to `bound`."""
    return _slotwise(x, out, lambda on, a, b: _torvo.tanh(on, a, bound, error, b))


def gelu(x: _Number, bound: float = 8.0, error: float = _ERROR, out: Any = None) -> Any:
    """x (1 + erf(x / sqrt(2))) / 2, for |x| up to `bound`."""
    return _slotwise(x, out, lambda on, a, b: _torvo.gelu(on, a, bound, error, b))


def sin(x: _Number, bound: float = 3.15, error: float = _ERROR, out: Any = None) -> Any:
    """The sine, for |x| up to `bound`."""
    return _slotwise(x, out, lambda on, a, b: _torvo.sin(on, a, bound, error, b))


def cos(x: _Number, bound: float = 3.15, error: float = _ERROR, out: Any = None) -> Any:
    """The cosine, for |x| up to `bound`."""
    return _slotwise(x, out, lambda on, a, b: _torvo.cos(on, a, bound, error, b))


def softmax(x: Any, bound: float = 1.0, error: float = _ERROR, length: int = 0, out: Any = None) -> Any:
    """e^x over the sum of e^x in the block of `length` slots, 0 for all, for |x| up to `bound`.

    Needs rotation keys.
    """
    _require_whole_blocks([x], length)
    return _slotwise(x, out, lambda on, a, b: _torvo.softmax(on, a, bound, error, b, length))


def evaluate(x: _Number, series: _torvo.ChebyshevSeries, out: Any = None) -> Any:
    """The series at every slot, at ceil(log2(degree + 1)) levels and about 2 sqrt(degree) products."""
    return _slotwise(x, out, lambda on, a, b: _torvo.evaluate(on, a, series, b), not series.is_real)


def evaluate_blockwise(x: Any, series: Sequence[_torvo.ChebyshevSeries], out: Any = None) -> Any:
    """Another series in each of equally long blocks of slots, on one interval; a padding counts as slots."""
    series = list(series)
    is_complex = not all(f.is_real for f in series)
    return _slotwise(x, out, lambda on, a, b: _torvo.evaluate_blockwise(on, a, series, b), is_complex)


def polynomial(x: _Number, coefficients: Sequence[complex], bound: float = 1.0, out: Any = None) -> Any:
    """The polynomial with these coefficients of 1, x, x^2 and so on.

    Beyond degree 10 a series loses fewer bits.
    """
    numbers = [complex(c) for c in coefficients]
    is_complex = any(c.imag != 0 for c in numbers)
    return _slotwise(x, out, lambda on, a, b: _torvo.evaluate_monomials(on, a, numbers, b, bound), is_complex)


def bootstrap(x: Union[Ciphertext, CiphertextArray], extended: bool = False, out: Any = None) -> Any:
    """The same numbers with their levels back. Real and imaginary parts lie in [-1, 1].

    Needs `torvo.Evaluator(keys, bootstrap=...)`; raises torvo.Error without.
    """
    bootstrapper = _current.evaluator().bootstrapper
    if bootstrapper is None:
        raise _torvo.Error(
            "the evaluator has no bootstrapper; "
            "make keys and evaluator with bootstrap=True, or the number of slots"
        )
    run = bootstrapper.bootstrap_extended if extended else bootstrapper.bootstrap
    is_complex = x.dtype.kind == "c"
    return _slotwise(x, out, lambda on, a, b: run(a, b, is_complex))


def sum(x: Any, length: int = 0, bound: float = 1.0, out: Any = None) -> Any:
    """The sum over each block of `length` slots, 0 for all slots, in every slot of the block.

    `x` is a ciphertext, or many whose blocks are summed together; a length of 1 combines them slot by slot. Blocks
    need the rotation keys for powers of two. `bound` is what the numbers do not exceed, for an evaluator that
    bootstraps. The same holds for all statistics.
    """
    return _statistic([x], length, out, lambda on, xs, b: _torvo.sum(on, xs[0], b, length, bound))


def mean(x: Any, length: int = 0, bound: float = 1.0, out: Any = None) -> Any:
    """The mean over each block."""
    return _statistic([x], length, out, lambda on, xs, b: _torvo.mean(on, xs[0], b, length, bound))


def weighted_mean(
    x: Any,
    weights: Any,
    length: int = 0,
    bound: float = 1.0,
    out: Any = None,
    *,
    lowest: float = 0.0,
    highest: float = 0.0,
    error: float = _ERROR,
) -> Any:
    """The sum of the weights times x over the sum of the weights, over each block.

    `weights` are numbers in the clear, as many as x has; for several ciphertexts a sequence of arrays, one for each.
    The weights of a block have a sum that is not 0. Or they are encrypted, as x is, none of them of another sign than
    the others; then their sum lies between `lowest` and `highest`, of one sign, and `error` is that of the division.
    """
    operands = _operands(x)
    if isinstance(weights, (Ciphertext, CiphertextArray, _torvo.PlannedCiphertext)) or _holds_ciphertexts(weights):
        return _statistic(
            [operands, weights],
            length,
            out,
            lambda on, xs, b: _torvo.weighted_mean(on, xs[0], xs[1], lowest, highest, error, b, length, bound),
        )
    arrays = [weights] if isinstance(x, (Ciphertext, *_PLAIN)) else list(weights)
    if len(arrays) != len(operands):
        raise ValueError(f"{len(operands)} operands and {len(arrays)} arrays of weights are given; give as many")
    messages = [_weights_for(one, array) for one, array in zip(operands, arrays)]
    return _statistic(
        [operands], length, out, lambda on, xs, b: _torvo.weighted_mean(on, xs[0], messages, b, length, bound)
    )


def _holds_ciphertexts(weights: Any) -> bool:
    return isinstance(weights, (list, tuple)) and any(
        isinstance(one, (Ciphertext, _torvo.PlannedCiphertext)) for one in weights
    )


def histogram(
    x: Any, edges: Sequence[float], bound: float = 1.0, accuracy: _torvo.Accuracy = _CLOSE, length: int = 0
) -> list[Any]:
    """How many of the numbers of each block lie between each edge and the next one: a list of ciphertexts.

    Edges ascend; those at the bound or beyond take no comparison. A number that is closer to an edge than the margin of
    `accuracy` counts partly in both bins.
    """
    operands = _operands(x)
    if not operands:
        raise ValueError("no ciphertext is given; give at least one")
    _require_whole_blocks(operands, length)
    first, numbers = operands[0], [float(edge) for edge in edges]
    if isinstance(first, _PLAIN):
        return _torvo.histogram(_computing(first), operands, numbers, accuracy, length, bound)
    _require_ciphertexts(operands)
    settled = [_settled(one) for one in operands]
    counts = _torvo.histogram(_computing(first), settled, numbers, accuracy, length, bound)
    return [Ciphertext.from_native(count, first._shape, "f") for count in counts]


def _weights_for(x: Any, weights: Any) -> _torvo.Message:
    """Weights as a message of the slots of an operand."""
    if isinstance(weights, _torvo.Message):
        return weights
    array = as_numbers(weights)
    count = (x.shape[0] if x.shape else 1) if isinstance(x, Ciphertext) else 1 << x.log_slots
    if array.size != count:
        raise ValueError(f"{array.size} weights are given for {count} numbers; give as many")
    return padded(array, x.log_slots)


def variance(
    x: Any, kind: _torvo.Variance = Variance.Population, length: int = 0, bound: float = 1.0, out: Any = None
) -> Any:
    """The variance of real numbers over each block, of a population or estimated from a sample."""
    return _statistic([x], length, out, lambda on, xs, b: _torvo.variance(on, xs[0], kind, b, length, bound))


def covariance(
    x: Any, y: Any, kind: _torvo.Variance = Variance.Population, length: int = 0, bound: float = 1.0, out: Any = None
) -> Any:
    """The covariance of real numbers over each block."""
    return _statistic(
        [x, y], length, out, lambda on, xs, b: _torvo.covariance(on, xs[0], xs[1], kind, b, length, bound)
    )


def inner_product(x: Any, y: Any, length: int = 0, bound: float = 1.0, out: Any = None) -> Any:
    """The sum of x y over each block, none of them conjugated."""
    return _statistic(
        [x, y], length, out, lambda on, xs, b: _torvo.inner_product(on, xs[0], xs[1], b, length, bound)
    )


def squared_distance(x: Any, y: Any, length: int = 0, bound: float = 1.0, out: Any = None) -> Any:
    """The sum of (x - y)^2 over each block."""
    return _statistic(
        [x, y], length, out, lambda on, xs, b: _torvo.squared_distance(on, xs[0], xs[1], b, length, bound)
    )


def distance(
    x: Any,
    y: Any,
    lowest: float,
    highest: float,
    error: float = _ERROR,
    length: int = 0,
    bound: float = 1.0,
    out: Any = None,
) -> Any:
    """The Euclidean distance over each block, the squares of which lie between `lowest` and `highest`."""
    return _statistic(
        [x, y],
        length,
        out,
        lambda on, xs, b: _torvo.distance(on, xs[0], xs[1], lowest, highest, error, b, length, bound),
    )


def correlation(
    x: Any,
    y: Any,
    lowest: float,
    highest: float,
    error: float = _ERROR,
    length: int = 0,
    bound: float = 1.0,
    out: Any = None,
) -> Any:
    """The correlation over each block; both variances lie between `lowest` and `highest`."""
    return _statistic(
        [x, y],
        length,
        out,
        lambda on, xs, b: _torvo.correlation(on, xs[0], xs[1], lowest, highest, error, b, length, bound),
    )


def sign(x: _Number, bound: float = 1.0, accuracy: _torvo.Accuracy = _CLOSE, out: Any = None) -> Any:
    """1 where x > 0, -1 where x < 0, for |x| up to `bound`.

    Within 2^-accuracy.error, where |x| is at least 2^-accuracy.margin times the bound; closer to 0 the result lies
    between -1 and 1. More bits of either cost levels, and so it is with all comparisons.
    """
    return _slotwise(x, out, lambda on, a, b: _torvo.sign(on, a, bound, b, accuracy))


def step(x: _Number, bound: float = 1.0, accuracy: _torvo.Accuracy = _CLOSE, out: Any = None) -> Any:
    """1 where x > 0, 0 where x < 0, for |x| up to `bound`."""
    return _slotwise(x, out, lambda on, a, b: _torvo.step(on, a, bound, b, accuracy))


def abs(x: _Number, bound: float = 1.0, accuracy: _torvo.Accuracy = _CLOSE, out: Any = None) -> Any:
    """|x|, for |x| up to `bound`."""
    return _slotwise(x, out, lambda on, a, b: _torvo.abs(on, a, bound, b, accuracy))


def relu(x: _Number, bound: float = 1.0, accuracy: _torvo.Accuracy = _CLOSE, out: Any = None) -> Any:
    """x where x > 0, 0 where x < 0, for |x| up to `bound`."""
    return _slotwise(x, out, lambda on, a, b: _torvo.relu(on, a, bound, b, accuracy))


def clamp(
    x: _Number,
    lower: float,
    upper: float,
    bound: float = 1.0,
    accuracy: _torvo.Accuracy = _CLOSE,
    out: Any = None,
) -> Any:
    """x from `lower` to `upper`, and the closer end outside, for |x| up to `bound`."""
    return _slotwise(x, out, lambda on, a, b: _torvo.clamp(on, a, lower, upper, bound, b, accuracy))


def is_in_interval(
    x: _Number,
    lower: float,
    upper: float,
    bound: float = 1.0,
    accuracy: _torvo.Accuracy = _CLOSE,
    out: Any = None,
) -> Any:
    """1 where lower < x < upper, 0 outside, for |x| up to `bound`."""
    return _slotwise(x, out, lambda on, a, b: _torvo.is_in_interval(on, a, lower, upper, bound, b, accuracy))


def is_below(
    x: _Number, y: _Number, bound: float = 1.0, accuracy: _torvo.Accuracy = _CLOSE, out: Any = None
) -> Any:
    """1 where x < y, 0 where x > y, for numbers up to `bound`."""
    return _pairwise(x, y, out, lambda on, a, b, made: _torvo.is_below(on, a, b, bound, made, accuracy))


def maximum(
    x: _Number, y: _Number, bound: float = 1.0, accuracy: _torvo.Accuracy = _CLOSE, out: Any = None
) -> Any:
    """The larger number of each slot, for numbers up to `bound`."""
    return _pairwise(x, y, out, lambda on, a, b, made: _torvo.max(on, a, b, bound, made, accuracy))


def minimum(
    x: _Number, y: _Number, bound: float = 1.0, accuracy: _torvo.Accuracy = _CLOSE, out: Any = None
) -> Any:
    """The smaller number of each slot, for numbers up to `bound`."""
    return _pairwise(x, y, out, lambda on, a, b, made: _torvo.min(on, a, b, bound, made, accuracy))


def _list(x: Any, out: Any, call: Callable[[Any, Any, Any], None]) -> Any:
    """`call(on, x, out)` for the numbers of one ciphertext, which they must fill: a padding would be sorted too."""
    if isinstance(x, CiphertextArray):
        raise TypeError("a CiphertextArray is given to be sorted; give a Ciphertext, of up to 128 numbers")
    _require_whole_blocks([x], 0)
    return _slotwise(x, out, call)


def rank(
    x: Any,
    bound: float = 1.0,
    accuracy: _torvo.Accuracy = _CLOSE,
    order: _torvo.Order = Order.Ascending,
    out: Any = None,
) -> Any:
    """For each number the count of those that stand before it when they are sorted: 0 to n - 1.

    The n numbers, a power of two from 2 to 128, fill a ciphertext, and |x| is at most `bound`. All pairs are compared
    at once, in n^2 slots, with the rotation keys for 1, 2, 4, ..., n^2 / 2. Numbers that are closer than the margin of
    `accuracy` without being equal may be exchanged. The same holds for the other functions that sort.
    """
    return _list(x, out, lambda on, a, b: _torvo.rank(on, a, bound, b, accuracy, order))


def sort(
    x: Any,
    bound: float = 1.0,
    accuracy: _torvo.Accuracy = _CLOSE,
    order: _torvo.Order = Order.Ascending,
    out: Any = None,
) -> Any:
    """The numbers in order."""
    return _list(x, out, lambda on, a, b: _torvo.sort(on, a, bound, b, accuracy, order))


def top_k(x: Any, count: int, bound: float = 1.0, accuracy: _torvo.Accuracy = _CLOSE, out: Any = None) -> Any:
    """The `count` largest numbers, the largest first; 0 in the other slots."""
    return _list(x, out, lambda on, a, b: _torvo.top_k(on, a, count, bound, b, accuracy))


def argmax(x: Any, bound: float = 1.0, accuracy: _torvo.Accuracy = _CLOSE, out: Any = None) -> Any:
    """1 in the slot of the largest number, the first of several; 0 in the others."""
    return _list(x, out, lambda on, a, b: _torvo.argmax(on, a, bound, b, accuracy))


def max(x: Any, bound: float = 1.0, accuracy: _torvo.Accuracy = _CLOSE, out: Any = None) -> Any:
    """The largest number, in every slot."""
    return _list(x, out, lambda on, a, b: _torvo.max(on, a, bound, b, accuracy))
