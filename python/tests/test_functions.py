"""Functions of encrypted numbers against numpy, bootstraps and plans."""

from __future__ import annotations

from math import erf

import numpy as np
import pytest

import torvo
from torvo import functions as F

#: What a function may differ by: its own error, and those of the operations, which are far smaller at the toy's scale.
ERROR = 1e-5
SUMS = 1e-7

gelu = np.vectorize(lambda x: x * (1 + erf(x / np.sqrt(2))) / 2)


@pytest.mark.parametrize(
    "function, reference, lower, upper",
    [
        (lambda x: F.inverse(x, 0.5, 2), lambda x: 1 / x, 0.5, 2),
        (lambda x: F.inverse(x, -2, -0.5), lambda x: 1 / x, -2, -0.5),
        (lambda x: F.sqrt(x, 0.25, 4), np.sqrt, 0.25, 4),
        (lambda x: F.inverse_sqrt(x, 0.25, 4), lambda x: x**-0.5, 0.25, 4),
        (F.exp, np.exp, -1, 1),
        (lambda x: F.log(x, 0.5, 3), np.log, 0.5, 3),
        (F.sigmoid, lambda x: 1 / (1 + np.exp(-x)), -8, 8),
        (F.tanh, np.tanh, -4, 4),
        (F.gelu, gelu, -8, 8),
        (F.sin, np.sin, -3.15, 3.15),
        (F.cos, np.cos, -3.15, 3.15),
        (lambda x: F.polynomial(x, [1, -2, 0, 0.5]), lambda x: 1 - 2 * x + 0.5 * x**3, -1, 1),
    ],
)
def test_a_function_keeps_its_error_on_its_whole_domain(toy, evaluator, function, reference, lower, upper):
    x = np.linspace(lower, upper, 100)
    result = function(toy.encrypt(x))
    assert isinstance(result, torvo.CiphertextArray) and result.dtype == np.float64
    np.testing.assert_allclose(toy.decrypt(result), reference(x), atol=1.01 * ERROR, rtol=0)


def test_softmax_divides_within_each_block(toy, evaluator, rng):
    x = rng.uniform(-1, 1, 8)
    exps = np.exp(x).reshape(2, 4)
    expected = (exps / exps.sum(axis=1, keepdims=True)).ravel()
    np.testing.assert_allclose(toy.decrypt(F.softmax(toy.encrypt(x), length=4)), expected, atol=1.01 * ERROR)


def test_statistics_are_those_of_numpy(toy, evaluator, rng):
    x, y = rng.uniform(-1, 1, 16), rng.uniform(-1, 1, 16)
    a, b = toy.encrypt(x), toy.encrypt(y)
    for result, expected in [
        (F.sum(a), x.sum()),
        (F.mean(a), x.mean()),
        (F.variance(a), x.var()),
        (F.variance(a, torvo.Variance.Sample), x.var(ddof=1)),
        (F.covariance(a, b), np.cov(x, y, bias=True)[0, 1]),
        (F.inner_product(a, b), x @ y),
        (F.squared_distance(a, b), ((x - y) ** 2).sum()),
        (F.sum(a, length=4), np.repeat(x.reshape(4, 4).sum(axis=1), 4)),
        (F.mean([a, b]), (x.mean() + y.mean()) / 2),
        (F.sum([a, b], length=1), x + y),
    ]:
        np.testing.assert_allclose(toy.decrypt(result), np.broadcast_to(expected, 16), atol=SUMS)
    distance, correlation = np.linalg.norm(x - y), np.corrcoef(x, y)[0, 1]
    np.testing.assert_allclose(toy.decrypt(F.distance(a, b, 0.5, 64)), distance, atol=2 * ERROR)
    np.testing.assert_allclose(toy.decrypt(F.correlation(a, b, 0.05, 1)), correlation, atol=2 * ERROR)


def test_a_series_is_what_it_approximates_in_the_clear_and_encrypted(toy, evaluator):
    f = torvo.ChebyshevSeries.minimax_within(np.tanh, 1e-6, -3, 3)
    assert f.is_real and 5 < f.degree < 60
    assert f.largest_error(np.tanh) <= 1e-6
    x = np.linspace(-3, 3, 32)
    assert f(x[3]) == pytest.approx(np.tanh(x[3]), abs=1e-6)
    np.testing.assert_allclose(toy.decrypt(F.evaluate(toy.encrypt(x), f)), np.tanh(x), atol=1.1e-6)


def test_each_block_has_its_own_series(toy, evaluator):
    series = [torvo.ChebyshevSeries([0, 1]), torvo.ChebyshevSeries([1, 0, 1])]
    x = np.linspace(-1, 1, 8)
    expected = np.concatenate([x[:4], 2 * x[4:] ** 2])  # 1 + T_2(x) = 2 x^2
    np.testing.assert_allclose(toy.decrypt(F.evaluate_blockwise(toy.encrypt(x), series)), expected, atol=SUMS)


def test_an_output_may_be_the_operand(toy, evaluator):
    x = np.array([0.5, -0.25])
    ct = toy.encrypt(x)
    assert F.exp(ct, out=ct) is ct
    np.testing.assert_allclose(toy.decrypt(ct), np.exp(x), atol=1.01 * ERROR)


def test_an_evaluator_with_a_bootstrapper_does_not_run_out_of_levels(toy):
    keys = torvo.keygen(toy.context, bootstrap=True, rotations="all")
    x = np.linspace(-1, 1, 32)
    ct = keys.encrypt(x, level=4)
    with torvo.Evaluator(keys), pytest.raises(torvo.Error, match="levels"):
        F.sigmoid(ct)
    with torvo.Evaluator(keys), pytest.raises(torvo.Error, match="no bootstrapper"):
        F.bootstrap(ct)
    with torvo.Evaluator(keys, bootstrap=True) as evaluator:
        assert F.bootstrap(ct).level == evaluator.bootstrapper.level_after
        np.testing.assert_allclose(keys.decrypt(F.bootstrap(ct)), x, atol=2.0**-18)
        np.testing.assert_allclose(keys.decrypt(F.bootstrap(ct + 0.5j)), x + 0.5j, atol=2.0**-18)
        np.testing.assert_allclose(keys.decrypt(F.sigmoid(ct, bound=1)), 1 / (1 + np.exp(-x)), atol=2.0**-14)


def test_a_plan_counts_what_the_real_call_does(toy, evaluator):
    x = np.linspace(-8, 8, 32)
    real = F.sigmoid(toy.encrypt(x))
    with torvo.Plan(toy.context) as plan:
        planned = F.sigmoid(plan.encrypt(x))
    assert planned.level == real.level
    assert plan.report.relinearizations > 0 and plan.report.rotations == 0
    np.testing.assert_allclose(np.asarray(planned.message).real, toy.decrypt(real), atol=1e-8)
    with torvo.Plan(toy.context) as plan:
        F.sum(plan.encrypt(x))
    assert plan.report.left_rotations == {1, 2, 4, 8, 16}
    with torvo.Plan(toy.context) as plan, pytest.raises(torvo.Error, match="levels"):
        F.sigmoid(plan.encrypt(x, level=2))


def test_what_is_no_ciphertext_is_refused_by_functions(toy, evaluator):
    for call in (lambda: F.exp(0.5), lambda: F.sum([0.5]), lambda: F.sum(np.ones(4)), lambda: F.mean("ab")):
        with pytest.raises(TypeError, match="operand is a"):
            call()
    with pytest.raises(ValueError, match="no ciphertext"):
        F.sum([])
    for call in (lambda: F.log(toy.encrypt([1.0]), -1, 1), lambda: F.exp(toy.encrypt([1.0]), error=float("nan"))):
        with pytest.raises(torvo.Error, match="give"):
            call()


def test_files_are_told_apart(toy, tmp_path):
    for name, thing in {"ciphertext": toy.encrypt([1.0]), "context": toy.context, "message": torvo.Message(2)}.items():
        path = str(tmp_path / name)
        thing.save(path)
        assert name in [content.kind for content in torvo.inspect(path).kinds]
    assert "Cannot open file" in torvo.inspect(str(tmp_path / "missing")).refusal
