"""Bad input: one clear exception each, and nothing written."""

from __future__ import annotations

import numpy as np
import pytest
from sanitizer import not_sanitized

import torvo


@pytest.mark.parametrize(
    "values, exception, text",
    [
        ("text", TypeError, "dtype"),
        ([True, False], TypeError, "dtype bool"),
        ([object()], TypeError, "dtype object"),
        (np.array(["2026-01-01"], dtype="datetime64[D]"), TypeError, "dtype datetime64"),
        ([], ValueError, "empty"),
        (np.zeros((2, 2)), ValueError, r"shape \(2, 2\)"),
        ([np.nan], torvo.Error, r"\[encode\] Cannot encode"),
        ([np.inf], torvo.Error, r"\[encode\] Cannot encode"),
        ([1e300], torvo.Error, r"\[encode\] Cannot encode"),
        (None, TypeError, "dtype object"),
    ],
)
def test_what_cannot_be_encrypted_is_refused(toy, evaluator, values, exception, text):
    with pytest.raises(exception, match=text):
        toy.encrypt(values)


@pytest.mark.parametrize(
    "other, exception, text",
    [
        ([1.0, 2.0], ValueError, r"shape \(2,\)"),
        (np.zeros((3, 1)), ValueError, "dimension"),
        ([np.nan, 1, 2], torvo.Error, "Cannot encode"),
        (float("inf"), torvo.Error, "Cannot encode"),
        ("text", TypeError, "unsupported operand"),
        (None, TypeError, "unsupported operand"),
        (True, TypeError, "unsupported operand"),
        ({}, TypeError, "unsupported operand"),
    ],
)
def test_what_does_not_go_with_a_ciphertext_is_refused_and_it_stays(toy, evaluator, other, exception, text):
    ct = toy.encrypt([1.0, 2.0, 3.0])
    before = ct.to_bytes()
    with pytest.raises(exception, match=text):
        ct + other
    with pytest.raises(exception):
        ct += other
    assert ct.to_bytes() == before


def test_ciphertexts_of_different_lengths_do_not_go_together(toy, evaluator):
    with pytest.raises(ValueError, match=r"\(3,\) and \(2,\)"):
        toy.encrypt([1.0, 2.0, 3.0]) + toy.encrypt([1.0, 2.0])
    with pytest.raises(ValueError, match="100 and 99"):
        toy.encrypt(np.zeros(100)) + toy.encrypt(np.zeros(99))


def test_a_ciphertext_of_another_ring_is_refused(toy, evaluator):
    context = torvo.Context.custom(7, 4, 50, 40, 55, 2)
    other = torvo.keygen(context).encrypt([1.0, 2.0])
    with pytest.raises(torvo.Error, match="not of the ring"):
        toy.encrypt([1.0, 2.0]) + other
    with pytest.raises(torvo.Error, match="not of the ring"):
        toy.decrypt(other)
    with pytest.raises(torvo.Error, match="context and secret key don't match"):
        torvo.keygen(context, secret=toy.keys.secret)


def test_a_missing_key_is_named(toy):
    keys = torvo.keygen(toy.context, rotations=[1])
    with torvo.Evaluator(keys):
        ct = keys.encrypt(np.ones(32))
        with pytest.raises(torvo.Error, match="no left rotation key for index 2"):
            ct << 2
        with pytest.raises(torvo.Error, match="Failed to load the conjugation key"):
            ct.conjugate()
    empty = torvo.PublicKeys(toy.context, torvo.KeyPack(toy.context))
    with pytest.raises(torvo.Error, match="Failed to load the encryption key"):
        empty.encrypt([1.0])
    with torvo.Evaluator(empty), pytest.raises(torvo.Error, match="Failed to load the multiplication key"):
        ct * ct


def test_without_an_evaluator_the_text_says_how_to_set_one(toy):
    with pytest.raises(torvo.Error, match="with torvo.Evaluator"):
        toy.encrypt([1.0]) + 1
    with pytest.raises(torvo.Error, match="with torvo.Plan"):
        torvo.functions.sigmoid(torvo.PlannedCiphertext())


def test_a_directory_without_keys_is_refused(toy, tmp_path):
    with pytest.raises(torvo.Error, match="Cannot find path"):
        torvo.PublicKeys.load(tmp_path, toy.context)
    with pytest.raises(torvo.Error, match="Cannot open file"):
        torvo.PublicKeys.load(tmp_path)
    with pytest.raises(torvo.Error, match="Cannot find path"):
        torvo.HomEvaluator(toy.context, str(tmp_path / "missing"))


def test_too_few_levels_are_refused(toy, evaluator):
    ct = toy.encrypt([0.5], level=0)
    with pytest.raises(torvo.Error, match="level of the operand is zero"):
        ct * ct
    with pytest.raises(torvo.Error, match="levels"):
        torvo.functions.sigmoid(ct)
    with pytest.raises(torvo.Error):
        toy.encrypt([0.5], level=99)


@pytest.mark.parametrize("exponent", [1.5, "2", True])
def test_a_power_that_is_no_integer_is_refused(toy, evaluator, exponent):
    with pytest.raises(TypeError, match="exponent"):
        toy.encrypt([0.5]) ** exponent


def test_powers_divisions_and_rotations_say_what_they_take(toy, evaluator):
    ct = toy.encrypt([0.5, 1.0])
    for exponent in (0, -1):
        with pytest.raises(ValueError, match="positive integer"):
            ct**exponent
    with pytest.raises(TypeError, match="functions.inverse"):
        ct / ct
    with pytest.raises(ZeroDivisionError):
        ct / [1.0, 0.0]
    with pytest.raises(ZeroDivisionError):
        ct / 0
    with pytest.raises(TypeError, match="integer"):
        ct << 0.5
    with pytest.raises(TypeError, match="torvo.Ciphertext"):
        torvo.add(ct, 1, out=np.zeros(2))
    with pytest.raises(TypeError, match="first operand"):
        torvo.add(1, ct)


def test_a_padding_does_not_count_in_a_statistic(toy, evaluator):
    with pytest.raises(ValueError, match="3 numbers stand in 4 slots"):
        torvo.functions.mean(toy.encrypt([1.0, 2.0, 3.0]))


def test_presets_and_sizes_that_do_not_exist_are_refused():
    with pytest.raises(ValueError, match="ST11"):
        torvo.Context("ST12")
    with pytest.raises(torvo.Error, match="CUSTOM"):
        torvo.Context(torvo.ParameterPreset.CUSTOM)
    with pytest.raises(torvo.Error, match="Invalid log_degree"):
        torvo.Context.custom(5, 4, 50, 40, 55, 2)
    with pytest.raises(TypeError):
        torvo.Context(1.5)


@not_sanitized
def test_no_memory_is_a_memory_error(toy):
    with pytest.raises(MemoryError):
        torvo.Message(50)
    with pytest.raises(MemoryError):
        toy.encrypt([0.5]).level = 1 << 60


def test_damaged_bytes_are_refused(toy):
    ct = toy.encrypt([0.5])
    data = ct.to_bytes()
    for damaged in (b"", data[:-1], data + b"x", b"\xff" * 40):
        with pytest.raises(torvo.Error):
            torvo.Ciphertext.from_bytes(toy.context, damaged)
        with pytest.raises(torvo.Error):
            torvo.Context.from_bytes(damaged)
    with pytest.raises(torvo.Error):
        torvo.Context.from_bytes(toy.context.to_bytes()[:68])


def test_a_failed_load_leaves_the_object_as_it_was(toy, tmp_path):
    ct = toy.encrypt([0.5, 0.25])
    path = tmp_path / "short"
    path.write_bytes(ct.to_bytes()[:-1])
    before = ct.to_bytes()
    with pytest.raises(torvo.Error, match="Failed to read"):
        ct.load(str(path))
    assert ct.to_bytes() == before
    np.testing.assert_allclose(toy.decrypt(ct), [0.5, 0.25], atol=1e-8)


def test_an_exception_of_a_function_of_python_passes_through():
    with pytest.raises(ZeroDivisionError):
        torvo.ChebyshevSeries.interpolate(lambda x: 1 / 0, 5)
    with pytest.raises(torvo.Error, match="finite"):
        torvo.ChebyshevSeries.interpolate(lambda x: float("nan"), 5)
    for make in (torvo.ChebyshevSeries.interpolate, torvo.ChebyshevSeries.minimax):
        for wrong in (lambda x: "a", lambda x: None, lambda x: [1.0]):
            with pytest.raises(TypeError, match="returned something else than a number"):
                make(wrong, 5)
        for wrong in (None, 1.0, "f"):
            with pytest.raises((TypeError, torvo.Error)):
                make(wrong, 5)


@pytest.mark.parametrize("wrong", [None, 1.0, "text", object()])
def test_a_list_of_operands_with_something_else_in_it_is_refused(toy, evaluator, wrong):
    ct = toy.encrypt([1.0, 2.0])
    series = torvo.ChebyshevSeries([1.0])
    for call in (
        lambda: evaluator.native.rot_sum([ct, wrong], [0, 0], ct),
        lambda: evaluator.native.rot_sum(wrong, [0], ct),
        lambda: torvo._torvo.sum(evaluator.native, [ct, wrong], ct),
        lambda: torvo._torvo.evaluate_blockwise(evaluator.native, ct, [series, wrong], ct),
        lambda: torvo.BootstrappingEvaluator(evaluator.native, wrong),
    ):
        with pytest.raises(TypeError, match="incompatible (function|constructor) arguments"):
            call()


def test_an_exception_of_a_sequence_passes_through(toy, evaluator):
    class Failing:
        def __len__(self) -> int:
            return 1

        def __getitem__(self, index: int) -> None:
            raise ZeroDivisionError

    ct = toy.encrypt([1.0])
    with pytest.raises(ZeroDivisionError):
        evaluator.native.rot_sum(Failing(), [0], ct)


def test_an_object_that_was_never_initialised_is_refused(toy):
    looked_at = 0
    for kind in vars(torvo._torvo).values():
        if not isinstance(kind, type) or kind.__name__.startswith("_") or hasattr(kind, "__members__"):
            continue
        if issubclass(kind, Exception):
            continue
        bare = kind.__new__(kind)
        for name, value in vars(kind).items():
            if isinstance(value, property):
                looked_at += 1
                with pytest.raises(TypeError, match="made by __new__ alone"):
                    getattr(bare, name)
    assert looked_at > 100
    message = torvo.Message.__new__(torvo.Message)
    with pytest.raises(TypeError, match="made by __new__ alone"):
        torvo.Encryptor(toy.context).encrypt(message, toy.keys.pack, toy.encrypt([1.0]))
    with pytest.raises(BufferError, match="made by __new__ alone"):
        memoryview(message)
    with pytest.raises(TypeError, match="__init__"):

        class Forgetful(torvo.SecretKey):
            def __init__(self) -> None:
                pass

        Forgetful()
