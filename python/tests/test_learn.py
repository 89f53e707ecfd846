"""Models on encrypted data: against scikit-learn where it is installed, and against numpy."""

from __future__ import annotations

import contextvars
import pickle
import subprocess
import sys
import time
from types import SimpleNamespace

import numpy as np
import pytest

import torvo
from torvo.learn import MLP, Activation, LogisticRegression

sklearn_is_there = subprocess.run([sys.executable, "-c", "import sklearn"], capture_output=True).returncode == 0
# A network that is not quite fitted is a network too.
pytestmark = pytest.mark.filterwarnings("ignore:Stochastic Optimizer")
needs_sklearn = pytest.mark.skipif(not sklearn_is_there, reason="scikit-learn is not installed")

#: What the noise of the toy adds.
NOISE = 1e-6


@pytest.fixture(scope="module")
def every():
    """A toy of 24 levels, with the keys of all rotations, so that any model finds its own."""
    context = torvo.Context.custom(6, 25, 55, 42, 58, 5)
    return torvo.keygen(context, rotations=range(1, context.slots))


@pytest.fixture
def entered(every):
    with torvo.Evaluator(every) as evaluator:
        yield evaluator


def blobs(rng: np.random.Generator, features: int, classes: int, count: int = 120) -> tuple[np.ndarray, np.ndarray]:
    centres = rng.uniform(-1, 1, (classes, features))
    labels = rng.integers(0, classes, count)
    return centres[labels] + rng.normal(0, 0.3, (count, features)), labels


def network(rng: np.random.Generator, widths: list[int], name: str = "tanh") -> SimpleNamespace:
    """What an MLPRegressor has behind its training."""
    pairs = list(zip(widths, widths[1:]))
    return SimpleNamespace(
        coefs_=[rng.normal(0, 1 / np.sqrt(a), (a, b)) for a, b in pairs],
        intercepts_=[rng.normal(0, 0.1, b) for _, b in pairs],
        activation=name,
    )


# ---- activations


@pytest.mark.parametrize("name", ["logistic", "relu", "tanh"])
@pytest.mark.parametrize("lower, upper", [(-3.0, 3.0), (-1.0, 4.0), (0.5, 2.0), (-2.0, -0.5)])
def test_an_activation_keeps_its_stated_error_on_its_domain(name, lower, upper):
    activation = Activation(name, lower, upper, 1e-3, 15)
    assert activation.lower <= lower and upper <= activation.upper
    z = np.linspace(activation.lower, activation.upper, 4001)
    exact = {"logistic": 1 / (1 + np.exp(-z)), "relu": np.maximum(z, 0), "tanh": np.tanh(z)}[name]
    np.testing.assert_allclose(activation.exact(z), exact, atol=1e-15)
    assert np.abs(activation(z) - exact).max() <= 1.001 * activation.largest_error + 1e-12
    if name != "relu":
        assert activation.largest_error <= 1e-3
    elif lower < 0 < upper:
        assert activation.series.degree <= 15 and activation.largest_error < 0.02 * (upper - lower)
    else:
        assert activation.series.degree <= 1 and activation.largest_error < 1e-12
    assert name in repr(activation)


# ---- against scikit-learn


@needs_sklearn
@pytest.mark.parametrize("classes", [2, 3])
def test_a_logistic_regression_of_sklearn_decides_as_it_does(every, entered, rng, classes):
    from sklearn.linear_model import LogisticRegression as Model

    x, y = blobs(rng, 5, classes)
    fitted = Model().fit(x, np.array(["a", "b", "c"])[y])
    model = LogisticRegression.from_sklearn(fitted)
    assert model.levels == 1
    ct = every.encrypt(x[0])
    decision = every.decrypt(model.encrypt_predict(ct))
    np.testing.assert_allclose(decision, fitted.decision_function(x[:1]).ravel(), atol=NOISE)
    assert model.labels(decision)[0] == fitted.predict(x[:1])[0]
    packed = every.encrypt(model.pack(x[:9]))
    answers = model.unpack(every.decrypt(model.encrypt_predict(packed)))
    np.testing.assert_allclose(answers, fitted.decision_function(x[:9]).reshape(9, -1), atol=NOISE)
    assert (model.labels(answers) == fitted.predict(x[:9])).all()


@needs_sklearn
def test_a_pipeline_with_a_scaler_gives_probabilities(every, entered, rng):
    from sklearn.linear_model import LogisticRegression as Model
    from sklearn.pipeline import make_pipeline
    from sklearn.preprocessing import StandardScaler

    x, y = blobs(rng, 4, 2)
    x = x * [1, 100, 0.01, 1] + [0, 50, 3, -1]
    fitted = make_pipeline(StandardScaler(), Model()).fit(x, y)
    model = LogisticRegression.from_sklearn(fitted, data=x, probability=True)
    answers = model.unpack(every.decrypt(model.encrypt_predict(every.encrypt(model.pack(x[:8])))))
    np.testing.assert_allclose(answers[:, 0], fitted.predict_proba(x[:8])[:, 1], atol=1e-3 + 1e-5)
    sure = np.abs(answers[:, 0] - 0.5) > 2e-3
    assert (model.labels(answers) == fitted.predict(x[:8]))[sure].all()


@needs_sklearn
@pytest.mark.parametrize("name", ["identity", "logistic", "tanh", "relu"])
@pytest.mark.parametrize("classes", [2, 4])
def test_a_network_of_sklearn_answers_as_its_polynomials_do(every, entered, rng, name, classes):
    from sklearn.neural_network import MLPClassifier

    x, y = blobs(rng, 6, classes)
    fitted = MLPClassifier((7, 5), activation=name, max_iter=150, random_state=1, tol=1e-2).fit(x, y)
    model = MLP.from_sklearn(fitted, data=x)
    assert (model.levels == 1) if name == "identity" else (model.levels > 5)
    clear = model.clear(x)
    ct = model.encrypt_predict(every.encrypt(x[0]))
    assert every.context.encryption_level - ct.level == model.levels
    np.testing.assert_allclose(every.decrypt(ct), clear[0], atol=NOISE)
    packed = model.encrypt_predict(every.encrypt(model.pack(x[:3])))
    np.testing.assert_allclose(model.unpack(every.decrypt(packed)), clear[:3], atol=NOISE)
    exact = model.exact(x)
    assert (model.labels(exact) == fitted.predict(x)).all()
    if name in ("logistic", "tanh"):
        assert np.abs(clear - exact).max() < 0.05
    assert (model.labels(clear) == fitted.predict(x)).mean() > 0.95


@needs_sklearn
def test_a_regressor_gives_numbers(every, entered, rng):
    from sklearn.neural_network import MLPRegressor

    x = rng.uniform(-1, 1, (200, 3))
    fitted = MLPRegressor((6,), activation="tanh", max_iter=400, random_state=1, tol=1e-2).fit(x, x[:, 0] * x[:, 1])
    model = MLP.from_sklearn(fitted, data=x, error=1e-4)
    answer = every.decrypt(model.encrypt_predict(every.encrypt(x[0])))
    assert model.labels(answer)[0] == pytest.approx(fitted.predict(x[:1])[0], abs=5e-3)
    assert model.classes is None


@needs_sklearn
def test_digits_on_a_real_preset_that_the_plan_chose(rng):
    from sklearn.datasets import load_digits
    from sklearn.linear_model import LogisticRegression as Model

    x, y = load_digits(return_X_y=True)
    x = x / 16
    fitted = Model(max_iter=300).fit(x[200:], y[200:])
    model = LogisticRegression.from_sklearn(fitted)
    plan = model.plan(samples=32, data=x[:32])
    assert plan.preset == "SD3" and plan.slots == 2048 and plan.largest_error < 2**-14
    keys = plan.keygen()
    torvo.matrix_cache.clear()
    with torvo.Evaluator(keys):
        answers = model.unpack(keys.decrypt(model.encrypt_predict(keys.encrypt(model.pack(x[:32])))))
    np.testing.assert_allclose(answers, model.exact(x[:32]), atol=2e-3)
    assert (model.labels(answers) == fitted.predict(x[:32])).mean() > 0.9
    assert plan.encoded_bytes == pytest.approx(torvo.matrix_cache.bytes, rel=0.1)


# ---- without it


def test_activations_that_do_nothing_let_matrices_be_one(every, entered, rng):
    given = network(rng, [5, 9, 3, 2], "identity")
    model = MLP.from_sklearn(given)
    x = rng.uniform(-1, 1, (4, 5))
    expected = x
    for weights, biases in zip(given.coefs_, given.intercepts_):
        expected = expected @ weights + biases
    np.testing.assert_allclose(model.exact(x), expected, atol=1e-12)
    assert model.levels == 1
    np.testing.assert_allclose(every.decrypt(model.encrypt_predict(every.encrypt(x[0]))), expected[0], atol=NOISE)


@pytest.mark.parametrize("samples", [1, 4])
def test_the_plan_tells_the_keys_and_levels_that_a_prediction_takes(rng, samples):
    context = torvo.Context.custom(6, 25, 55, 42, 58, 5)
    model = MLP.from_sklearn(network(rng, [3, 8, 5, 2]), bound=5.0, error=0.01)
    x = rng.uniform(-1, 1, (samples, 3))
    plan = model.plan(context, samples=samples, data=x)
    assert (plan.preset, plan.level, plan.levels) == ("custom", 24, model.levels)
    assert plan.rotations == model.rotations(context, samples)
    keys = plan.keygen()
    torvo.matrix_cache.clear()
    ct = keys.encrypt(x[0] if samples == 1 else model.pack(x))
    assert ct.slots == plan.slots and ct.saved_size == pytest.approx(plan.ciphertext_bytes, rel=0.1)
    with torvo.Evaluator(keys):
        answer = model.encrypt_predict(ct)
    assert plan.level - answer.level == plan.levels
    answers = keys.decrypt(answer) if samples == 1 else model.unpack(keys.decrypt(answer))
    np.testing.assert_allclose(answers.reshape(samples, 2), model.clear(x), atol=NOISE)
    error = np.abs(answers - model.exact(x)).max()
    assert error <= 1.01 * plan.largest_error + NOISE and plan.largest_error <= 1.01 * error + NOISE
    assert plan.encoded_bytes == pytest.approx(torvo.matrix_cache.bytes, rel=0.15)
    # A key for each rotation and one for products: 5 digits of two rows of degree 64 over 25 + 5 primes.
    assert plan.key_bytes == (len(plan.rotations) + 1) * 5 * 2 * 30 * 64 * 8
    fewer = torvo.keygen(context, rotations=plan.rotations[1:], secret=keys.secret)
    with torvo.Evaluator(fewer), pytest.raises(torvo.Error, match=rf"{plan.rotations[0]}"):
        model.encrypt_predict(ct)


def lines(rng: np.random.Generator, widths: list[int], samples: int) -> tuple[MLP, np.ndarray]:
    """A network whose activations are lines, and so exact, and samples for it: all errors are of what is encrypted."""
    given = network(rng, widths, "relu")
    given.coefs_ = [np.abs(weights) for weights in given.coefs_]
    given.intercepts_ = [np.abs(biases) + 1 for biases in given.intercepts_]
    x = rng.uniform(0, 1, (samples, widths[0]))
    model = MLP.from_sklearn(given, data=x)
    assert np.abs(model.clear(x) - model.exact(x)).max() < 1e-12
    return model, x


@pytest.mark.parametrize("widths, samples", [
    ([32, 32], 1),  # a transform alone
    ([64, 10], 32), ([9, 5], 4),  # of blocks
    ([100, 3], 1),  # sums of rotations behind it
    ([3, 700], 1),  # a ciphertext that is read with more slots
    ([64, 2, 64], 1), ([8, 64, 2], 1), ([8, 64, 2], 4),  # and activations
])  # fmt: skip
def test_the_plan_predicts_the_error_of_products_and_activations(rng, widths, samples):
    model, x = lines(rng, widths, 20)  # more than the ciphertexts that errors are drawn for
    plan = model.plan("SD3", samples=samples, data=x)
    assert plan.levels <= plan.level == 3  # all levels are spent, and the sums come at the last one
    keys = plan.keygen()
    errors = []
    with torvo.Evaluator(keys):
        for part in np.split(x, len(x) // samples if samples <= len(x) else 1):
            ct = keys.encrypt(part[0] if samples == 1 else model.pack(part), slots=plan.slots)
            answer = keys.decrypt(model.encrypt_predict(ct))
            answers = answer[None, :] if samples == 1 else model.unpack(answer)
            errors.append(np.abs(answers - model.exact(part)).max())
    assert plan.largest_error / 3 < max(errors) < 3 * plan.largest_error


def test_the_plan_counts_one_ciphertext_whatever_data_there_are(rng):
    model, x = lines(rng, [8, 64, 2], 20)
    few, many = model.plan("SD3"), model.plan("SD3", data=x)
    for report in (few._counted.report, many._counted.report):
        # Two products and a line between them; 32 slots of each answer are summed by 5 rotations.
        assert (report.rescales, report.relinearizations) == (3, 0)
        assert report.left_rotations >= {1, 2, 4, 8, 16}
    assert few._counted.report.rotations == many._counted.report.rotations > 5


def test_weights_that_no_level_can_hold_are_refused_by_the_plan(rng):
    given = network(rng, [4, 2], "identity")
    given.coefs_[0][1, 1] = 1e200
    with pytest.raises(torvo.Error, match="Cannot encode"):
        MLP.from_sklearn(given).plan("SD3")


def test_a_smaller_batch_takes_the_keys_of_the_plan_with_its_slots(rng):
    context = torvo.Context.custom(6, 25, 55, 42, 58, 5)
    model = MLP.from_sklearn(network(rng, [3, 4, 2]), bound=3.0, error=0.05)
    plan = model.plan(context, samples=8)
    assert plan.slots == 32 and plan.largest_error is None
    keys = plan.keygen()
    x = rng.uniform(-1, 1, (3, 3))
    with torvo.Evaluator(keys):
        answer = model.encrypt_predict(keys.encrypt(model.pack(x), slots=plan.slots))
    np.testing.assert_allclose(model.unpack(keys.decrypt(answer)), model.clear(x), atol=NOISE)


def test_a_model_is_pickled_for_a_server(every, entered, rng):
    model = pickle.loads(pickle.dumps(MLP.from_sklearn(network(rng, [3, 4, 2]), bound=3.0, error=0.05)))
    x = rng.uniform(-1, 1, 3)
    answer = every.decrypt(model.encrypt_predict(every.encrypt(x)))
    np.testing.assert_allclose(answer, model.clear(x)[0], atol=NOISE)
    assert repr(model) == f"<torvo.learn.MLP: 3 -> 4 -> 2, {model.levels} levels>"


def test_the_smallest_preset_that_serves_is_planned(rng):
    small = MLP.from_sklearn(network(rng, [4, 4, 2]), bound=2.0, error=0.05)
    large = MLP.from_sklearn(network(rng, [4, 4, 4, 2]), bound=8.0, error=1e-3)
    assert small.levels == 4 or small.levels == 5
    assert small.plan().preset == "SS7" and large.levels > 11
    plan = large.plan()
    assert plan.level >= large.levels and plan.preset in ("ST14", "ST19")
    assert small.plan(samples=2048).slots == 8192 and small.plan(samples=4096).preset == "ST7"
    with pytest.raises(ValueError, match="SS7 has 7 and 8192"):
        large.plan("SS7")
    deep = MLP.from_sklearn(network(rng, [4] * 8), bound=8.0, error=1e-3)
    with pytest.raises(ValueError, match="no preset without bootstraps"):
        deep.plan()


def test_the_estimate_is_about_the_time_of_a_run(rng):
    model = MLP.from_sklearn(network(rng, [16, 16, 4]), bound=3.0, error=0.01)
    plan = model.plan("ST7", samples=8)
    keys = plan.keygen()
    ct = keys.encrypt(model.pack(rng.uniform(-1, 1, (8, 16))))
    times = []
    with torvo.Evaluator(keys):
        for _ in range(4):
            start = time.perf_counter()
            model.encrypt_predict(ct)
            times.append(time.perf_counter() - start)
    estimate = plan.estimate_seconds()
    assert min(times) / 5 < estimate < 5 * max(times)


def test_too_few_levels_are_refused_before_anything_is_computed(every, entered, rng):
    model = MLP.from_sklearn(network(rng, [4, 4, 2]), bound=2.0, error=0.01)
    x = rng.uniform(-1, 1, 4)
    low = every.encrypt(x, level=model.levels - 1)
    with pytest.raises(torvo.Error, match=f"needs {model.levels} levels.*at level {model.levels - 1}"):
        model.encrypt_predict(low)
    answer = model.encrypt_predict(every.encrypt(x, level=model.levels))
    assert answer.level == 0
    np.testing.assert_allclose(every.decrypt(answer), model.clear(x)[0], atol=NOISE)


# ---- arrays of torch


def convolved(images: np.ndarray, kernel: np.ndarray, bias: np.ndarray, stride: int, padding: int) -> np.ndarray:
    """By its definition, one number after the other."""
    padded = np.pad(images, ((0, 0), (0, 0), (padding, padding), (padding, padding)))
    rows = (padded.shape[2] - kernel.shape[2]) // stride + 1
    columns = (padded.shape[3] - kernel.shape[3]) // stride + 1
    out = np.zeros((len(images), len(kernel), rows, columns))
    for o in range(len(kernel)):
        for i in range(rows):
            for j in range(columns):
                window = padded[:, :, i * stride : i * stride + kernel.shape[2],
                                j * stride : j * stride + kernel.shape[3]]  # fmt: skip
                out[:, o, i, j] = (window * kernel[o]).sum(axis=(1, 2, 3)) + bias[o]
    return out


@pytest.mark.parametrize("stride, padding", [(1, 0), (2, 1), (1, 2), (3, 0)])
def test_convolutions_are_those_of_their_definition(rng, stride, padding):
    images = rng.uniform(-1, 1, (3, 2, 5, 6))
    kernel, bias = rng.normal(size=(4, 2, 3, 2)), rng.normal(size=4)
    first = convolved(images, kernel, bias, stride, padding)
    second_kernel, second_bias = rng.normal(size=(2, 4, 1, 1)), rng.normal(size=2)
    hidden = convolved(np.tanh(first), second_kernel, second_bias, 1, 0)
    dense, dense_bias = rng.normal(size=(3, hidden[0].size)), rng.normal(size=3)
    expected = np.tanh(hidden).reshape(3, -1) @ dense.T + dense_bias
    mapping = {"0.weight": kernel, "0.bias": bias, "0.stride": stride, "0.padding": padding, "1": "tanh",
               "2.weight": second_kernel, "2.bias": second_bias, "3": "tanh",
               "4.weight": dense, "4.bias": dense_bias}  # fmt: skip
    model = MLP.from_torch(mapping, bound=50.0, input_shape=(2, 5, 6), error=0.1)
    np.testing.assert_allclose(model.exact(images.reshape(3, -1)), expected, atol=1e-10)


def test_a_network_of_torch_runs_on_ciphertexts(every, entered, rng):
    images = rng.uniform(0, 1, (50, 16))
    mapping = {"conv.weight": rng.normal(size=(2, 1, 3, 3)) / 3, "conv.bias": np.zeros(2), "conv.stride": 1,
               "head.weight": rng.normal(size=(3, 8)), "head.bias": rng.normal(size=3)}  # fmt: skip
    model = MLP.from_torch(mapping, data=images, activation="sigmoid", input_shape=(1, 4, 4), classes=["a", "b", "c"])
    assert [activation.name for activation in model.activations] == ["logistic"]
    answer = every.decrypt(model.encrypt_predict(every.encrypt(images[0])))
    np.testing.assert_allclose(answer, model.clear(images[:1])[0], atol=NOISE)
    np.testing.assert_allclose(answer, model.exact(images[:1])[0], atol=0.02)
    assert model.labels(answer)[0] == "abc"[int(model.exact(images[:1]).argmax())]


def test_a_tensor_is_taken_as_the_array_in_it(rng):
    array = rng.normal(size=(2, 3))
    tensor = SimpleNamespace(
        detach=lambda: SimpleNamespace(cpu=lambda: SimpleNamespace(numpy=lambda: array.astype(np.float32)))
    )
    model = MLP.from_torch({"weight": tensor})
    np.testing.assert_allclose(model.exact(np.eye(3)), array.T, atol=1e-6)


# ---- refusals


@pytest.mark.parametrize("mapping, text", [
    ({}, "no layer"),
    ({"1": "relu"}, "behind no layer"),
    ({"0.weight": np.ones((2, 3)), "1": "relu", "2": "tanh"}, "behind no layer"),
    ({"0.weight": np.ones((2, 3)), "1": "swish"}, "the activation is swish"),
    ({"0.weight": np.ones((2, 3)), "1.running_mean": np.ones(2)}, "no weight, bias"),
    ({"0.weight": np.ones((2, 3)), "0.bias": np.ones(3)}, "a bias for each output"),
    ({"0.weight": np.ones((2, 3)), "1.weight": np.ones((2, 3))}, "3 inputs follows one of 2 outputs"),
    ({"0.weight": np.ones((2, 1, 3, 3))}, "input_shape"),
    ({"0.weight": np.ones(3)}, "row and a bias"),
    ({"0.weight": np.ones((2, 3)) * 1j}, "real"),
])  # fmt: skip
def test_arrays_that_are_no_network_are_refused(mapping, text):
    with pytest.raises(ValueError, match=text):
        MLP.from_torch(mapping, bound=1.0)


@pytest.mark.parametrize("options, text", [
    ({"0.stride": 0}, "stride from 1 on"), ({"0.padding": -1}, "no negative padding"), ({}, "larger than images"),
])  # fmt: skip
def test_convolutions_that_do_not_fit_are_refused(options, text):
    size = 5 if not options else 2
    with pytest.raises(ValueError, match=text):
        MLP.from_torch({"0.weight": np.ones((1, 1, size, size)), **options}, input_shape=(1, 4, 4))


def test_models_that_cannot_be_taken_are_refused(rng):
    given = network(rng, [3, 4, 2])
    with pytest.raises(ValueError, match="no coefs_; fit it first"):
        MLP.from_sklearn(SimpleNamespace())
    with pytest.raises(ValueError, match="no coef_; fit it first"):
        LogisticRegression.from_sklearn(SimpleNamespace())
    for options in ({}, {"data": np.ones((2, 3)), "bound": 1.0}):
        with pytest.raises(ValueError, match="activations need a domain"):
            MLP.from_sklearn(given, **options)
    for bound in (0.0, -1.0, float("nan"), float("inf")):
        with pytest.raises(ValueError, match="the domain of tanh"):
            MLP.from_sklearn(given, bound=bound)
    with pytest.raises(ValueError, match="give 3 real numbers each"):
        MLP.from_sklearn(given, data=np.ones((2, 4)))
    with pytest.raises(torvo.Error, match="give finite numbers"):
        MLP.from_sklearn(given, data=[[1.0, np.nan, 0.0]])
    given.intercepts_[0][1] = np.inf
    with pytest.raises(torvo.Error, match=r"entry at \(1,\) of the matrix is inf"):
        MLP.from_sklearn(given, bound=1.0)
    with pytest.raises(ValueError, match="give a fitted StandardScaler"):
        MLP.from_sklearn(SimpleNamespace(steps=[("a", given), ("b", given)]))
    three = SimpleNamespace(coef_=np.ones((3, 2)), intercept_=np.ones(3), classes_=[0, 1, 2])
    with pytest.raises(ValueError, match="softmax"):
        LogisticRegression.from_sklearn(three, bound=1.0, probability=True)
    several = network(rng, [3, 4, 2])
    several.classes_, several.out_activation_ = [0, 1], "logistic"
    with pytest.raises(ValueError, match="several labels"):
        MLP.from_sklearn(several, bound=1.0)


def test_ciphertexts_that_are_no_samples_are_refused(every, entered, rng):
    model = MLP.from_sklearn(network(rng, [3, 5, 2]), bound=1.0, error=0.1)
    for shape in (4, 12):
        with pytest.raises(ValueError, match="one sample of 3 numbers"):
            model.encrypt_predict(every.encrypt(np.zeros(shape)))
    with pytest.raises(ValueError, match="one sample of 3 numbers"):
        model.encrypt_predict(every.encrypt(1.0))
    with pytest.raises(TypeError, match="ndarray is given"):
        model.encrypt_predict(np.zeros(3))
    with pytest.raises(ValueError, match="samples is 0"):
        model.plan(samples=0)
    elsewhere = contextvars.Context()  # as in another thread, which has entered nothing
    with pytest.raises(torvo.Error, match="no evaluator is set"):
        elsewhere.run(model.encrypt_predict, every.encrypt(np.zeros(3)))


def test_a_layer_wider_than_the_slots_is_refused(every, entered, rng):
    model = MLP.from_sklearn(network(rng, [3, 40, 2]), bound=3.0, error=0.05)
    with pytest.raises(torvo.Error, match="widest layer needs 64 slots, but .* has 32"):
        model.encrypt_predict(every.encrypt(np.zeros(3)))
    with pytest.raises(ValueError, match="64 slots, but custom has 24 and 32"):
        model.plan(every.context)


def test_a_batch_longer_than_a_ciphertext_is_predicted_part_by_part(every, entered, rng):
    model = MLP.from_sklearn(network(rng, [3, 4, 2]), bound=3.0, error=0.05)
    x = rng.uniform(-1, 1, (20, 3))
    answer = model.encrypt_predict(every.encrypt(model.pack(x)))
    assert isinstance(answer, torvo.CiphertextArray)
    np.testing.assert_allclose(model.unpack(every.decrypt(answer)), model.clear(x), atol=NOISE)
