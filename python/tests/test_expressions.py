"""Random expressions of ciphertexts, numbers and arrays against numpy."""

from __future__ import annotations

import operator
from typing import Any

import numpy as np
from hypothesis import given, note
from hypothesis import strategies as st

import torvo

#: Depth of an expression in products. SD3 allows three.
DEPTH = 3
LENGTH = 5

small = st.floats(-1, 1, allow_nan=False, width=32)
arrays = st.lists(small, min_size=LENGTH, max_size=LENGTH).map(np.array)
leaves = st.one_of(
    st.tuples(st.just("ciphertext"), arrays),
    st.tuples(st.just("array"), arrays),
    st.tuples(st.just("number"), st.one_of(small, st.integers(-3, 3), st.builds(complex, small, small))),
)


def branches(children: Any) -> Any:
    return st.one_of(
        st.tuples(st.sampled_from("+-*"), children, children),
        st.tuples(st.just("negative"), children),
        st.tuples(st.just("square"), children),
    )


expressions = st.recursive(leaves, branches, max_leaves=6)


def depth(tree: Any) -> int:
    """Products in a row, at most."""
    kind, *children = tree
    if kind in ("ciphertext", "array", "number"):
        return 0
    return max(depth(child) for child in children) + (kind in ("*", "square"))


def is_encrypted(tree: Any) -> bool:
    kind, *children = tree
    return kind == "ciphertext" or (kind not in ("array", "number") and any(is_encrypted(child) for child in children))


def value(tree: Any, leaf: Any) -> Any:
    """The expression, with what `leaf` makes of its arrays to encrypt."""
    kind, *children = tree
    if kind == "ciphertext":
        return leaf(children[0])
    if kind in ("array", "number"):
        return children[0]
    operands = [value(child, leaf) for child in children]
    if kind == "negative":
        return -operands[0]
    if kind == "square":
        return operands[0] ** 2
    return {"+": operator.add, "-": operator.sub, "*": operator.mul}[kind](*operands)


@given(tree=expressions.filter(is_encrypted).filter(lambda tree: depth(tree) <= DEPTH))
def test_an_expression_gives_what_numpy_gives(scheme, tree):
    with torvo.Evaluator(scheme.keys):
        result = value(tree, scheme.encrypt)
    expected = value(tree, lambda array: array)
    note(f"{tree} -> {expected}")
    # The peak, where every leaf has its modulus, 1 at least, and nothing cancels, bounds each value on the way and
    # its derivative by a leaf or by a result in between. There are at most six leaves and eleven operations, and each
    # adds an error e at most, so that the result errs by 17 e peak. On SD3, which has the smaller scale, 2^41, the
    # largest error among 10,000 numbers that were encrypted was 2^-29, and that of products no larger: e = 2^-26
    # leaves a factor of eight.
    peak = value(modulus(tree), lambda array: array)
    bound = 2.0**-26 * 17 * np.abs(peak).max()
    np.testing.assert_allclose(scheme.decrypt(result), np.broadcast_to(expected, LENGTH), atol=bound, rtol=0)


def modulus(tree: Any) -> Any:
    """The expression with each leaf's modulus, at least 1, and sums where there are differences."""
    kind, *children = tree
    if kind in ("ciphertext", "array", "number"):
        return kind, np.maximum(np.abs(children[0]), 1)
    if kind == "negative":
        return modulus(children[0])
    return ("+" if kind == "-" else kind, *(modulus(child) for child in children))
