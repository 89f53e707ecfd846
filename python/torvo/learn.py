"""Models that were trained elsewhere, on encrypted data: logistic regressions and networks.

    model = torvo.learn.MLP.from_sklearn(classifier, data=training)
    plan = model.plan()                        # preset, levels, keys, memory
    keys = plan.keygen()
    with torvo.Evaluator(keys):
        answer = model.encrypt_predict(keys.encrypt(sample))
    model.labels(keys.decrypt(answer))

A layer is a matrix and a bias in the clear. An activation is a polynomial, good to a stated error on a stated
domain: what lies in front of it is divided by half the width of the domain, which costs nothing, since the matrix
does it. Outside of the domain a result is any number, so the domain is found from typical data, with a margin, or
given as a bound.

Neither scikit-learn nor torch is needed: fitted attributes and arrays are all that is read.
"""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any, Mapping, Optional, Sequence, Union

import numpy as np

from . import _torvo, functions
from ._ciphertext import Ciphertext, CiphertextArray, matmul
from ._dry_run import DRAWN, Prediction, _Steps, counted
from ._keys import Keys, keygen
from ._layers import CORNER_DEGREE, ERROR, Activation, Dense, layers_of, rows_of, through, torch_layers
from ._linear import _Map
from ._numbers import Array, log_slots_for
from ._plan import Plan

__all__ = ["Activation", "LogisticRegression", "MLP", "Model", "ModelPlan"]

#: Presets without bootstraps, from the smallest on.
_PRESETS = ("SD3", "SS7", "ST7", "ST8", "ST11", "ST14", "ST19")

@dataclass(frozen=True)
class ModelPlan:
    """What a model needs on a context, before any key exists. `Model.plan` makes it."""

    context: _torvo.Context
    #: The name of the preset, or "custom".
    preset: str
    #: Samples in one ciphertext, and the slots in use.
    samples: int
    slots: int
    #: The level of a fresh encryption, and what is spent of it.
    level: int
    levels: int
    #: The rotations to the left that need a key.
    rotations: list[int]
    #: Bytes in memory of the keys for products and rotations, of the encoded matrices, and of a fresh ciphertext.
    key_bytes: int
    encoded_bytes: int
    ciphertext_bytes: int
    #: The largest error on the data that was given to `plan`, against the model in the clear with its exact
    #: activations: those of encryption, of products with matrices and of polynomials. None where there was no data.
    largest_error: Optional[float]
    #: What is done to one ciphertext.
    _counted: Plan

    def keygen(self, **options: Any) -> Keys:
        """Keys for the model; `options` as for `torvo.keygen`."""
        return keygen(self.context, self.rotations, **options)

    def estimate_seconds(self) -> float:
        """Seconds that `encrypt_predict` takes here for one ciphertext, once its matrices are encoded.

        Single steps are measured at the first call, in some seconds for each ring. Within a factor of three on a
        quiet machine.
        """
        return self._counted.estimate_seconds()


class Model:
    """Layers of a model: `encrypt_predict` on ciphertexts, `clear` the same in the clear, `exact` without
    approximations.

    A sample is encrypted on its own, as an array of `inputs` numbers; or many are together, as `pack` lays them out,
    in blocks of `length` slots.
    """

    def __init__(self, layers: Sequence[Dense], classes: Optional[Array] = None) -> None:
        self._layers = list(layers)
        #: The classes of a classifier, None for a regressor.
        self.classes = classes
        #: Numbers of a sample, and of an answer.
        self.inputs = int(self._layers[0].weights.shape[1])
        self.outputs = int(self._layers[-1].weights.shape[0])
        widest = max(max(layer.weights.shape) for layer in self._layers)
        #: Slots of a sample in a batch: a power of two.
        self.length = 1 << log_slots_for(widest)

    @property
    def activations(self) -> list[Activation]:
        """The activations with their domains and polynomials."""
        return [layer.activation for layer in self._layers if layer.activation is not None]

    @property
    def levels(self) -> int:
        """Levels that a prediction spends: one for each matrix, and those of the polynomials."""
        return len(self._layers) + sum(activation.levels for activation in self.activations)

    def __repr__(self) -> str:
        widths = [self.inputs] + [len(layer.biases) for layer in self._layers]
        return f"<torvo.learn.{type(self).__name__}: {' -> '.join(map(str, widths))}, {self.levels} levels>"

    def pack(self, samples: Any) -> Array:
        """Samples, one a row, as an array to encrypt: each in its block of `length` slots."""
        rows = rows_of(samples, self.inputs)
        packed = np.zeros((len(rows), self.length))
        packed[:, : self.inputs] = rows
        return packed.ravel()

    def unpack(self, answers: Any) -> Array:
        """The answers in the decryption of a batch, one a row."""
        return np.asarray(answers).reshape(-1, self.length)[:, : self.outputs]

    def exact(self, samples: Any) -> Array:
        """The answers of the model itself, one a row."""
        return through(self._layers, rows_of(samples, self.inputs), lambda activation, z: activation.exact(z))

    def clear(self, samples: Any) -> Array:
        """The answers with the polynomials in place of the activations: what `encrypt_predict` computes."""
        return through(self._layers, rows_of(samples, self.inputs), lambda activation, z: activation(z))

    def labels(self, answers: Any) -> Array:
        """The classes that answers, one a row, stand for; the numbers themselves for a regressor."""
        rows: Array = np.asarray(answers).real.reshape(-1, self.outputs)
        if self.classes is None:
            return rows[:, 0] if self.outputs == 1 else rows
        if self.outputs > 1:
            return np.asarray(self.classes[rows.argmax(axis=1)])
        last = self._layers[-1].activation
        threshold = 0.5 if last is not None and last.name == "logistic" else 0.0
        return np.asarray(self.classes[(rows[:, 0] > threshold).astype(int)])

    def encrypt_predict(self, ciphertext: Any) -> Any:
        """The encrypted answers for one encrypted sample, or for a batch that `pack` laid out.

        Classifiers answer with decisions, of which `labels` makes classes. It needs the keys of `plan`, and raises
        torvo.Error where there are too few levels or keys.
        """
        if isinstance(ciphertext, CiphertextArray):
            return ciphertext.map(self.encrypt_predict)
        if not isinstance(ciphertext, Ciphertext):
            raise TypeError(f"a {type(ciphertext).__name__} is given; give a Ciphertext or a CiphertextArray")
        length = self._length_of(ciphertext)
        if self.length > ciphertext.context.slots:
            raise _torvo.Error(
                f"the widest layer needs {self.length} slots, but the ciphertext's context has "
                f"{ciphertext.context.slots}; encrypt on the preset of plan()"
            )
        if ciphertext.level < self.levels:
            raise _torvo.Error(
                f"the model needs {self.levels} levels, but the ciphertext is at level {ciphertext.level}; "
                "encrypt on the preset of plan(), or bootstrap first"
            )
        result: Any = ciphertext
        for layer in self._layers:
            weights, biases = layer.scaled()
            result = matmul(weights, result, length=length)
            if length:
                biases = np.tile(np.pad(biases, (0, length - len(biases))), len(result) // length)
            result += biases
            if layer.activation is not None:
                result = functions.evaluate(result, layer.activation.series)
        return result

    def _length_of(self, ciphertext: Ciphertext) -> int:
        """0 for one sample, or the length of a block."""
        if ciphertext.shape == (self.inputs,):
            return 0
        if not ciphertext.shape or len(ciphertext) % self.length != 0:
            raise ValueError(
                f"a ciphertext of shape {ciphertext.shape} is given; give one sample of {self.inputs} numbers, "
                f"or a batch from pack, of {self.length} for each sample"
            )
        return self.length

    def rotations(self, context: _torvo.Context, samples: int = 1, level: Optional[int] = None) -> list[int]:
        """The rotations that `encrypt_predict` needs keys for: for one sample, or for batches of so many."""
        return sorted({index for found, _, _ in self._walk(context, samples, level) for index in found})

    def _slots(self, samples: int) -> int:
        return 1 << log_slots_for(self.inputs if samples == 1 else samples * self.length)

    def _needed_slots(self, samples: int) -> int:
        return max(self._slots(samples), self.length)

    def _fits(self, context: _torvo.Context, samples: int) -> bool:
        return context.encryption_level >= self.levels and context.slots >= self._needed_slots(samples)

    def _walk(
        self, context: _torvo.Context, samples: int, level: Optional[int]
    ) -> list[tuple[list[int], int, _Map]]:
        """Rotations, level and map of each product with a matrix."""
        level = context.encryption_level if level is None else level
        length = 0 if samples == 1 else self.length
        slots = self._slots(samples)
        steps = []
        for layer in self._layers:
            one = _Map(layer.scaled()[0], slots, length)
            steps.append((sorted(one.rotations(context, level)), level, one))
            slots = one.slots_out
            level -= 1 + (layer.activation.levels if layer.activation is not None else 0)
        return steps

    def plan(
        self, preset: Union[None, str, _torvo.Context] = None, samples: int = 1, data: Any = None
    ) -> ModelPlan:
        """What the model needs: on a preset, a context, or by default on the smallest preset that serves.

        `samples` are those of a batch in one ciphertext; a batch of fewer is encrypted with `slots=plan.slots`. With
        `data`, typical samples, it predicts the error.
        """
        if samples < 1:
            raise ValueError(f"samples is {samples}; give at least 1")
        context, name = self._context(preset, samples)
        steps = self._walk(context, samples, None)
        rotations = sorted({index for found, _, _ in steps for index in found})
        with Plan(context) as plan:
            functions.sum(plan.encrypt(np.zeros(2)), length=2)
        key = plan.report.key_bytes
        largest_error, level = None, context.encryption_level
        if data is not None:
            rows = rows_of(data, self.inputs)
            errors = self.clear(rows) - self.exact(rows) + self._predicted(context, steps, rows, samples)
            largest_error = float(np.abs(errors).max())
        return ModelPlan(
            context=context,
            preset=name,
            samples=samples,
            slots=self._slots(samples),
            level=level,
            levels=self.levels,
            rotations=rotations,
            key_bytes=key * (len(rotations) + (1 if self.activations else 0)),
            encoded_bytes=sum(_encoded_bytes(context, at, one) for _, at, one in steps),
            ciphertext_bytes=2 * (level + 1) * context.degree * 8,
            largest_error=largest_error,
            _counted=counted(context, self._layers, steps),
        )

    def _predicted(self, context: _torvo.Context, steps: _Steps, rows: Array, samples: int) -> Array:
        """The errors that `encrypt_predict` adds to what `clear` gives for samples."""
        prediction = Prediction(context, self._layers, steps, 0 if samples == 1 else self.length)
        errors = []
        for begin in range(0, min(len(rows), DRAWN * samples), samples):
            some = rows[begin : begin + samples]
            packed = np.zeros(self._slots(samples))
            numbers = some[0] if samples == 1 else self.pack(some)
            packed[: len(numbers)] = numbers
            answer = prediction.answer(packed).real
            answers = answer[None, : self.outputs] if samples == 1 else self.unpack(answer)[: len(some)]
            errors.append(answers - self.clear(some))
        return np.resize(np.concatenate(errors), (len(rows), self.outputs))

    def _context(self, preset: Union[None, str, _torvo.Context], samples: int) -> tuple[_torvo.Context, str]:
        if preset is not None:
            context = preset if isinstance(preset, _torvo.Context) else _torvo.Context(preset)
            name = preset if isinstance(preset, str) else "custom"
            if not self._fits(context, samples):
                raise ValueError(
                    f"the model needs {self.levels} levels and {self._needed_slots(samples)} slots, but {name} has "
                    f"{context.encryption_level} and {context.slots}; give another preset, fewer samples or a larger "
                    "error"
                )
            return context, name
        for name in _PRESETS:
            context = _torvo.Context(name)
            if self._fits(context, samples):
                return context, name
        raise ValueError(
            f"the model needs {self.levels} levels and {self._needed_slots(samples)} slots, which no preset without "
            "bootstraps has; give a larger error or a lower degree to the activations, or fewer samples"
        )


def _encoded_bytes(context: _torvo.Context, level: int, one: _Map) -> int:
    """level + 1 rows and those of the temporary primes, of 8 bytes a number, for each rotation."""
    temporary = len(context.primes) - len(context.scale_factors)
    return one.constants() * (level + 1 + temporary) * context.degree * 8


def _fitted(model: Any, name: str) -> Any:
    if not hasattr(model, name):
        raise ValueError(f"the {type(model).__name__} has no {name}; fit it first")
    return getattr(model, name)


def _unscaled(model: Any) -> tuple[Any, Optional[Array], Optional[Array]]:
    """The last step of a pipeline, and mean and scale of a scaler before it."""
    if not hasattr(model, "steps"):
        return model, None, None
    *before, (_, last) = model.steps
    if len(before) != 1 or not hasattr(before[0][1], "scale_") or not hasattr(before[0][1], "mean_"):
        names = [type(step).__name__ for _, step in model.steps]
        raise ValueError(f"the pipeline is {names}; give a fitted StandardScaler and a model, or the model alone")
    scaler = before[0][1]
    count = scaler.n_features_in_
    mean = np.zeros(count) if scaler.mean_ is None else scaler.mean_
    scale = np.ones(count) if scaler.scale_ is None else scaler.scale_
    return last, np.asarray(mean, float), np.asarray(scale, float)


def _scaled_first(pairs: list[tuple[Any, Any]], mean: Optional[Array], scale: Optional[Array]) -> list[tuple[Any, Any]]:
    """The first layer takes what the scaler took."""
    if mean is None or scale is None:
        return pairs
    weights, biases = np.asarray(pairs[0][0]) / scale, np.asarray(pairs[0][1])
    return [(weights, biases - weights @ mean), *pairs[1:]]


class LogisticRegression(Model):
    """A logistic regression: the decision spends one level, the probability those of the sigmoid too."""

    @classmethod
    def from_sklearn(
        cls,
        model: Any,
        data: Any = None,
        bound: Optional[float] = None,
        *,
        probability: bool = False,
        error: float = ERROR,
    ) -> "LogisticRegression":
        """From a fitted `sklearn.linear_model.LogisticRegression`, or a pipeline of a StandardScaler and one.

        It answers with decisions, one for each class; with one alone for two classes. With `probability`, for two
        classes, it answers with the probability of the second, to `error` on the domain of `data` or `bound`.
        """
        last, mean, scale = _unscaled(model)
        weights, classes = _fitted(last, "coef_"), np.asarray(_fitted(last, "classes_"))
        if probability and len(weights) != 1:
            raise ValueError(
                f"a probability is asked for {len(classes)} classes, which needs a softmax; "
                "take the decisions, and their softmax in the clear"
            )
        pairs = _scaled_first([(weights, _fitted(last, "intercept_"))], mean, scale)
        names = ["logistic" if probability else "identity"]
        return cls(layers_of(pairs, names, data, bound, error, CORNER_DEGREE), classes)


class MLP(Model):
    """A network of dense layers and convolutions, with activations between them."""

    @classmethod
    def from_sklearn(
        cls,
        model: Any,
        data: Any = None,
        bound: Optional[float] = None,
        *,
        error: float = ERROR,
        degree: int = CORNER_DEGREE,
    ) -> "MLP":
        """From a fitted MLPClassifier or MLPRegressor of scikit-learn, or a pipeline of a StandardScaler and one.

        The domain of each activation is that of `data`, some of the training samples, with a margin; or
        [-bound, bound]. `error` is that of smooth activations, `degree` the degree of the polynomial for relu. The
        last activation of a classifier is left out: it answers with decisions.
        """
        last, mean, scale = _unscaled(model)
        pairs = [(w.T, b) for w, b in zip(_fitted(last, "coefs_"), _fitted(last, "intercepts_"))]
        classes = getattr(last, "classes_", None)
        if classes is not None and getattr(last, "out_activation_", "") == "logistic" and len(pairs[-1][1]) > 1:
            raise ValueError("the model gives several labels at once; give one that gives one class, or a regressor")
        names = [last.activation] * (len(pairs) - 1) + ["identity"]
        layers = layers_of(_scaled_first(pairs, mean, scale), names, data, bound, error, degree)
        return cls(layers, None if classes is None else np.asarray(classes))

    @classmethod
    def from_torch(
        cls,
        mapping: Mapping[str, Any],
        data: Any = None,
        bound: Optional[float] = None,
        *,
        activation: str = "relu",
        input_shape: Optional[Sequence[int]] = None,
        classes: Any = None,
        error: float = ERROR,
        degree: int = CORNER_DEGREE,
    ) -> "MLP":
        """From names and arrays, as a `state_dict` has them, in the order of the layers.

        `0.weight` and `0.bias` are a dense layer, for a weight of two dimensions, or for one of four a convolution
        over images of `input_shape`: channels, rows, columns. What a state_dict does not tell stands beside it:
        `"0.stride": 2`, `"0.padding": 1`, and activations by name, `"1": "relu"`. Without any of these names,
        `activation` stands between all layers. `classes` are those of a classifier.
        """
        pairs, names = torch_layers(mapping, activation, input_shape)
        layers = layers_of(pairs, names, data, bound, error, degree)
        return cls(layers, None if classes is None else np.asarray(classes))
