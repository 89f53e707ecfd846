"""Comparisons, sorting and advice against numpy."""

from __future__ import annotations

import pickle
from typing import Any

import numpy as np
import pytest

import torvo
from torvo import functions as F

#: Few bits: the toy has 12 levels. Their error, with that of the operations, stays below 2^-4.
FEW = torvo.Accuracy(4, 4)
ERROR = 2.0**-4


@pytest.fixture(scope="module")
def boosted(toy: Any) -> Any:
    """Keys and an evaluator that bootstraps: signs in a row take more levels than the toy has."""
    keys = torvo.keygen(toy.context, bootstrap=True, rotations="all")
    return keys, torvo.Evaluator(keys, bootstrap=True)


@pytest.fixture(scope="module")
def sorter(toy: Any) -> Any:
    """The same for 16 slots, in which four numbers are compared with each other."""
    keys = torvo.keygen(toy.context, bootstrap=16, rotations="all")
    return keys, torvo.Evaluator(keys, bootstrap=16)


def away_from(edge: float, x: Any, margin: float = 2 * ERROR) -> Any:
    """The numbers, but for those that are closer to the edge than a comparison can tell."""
    return x[np.abs(x - edge) > margin]


@pytest.mark.parametrize(
    "function, reference, edges",
    [
        (lambda x: F.sign(x, 1, FEW), np.sign, [0]),
        (lambda x: F.step(x, 1, FEW), lambda x: (x > 0).astype(float), [0]),
        (lambda x: F.abs(x, 1, FEW), np.abs, []),
        (lambda x: F.relu(x, 1, FEW), lambda x: np.maximum(x, 0), []),
        (lambda x: F.clamp(x, -0.5, 0.25, 1, FEW), lambda x: np.clip(x, -0.5, 0.25), []),
        (lambda x: F.is_in_interval(x, -0.5, 0.25, 1, FEW), lambda x: (x > -0.5) & (x < 0.25), [-0.5, 0.25]),
    ],
)
def test_a_comparison_is_that_of_numpy_away_from_its_edge(toy, boosted, function, reference, edges):
    x = np.linspace(-1, 1, 100)
    for edge in edges:
        x = away_from(edge, x)
    keys, evaluator = boosted
    with evaluator:
        result = function(keys.encrypt(x))
        assert isinstance(result, torvo.CiphertextArray)
        # An error of 2^-4 of the largest difference, which is 2 at most.
        np.testing.assert_allclose(keys.decrypt(result), reference(x), atol=2 * ERROR)
        clear = torvo.Message(5)
        np.asarray(clear)[:] = x[:32]
        np.testing.assert_allclose(np.asarray(function(clear)).real, reference(x[:32]), atol=2 * ERROR)
        encrypted = keys.decrypt(function(keys.encrypt(x[:32])))
        np.testing.assert_allclose(np.asarray(function(clear)).real, encrypted, atol=1e-4)


def test_two_numbers_are_compared_slot_by_slot(boosted, rng):
    keys, evaluator = boosted
    x = rng.uniform(-1, 1, 32)
    y = np.where(rng.integers(0, 2, 32) == 1, x + 0.4, x - 0.4).clip(-1, 1)
    y = np.where(np.abs(x - y) < 0.3, -x, y)
    told = np.abs(x - y) > 4 * ERROR
    with evaluator:
        a, b = keys.encrypt(x), keys.encrypt(y)
        below = keys.decrypt(F.is_below(a, b, 1, FEW))
        np.testing.assert_allclose(below[told], (x < y)[told], atol=ERROR)
        np.testing.assert_allclose(keys.decrypt(F.maximum(a, b, 1, FEW)), np.maximum(x, y), atol=4 * ERROR)
        np.testing.assert_allclose(keys.decrypt(F.minimum(a, b, 1, FEW)), np.minimum(x, y), atol=4 * ERROR)
        half = keys.encrypt(0.5)
        np.testing.assert_allclose(keys.decrypt(F.maximum(a, half, 1, FEW)), np.maximum(x, 0.5), atol=4 * ERROR)
        long = keys.encrypt(np.concatenate([x, y, x]))
        for result in (F.maximum(long, half, 1, FEW), F.maximum(half, long, 1, FEW), F.maximum(long, long + 0, 1, FEW)):
            assert len(result) == 96


@pytest.mark.parametrize("order", [torvo.Order.Ascending, torvo.Order.Descending])
def test_numbers_are_sorted_as_numpy_sorts_them(sorter, order):
    keys, evaluator = sorter
    x = np.array([0.5, -0.75, 0.0, 0.9])
    down = order == torvo.Order.Descending
    expected = np.sort(x)[::-1] if down else np.sort(x)
    ranks = np.argsort(np.argsort(-x if down else x))
    with evaluator:
        ct = keys.encrypt(x)
        np.testing.assert_allclose(keys.decrypt(F.sort(ct, 1, FEW, order)), expected, atol=ERROR)
        np.testing.assert_allclose(keys.decrypt(F.rank(ct, 1, FEW, order)), ranks, atol=ERROR)


def test_the_largest_numbers_are_found(sorter):
    keys, evaluator = sorter
    x = np.array([0.5, -0.75, 0.0, 0.9])
    with evaluator:
        ct = keys.encrypt(x)
        np.testing.assert_allclose(keys.decrypt(F.top_k(ct, 2, 1, FEW)), [0.9, 0.5, 0, 0], atol=ERROR)
        np.testing.assert_allclose(keys.decrypt(F.argmax(ct, 1, FEW)), [0, 0, 0, 1], atol=ERROR)
        np.testing.assert_allclose(keys.decrypt(F.max(ct, 1, FEW)), [0.9] * 4, atol=ERROR)


def test_a_plan_sorts_without_keys(toy):
    x = np.array([0.5, -0.75, 0.0, 0.9])
    with torvo.Plan(toy.context, torvo.Precision.Standard) as plan:
        planned = F.sort(plan.encrypt(x), 1, FEW)
        np.testing.assert_allclose(np.asarray(planned.message).real, np.sort(x), atol=ERROR)
        assert plan.report.left_rotations >= {1, 2, 4, 8} and plan.report.bootstraps > 0
        assert plan.context == toy.context and planned.rescale_counter == 0
        below = F.is_below(plan.encrypt(x), plan.encrypt(x[::-1]), 1, FEW)
        np.testing.assert_allclose(np.asarray(below.message).real, x < x[::-1], atol=ERROR)


def test_messages_take_the_functions_in_the_clear(toy, evaluator):
    message = torvo.Message(3, 0.5)
    for result, expected in [
        (F.sigmoid(message), 1 / (1 + np.exp(-0.5))),
        (F.inverse(message, 0.25, 1), 2),
        (F.sum(message), 4),
        (F.inner_product(message, message), 2),
        (F.polynomial(message, [1, 2]), 2),
        (F.evaluate(message, torvo.ChebyshevSeries([0, 0, 1])), -0.5),
    ]:
        assert isinstance(result, torvo.Message)
        np.testing.assert_allclose(np.asarray(result), expected, atol=1e-4)
    view = np.asarray(message)
    with pytest.raises(BufferError, match="live view"):
        F.sigmoid(message, out=message)
    assert (view == 0.5).all()
    del view
    assert F.sigmoid(message, out=message) is message


def test_a_message_whose_slots_are_no_power_of_two_is_refused(evaluator):
    message = torvo.Message(2, 0.5)
    message.resize(3)
    series = [torvo.ChebyshevSeries([0, 1])]
    for call in (F.sort, F.max, F.rank, F.sum, F.softmax, F.sigmoid, lambda x: F.evaluate_blockwise(x, series)):
        with pytest.raises(torvo.Error, match="has 3 slots, but functions take a power of two"):
            call(message)
    with pytest.raises(torvo.Error, match="no slots"):
        F.sum(torvo.Message())


def test_an_accuracy_is_a_value():
    assert (torvo.Accuracy().margin, torvo.Accuracy().error) == (8, 8)
    again = pickle.loads(pickle.dumps(torvo.Accuracy(5, error=6)))
    assert repr(again) == "torvo.Accuracy(margin=5, error=6)"
    for wrong in (-1, 4.5, "4", 2**40):
        with pytest.raises(TypeError):
            torvo.Accuracy(margin=wrong)


def test_what_cannot_be_compared_or_sorted_is_refused(toy, evaluator):
    ct = toy.encrypt([0.5, 0.25, 0.0, -0.5])
    for call, exception, text in [
        (lambda: F.sign(0.5), TypeError, "operand is a float"),
        (lambda: F.maximum(ct, 0.5), TypeError, "operand is a float"),
        (lambda: F.maximum(ct, torvo.PlannedCiphertext()), TypeError, "one kind"),
        (lambda: F.maximum(ct, toy.encrypt([1.0, 2.0])), ValueError, r"\(4,\) and \(2,\)"),
        (lambda: F.maximum(toy.encrypt(np.ones(40)), toy.encrypt(np.ones(41))), ValueError, "40 and 41"),
        (lambda: F.maximum(toy.encrypt(np.ones(40)), toy.encrypt(0.5), out=ct), TypeError, "no single out"),
        (lambda: F.sign(ct, bound=float("nan")), torvo.Error, "sign is given the bound"),
        (lambda: F.sign(ct, accuracy=torvo.Accuracy(3, 8)), torvo.Error, "margin of 2\\^-3"),
        (lambda: F.sign(ct, accuracy=(8, 8)), TypeError, "incompatible function arguments"),
        (lambda: F.clamp(ct, 1, -1), torvo.Error, "lower bound first"),
        (lambda: F.sign(toy.encrypt([0.5], level=3)), torvo.Error, "needs .* levels, but the ciphertext has 3"),
        (lambda: F.sort(toy.encrypt([0.5, 0.25, 0.0])), ValueError, "3 numbers stand in 4 slots"),
        (lambda: F.sort(toy.encrypt(np.ones(100))), TypeError, "CiphertextArray"),
        (lambda: F.sort(toy.encrypt(np.ones(32))), torvo.Error, "in 1024 slots, but the ring has 32"),
        (lambda: F.top_k(ct, 5), torvo.Error, "largest 5 of 4"),
        (lambda: F.top_k(ct, -1), TypeError, "incompatible function arguments"),
    ]:
        with pytest.raises(exception, match=text):
            call()
    with torvo.Evaluator(torvo.keygen(toy.context)), pytest.raises(torvo.Error, match="left rotation keys for indices"):
        F.sort(ct)
    other = torvo.keygen(torvo.Context.custom(7, 4, 50, 40, 55, 2)).encrypt([1.0, 2.0, 3.0, 4.0])
    for call in (lambda: F.sign(other), lambda: F.maximum(ct, other), lambda: F.sort(other)):
        with pytest.raises(torvo.Error, match="ring"):
            call()


def test_advice_names_the_smallest_presets_first():
    plans = []

    def circuit(plan: Any) -> Any:
        plans.append(plan)
        if plan.context.encryption_level < 3:
            raise torvo.Error("too small")  # a refusal: the next preset is tried
        return F.polynomial(plan.encrypt(np.linspace(-1, 1, 8)), [0, 1, 0, 1])

    advice = torvo.advise_presets(circuit, 1e-4)
    degrees = [torvo.Context(one.preset).degree for one in advice]
    assert degrees == sorted(degrees) and len(advice) > 3
    assert all(one.error <= 1e-4 and not one.uses_bootstrap and one.report.relinearizations > 0 for one in advice)
    assert all(isinstance(plan, torvo.Plan) for plan in plans)


@pytest.mark.parametrize(
    "circuit, error, exception, text",
    [
        (lambda plan: 1 / 0, 1e-3, ZeroDivisionError, "division"),
        (lambda plan: None, 1e-3, TypeError, "returned a NoneType"),
        (lambda plan: plan.encrypt([0.5]), 0.0, torvo.Error, "give a positive one"),
        (lambda plan: plan.encrypt([0.5]), float("nan"), torvo.Error, "give a positive one"),
        (None, 1e-3, TypeError, "not callable"),
    ],
)
def test_a_circuit_that_fails_ends_the_search(circuit, error, exception, text):
    with pytest.raises(exception, match=text):
        torvo.advise_presets(circuit, error)
