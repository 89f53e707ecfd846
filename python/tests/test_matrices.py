"""Products with matrices against numpy, the keys they need, and the cache of encoded matrices."""

from __future__ import annotations

import copy
import gc
import multiprocessing
import pickle
import threading

import numpy as np
import pytest

import torvo

TOLERANCE = 1e-8


def random(rng: np.random.Generator, *shape: int, is_complex: bool = False) -> np.ndarray:
    real = rng.uniform(-1, 1, shape)
    return real + 1j * rng.uniform(-1, 1, shape) if is_complex else real


SHAPES = [(1, 1), (1, 5), (5, 1), (4, 4), (3, 5), (5, 3), (7, 2), (2, 7), (32, 32), (32, 3), (3, 32), (17, 9), (9, 17)]


@pytest.mark.parametrize("shape", SHAPES)
def test_products_are_those_of_numpy_on_either_side(every, entered, rng, shape):
    matrix = random(rng, *shape)
    for ct_first, x in [(True, random(rng, shape[0])), (False, random(rng, shape[1]))]:
        ct = every.encrypt(x)
        result = ct @ matrix if ct_first else matrix @ ct
        expected = x @ matrix if ct_first else matrix @ x
        assert result.shape == expected.shape and result.dtype == np.float64
        assert ct.level - result.level == 1 and result.rescale_counter == 0
        assert result.slots == 1 << (len(expected) - 1).bit_length()
        np.testing.assert_allclose(every.decrypt(result), expected, atol=TOLERANCE)


@pytest.mark.parametrize("kind", [np.int8, np.float32, np.complex64, "list", "transposed", "strided"])
def test_matrices_of_every_kind_are_taken(every, entered, rng, kind):
    x = random(rng, 4)
    matrix = random(rng, 4, 3, is_complex=kind is np.complex64) * 3
    if kind == "list":
        given = matrix.tolist()
    elif kind == "transposed":
        given = np.ascontiguousarray(matrix.T).T
    elif kind == "strided":
        given = np.repeat(matrix, 2, axis=1)[:, ::2]
    else:
        given = matrix = matrix.astype(kind)
    result = every.encrypt(x) @ given
    assert result.dtype == (np.complex128 if kind is np.complex64 else np.float64)
    np.testing.assert_allclose(every.decrypt(result), x @ matrix, atol=1e-6 if kind is np.complex64 else TOLERANCE)


def test_a_complex_ciphertext_keeps_both_parts(every, entered, rng):
    x, matrix = random(rng, 6, is_complex=True), random(rng, 6, 4, is_complex=True)
    np.testing.assert_allclose(every.decrypt(every.encrypt(x) @ matrix), x @ matrix, atol=TOLERANCE)


@pytest.mark.parametrize("length", [1, 2, 5, 8, 32])
def test_a_vector_gives_one_number_that_goes_with_every_array(every, entered, rng, length):
    x, v = random(rng, length), random(rng, length)
    for result in (every.encrypt(x) @ v, v @ every.encrypt(x)):
        assert result.shape == () and every.decrypt(result) == pytest.approx(x @ v, abs=TOLERANCE)
        np.testing.assert_allclose(every.decrypt(every.encrypt(x) * result), x * (x @ v), atol=TOLERANCE)


def test_what_stands_in_the_padding_does_not_count(every, entered, rng):
    x, matrix = random(rng, 5), random(rng, 5, 6)
    ct = every.encrypt(x) + 100
    assert abs(every.decrypt(ct, full=True)[-1] - 100) < TOLERANCE
    np.testing.assert_allclose(every.decrypt(ct @ matrix), (x + 100) @ matrix, atol=1e-6)
    np.testing.assert_allclose(every.decrypt(ct @ matrix[:, :2]), (x + 100) @ matrix[:, :2], atol=1e-6)


def test_products_follow_one_another_and_go_with_operators(every, entered, rng):
    x, a, b = random(rng, 6), random(rng, 6, 11), random(rng, 2, 11)
    result = b @ ((every.encrypt(x) @ a) ** 2 + 1)
    np.testing.assert_allclose(every.decrypt(result), b @ ((x @ a) ** 2 + 1), atol=1e-6)


def test_more_slots_than_numbers_and_lower_levels_are_served(every, entered, rng):
    x, matrix = random(rng, 3), random(rng, 3, 3)
    for options in ({"slots": 32}, {"slots": 8, "level": 1}, {"level": 5}):
        result = every.encrypt(x, **options) @ matrix
        np.testing.assert_allclose(every.decrypt(result), x @ matrix, atol=TOLERANCE)


def test_an_owed_rescale_is_paid_first(every, entered, rng):
    x, matrix = random(rng, 4), random(rng, 4, 4)
    owing = torvo.Ciphertext(every.context)
    entered.native.mult_without_rescale(every.encrypt(x), every.encrypt(x), owing)
    np.testing.assert_allclose(every.decrypt(owing @ matrix), x**2 @ matrix, atol=TOLERANCE)


@pytest.mark.parametrize("shape", [(100, 5), (100, 40), (10, 100), (100, 100)])
def test_long_arrays_are_multiplied_part_by_part(every, entered, rng, shape):
    x, matrix = random(rng, shape[0]), random(rng, *shape)
    result = every.encrypt(x) @ matrix
    assert isinstance(result, torvo.CiphertextArray) == (shape[1] > 32) and result.shape == (shape[1],)
    np.testing.assert_allclose(every.decrypt(result), x @ matrix, atol=1e-7)
    y = random(rng, shape[1])  # a result goes with what was encrypted
    np.testing.assert_allclose(every.decrypt(result + every.encrypt(y)), x @ matrix + y, atol=1e-7)
    np.testing.assert_allclose(every.decrypt(every.encrypt(x) @ matrix[:, 0]), x @ matrix[:, 0], atol=1e-7)


@pytest.mark.parametrize("length, rows, columns", [(4, 4, 4), (8, 5, 3), (2, 1, 2), (32, 20, 30), (1, 1, 1)])
def test_a_batch_is_multiplied_block_by_block(every, entered, rng, length, rows, columns):
    batch, matrix = random(rng, 32 // length, length), random(rng, rows, columns)
    ct = every.encrypt(batch.ravel())
    expected = np.zeros_like(batch)
    expected[:, :columns] = batch[:, :rows] @ matrix
    for result in (torvo.matmul(ct, matrix, length=length), torvo.matmul(matrix.T, ct, length=length)):
        assert result.shape == (32,)
        np.testing.assert_allclose(every.decrypt(result).reshape(batch.shape), expected, atol=TOLERANCE)


def test_a_batch_may_be_longer_than_a_ciphertext(every, entered, rng):
    batch, matrix = random(rng, 25, 4), random(rng, 4, 3)
    result = torvo.matmul(every.encrypt(batch.ravel()), matrix, length=4)
    np.testing.assert_allclose(every.decrypt(result).reshape(25, 4)[:, :3], batch @ matrix, atol=TOLERANCE)


def test_an_output_is_written_and_may_be_the_operand(every, entered, rng):
    x, matrix = random(rng, 4), random(rng, 4, 9)
    ct = every.encrypt(x)
    assert torvo.matmul(ct, matrix, out=ct) is ct and ct.shape == (9,)
    np.testing.assert_allclose(every.decrypt(ct), x @ matrix, atol=TOLERANCE)


@pytest.mark.parametrize("shape, slots, level, length", [
    ((5, 3), None, None, 0), ((3, 17), None, 4, 0), ((9, 2), 32, 3, 0), ((4, 4), None, None, 4), ((8, 1), None, 2, 8),
    ((100, 40), None, None, 0), ((16,), None, None, 0), ((4, 4), 16, 2, 4),
])  # fmt: skip
def test_the_keys_that_were_told_before_are_those_that_it_needs(rng, shape, slots, level, length):
    context = torvo.Context("FX")
    matrix = random(rng, *shape)
    rotations = torvo.rotations_for(matrix, context, slots=slots, level=level, length=length)
    assert rotations == sorted(set(rotations)) and 0 not in rotations
    keys = torvo.keygen(context, rotations=rotations)
    count = (slots or context.slots) if length else shape[0]
    x = random(rng, count)
    with torvo.Evaluator(keys):
        result = torvo.matmul(keys.encrypt(x, slots=slots, level=level), matrix, length=length)
    if not length:
        np.testing.assert_allclose(keys.decrypt(result), x @ matrix, atol=1e-7)
    for index in rotations:  # none of them is told for nothing
        fewer = torvo.keygen(context, rotations=[i for i in rotations if i != index], secret=keys.secret)
        with torvo.Evaluator(fewer), pytest.raises(torvo.Error, match=rf"\[{index}\] are missing"):
            torvo.matmul(keys.encrypt(x, slots=slots, level=level), matrix, length=length)


def test_all_missing_keys_are_named_in_one_error(every, rng):
    matrix = random(rng, 32, 4)
    needed = torvo.rotations_for(matrix, every.context)
    assert len(needed) > 4 and {4, 8, 16} <= set(needed)
    keys = torvo.keygen(every.context, rotations=needed[:1])
    with torvo.Evaluator(keys), pytest.raises(torvo.Error) as refused:
        keys.encrypt(random(rng, 32)) @ matrix
    assert f"{needed}, and {needed[1:]} are missing" in str(refused.value)
    assert "32 slots at level 12" in str(refused.value)


def test_keys_are_found_in_their_directory(rng, tmp_path):
    context = torvo.Context("FX")
    matrix = random(rng, 8, 8)
    made = torvo.keygen(context, rotations=torvo.rotations_for(matrix, context))
    made.save(tmp_path)
    x = random(rng, 8)
    with torvo.Evaluator(torvo.PublicKeys.load(tmp_path)):
        np.testing.assert_allclose(made.decrypt(made.encrypt(x) @ matrix), x @ matrix, atol=TOLERANCE)


@pytest.mark.parametrize("matrix, exception, text", [
    (np.zeros((4, 3)), ValueError, r"shape \(4, 3\) does not go with a ciphertext of shape \(3,\)"),
    (np.zeros(4), ValueError, "does not go with"),
    (np.zeros((1, 3, 3)), ValueError, "one or two dimensions"),
    (np.zeros((3, 0)), ValueError, "at least one row and one column"),
    ([[1.0, np.nan]] * 3, torvo.Error, r"entry at \(0, 1\) of the matrix is nan"),
    ([[1.0], [np.inf], [0.0]], torvo.Error, r"entry at \(1, 0\) of the matrix is inf"),
    ([[1e300]] * 3, torvo.Error, "Cannot encode"),
    ([[True]] * 3, TypeError, "dtype bool"),
    ([["a"]] * 3, TypeError, "dtype"),
    (5.0, TypeError, "unsupported operand"),
    (None, TypeError, "unsupported operand"),
])  # fmt: skip
def test_what_is_no_matrix_for_a_ciphertext_is_refused_and_it_stays(every, entered, matrix, exception, text):
    ct = every.encrypt([1.0, 2.0, 3.0])
    before = ct.to_bytes()
    with pytest.raises(exception, match=text):
        ct @ matrix
    with pytest.raises(exception):
        torvo.matmul(ct, matrix, out=ct)
    assert ct.to_bytes() == before


def test_other_operands_of_a_product_are_refused(every, entered, toy):
    ct = every.encrypt(np.ones(8))
    with pytest.raises(TypeError):
        ct @ ct
    with pytest.raises(TypeError, match="inner_product"):
        torvo.matmul(ct, ct)
    with pytest.raises(ValueError, match="use \\*"):
        every.encrypt(1.0) @ np.ones((1, 1))
    with pytest.raises(torvo.Error, match="level"):
        every.encrypt(np.ones(2), level=0) @ np.ones((2, 2))
    for length, text in [(3, "power of two"), (64, "at most the 8 slots"), (-4, "power of two"), (2, "blocks of 2")]:
        with pytest.raises(ValueError, match=text):
            torvo.matmul(ct, np.ones((4, 4)), length=length)
    with pytest.raises(ValueError, match="not made of blocks of 4"):
        torvo.matmul(every.encrypt(np.ones(6)), np.ones((4, 4)), length=4)
    with pytest.raises(TypeError):
        torvo.matmul(ct, np.ones((4, 4)), length=4.0)
    for slots in (4, 12, 64):
        with pytest.raises(ValueError, match="the 8 rows to the 32"):
            torvo.rotations_for(np.ones((8, 2)), every.context, slots=slots)
    for level in (0, 99):
        with pytest.raises(torvo.Error, match="level"):
            torvo.rotations_for(np.ones((8, 2)), every.context, level=level)
    with pytest.raises(ValueError, match="power of two"):
        torvo.rotations_for(np.ones((2, 2)), every.context, length=3)


def test_a_ciphertext_of_another_ring_is_named(every, entered):
    context = torvo.Context.custom(7, 4, 50, 40, 55, 2)
    with pytest.raises(torvo.Error, match="degree 128.*but .*degree 64"):
        torvo.keygen(context).encrypt(np.ones(4)) @ np.ones((4, 4))


def test_an_encoded_matrix_is_kept_for_its_content_level_and_slots(every, entered, rng, monkeypatch):
    made = []
    real = torvo._torvo.EncodedTransform
    monkeypatch.setattr(torvo._torvo, "EncodedTransform", lambda *given: made.append(given) or real(*given))
    matrix, x = random(rng, 4, 4), random(rng, 4)
    ct = every.encrypt(x)
    ct @ matrix
    ct @ matrix.copy()
    assert len(made) == 1
    matrix[0, 0] += 1  # other content is another matrix, in the same array too
    np.testing.assert_allclose(every.decrypt(ct @ matrix), x @ matrix, atol=TOLERANCE)
    assert len(made) == 2
    every.encrypt(x, level=3) @ matrix
    every.encrypt(x, slots=8) @ matrix
    matrix @ ct
    torvo.matmul(ct, matrix, length=4)
    assert len(made) == 6
    ct @ matrix.astype(complex)
    assert len(made) == 7


def test_the_cache_has_a_bound_and_drops_what_was_not_used_for_longest(every, entered, rng):
    cache = torvo.matrix_cache
    cache.clear()
    limit = cache.limit
    ct = every.encrypt(random(rng, 4))
    a, b, c = (random(rng, 4, 4) for _ in range(3))
    try:
        ct @ a
        assert len(cache) == 1 and cache.bytes > 64 * 8
        cache.limit = 2 * cache.bytes
        ct @ b
        ct @ a
        ct @ c
        assert len(cache) == 2 and cache.bytes == cache.limit
        keys = [key[0] for entries, key, _ in cache._entries()]
        contents = [torvo._linear._Map(m.T, 4).key(12)[0] for m in (a, b, c)]
        assert contents[0] in keys and contents[2] in keys and contents[1] not in keys
        cache.limit = 100
        assert len(cache) == 0
        ct @ a
        assert len(cache) == 0 and cache.bytes == 0
    finally:
        cache.limit = limit


def test_the_cache_lets_go_of_a_context_that_is_gone(rng):
    context = torvo.Context.custom(6, 4, 50, 40, 55, 2)
    matrix = random(rng, 4, 4)
    keys = torvo.keygen(context, rotations=torvo.rotations_for(matrix, context))
    torvo.matrix_cache.clear()
    with torvo.Evaluator(keys):
        keys.encrypt(np.ones(4)) @ matrix
    assert len(torvo.matrix_cache) == 1
    del keys, context
    gc.collect()
    assert len(torvo.matrix_cache) == 0


def test_threads_share_the_cache(every, rng):
    x, matrix = random(rng, 8), random(rng, 8, 8)
    torvo.matrix_cache.clear()
    results = []

    def work() -> None:
        with torvo.Evaluator(every):
            results.extend(every.decrypt(every.encrypt(x) @ matrix) for _ in range(5))

    threads = [threading.Thread(target=work) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert len(results) == 20 and len(torvo.matrix_cache) == 1
    for result in results:
        np.testing.assert_allclose(result, x @ matrix, atol=TOLERANCE)


def _multiply(public, ct, matrix, queue):
    with torvo.Evaluator(public):
        queue.put(pickle.dumps(ct @ matrix))


def test_a_child_that_was_forked_while_the_cache_was_locked_multiplies(every, rng):
    x, matrix = random(rng, 4), random(rng, 4, 4)
    fork = multiprocessing.get_context("fork")
    queue = fork.Queue()
    child = fork.Process(target=_multiply, args=(every.public(), every.encrypt(x), matrix, queue))
    locked, forked = threading.Event(), threading.Event()

    def hold() -> None:
        with torvo.matrix_cache._lock:
            locked.set()
            forked.wait(60)

    holder = threading.Thread(target=hold)
    holder.start()
    locked.wait(60)
    child.start()
    forked.set()
    holder.join()
    result = pickle.loads(queue.get(timeout=60))
    child.join()
    np.testing.assert_allclose(every.decrypt(result), x @ matrix, atol=TOLERANCE)


def test_a_transform_in_the_clear_comes_back_from_files_bytes_and_pickles(rng, tmp_path):
    transform = torvo.LinearTransform.from_matrix(random(rng, 8, 8))
    transform.save(str(tmp_path / "transform"))
    data = transform.to_bytes()
    assert len(data) == transform.saved_size == (tmp_path / "transform").stat().st_size
    x, expected, result = torvo.Message(3), torvo.Message(), torvo.Message()
    np.asarray(x)[:] = random(rng, 8)
    transform.apply(x, expected)
    for same in (
        torvo.LinearTransform.load(str(tmp_path / "transform")),
        torvo.LinearTransform.from_bytes(data),
        pickle.loads(pickle.dumps(transform)),
    ):
        same.apply(x, result)
        np.testing.assert_array_equal(np.asarray(result), np.asarray(expected))
    for damaged in (b"", data[:-1], data + b"x"):
        with pytest.raises(torvo.Error):
            torvo.LinearTransform.from_bytes(damaged)


def test_the_classes_of_the_library_map_messages_and_ciphertexts_alike(every, entered, rng, tmp_path):
    matrix, x = random(rng, 4, 4), random(rng, 8)
    transform = torvo.LinearTransform.from_matrix(matrix)
    assert transform.size == 4 and transform.diagonal_indices == [0, 1, 2, 3]
    message, out = torvo.Message(3), torvo.Message()
    np.asarray(message)[:] = x
    transform.apply(message, out)
    expected = (matrix @ x.reshape(2, 4).T).T.ravel()
    np.testing.assert_allclose(np.asarray(out).real, expected, atol=1e-12)
    ct, result = every.encrypt(x), torvo.Ciphertext(every.context)
    encoded = torvo.EncodedTransform(every.context, transform, 3, 12)
    assert encoded.rotations == transform.rotations(every.context, 3, 12)
    encoded.apply(entered.native, ct, result)
    np.testing.assert_allclose(every.decrypt(result).real, expected, atol=TOLERANCE)
    encoded.save(str(tmp_path / "encoded"))
    empty = torvo.EncodedTransform(every.context)
    assert empty.is_empty
    empty.load(str(tmp_path / "encoded"))
    for same in (empty, pickle.loads(pickle.dumps(encoded))):
        assert same.to_bytes() == encoded.to_bytes() and (same.log_slots, same.level) == (3, 12)
    for many in torvo.EncodedTransform.apply_many(entered.native, ct, [encoded, empty]):
        assert many.to_bytes() == result.to_bytes()
    view = np.asarray(out)
    with pytest.raises(BufferError):
        transform.apply(message, out)
    del view


def test_diagonals_permutations_and_few_keys_are_bound(every, rng):
    swap = torvo.LinearTransform.from_permutation([1, 0, 3, 2])
    message = torvo.Message(2)
    np.asarray(message)[:] = [1, 2, 3, 4]
    swap.apply(message, message)
    assert list(np.asarray(message).real) == [2, 1, 4, 3]
    shift = torvo.LinearTransform.from_diagonals(4, {1: np.ones(4)})
    assert shift.diagonal_indices == [1]
    dense = torvo.LinearTransform.from_matrix(random(rng, 32, 32))
    many, few = dense.rotations(every.context, 5, 12), torvo.TransformOptions(max_keys=10)
    assert len(dense.rotations(every.context, 5, 12, few)) <= 10 and len(many) >= 10
    for refused in ([[1.0, 2.0], [3.0, np.nan]], np.zeros((0, 0))):
        with pytest.raises(torvo.Error, match=r"\[LinearTransform\]"):
            torvo.LinearTransform.from_matrix(refused)
    with pytest.raises(ValueError, match="two dimensions"):
        torvo.LinearTransform.from_matrix([1.0, 2.0])


def test_two_encrypted_matrices_are_multiplied(every, rng):
    a, b = random(rng, 4, 4), random(rng, 4, 4)
    rotations = torvo.MatrixProduct.rotations_for(every.context, 4, 4, 12)
    keys = torvo.keygen(every.context, rotations=rotations)
    product = torvo.MatrixProduct(every.context, 4, 4, 12)
    assert product.rotations == rotations and (product.dimension, product.log_slots, product.level) == (4, 4, 12)
    out = torvo.Ciphertext(every.context)
    with torvo.Evaluator(keys) as evaluator:
        product.mult(evaluator.native, keys.encrypt(a.ravel()), keys.encrypt(b.ravel()), out)
    assert out.level == 9
    np.testing.assert_allclose(keys.decrypt(out).real.reshape(4, 4), a @ b, atol=TOLERANCE)
    assert torvo.MatrixProduct.transposition(4).size == 16


def test_a_product_on_a_real_preset(rng):
    context = torvo.Context("SD3")
    matrix, x = random(rng, 200, 30), random(rng, 200)
    keys = torvo.keygen(context, rotations=torvo.rotations_for(matrix, context))
    with torvo.Evaluator(keys):
        np.testing.assert_allclose(keys.decrypt(keys.encrypt(x) @ matrix), x @ matrix, atol=1e-4)
    assert copy.copy(context) == context
