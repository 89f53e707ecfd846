"""Operators against numpy."""

from __future__ import annotations

import operator

import numpy as np
import pytest

import torvo

#: The toy's scale has some 42 bits: the errors of a few operations on numbers around 1 stay far below this.
TOLERANCE = 1e-8

BINARY = [operator.add, operator.sub, operator.mul]
LENGTHS = [1, 2, 3, 7, 32]


def numbers(rng: np.random.Generator, length: int, is_complex: bool = False) -> np.ndarray:
    real = rng.uniform(-1, 1, length)
    return real + 1j * rng.uniform(-1, 1, length) if is_complex else real


@pytest.mark.parametrize("operate", BINARY)
@pytest.mark.parametrize("length", LENGTHS)
def test_two_ciphertexts_give_what_two_arrays_give(toy, evaluator, rng, operate, length):
    x, y = numbers(rng, length), numbers(rng, length)
    result = toy.decrypt(operate(toy.encrypt(x), toy.encrypt(y)))
    assert result.shape == (length,) and result.dtype == np.float64
    np.testing.assert_allclose(result, operate(x, y), atol=TOLERANCE)


@pytest.mark.parametrize("operate", BINARY)
@pytest.mark.parametrize("other", [2, -3.5, 0.25 + 1j, np.float32(1.5), np.int64(2), [0.5, -1, 2], (1, 2j, 3)])
def test_numbers_and_arrays_may_stand_on_either_side(toy, evaluator, operate, other):
    x = np.array([0.5, -0.25, 1.0])
    ct = toy.encrypt(x)
    for result, expected in [(operate(ct, other), operate(x, other)), (operate(other, ct), operate(other, x))]:
        assert result.dtype == np.asarray(expected).dtype
        np.testing.assert_allclose(toy.decrypt(result), expected, atol=TOLERANCE)


def test_an_array_of_numpy_on_the_left_leaves_the_operation_to_the_ciphertext(toy, evaluator):
    result = np.array([1.0, 2.0]) - toy.encrypt([0.5, 0.25])
    assert isinstance(result, torvo.Ciphertext)
    np.testing.assert_allclose(toy.decrypt(result), [0.5, 1.75], atol=TOLERANCE)


@pytest.mark.parametrize("exponent", range(1, 17))
def test_a_power_spends_no_more_levels_than_it_must(toy, evaluator, exponent):
    x = np.array([0.9, -0.75, 0.5])
    ct = toy.encrypt(x)
    result = ct**exponent
    assert ct.level - result.level == (exponent - 1).bit_length()
    np.testing.assert_allclose(toy.decrypt(result), x**exponent, atol=TOLERANCE)
    np.testing.assert_allclose(toy.decrypt(ct), x, atol=TOLERANCE)


def test_division_by_numbers_and_arrays_multiplies_by_their_inverses(toy, evaluator):
    x = np.array([0.5, -0.25, 1.0])
    y = np.array([2.0, 4.0, -0.5])
    np.testing.assert_allclose(toy.decrypt(toy.encrypt(x) / 4), x / 4, atol=TOLERANCE)
    np.testing.assert_allclose(toy.decrypt(toy.encrypt(x) / y), x / y, atol=TOLERANCE)


@pytest.mark.parametrize("index", [0, 1, 3, 7, 8, -2])
def test_shifts_rotate_as_roll_does(toy, evaluator, rng, index):
    x = numbers(rng, 8)
    np.testing.assert_allclose(toy.decrypt(toy.encrypt(x) << index), np.roll(x, -index), atol=TOLERANCE)
    np.testing.assert_allclose(toy.decrypt(toy.encrypt(x) >> index), np.roll(x, index), atol=TOLERANCE)


def test_a_padded_array_is_rotated_with_its_padding_and_comes_back(toy, evaluator):
    ct = toy.encrypt([1.0, 2.0, 3.0])
    np.testing.assert_allclose(toy.decrypt(ct << 1), [2, 3, 0], atol=TOLERANCE)
    np.testing.assert_allclose(toy.decrypt(ct << 1, full=True), [2, 3, 0, 1], atol=TOLERANCE)
    np.testing.assert_allclose(toy.decrypt((ct << 1) >> 1), [1, 2, 3], atol=TOLERANCE)


def test_operators_in_place_write_the_left_side(toy, evaluator):
    x = np.array([0.5, -0.25, 1.0])
    ct = same = toy.encrypt(x)
    ct += 1
    ct *= x
    ct -= [0.5, 0.5, 0.5]
    ct /= 2
    assert ct is same
    np.testing.assert_allclose(toy.decrypt(same), ((x + 1) * x - 0.5) / 2, atol=TOLERANCE)
    square = toy.encrypt([1.0, 2.0, 3.0, 4.0])
    kept = square
    square <<= 1
    square >>= 3
    assert square is kept
    np.testing.assert_allclose(toy.decrypt(square), [3, 4, 1, 2], atol=TOLERANCE)


def test_an_output_is_written_and_takes_the_shape_of_the_result(toy, evaluator):
    out = toy.encrypt(np.ones(7), level=3)
    a, b = toy.encrypt([1.0, 2.0]), toy.encrypt([3j, 4.0])
    for function, expected in [(torvo.add, [1 + 3j, 6]), (torvo.subtract, [1 - 3j, -2]), (torvo.multiply, [3j, 8])]:
        assert function(a, b, out=out) is out
        assert out.shape == (2,) and out.dtype == np.complex128
        np.testing.assert_allclose(toy.decrypt(out), expected, atol=TOLERANCE)
    assert torvo.negative(a, out=a) is a
    np.testing.assert_allclose(toy.decrypt(a), [-1, -2], atol=TOLERANCE)


def test_one_encrypted_number_goes_with_every_array(toy, evaluator):
    x = np.array([0.5, -0.25, 1.0])
    one, ct = toy.encrypt(3.0), toy.encrypt(x)
    assert one.shape == () and toy.decrypt(one) == pytest.approx(3.0, abs=TOLERANCE)
    for result in (ct * one, one * ct, one * x, x * one):
        np.testing.assert_allclose(toy.decrypt(result), 3 * x, atol=TOLERANCE)
    with pytest.raises(ValueError, match="in place"):
        one *= x


def test_levels_are_matched_and_owed_rescales_are_paid(toy, evaluator):
    x = np.array([0.5, -0.25])
    low, high = toy.encrypt(x, level=2), toy.encrypt(x)
    assert (low * high).level == 1
    owing = torvo.Ciphertext(toy.context)
    evaluator.native.mult_without_rescale(high, high, owing)
    assert owing.rescale_counter == 1
    result = owing * low
    assert result.rescale_counter == 0
    np.testing.assert_allclose(toy.decrypt(result)[:2], x**3, atol=TOLERANCE)


def test_a_long_array_becomes_several_ciphertexts_with_the_same_operators(toy, evaluator, rng):
    x, y = numbers(rng, 100), numbers(rng, 100)
    a, b = toy.encrypt(x), toy.encrypt(y)
    assert isinstance(a, torvo.CiphertextArray) and len(a) == 100
    assert [len(part) for part in a.parts] == [32, 32, 32, 4]
    for result, expected in [
        (a + b, x + y),
        (a * y - 1, x * y - 1),
        (y - a, y - x),
        (-a / 2, -x / 2),
        (a**3, x**3),
        (torvo.multiply(a, b), x * y),
        (torvo.functions.sigmoid(a, bound=1), 1 / (1 + np.exp(-x))),
    ]:
        tolerance = 2e-5 if result.shape == (100,) and np.allclose(expected, 1 / (1 + np.exp(-x))) else TOLERANCE
        np.testing.assert_allclose(toy.decrypt(result), expected, atol=tolerance)


def test_complex_numbers_keep_both_parts_and_are_conjugated(toy, evaluator, rng):
    x = numbers(rng, 5, is_complex=True)
    ct = toy.encrypt(x)
    assert toy.decrypt(ct).dtype == np.complex128
    np.testing.assert_allclose(toy.decrypt(ct * 1j), x * 1j, atol=TOLERANCE)
    np.testing.assert_allclose(toy.decrypt(ct.conjugate()), x.conj(), atol=TOLERANCE)


def test_encryption_under_the_secret_key_reads_as_that_under_the_public_one(toy):
    x = np.array([0.5, -0.25, 1.0])
    np.testing.assert_allclose(toy.decrypt(toy.encrypt(x, symmetric=True)), x, atol=TOLERANCE)
    out = np.empty(3)
    assert toy.decrypt(toy.encrypt(x), out=out) is out
    np.testing.assert_allclose(out, x, atol=TOLERANCE)


def test_a_ciphertext_that_is_given_other_data_forgets_its_length(toy, evaluator, tmp_path):
    long, short = toy.encrypt(np.arange(32.0)), toy.encrypt([1.0, 2.0, 3.0])
    short.save(str(tmp_path / "short"))
    long.load(tmp_path / "short")
    assert long.shape == (4,) and long.dtype == np.complex128
    np.testing.assert_allclose(toy.decrypt(long), [1, 2, 3, 0], atol=TOLERANCE)
    long.assign(short)
    assert long.shape == (3,) and long.dtype == np.float64
    out = toy.encrypt(np.arange(32.0))
    evaluator.native.add(short, short, out)
    assert out.shape == (4,)
    np.testing.assert_allclose(toy.decrypt(out), [2, 4, 6, 0], atol=TOLERANCE)


@pytest.mark.parametrize("factor", [1e-9, 2 + 5e-9, 1j + 1e-9, -3 - 4e-9j, np.array([1e-9])])
def test_a_factor_that_is_nearly_an_integer_is_not_rounded_to_it(toy, evaluator, factor):
    x = np.array([1.0, -0.5])
    for result in (toy.encrypt(x) * factor, torvo.multiply(ct := toy.encrypt(x), factor, out=ct)):
        np.testing.assert_allclose(toy.decrypt(result), x * factor, atol=2e-10, rtol=0)


@pytest.mark.parametrize("factor, levels", [(3, 0), (-2.0, 0), (1 + 2j, 0), (0.5, 1), (1e-9, 1)])
def test_a_product_with_an_integer_spends_no_level(toy, evaluator, factor, levels):
    ct = toy.encrypt([1.0, -0.5])
    assert ct.level - (ct * factor).level == levels
