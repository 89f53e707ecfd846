"""Linear functions, which choose their levels: transforms, sums of transforms, products of encrypted matrices."""

from __future__ import annotations

import threading
from typing import Any

import numpy as np
import pytest

import torvo
from torvo import _torvo
from torvo import functions as F

TOLERANCE = 1e-8


def random(rng: np.random.Generator, *shape: int) -> np.ndarray:
    return rng.uniform(-1, 1, shape)


def cached(matrix: Any) -> Any:
    return torvo.CachedTransform(torvo.LinearTransform.from_matrix(matrix))


def message_of(values: np.ndarray) -> Any:
    message = torvo.Message((len(values) - 1).bit_length())
    np.asarray(message)[:] = values
    return message


def blockwise(matrix: np.ndarray, x: np.ndarray) -> np.ndarray:
    """Each block of so many numbers as the matrix has columns, times the matrix."""
    return (x.reshape(-1, matrix.shape[1]) @ matrix.T).ravel()


def numbers_of(thing: Any, keys: Any) -> np.ndarray:
    if isinstance(thing, _torvo.PlannedCiphertext):
        return np.asarray(thing.message)
    return np.asarray(thing) if isinstance(thing, torvo.Message) else keys.decrypt(thing)


#: Operands that the linear functions take, of an array.
KINDS = {
    "ciphertext": lambda x, keys, plan: keys.encrypt(x),
    "message": lambda x, keys, plan: message_of(x),
    "planned": lambda x, keys, plan: plan.encrypt(x),
}


@pytest.fixture(params=sorted(KINDS))
def made(request, every, entered):
    """Makes an operand of each kind, for which evaluator or plan are entered."""
    with torvo.Plan(every.context) as plan:
        yield lambda x: KINDS[request.param](x, every, plan)


@pytest.mark.parametrize("size", [1, 2, 8, 32])
@pytest.mark.parametrize("given", ["array", "transform", "cached"])
def test_each_block_is_transformed_as_by_numpy(every, made, rng, size, given):
    x, matrix = random(rng, 32), random(rng, size, size)
    transform: Any = matrix
    if given != "array":
        transform = torvo.LinearTransform.from_matrix(matrix) if given == "transform" else cached(matrix)
    operand = made(x)
    for result in (F.apply_transform(operand, transform), *F.apply_transforms(operand, [transform, transform])):
        assert type(result) is type(operand)
        np.testing.assert_allclose(numbers_of(result, every), blockwise(matrix, x), atol=TOLERANCE)
        if not isinstance(operand, torvo.Message):
            assert operand.level - result.level == 1 and result.rescale_counter == 0
        if isinstance(operand, torvo.Ciphertext):
            assert result.shape == (32,) and result.dtype == (np.float64 if given == "array" else np.complex128)


def test_matrices_of_any_shape_are_padded_and_complex_ones_give_complex_numbers(every, entered, rng):
    x, matrix = random(rng, 8), random(rng, 3, 4) * 1j
    result = F.apply_transform(every.encrypt(x), matrix)
    expected = np.zeros((2, 4), complex)
    expected[:, :3] = x.reshape(2, 4) @ matrix.T
    assert result.dtype == np.complex128
    np.testing.assert_allclose(every.decrypt(result), expected.ravel(), atol=TOLERANCE)
    assert F.apply_transforms(every.encrypt(x), []) == []


def test_long_arrays_are_transformed_part_by_part(every, entered, rng):
    x, a, b = random(rng, 100), random(rng, 4, 4), random(rng, 2, 2)
    ct = every.encrypt(x)
    both = F.apply_transforms(ct, [a, b])
    for result, matrix in [(F.apply_transform(ct, a), a), (both[0], a), (both[1], b)]:
        assert isinstance(result, torvo.CiphertextArray) and result.dtype == np.float64
        np.testing.assert_allclose(every.decrypt(result), blockwise(matrix, x), atol=TOLERANCE)
    with pytest.raises(TypeError, match="no single out"):
        F.apply_transform(ct, a, out=torvo.Ciphertext(every.context))


def test_a_sum_of_transforms_spends_one_level_and_rescale(every, made, rng):
    xs, matrices = [random(rng, 8) for _ in range(3)], [random(rng, n, n) for n in (8, 4, 8)]
    operands = [made(x) for x in xs]
    result = F.sum_of_transforms(operands, [matrices[0], cached(matrices[1]), matrices[2]])
    expected = sum(blockwise(m, x) for m, x in zip(matrices, xs))
    np.testing.assert_allclose(numbers_of(result, every).real, expected, atol=TOLERANCE)
    twice = F.sum_of_transforms([operands[0]] * 2, [matrices[0], matrices[2]], out=operands[0])
    assert twice is operands[0]
    np.testing.assert_allclose(
        numbers_of(twice, every).real, blockwise(matrices[0] + matrices[2], xs[0]), atol=TOLERANCE
    )
    if not isinstance(result, torvo.Message):
        assert result.level == 11
    if isinstance(result, _torvo.PlannedCiphertext):
        with torvo.Plan(every.context) as plan:
            F.sum_of_transforms([plan.encrypt(x) for x in xs], matrices)
        assert plan.report.rescales == 1


def test_a_long_vector_goes_through_a_sum_of_transforms(every, entered, rng):
    x, matrix = random(rng, 64), random(rng, 32, 64)
    result = F.sum_of_transforms(every.encrypt(x), np.split(matrix, 2, axis=1))
    assert result.shape == (32,) and result.dtype == np.float64
    np.testing.assert_allclose(every.decrypt(result), matrix @ x, atol=1e-7)


def test_encrypted_matrices_are_multiplied_by_a_dimension_or_a_kept_product(every, made, rng):
    a, b = random(rng, 2, 4, 4), random(rng, 2, 4, 4)
    x, y = made(a.ravel()), made(b.ravel())
    kept = torvo.CachedMatrixProduct(4)
    for product in (4, np.int64(4), kept):
        result = F.multiply_matrices(x, y, product)
        np.testing.assert_allclose(numbers_of(result, every).real.reshape(2, 4, 4), a @ b, atol=TOLERANCE)
    if isinstance(x, torvo.Ciphertext):
        assert result.shape == (32,) and result.dtype == np.float64 and x.level - result.level == 3
        assert kept.encoded_bytes > 0
    transposed = F.apply_transform(x, torvo.MatrixProduct.transposition(4))
    np.testing.assert_allclose(
        numbers_of(transposed, every).real.reshape(2, 4, 4), a.transpose(0, 2, 1), atol=TOLERANCE
    )


def test_keys_that_were_told_serve_every_level_and_all_that_miss_are_named(rng):
    context = torvo.Context("FX")
    matrix, x = random(rng, 16, 16), random(rng, 16)
    transform, product = cached(matrix), torvo.CachedMatrixProduct(4)
    needed = sorted({*transform.rotations(context, 4), *product.rotations(context, 4)})
    keys = torvo.keygen(context, rotations=needed)
    with torvo.Evaluator(keys):
        for level in (1, 4, 12):
            result = F.apply_transform(keys.encrypt(x, level=level), transform)
            np.testing.assert_allclose(keys.decrypt(result).real, matrix @ x, atol=TOLERANCE)
        for level in (3, 12):
            square = F.multiply_matrices(*[keys.encrypt(x, level=level)] * 2, product)
            block = x.reshape(4, 4)
            np.testing.assert_allclose(keys.decrypt(square).reshape(4, 4), block @ block, atol=TOLERANCE)
    with torvo.Plan(context) as plan:
        F.apply_transform(plan.encrypt(x), transform)
        F.multiply_matrices(plan.encrypt(x), plan.encrypt(x), product)
    assert sorted(plan.report.left_rotations) == needed
    none, out = torvo.keygen(context, secret=keys.secret), keys.encrypt([0.5])
    before = out.to_bytes()
    for call, indices in [
        (lambda: F.apply_transform(keys.encrypt(x), transform, out=out), transform.rotations(context, 4)),
        (lambda: F.sum_of_transforms([keys.encrypt(x)], [transform], out=out), transform.rotations(context, 4)),
        (lambda: F.multiply_matrices(*[keys.encrypt(x)] * 2, product, out=out), product.rotations(context, 4)),
    ]:
        with torvo.Evaluator(none), pytest.raises(torvo.Error, match="left rotation keys for indices") as refused:
            call()
        assert all(str(index) in str(refused.value) for index in indices) and out.to_bytes() == before


def test_what_was_encoded_is_kept_for_each_level_until_it_is_cleared(every, entered, rng):
    transform, x = cached(random(rng, 8, 8)), random(rng, 8)
    assert transform.size == 8 and transform.encoded_bytes == 0
    F.apply_transform(every.encrypt(x), transform)
    once = transform.encoded_bytes
    F.apply_transform(every.encrypt(x), transform)
    assert transform.encoded_bytes == once > 0
    F.apply_transform(every.encrypt(x, level=3), transform)
    assert once < transform.encoded_bytes < 2 * once
    with torvo.Plan(every.context) as plan:
        F.apply_transform(plan.encrypt(x), cached(random(rng, 8, 8)))
    assert plan.report.constant_bytes > 0
    transform.clear()
    assert transform.encoded_bytes == 0
    few = torvo.CachedTransform(torvo.LinearTransform.from_matrix(random(rng, 32, 32)), torvo.TransformOptions(10))
    assert len(few.rotations(every.context, 5)) <= 10


def test_a_bootstrap_comes_where_levels_would_run_out(toy, rng):
    keys = torvo.keygen(toy.context, bootstrap=True, rotations=range(1, 32))
    x, matrix = random(rng, 32), random(rng, 4, 4) / 4
    square = random(rng, 2, 4, 4) / 2
    a = keys.encrypt(square.ravel(), level=3)
    with torvo.Evaluator(keys):
        with pytest.raises(torvo.Error, match="applyTransform.* level"):
            F.apply_transform(keys.encrypt(x, level=0), matrix)
        with pytest.raises(torvo.Error, match="multiplyMatrices.* level"):
            F.multiply_matrices(keys.encrypt(x, level=1), a, 4)
    low, expected = keys.encrypt(x, level=3), blockwise(matrix, x)
    with torvo.Evaluator(keys, bootstrap=True):
        with pytest.raises(torvo.Error, match="has to bootstrap first, which needs a ciphertext at level 3"):
            F.apply_transform(keys.encrypt(x, level=0), matrix)
        for result, numbers in [
            (F.apply_transform(low, matrix), expected),
            (F.apply_transforms(low, [matrix])[0], expected),
            (F.sum_of_transforms([low, low], [matrix, matrix], result_bound=2.0), 2 * expected),
            (F.multiply_matrices(a, a, 4), (square @ square).ravel()),
            # Numbers that are too large for a bootstrap are told; complex ones are known.
            (F.apply_transform(keys.encrypt(8 * x, level=4), matrix, bound=8), 8 * expected),
            (F.apply_transform(keys.encrypt(x * (1 + 1j), level=3), matrix), expected * (1 + 1j)),
        ]:
            assert result.level > 4
            np.testing.assert_allclose(keys.decrypt(result), numbers, atol=2.0**-12)


def test_real_numbers_are_real_for_a_bootstrap_unless_the_caller_says_otherwise(toy, monkeypatch, rng):
    told = []
    monkeypatch.setattr(_torvo, "apply_transform", lambda *given: told.append(given[5]))
    matrix, real, both = random(rng, 2, 2), toy.encrypt(random(rng, 2)), toy.encrypt(random(rng, 2) * 1j)
    with torvo.Evaluator(toy.keys):
        F.apply_transform(real, matrix)
        F.apply_transform(both, matrix)
        F.apply_transform(real, matrix, is_real=False)
        F.apply_transform(message_of(np.ones(2)), matrix)
        F.apply_transform(message_of(np.ones(2)), matrix, is_real=True)
    assert told == [True, False, False, False, True]


@pytest.mark.parametrize("transform, exception, text", [
    ([[1.0, np.nan], [0.0, 1.0]], torvo.Error, r"entry at \(0, 1\) of the matrix is nan"),
    ([[np.inf]], torvo.Error, "inf"),
    ([[1e300]], torvo.Error, "Cannot encode"),
    ([1.0, 2.0], ValueError, "shape .2,.; give a matrix"),
    (np.zeros((2, 2, 2)), ValueError, "one or two dimensions"),
    (np.zeros((0, 2)), ValueError, "at least one row"),
    (np.eye(64), torvo.Error, r"\[LinearTransform\]"),
    (np.eye(8), ValueError, "6 numbers stand in 8 slots.*encrypt whole blocks"),
    ([["a"]], TypeError, "dtype"),
    (None, TypeError, "dtype"),
    (5.0, ValueError, "no matrix|one or two dimensions"),
])  # fmt: skip
def test_what_is_no_transform_is_refused_and_the_output_stays(every, entered, transform, exception, text):
    x, out = every.encrypt(np.ones(6)), every.encrypt([0.5, 0.25])
    before = out.to_bytes()
    with pytest.raises(exception, match=text):
        F.apply_transform(x, transform, out=out)
    with pytest.raises(exception, match=text):
        F.sum_of_transforms([x], [transform], out=out)
    with pytest.raises(exception, match=text):
        F.apply_transforms(x, [transform])
    assert out.to_bytes() == before and out.shape == (2,)


def test_other_operands_are_refused(every, entered, rng):
    x, y, matrix = every.encrypt(np.ones(4)), every.encrypt(np.ones(8)), random(rng, 4, 4)
    plan = torvo.Plan(every.context)
    odd = torvo.Message()
    odd.resize(3)
    for call, exception, text in [
        (lambda: F.apply_transform(0.5, matrix), TypeError, "operand is a float"),
        (lambda: F.apply_transforms(0.5, [matrix]), TypeError, "operand is a float"),
        (lambda: F.apply_transform(x, x), TypeError, "transform is a Ciphertext"),
        (lambda: F.apply_transform(x, plan.encrypt([1.0])), TypeError, "transform is a PlannedCiphertext"),
        (lambda: F.apply_transform(plan.encrypt([1.0]), [[1.0]]), torvo.Error, "no plan is set"),
        (lambda: F.apply_transform(odd, [[1.0]]), torvo.Error, "message has 3 slots"),
        (lambda: F.sum_of_transforms([], []), ValueError, "no ciphertext"),
        (lambda: F.sum_of_transforms([x, x], [matrix]), torvo.Error, "2 ciphertexts, and 1"),
        (lambda: F.sum_of_transforms([x, y], [matrix, matrix]), ValueError, r"shapes \(4,\), \(8,\)"),
        (lambda: F.sum_of_transforms([x, plan.encrypt([1.0] * 4)], [matrix, matrix]), TypeError, "of one kind"),
        (lambda: F.multiply_matrices(x, y, 2), ValueError, "length|shape"),
        (lambda: F.multiply_matrices(x, 0.5, 2), TypeError, "operand is a float"),
        (lambda: F.multiply_matrices(x, x, 3), torvo.Error, r"\[MatrixProduct\]"),
        (lambda: F.multiply_matrices(x, x, -2), TypeError, "dimension"),
        (lambda: F.multiply_matrices(x, x, 2.0), TypeError, "integer"),
        (lambda: F.multiply_matrices(x, x, 4), torvo.Error, r"\[LinearTransform\]"),
        (lambda: F.multiply_matrices(every.encrypt(np.ones(6)), y, 2), ValueError, "padding"),
        (lambda: torvo.CachedTransform(matrix), TypeError, "LinearTransform"),
    ]:
        with pytest.raises(exception, match=text):
            call()
    for bound in (0.0, -1.0, float("nan"), float("inf")):
        for call in (
            lambda: F.apply_transform(x, matrix, bound),
            lambda: F.apply_transforms(x, [matrix], bound),
            lambda: F.sum_of_transforms([x], [matrix], bound),
            lambda: F.multiply_matrices(x, x, 2, bound),
        ):
            with pytest.raises(torvo.Error, match="is given the bound .*; give a positive, finite one"):
                call()
    with pytest.raises(torvo.Error, match="is given the bound"):
        F.apply_transform(x, matrix, result_bound=float("nan"))


def test_the_functions_of_the_module_refuse_what_does_not_go_together(every, entered, rng):
    on, odd, out = entered.native, torvo.Message(), torvo.Message()
    odd.resize(3)
    one = cached([[1.0]])
    with pytest.raises(torvo.Error):
        _torvo.apply_transform(on, odd, cached(random(rng, 4, 4)), out)
    for wrong in ([None], "ab", [one, 1], one):
        with pytest.raises(TypeError):
            _torvo.apply_transforms(on, every.encrypt([1.0]), wrong)
    with pytest.raises(TypeError):
        _torvo.apply_transform(on, every.encrypt([1.0]), one, out)
    view = np.asarray(out)
    with pytest.raises(BufferError):
        _torvo.apply_transform(on, message_of(np.ones(2)), one, out)
    del view


def test_a_ciphertext_and_a_plan_of_another_context_are_refused(every, entered):
    context = torvo.Context.custom(7, 4, 50, 40, 55, 2)
    other = torvo.keygen(context)
    for call in (
        lambda: F.apply_transform(other.encrypt(np.ones(4)), np.eye(4)),
        lambda: F.sum_of_transforms([other.encrypt(np.ones(4))], [np.eye(4)]),
        lambda: F.multiply_matrices(other.encrypt(np.ones(4)), every.encrypt(np.ones(4)), 2),
    ):
        with pytest.raises(torvo.Error, match="ring"):
            call()
    transform = cached(2 * np.eye(4))
    np.testing.assert_allclose(every.decrypt(F.apply_transform(every.encrypt(np.ones(4)), transform)).real, 2)
    with torvo.Evaluator(other):  # one transform serves every ring
        np.testing.assert_allclose(other.decrypt(F.apply_transform(other.encrypt(np.ones(4)), transform)).real, 2)


def test_threads_that_share_a_transform_get_the_words_of_one(every, rng):
    transform, product, ct = cached(random(rng, 16, 16)), torvo.CachedMatrixProduct(4), every.encrypt(random(rng, 16))
    results: list[tuple[bytes, bytes]] = []

    def work() -> None:
        with torvo.Evaluator(every):
            for _ in range(5):
                square = F.multiply_matrices(ct, ct, product)
                results.append((F.apply_transform(ct, transform).to_bytes(), square.to_bytes()))
                transform.clear()

    threads = [threading.Thread(target=work) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert len(results) == 20 and len(set(results)) == 1


def test_an_encoded_sum_is_that_of_the_single_transforms(every, entered, rng):
    xs, matrices = [random(rng, 8) for _ in range(2)], [random(rng, 8, 8) for _ in range(2)]
    cts = [every.encrypt(xs[0]), every.encrypt(xs[1], level=5)]
    encoded = [
        torvo.EncodedTransform(every.context, torvo.LinearTransform.from_matrix(matrix), 3, 5) for matrix in matrices
    ]
    out = every.encrypt([0.5])
    before = out.to_bytes()
    for ins, transforms, text in [
        ([], [], "given no ciphertext"),
        (cts, encoded[:1], "2 ciphertexts, and 1"),
        (cts, [encoded[0], torvo.EncodedTransform(every.context)], "empty"),
    ]:
        with pytest.raises(torvo.Error, match=text):
            torvo.EncodedTransform.apply_sum(entered.native, ins, transforms, out)
    with pytest.raises(TypeError):
        torvo.EncodedTransform.apply_sum(entered.native, [None], encoded[:1], out)
    assert out.to_bytes() == before
    torvo.EncodedTransform.apply_sum(entered.native, cts, encoded, cts[0])
    assert cts[0].level == 4
    np.testing.assert_allclose(
        every.decrypt(cts[0], full=True).real, matrices[0] @ xs[0] + matrices[1] @ xs[1], atol=TOLERANCE
    )


def test_a_plan_predicts_the_error_of_a_transform_on_a_real_preset(rng):
    context = torvo.Context("SD3")
    matrix, x = random(rng, 64, 64), random(rng, 1 << context.log_slots)
    transform = cached(matrix)
    keys = torvo.keygen(context, rotations=transform.rotations(context, context.log_slots))
    with torvo.Evaluator(keys):
        real = keys.decrypt(F.apply_transform(keys.encrypt(x), transform)) - blockwise(matrix, x)
    with torvo.Plan(context) as plan:
        planned = F.apply_transform(plan.encrypt(x), transform)
    measured = np.sqrt(np.mean(np.abs(real) ** 2))
    assert planned.error / 1.5 < measured < 1.5 * planned.error
    assert sorted(plan.report.left_rotations) == transform.rotations(context, context.log_slots)
