"""Classes of the headers, where the package puts no operators on top of them."""

from __future__ import annotations

import os
from typing import Any

import numpy as np
import pytest

import torvo
from torvo import functions as F


def message_of(values: Any) -> torvo.Message:
    """A message of as many slots as there are values."""
    message = torvo.Message(int(np.log2(len(values))))
    np.asarray(message)[:] = values
    return message


def test_single_keys_travel_from_pack_to_pack(toy):
    pack, target = toy.keys.pack, torvo.KeyPack(toy.context)
    assert target.get_mult_key() is None and target.get_left_rot_key(1) is None and target.get_enc_key() is None
    target.load_enc_key(pack.get_enc_key().to_bytes())
    target.load_mult_key(pack.get_mult_key().to_bytes())
    target.load_conj_key(pack.get_conj_key().to_bytes())
    target.load_left_rot_key(1, pack.get_left_rot_key(1).to_bytes())
    target.load_right_rot_key(2, pack.get_right_rot_key(2).to_bytes())
    assert target.is_encryption_key_loaded and target.is_multiplication_key_loaded and target.is_conjugation_key_loaded
    assert target.is_right_rotation_key_loaded(2) and not target.is_right_rotation_key_loaded(1)
    assert not target.is_sparse_secret_encapsulation_key_loaded
    x = np.arange(1.0, 33) / 32
    keys = torvo.PublicKeys(toy.context, target)
    with torvo.Evaluator(keys):
        ct = keys.encrypt(x)
        result = (((ct << 1) >> 2) * ct).conjugate()
    np.testing.assert_allclose(toy.decrypt(result), np.roll(x, 1) * x, atol=1e-8)
    for key, letter, index in [
        (pack.get_mult_key(), "m", 0),
        (pack.get_conj_key(), "c", 0),
        (pack.get_left_rot_key(1), "r", 1),
        (pack.get_right_rot_key(1), "r", 31),
    ]:
        assert (key.type, key.rotation_index, key.context) == (letter, index, toy.context)
        assert key.context_hash == pack.get_enc_key().context_hash and key.gadget_rank > 0
        assert len(key.to_bytes()) == key.saved_size


def test_a_pack_unloads_what_its_directory_has(toy, tmp_path):
    keys = torvo.keygen(toy.context, rotations=[1, -1], conjugation=True)
    pack = keys.pack
    with pytest.raises(torvo.Error, match="no key directory"):
        pack.unload_mult_key()
    pack.save(str(tmp_path))
    kinds = [
        ("enc_key", (), lambda: pack.is_encryption_key_loaded),
        ("mult_key", (), lambda: pack.is_multiplication_key_loaded),
        ("conj_key", (), lambda: pack.is_conjugation_key_loaded),
        ("left_rot_key", (1,), lambda: pack.is_left_rotation_key_loaded(1)),
        ("right_rot_key", (1,), lambda: pack.is_right_rotation_key_loaded(1)),
    ]
    for name, index, is_loaded in kinds:
        data = getattr(pack, f"get_{name}")(*index).to_bytes()
        getattr(pack, f"unload_{name}")(*index)
        assert not is_loaded()
        getattr(pack, f"load_{name}")(*index)
        assert is_loaded()
        held = getattr(pack, f"get_{name}")(*index)
        pack.unload()
        assert not is_loaded() and held.to_bytes() == data  # who holds a key keeps it
        held.save(str(tmp_path / "key"))
        assert (tmp_path / "key").read_bytes() == data
    assert pack.is_left_rot_key_file_available(1) and not pack.is_left_rot_key_file_available(2)
    other = torvo.KeyPack(toy.context)
    os.mkdir(tmp_path / "other")
    other.set_key_dir_path(str(tmp_path / "other"))
    other.load_mult_key()  # a missing file is no error
    assert not other.is_multiplication_key_loaded and other.saved_size == len(other.to_bytes())
    (tmp_path / "other" / "PK" / "MultKey.bin").write_bytes(data[:100])
    for call in (other.load_mult_key, other.get_mult_key):
        with pytest.raises(torvo.Error):
            call()


def test_a_key_that_is_not_the_one_asked_for_is_refused(toy):
    pack, target = toy.keys.pack, torvo.KeyPack(toy.context)
    foreign = torvo.keygen(torvo.Context.custom(6, 4, 50, 40, 55, 2)).pack
    mult = pack.get_mult_key().to_bytes()
    for call, exception in [
        (lambda: target.load_conj_key(mult), torvo.Error),
        (lambda: target.load_left_rot_key(2, pack.get_left_rot_key(1).to_bytes()), torvo.Error),
        (lambda: target.load_mult_key(foreign.get_mult_key().to_bytes()), torvo.Error),
        (lambda: target.load_mult_key(mult[:-1]), torvo.Error),
        (lambda: target.load_mult_key(mult + b"x"), torvo.Error),
        (lambda: target.load_mult_key(b""), torvo.Error),
        (lambda: target.load_enc_key(mult), torvo.Error),
        (lambda: target.load_sparse_secret_encapsulation_key(mult), torvo.Error),
        (lambda: target.load_mult_key("text"), TypeError),
        (lambda: target.load_left_rot_key(-1, mult), TypeError),
        (lambda: torvo.EvaluationKey(), TypeError),
        (lambda: target.set_key_dir_path("/nowhere"), torvo.Error),
    ]:
        with pytest.raises(exception):
            call()
        assert target.get_mult_key() is None or target.get_mult_key().to_bytes() == mult
    assert not target.is_conjugation_key_loaded and not target.is_left_rotation_key_loaded(2)


def test_a_generator_makes_a_pack_of_its_own(toy, tmp_path):
    generator = torvo.KeyGenerator(toy.context, toy.keys.secret)
    generator.gen_enc_key()
    generator.gen_left_rot_key(3)
    generator.gen_right_rot_key(3)
    assert generator.key_pack.is_left_rotation_key_loaded(3) and generator.key_pack.is_left_rotation_key_loaded(29)
    generator.save(str(tmp_path))
    assert torvo.KeyPack(toy.context, str(tmp_path)).is_left_rot_key_file_available(3)
    for index in (0, 32):
        with pytest.raises(torvo.Error, match="Wrong rotation index"):
            generator.gen_left_rot_key(index)
    with pytest.raises(torvo.Error, match="without a default secret key"):
        torvo.KeyGenerator(toy.context).gen_enc_key()


def test_shares_of_a_decryption_are_the_message(toy):
    ct, out = toy.encrypt([0.5, -0.25]), torvo.Ciphertext(toy.context)
    torvo.Decryptor(toy.context).partial_decrypt(ct, toy.keys.secret, out)
    assert (out.size, out.is_ntt, out.level) == (2, True, ct.level)
    with pytest.raises(torvo.Error, match="Size of Ciphertext should be 2"):
        evaluator = torvo.HomEvaluator(toy.context, toy.keys.pack)
        evaluator.tensor(ct, ct, ct)
        torvo.Decryptor(toy.context).partial_decrypt(ct, toy.keys.secret, out)


def test_halves_and_parts_of_a_bootstrap(toy, tmp_path):
    keys = torvo.keygen(toy.context, bootstrap=True)
    evaluator = torvo.HomEvaluator(toy.context, keys.pack)
    bootstrapper = torvo.Bootstrapper(evaluator, toy.context.log_slots)
    x = np.linspace(-1, 1, 32) + 0.5j
    ct, real, imaginary = keys.encrypt(x, level=3), torvo.Ciphertext(toy.context), torvo.Ciphertext(toy.context)
    bootstrapper.bootstrap_parts(ct, real, imaginary)
    np.testing.assert_allclose(keys.decrypt(real), x.real, atol=2.0**-16)
    np.testing.assert_allclose(keys.decrypt(imaginary), x.imag, atol=2.0**-16)
    with pytest.raises(ValueError, match="give two ciphertexts"):
        bootstrapper.bootstrap_parts(ct, real, real)
    low, high = torvo.Ciphertext(toy.context), torvo.Ciphertext(toy.context)
    bootstrapper.slot_to_coeff(ct, low)
    assert (low.level, low.encoding_type) == (0, torvo.EncodingType.Coefficient)
    bootstrapper.half_boot(low, high, True)
    np.testing.assert_allclose(keys.decrypt(high), x, atol=2.0**-16)
    with pytest.raises(torvo.Error, match="on its coefficients"):
        bootstrapper.half_boot(ct, high)
    path = str(tmp_path / "constants")
    bootstrapper.save_constants(toy.context.log_slots, path)
    other = torvo.Bootstrapper(evaluator, 1)
    other.read_constants(toy.context.log_slots, path)
    assert other.is_ready(toy.context.log_slots)
    os.truncate(path, 100)
    other.bootstrap(ct, high, True)
    np.testing.assert_allclose(keys.decrypt(high), x, atol=2.0**-16)
    for call in (other.read_constants, other.map_constants):
        with pytest.raises(torvo.Error):
            call(toy.context.log_slots, path)
    indices = torvo.get_rot_indices_for_bootstrap(toy.context, toy.context.log_slots)
    assert indices and all(keys.pack.is_left_rotation_key_loaded(index % 32) for index in indices if index % 32)
    bootstrapping = torvo.BootstrappingEvaluator(evaluator, bootstrapper)
    assert bootstrapping.bootstrapper is bootstrapper and bootstrapping.evaluator.context == toy.context


def test_plaintexts_are_brought_to_levels_and_made_of_coefficients(toy, rng):
    encoder, evaluator = torvo.EnDecoder(toy.context), torvo.HomEvaluator(toy.context, toy.keys.pack)
    plaintext, out = encoder.encode(torvo.Message(2, 0.5)), torvo.Plaintext(toy.context)
    evaluator.relevel(plaintext, 2, out)
    assert out.level == 2 and out.number_of_slots == 4
    np.testing.assert_allclose(np.asarray(encoder.decode(out)), 0.5, atol=1e-8)
    coefficients = rng.uniform(-1, 1, 64)
    made = encoder.encode_without_ntt(coefficients, 3)
    np.testing.assert_allclose(encoder.decode_without_fft(made), coefficients, atol=1e-8)
    assert encoder.encode_without_ntt(torvo.Message(2, 0.5), 3).level == 3
    for wrong in ([float("nan")] * 64, [1e300] * 64, [1.0] * 3, [1.0] * 128, []):
        with pytest.raises(torvo.Error):
            encoder.encode_without_ntt(wrong, 3)
    with pytest.raises(TypeError, match="incompatible"):
        encoder.encode_without_ntt(["a"], 3)


def test_rotations_to_the_right_come_as_a_list(toy):
    evaluator = torvo.HomEvaluator(toy.context, toy.keys.pack)
    x = np.arange(32.0)
    for ct, by in zip(evaluator.right_rotate_many(toy.encrypt(x), [1, 4]), (1, 4)):
        np.testing.assert_allclose(toy.decrypt(ct), np.roll(x, by), atol=1e-6)
    out = torvo.Ciphertext(toy.context)
    ct = toy.encrypt(x)
    evaluator.level_down_one(ct, out)
    assert out.level == ct.level - 1 and out.current_prime == toy.context.primes[out.level]
    assert not out.is_mod_up and out.number_of_slots == 32
    assert out.parameter_preset == torvo.ParameterPreset.FX


def test_words_under_another_context_of_the_ring_are_the_same(toy):
    ct = toy.encrypt([0.5])
    assert ct.under(toy.context).to_bytes() == ct.to_bytes()
    with pytest.raises(torvo.Error, match="does not fit"):
        ct.under(torvo.Context.custom(7, 4, 50, 40, 55, 2))


def test_compact_ciphertexts_of_plaintexts_and_of_levels(toy):
    encryptor = torvo.Encryptor(toy.context)
    compact = encryptor.encrypt_compact(torvo.Message(1, 0.5), toy.keys.secret, level=3, rescale_counter=1)
    assert (compact.level, compact.rescale_counter, compact.context) == (3, 1, toy.context)
    plaintext = torvo.EnDecoder(toy.context).encode(torvo.Message(1, 0.5))
    np.testing.assert_allclose(toy.decrypt(encryptor.encrypt_compact(plaintext, toy.keys.secret).expand()), 0.5, atol=1e-8)
    with pytest.raises(torvo.Error, match="It is empty"):
        torvo.CompactCiphertext(toy.context).expand()


def test_this_build_computes_on_the_cpu(toy):
    tools = torvo.CudaTools
    assert not tools.is_available() and tools.cuda_get_device_count() == 0 and tools.cuda_get_device() == 0
    assert tools.get_cuda_memory_info() == (0, 0)
    tools.cuda_set_device(3), tools.cuda_device_synchronize(), tools.nvtx_push("range"), tools.nvtx_pop()
    torvo.set_current_cuda_device(2)
    assert torvo.get_current_cuda_device() == torvo.Device(torvo.DeviceType.GPU)
    cpu = torvo.Device()
    assert (cpu.type, cpu.id) == (torvo.DeviceType.CPU, 0) and cpu != torvo.DeviceType.CPU
    assert len({cpu, torvo.Device(torvo.DeviceType.CPU), torvo.Device(torvo.DeviceType.GPU)}) == 2
    ct, key = toy.encrypt([0.5]), torvo.SecretKey(toy.context)
    for thing in (ct, key, torvo.Message(2), torvo.Plaintext(toy.context), torvo.KeyPack(toy.context)):
        thing.to(cpu)
        thing.to(torvo.DeviceType.CPU)
        with pytest.raises(TypeError):
            thing.to(None)
        with pytest.raises(TypeError):
            thing.to(0)
    before = ct.to_bytes()
    with pytest.raises(torvo.Error):
        ct.to(torvo.DeviceType.GPU)
    assert ct.to_bytes() == before and ct.device == cpu


def test_presets_say_what_they_work_on():
    presets = torvo.ParameterPreset
    assert torvo.get_encryption_type(presets.SD3D6R2) == torvo.EncryptionType.MLWE
    assert torvo.get_encryption_type(presets.FX) == torvo.EncryptionType.RLWE
    assert torvo.get_sparse_parameter_preset_for(presets.FGd) == presets.SGd0
    assert torvo.ChebyshevSeries.max_degree == 1023
    series = torvo.ChebyshevSeries([0, 1])
    assert series.largest_error(lambda x: 0, -0.5, 0.25) == pytest.approx(0.5)


def test_weighted_means_are_those_of_numpy(toy, evaluator, rng):
    x, y, w, v = rng.uniform(0.1, 1, (4, 16))
    a, b = toy.encrypt(x), toy.encrypt(y)
    np.testing.assert_allclose(toy.decrypt(F.weighted_mean(a, w)), np.average(x, weights=w), atol=1e-7)
    both = np.average(np.concatenate([x, y]), weights=np.concatenate([w, v]))
    np.testing.assert_allclose(toy.decrypt(F.weighted_mean([a, b], [w, v])), both, atol=1e-7)
    blocks = [np.average(x[i : i + 4], weights=w[i : i + 4]) for i in range(0, 16, 4)]
    np.testing.assert_allclose(toy.decrypt(F.weighted_mean(a, message_of(w), length=4)), np.repeat(blocks, 4), atol=1e-7)
    with torvo.Plan(toy.context) as plan:
        planned = F.weighted_mean(plan.encrypt(x), w)
        np.testing.assert_allclose(np.asarray(planned.message).real, np.average(x, weights=w), atol=1e-7)
    clear = F.weighted_mean(message_of(x), w)
    np.testing.assert_allclose(np.asarray(clear).real, np.average(x, weights=w), atol=1e-7)
    for call, exception, text in [
        (lambda: F.weighted_mean(a, w[:3]), ValueError, "3 weights are given for 16 numbers"),
        (lambda: F.weighted_mean([a, b], [w]), ValueError, "2 operands and 1 arrays"),
        (lambda: F.weighted_mean(a, np.zeros(16)), torvo.Error, "sum that is not 0"),
        (lambda: F.weighted_mean(a, np.full(16, np.nan)), torvo.Error, "finite"),
        (lambda: F.weighted_mean(a, ["a"] * 16), TypeError, "dtype"),
    ]:
        with pytest.raises(exception, match=text):
            call()


def test_encrypted_weights_give_the_mean_of_numpy(toy, evaluator, rng):
    x, w = rng.uniform(-1, 1, 16), rng.uniform(0.2, 1, 16)
    a, b = toy.encrypt(x), toy.encrypt(w)
    expected = np.average(x, weights=w)
    mean = F.weighted_mean(a, b, lowest=3, highest=16)
    np.testing.assert_allclose(toy.decrypt(mean), expected, atol=1e-3)
    both = F.weighted_mean([a, a], [b, b], lowest=6, highest=32)
    np.testing.assert_allclose(toy.decrypt(both), expected, atol=1e-3)
    with torvo.Plan(toy.context) as plan:
        planned = F.weighted_mean(plan.encrypt(x), plan.encrypt(w), lowest=3, highest=16)
        np.testing.assert_allclose(np.asarray(planned.message).real, expected, atol=1e-3)
        assert plan.report.constant_bytes >= 0
    with pytest.raises(torvo.Error, match="weightedMean"):
        F.weighted_mean(a, b)  # no bounds on the sum


def test_numbers_are_counted_in_bins(toy, rng):
    x = np.array([-0.8, -0.7, -0.2, 0.3, 0.4, 0.6, 0.7, 0.9])
    edges = [-1, -0.5, 0.05, 0.5, 1]
    expected = np.histogram(x, edges)[0]
    few = torvo.Accuracy(5, 6)
    keys = torvo.keygen(toy.context, bootstrap=True, rotations="all")
    with torvo.Evaluator(keys, bootstrap=True):
        counts = F.histogram(keys.encrypt(np.tile(x, 4)), edges, accuracy=few)
        assert all(isinstance(count, torvo.Ciphertext) and count.shape == (32,) for count in counts)
        for count, number in zip(counts, 4 * expected):
            np.testing.assert_allclose(keys.decrypt(count), number, atol=32 * 2.0**-6)
        message = message_of(x)
        for count, number in zip(F.histogram(message, edges, accuracy=few), expected):
            np.testing.assert_allclose(np.asarray(count), number, atol=8 * 2.0**-6)
        with pytest.raises(torvo.Error, match="two edges or more"):
            F.histogram(message, [0.5])
        with pytest.raises(torvo.Error, match="ascending order"):
            F.histogram(message, [0.5, float("nan")])
        with pytest.raises(TypeError, match="give ciphertexts"):
            F.histogram([0.5], edges)
        with pytest.raises(ValueError, match="no ciphertext"):
            F.histogram([], edges)


@pytest.mark.parametrize(
    "make",
    [
        lambda toy: toy.encrypt([0.5]),
        lambda toy: torvo.EnDecoder(toy.context).encode(torvo.Message(2)),
        lambda toy: torvo.Message(2),
        lambda toy: torvo.ChebyshevSeries([1.0]),
        lambda toy: toy.context,
        lambda toy: toy.keys.secret,
        lambda toy: toy.keys.pack.get_mult_key(),
        lambda toy: torvo.LWECiphertext(torvo.LWEContext(torvo.LWEParameterPreset.SD3)),
    ],
)
def test_a_path_that_cannot_be_written_or_read_is_one_error(toy, tmp_path, make):
    thing = make(toy)
    for path in (str(tmp_path), str(tmp_path / "missing" / "file")):
        with pytest.raises(torvo.Error, match="Cannot open file|Cannot finish writing file"):
            thing.save(path)
    with open(tmp_path / "closed", "w") as file:
        pass
    for wrong in (file, None, 3):
        with pytest.raises(TypeError, match="incompatible"):
            thing.save(wrong)
    if hasattr(thing, "load") and not isinstance(thing, torvo.Context):
        for path in (str(tmp_path), str(tmp_path / "missing"), str(tmp_path / "closed")):
            with pytest.raises(torvo.Error):
                thing.load(path)
