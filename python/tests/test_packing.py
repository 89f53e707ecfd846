"""Plain LWE, modules, and the ways between them and rings."""

from __future__ import annotations

import copy
import os
import pickle
from typing import Any

import numpy as np
import pytest
from sanitizer import not_sanitized

import torvo

#: Scales have 40 bits and more; hops and encryptions leave errors of some hundred units.
TOLERANCE = 2.0**-26


class Plain:
    """Plain LWE of a preset, with a secret key."""

    def __init__(self, context: torvo.LWEContext) -> None:
        self.context = context
        self.secret = torvo.LWESecretKey(context)
        self.evaluator = torvo.LWEHomEvaluator(context)

    def encrypt(self, number: float, **options: Any) -> torvo.LWECiphertext:
        out = torvo.LWECiphertext(self.context)
        torvo.LWEEncryptor(self.context).encrypt(number, self.secret, out, **options)
        return out

    def decrypt(self, ciphertext: torvo.LWECiphertext) -> float:
        return torvo.LWEDecryptor(self.context).decrypt(ciphertext, self.secret)


class Rings:
    """A ring of degree 64 and one of degree 128 that share their only prime, with a secret key each."""

    def __init__(self) -> None:
        for bits in range(50, 60):
            small, large = (torvo.Context.custom(degree, 1, bits, 40, 61, 1) for degree in (6, 7))
            if small.primes[0] == large.primes[0]:
                break
        else:
            pytest.fail("no size of primes gives both rings one")
        self.small, self.large = small, large
        self.small_secret, self.large_secret = torvo.SecretKey(small), torvo.SecretKey(large)
        self.generator = torvo.KeyGenerator(large, self.large_secret)
        self.compose_key = self.generator.gen_compose_key(self.small_secret)
        self.decompose_key = self.generator.gen_decompose_key(large, self.small_secret)


@pytest.fixture(scope="module")
def plain() -> Plain:
    return Plain(torvo.LWEContext(torvo.LWEParameterPreset.SD3))


@pytest.fixture(scope="module")
def rings() -> Rings:
    return Rings()


def on_coefficients(context: torvo.Context, secret: Any, values: Any) -> Any:
    """An encryption of numbers on the coefficients, of a ring or of a module."""
    out = torvo.Ciphertext(context) if context.rank == 1 else torvo.ModuleCiphertext(context)
    torvo.Encryptor(context).encrypt_coefficients(values, secret, out)
    return out


def coefficients_of(context: torvo.Context, secret: Any, ciphertext: Any) -> Any:
    return np.array(torvo.Decryptor(context).decrypt_coefficients(ciphertext, secret))


def test_numbers_in_plain_lwe_are_computed_on(plain):
    a, b, out = plain.encrypt(0.75), plain.encrypt(-0.5), torvo.LWECiphertext(plain.context)
    evaluator = plain.evaluator
    for call, expected in [
        (lambda: evaluator.negate(a, out), -0.75),
        (lambda: evaluator.add(a, b, out), 0.25),
        (lambda: evaluator.add(a, 0.125, out), 0.875),
        (lambda: evaluator.sub(a, b, out), 1.25),
        (lambda: evaluator.sub(a, 0.125, out), 0.625),
        (lambda: evaluator.mult_integer(a, -3, out), -2.25),
        (lambda: evaluator.mult(a, 0.3, out), 0.225),
        (lambda: evaluator.level_down(a, 1, out), 0.75),
        (lambda: evaluator.level_down_one(a, out), 0.75),
    ]:
        call()
        assert plain.decrypt(out) == pytest.approx(expected, abs=TOLERANCE)
    evaluator.mult_without_rescale(a, 0.3, out)
    assert (out.level, out.rescale_counter) == (3, 1)
    evaluator.rescale(out)
    assert (out.level, out.rescale_counter) == (2, 0)
    assert plain.decrypt(out) == pytest.approx(0.225, abs=TOLERANCE)
    evaluator.add(a, a, a)  # an output may be an operand
    assert plain.decrypt(a) == pytest.approx(1.5, abs=TOLERANCE)
    low = plain.encrypt(0.5, level=1, rescale_counter=1)
    assert (low.level, low.rescale_counter) == (1, 1) and plain.decrypt(low) == pytest.approx(0.5, abs=TOLERANCE)


def test_a_context_of_plain_lwe_says_what_it_is(tmp_path):
    context = torvo.LWEContext(torvo.LWEParameterPreset.SD3)
    assert (context.dimension, context.encryption_level, context.security_level) == (32, 3, 128)
    assert len(context.primes) == len(context.scale_factors) == 4
    context.save(str(tmp_path / "context"))
    assert len(context.to_bytes()) == 37 and (tmp_path / "context").read_bytes() == context.to_bytes()
    for again in (torvo.LWEContext.load(str(tmp_path / "context")), pickle.loads(pickle.dumps(context))):
        assert again == context and hash(again) == hash(context) and again.primes == context.primes
    other = torvo.LWEContext.custom(8, 2, 50, 40)
    assert other != context and other.dimension == 8 and other != 8


def test_objects_of_packing_are_copied_pickled_and_saved(plain, rings, tmp_path):
    module = torvo.Context("SD3D6R2")
    bundle = torvo.KeyGenerator(torvo.Context("SD3")).gen_mod_pack_key_bundle(
        torvo.ModuleSecretKey(module), torvo.SecretKey(torvo.Context("SD3"))
    )
    objects = [
        plain.encrypt(0.5),
        on_coefficients(module, torvo.ModuleSecretKey(module), [0.5, 0.25]),
        torvo.Encryptor(rings.small).encrypt_compact(torvo.Message(2, 0.5), rings.small_secret),
        rings.compose_key,
        bundle,
    ]
    for i, thing in enumerate(objects):
        again = pickle.loads(pickle.dumps(thing))
        assert type(again) is type(thing) and again.to_bytes() == thing.to_bytes()
        assert again.context == thing.context and len(thing.to_bytes()) == thing.saved_size
        path = str(tmp_path / str(i))
        thing.save(path)
        assert os.path.getsize(path) == thing.saved_size
        again.load(path)
        assert again.to_bytes() == thing.to_bytes()
        with open(path, "r+b") as file:
            file.truncate(thing.saved_size - 1)
        with pytest.raises(torvo.Error):
            again.load(path)
        assert again.to_bytes() == thing.to_bytes()
    for thing in objects[:2]:
        assert copy.deepcopy(thing).to_bytes() == copy.copy(thing).to_bytes() == thing.to_bytes()


def test_secrets_of_plain_lwe_and_of_modules_stay_out_of_pickles(plain, tmp_path):
    module = torvo.ModuleSecretKey(torvo.Context("SD3D6R2"))
    for secret, kind in ((plain.secret, torvo.LWESecretKey), (module, torvo.ModuleSecretKey)):
        for protocol in (0, pickle.HIGHEST_PROTOCOL):
            with pytest.raises(TypeError, match=kind.__name__):
                pickle.dumps([secret], protocol)
        with pytest.raises(TypeError):
            copy.deepcopy(secret)
        for save in (secret.save, secret.save_seed_only):
            path = str(tmp_path / kind.__name__)
            save(path)
            assert os.stat(path).st_mode & 0o777 == 0o600
            again = kind(secret.context, path)
            again.save(path + "2")
            secret.save(path)
            assert open(path, "rb").read() == open(path + "2", "rb").read()
        assert os.path.getsize(path) == secret.saved_size
        assert not hasattr(secret, "to_bytes")


def test_two_small_ciphertexts_become_a_large_one_and_two_again(rings, rng):
    x, y = rng.uniform(-0.4, 0.4, (2, 64))  # level 0 takes numbers up to a half
    parts = [on_coefficients(rings.small, rings.small_secret, values) for values in (x, y)]
    assert torvo.get_num_ciphertexts_to_full_compose(rings.small, rings.large) == 2
    assert torvo.get_num_ciphertexts_after_full_decompose(rings.large, rings.small) == 2
    assert torvo.get_max_compatible_level(rings.small, rings.large) == 0
    packer, large = torvo.RingPacker(), torvo.Ciphertext(rings.large)
    packer.compose(parts, rings.compose_key, large)
    both = coefficients_of(rings.large, rings.large_secret, large)
    bound = 2.0 ** (10 - large.scale_factor)
    np.testing.assert_allclose(both, np.stack([x, y], axis=1).ravel(), atol=bound)
    outs = [torvo.Ciphertext(rings.small) for _ in range(2)]
    packer.decompose(large, rings.decompose_key, tuple(outs))
    for out, values in zip(outs, (x, y)):
        np.testing.assert_allclose(coefficients_of(rings.small, rings.small_secret, out), values, atol=2 * bound)
    packer.compose(parts[:1], rings.compose_key, large)
    embedded = coefficients_of(rings.large, rings.large_secret, large)
    np.testing.assert_allclose(embedded[::2], x, atol=bound)
    np.testing.assert_allclose(embedded[1::2], 0, atol=bound)


def test_a_module_is_packed_into_a_ring(rng):
    module, ring = torvo.Context("SD3D6R2"), torvo.Context("SD3")
    source, target = torvo.ModuleSecretKey(module), torvo.SecretKey(ring)
    keys = torvo.KeyGenerator(ring).gen_mod_pack_key_bundle(source, target)
    assert keys.num_keys == module.rank == 4
    count = torvo.get_num_ciphertexts_to_mod_pack(module, ring)
    values = rng.uniform(-1, 1, (count, module.degree))
    parts = [on_coefficients(module, source, row) for row in values]
    np.testing.assert_allclose(coefficients_of(module, source, parts[0]), values[0], atol=TOLERANCE)
    out = torvo.Ciphertext(ring)
    torvo.RingPacker().mod_pack(parts, keys, out)
    np.testing.assert_allclose(coefficients_of(ring, target, out), values.T.ravel(), atol=TOLERANCE)


def test_numbers_of_plain_lwe_are_packed_into_a_ring(plain, rng):
    ring = torvo.Context("SD3")
    target = torvo.SecretKey(ring)
    keys = torvo.KeyGenerator(ring).gen_mod_pack_key_bundle(plain.secret, target)
    count = torvo.get_num_ciphertexts_to_mod_pack(plain.context, ring)
    assert (count, keys.num_keys) == (ring.degree, 32)
    assert torvo.get_max_compatible_level(plain.context, ring) == 3
    values = rng.uniform(-1, 1, count)
    out = torvo.Ciphertext(ring)
    torvo.RingPacker().mod_pack([plain.encrypt(value) for value in values], keys, out)
    np.testing.assert_allclose(coefficients_of(ring, target, out), values, atol=TOLERANCE)


def test_coefficients_become_numbers_of_plain_lwe(rng):
    ring, numbers = torvo.Context("FGbD12L0"), torvo.LWEContext(torvo.LWEParameterPreset.FGbD12L0)
    secret = torvo.SecretKey(ring)
    values = rng.uniform(-1, 1, ring.degree)
    ciphertext = on_coefficients(ring, secret, values)
    outs = [torvo.LWECiphertext(numbers) for _ in range(torvo.get_num_ciphertexts_after_un_pack(ring))]
    torvo.RingPacker().un_pack(ciphertext, outs)
    key = torvo.gen_lwe_secret_key_after_un_pack(numbers, secret)
    decryptor = torvo.LWEDecryptor(numbers)
    # A unit is 2^-42, and nothing is added to the error of the encryption.
    np.testing.assert_allclose([decryptor.decrypt(out, key) for out in outs], values, atol=2.0**-36)


def test_ciphertexts_of_modules_are_computed_on(toy, rng):
    context = torvo.Context("SD3D6R2")
    secret = torvo.ModuleSecretKey(context)
    evaluator = torvo.HomEvaluator(context, torvo.KeyPack(context))
    encryptor, decryptor = torvo.Encryptor(context), torvo.Decryptor(context)

    def encrypted(values: Any) -> torvo.ModuleCiphertext:
        out = torvo.ModuleCiphertext(context)
        message = torvo.Message(5)
        np.asarray(message)[:] = values
        encryptor.encrypt(message, secret, out)
        return out

    x, y = rng.uniform(-1, 1, (2, 32))
    a, b, out = encrypted(x), encrypted(y), torvo.ModuleCiphertext(context)
    assert (a.size, a.is_ntt, a.parameter_preset) == (5, True, torvo.ParameterPreset.SD3D6R2)
    clear = torvo.Message(5, 0.25)
    plaintext = torvo.EnDecoder(context).encode(clear)
    for call, expected in [
        (lambda: evaluator.negate(a, out), -x),
        (lambda: evaluator.add(a, b, out), x + y),
        (lambda: evaluator.add(a, 0.5, out), x + 0.5),
        (lambda: evaluator.add(a, clear, out), x + 0.25),
        (lambda: evaluator.sub(a, b, out), x - y),
        (lambda: evaluator.sub(a, plaintext, out), x - 0.25),
        (lambda: evaluator.mult(a, 0.5, out), x / 2),
        (lambda: evaluator.mult(a, clear, out), x / 4),
        (lambda: evaluator.mult(a, plaintext, out), x / 4),
        (lambda: evaluator.mult_integer(a, 3, out), 3 * x),
        (lambda: evaluator.mult_imag_unit(a, out), 1j * x),
        (lambda: evaluator.level_down(a, 1, out), x),
        (lambda: evaluator.level_down_one(a, out), x),
        (lambda: (evaluator.mult_without_rescale(a, 0.5, out), evaluator.rescale(out)), x / 2),
    ]:
        call()
        message = torvo.Message()
        decryptor.decrypt(out, secret, message)
        np.testing.assert_allclose(np.asarray(message), expected, atol=TOLERANCE)
    encryptor.encrypt(plaintext, secret, out)
    decryptor.decrypt(out, secret, plaintext)
    np.testing.assert_allclose(np.asarray(torvo.EnDecoder(context).decode(plaintext)), 0.25, atol=TOLERANCE)
    with pytest.raises(TypeError, match="incompatible function arguments"):
        evaluator.add(a, torvo.Ciphertext(toy.context), out)
    for wrong in (torvo.Ciphertext, torvo.SecretKey):
        with pytest.raises(torvo.Error, match="RLWE|rank|equal to one|does not support"):
            wrong(context)
    with pytest.raises(torvo.Error, match="does not support"):
        torvo.ModuleCiphertext(toy.context)


def test_what_plain_lwe_cannot_do_is_refused_and_nothing_is_written(plain):
    ct = plain.encrypt(0.5)
    other = Plain(torvo.LWEContext.custom(8, 2, 50, 40))
    foreign = other.encrypt(0.5)
    out = plain.encrypt(0.25)
    before = out.to_bytes()
    encryptor = torvo.LWEEncryptor(plain.context)
    for call, exception, text in [
        (lambda: encryptor.encrypt(float("nan"), plain.secret, out), torvo.Error, r"\[encode\] Cannot encode"),
        (lambda: encryptor.encrypt(float("inf"), plain.secret, out), torvo.Error, r"\[encode\] Cannot encode"),
        (lambda: encryptor.encrypt(1e300, plain.secret, out), torvo.Error, r"\[encode\] Cannot encode"),
        (lambda: encryptor.encrypt("0.5", plain.secret, out), TypeError, "incompatible"),
        (lambda: encryptor.encrypt(np.zeros(2), plain.secret, out), TypeError, "incompatible|size-1|length-1"),
        (lambda: encryptor.encrypt(1j, plain.secret, out), TypeError, "incompatible"),
        (lambda: encryptor.encrypt(0.5, None, out), TypeError, "incompatible"),
        (lambda: encryptor.encrypt(0.5, plain.secret, out, level=4), torvo.Error, "target level"),
        (lambda: encryptor.encrypt(0.5, plain.secret, out, level=-1), TypeError, "incompatible"),
        (lambda: encryptor.encrypt(0.5, plain.secret, out, rescale_counter=4), torvo.Error, "rescale counter"),
        (lambda: encryptor.encrypt(0.5, other.secret, out), torvo.Error, "different dimensions"),
        (lambda: plain.decrypt(foreign), torvo.Error, "different dimension"),
        (lambda: plain.evaluator.add(ct, foreign, out), torvo.Error, "different|ring"),
        (lambda: plain.evaluator.mult(ct, float("nan"), out), torvo.Error, r"\[encode\] Cannot encode"),
        (lambda: plain.evaluator.mult_integer(ct, 2**70, out), TypeError, "incompatible"),
        (lambda: plain.evaluator.mult(plain.encrypt(0.5, level=0), 0.5, out), torvo.Error, "level of the operand is zero"),
        (lambda: plain.evaluator.level_down(plain.encrypt(0.5, level=1), 2, out), torvo.Error, "target level"),
        (lambda: torvo.LWECiphertext.from_bytes(plain.context, before[:-1]), torvo.Error, ""),
        (lambda: torvo.LWECiphertext.from_bytes(plain.context, before + b"x"), torvo.Error, "stand behind"),
        (lambda: torvo.LWECiphertext.from_bytes(other.context, before), torvo.Error, "Validation failed"),
        (lambda: torvo.LWECiphertext.from_bytes(plain.context, "text"), TypeError, "incompatible"),
        (lambda: torvo.LWEContext.from_bytes(b""), torvo.Error, ""),
        (lambda: torvo.LWEContext.from_bytes(b"\xff" * 37), torvo.Error, ""),
        (lambda: torvo.LWEContext(torvo.LWEParameterPreset.CUSTOM), torvo.Error, "CUSTOM"),
        (lambda: torvo.LWEContext.custom(0, 1, 50, 40), torvo.Error, "Invalid dimension"),
        (lambda: torvo.LWEContext(None), TypeError, "incompatible"),
        (lambda: torvo.LWESecretKey(plain.context, "/nowhere/key"), torvo.Error, "Cannot open file /nowhere/key"),
        (lambda: torvo.LWECiphertext.__new__(torvo.LWECiphertext).to_bytes(), TypeError, "__new__ alone"),
    ]:
        with pytest.raises(exception, match=text):
            call()
        assert out.to_bytes() == before
    with pytest.raises(torvo.Error, match="Rescale counter"):
        out.rescale_counter = 9


@not_sanitized
def test_no_memory_for_a_number_of_plain_lwe_is_a_memory_error(plain):
    with pytest.raises(MemoryError):
        plain.encrypt(0.5).level = 1 << 60


def test_what_cannot_be_packed_is_refused_and_nothing_is_written(toy, plain, rings):
    small = [on_coefficients(rings.small, rings.small_secret, np.full(64, 0.25)) for _ in range(2)]
    large = on_coefficients(rings.large, rings.large_secret, np.full(128, 0.25))
    outs = [torvo.Ciphertext(rings.small) for _ in range(2)]
    before, out_before = large.to_bytes(), outs[0].to_bytes()
    packer, bundle = torvo.RingPacker(), torvo.ModPackKeyBundle(rings.large, 1)
    slots = torvo.Ciphertext(rings.small)
    for call, exception, text in [
        (lambda: packer.compose([], rings.compose_key, large), torvo.Error, r"\[compose\]"),
        (lambda: packer.compose([*small, small[0]], rings.compose_key, large), torvo.Error, r"\[compose\]"),
        (lambda: packer.compose([small[0], None], rings.compose_key, large), TypeError, "incompatible"),
        (lambda: packer.compose(small[0], rings.compose_key, large), TypeError, "incompatible"),
        (lambda: packer.compose(small, None, large), TypeError, "incompatible"),
        (lambda: packer.compose([slots, slots], rings.compose_key, large), torvo.Error, "on its coefficients"),
        (lambda: packer.decompose(large, rings.decompose_key, [outs[0], outs[0]]), ValueError, "named twice"),
        (lambda: packer.decompose(large, rings.decompose_key, []), torvo.Error, r"\[decompose\]"),
        (lambda: packer.mod_pack([], bundle, large), torvo.Error, r"\[modPack\]"),
        (lambda: packer.mod_pack([plain.encrypt(0.5)], bundle, large), torvo.Error, r"\[modPack\]"),
        (lambda: packer.mod_pack([plain.encrypt(0.5), small[0]], bundle, large), TypeError, "incompatible"),
        (lambda: packer.un_pack(large, [torvo.LWECiphertext(plain.context)]), torvo.Error, r"\[unPack\]"),
        (lambda: torvo.KeyGenerator(rings.large).gen_compose_key(rings.small_secret), torvo.Error, "without a default secret key"),
        (lambda: rings.generator.gen_compose_key(toy.keys.secret), torvo.Error, "compatible|subset"),
        (lambda: rings.generator.gen_mod_pack_key_bundle(plain.secret, rings.small_secret), torvo.Error, "dimension"),
        (lambda: torvo.ModPackKeyBundle(rings.large, 1 << 40), torvo.Error, "at most 1048576"),
        (lambda: torvo.ModPackKeyBundle.from_bytes(rings.large, b"", 1), torvo.Error, "too few for 1 packing keys"),
        (lambda: torvo.ModPackKeyBundle.from_bytes(rings.large, bytes(999), 1 << 20), torvo.Error, "too few for 1048576"),
        (lambda: torvo.ModPackKeyBundle.from_bytes(rings.large, bytes(1 << 14), 1), torvo.Error, ""),
        (lambda: torvo.RingSwitchKey.from_bytes(toy.context, rings.compose_key.to_bytes()), torvo.Error, "Validation failed"),
        (lambda: torvo.RingSwitchKey.from_bytes(rings.large, b"\0" * 50), torvo.Error, ""),
        (lambda: torvo.get_max_compatible_level(toy.context, rings.large), torvo.Error, "not compatible"),
    ]:
        with pytest.raises(exception, match=text):
            call()
        assert large.to_bytes() == before and outs[0].to_bytes() == out_before
