"""Threads, processes, interrupts, memory."""

from __future__ import annotations

import asyncio
import gc
import multiprocessing
import os
import pickle
import signal
import threading
import time
from concurrent.futures import ThreadPoolExecutor
from typing import Any

import numpy as np
import pytest
from sanitizer import not_sanitized

import torvo


def test_threads_that_write_one_ciphertext_in_place_lose_nothing(toy):
    ct = toy.encrypt(np.zeros(32))

    def add() -> None:
        with torvo.Evaluator(toy.keys):
            for _ in range(200):
                torvo.add(ct, 1, out=ct)

    threads = [threading.Thread(target=add) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    np.testing.assert_allclose(toy.decrypt(ct), np.full(32, 800.0), atol=1e-6)


def test_operands_that_two_threads_name_in_opposite_order_do_not_lock_up(toy):
    a, b = toy.encrypt(np.ones(32)), toy.encrypt(np.ones(32))

    def swap(x: Any, y: Any) -> None:
        with torvo.Evaluator(toy.keys) as evaluator:
            for _ in range(500):
                evaluator.native.sub(x, y, y)

    threads = [threading.Thread(target=swap, args=pair, daemon=True) for pair in ((a, b), (b, a))]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join(60)
    assert not any(thread.is_alive() for thread in threads)


def test_a_list_that_another_thread_empties_keeps_its_operands_while_they_are_summed(toy):
    operands: list[Any] = []
    done = threading.Event()

    def refill() -> None:
        while not done.is_set():
            operands[:] = [toy.encrypt([1.0]) for _ in range(20)]
            time.sleep(0.001)
            operands.clear()

    thread = threading.Thread(target=refill)
    thread.start()
    sums: list[float] = []
    try:
        with torvo.Evaluator(toy.keys) as evaluator:
            out = torvo.Ciphertext(toy.context)
            deadline = time.monotonic() + 60
            while len(sums) < 100 and time.monotonic() < deadline:
                try:
                    evaluator.native.rot_sum(operands, [0] * 20, out)
                except torvo.Error:
                    continue  # the list was empty
                sums.append(toy.decrypt(out, full=True)[0].real)
    finally:
        done.set()
        thread.join()
    assert len(sums) == 100
    np.testing.assert_allclose(sums, 20, atol=1e-6)


def test_an_evaluator_belongs_to_its_thread(toy):
    with torvo.Evaluator(toy.keys):
        ct = toy.encrypt([1.0])
        with ThreadPoolExecutor(1) as pool, pytest.raises(torvo.Error, match="in this thread"):
            pool.submit(lambda: ct + 1).result()
        with torvo.Evaluator(toy.keys.public()) as inner:
            assert torvo._current.evaluator() is inner
        np.testing.assert_allclose(toy.decrypt(ct + 1), [2], atol=1e-8)


def test_an_evaluator_belongs_to_its_task(toy):
    ct = toy.encrypt([1.0])

    async def enter(first: asyncio.Event, second: asyncio.Event) -> Any:
        with torvo.Evaluator(toy.keys) as entered:
            first.set()
            await second.wait()
            return entered, torvo._current.evaluator(), ct + 1

    async def both() -> Any:
        one, two = asyncio.Event(), asyncio.Event()
        return await asyncio.gather(enter(one, two), enter(two, one))

    for entered, current, result in asyncio.run(both()):
        assert current is entered
        np.testing.assert_allclose(toy.decrypt(result), [2], atol=1e-8)


def test_other_threads_run_while_one_computes():
    context = torvo.Context("SD3")
    ticks, done = [0], threading.Event()

    def tick() -> None:
        while not done.is_set():
            ticks[0] += 1
            time.sleep(0)

    thread = threading.Thread(target=tick)
    thread.start()
    try:
        before = ticks[0]
        generator = torvo.KeyGenerator(context, torvo.SecretKey(context), torvo.KeyPack(context))
        generator.gen_rot_key_bundle()  # one call, some hundred milliseconds
        assert ticks[0] - before > 100
    finally:
        done.set()
        thread.join()


def test_pickles_give_the_same_objects_again(toy, evaluator):
    x = np.array([0.5, -0.25, 1.0])
    objects = {
        "ciphertext": toy.encrypt(x),
        "array": toy.encrypt(np.arange(70.0)),
        "context": toy.context,
        "keys": toy.keys.public(),
        "message": torvo.Message(2, 0.5),
        "plaintext": torvo.EnDecoder(toy.context).encode(torvo.Message(2, 0.5)),
        "series": torvo.ChebyshevSeries([1, 2j], -2, 3),
    }
    again = pickle.loads(pickle.dumps(objects))
    np.testing.assert_allclose(toy.decrypt(again["ciphertext"]), x, atol=1e-8)
    assert again["ciphertext"].to_bytes() == objects["ciphertext"].to_bytes()
    assert again["ciphertext"].dtype == np.float64
    np.testing.assert_allclose(toy.decrypt(again["array"]), np.arange(70.0), atol=1e-6)
    assert again["context"] == toy.context and hash(again["context"]) == hash(toy.context)
    assert again["keys"].pack.to_bytes() == toy.keys.pack.to_bytes()
    assert (np.asarray(again["message"]) == 0.5).all()
    assert again["plaintext"].to_bytes() == objects["plaintext"].to_bytes()
    assert again["series"].coefficients == [1, 2j] and again["series"].upper == 3


def test_a_pickle_holds_the_file_of_the_context_and_of_the_object(toy):
    ct = toy.encrypt([0.5])
    data = pickle.dumps(ct)
    assert toy.context.to_bytes() in data and ct.to_bytes() in data
    assert len(data) < len(ct.to_bytes()) + 69 + 300


@pytest.mark.parametrize("protocol", range(pickle.HIGHEST_PROTOCOL + 1))
def test_every_format_of_pickles_takes_values_and_refuses_the_rest(toy, protocol):
    values = [torvo.Order.Descending, torvo.ParameterPreset.FX, torvo.LWEParameterPreset.SD3, torvo.DeviceType.GPU]
    assert pickle.loads(pickle.dumps(values, protocol)) == values
    assert repr(pickle.loads(pickle.dumps(torvo.Accuracy(5, 6), protocol))) == repr(torvo.Accuracy(5, 6))
    ct = toy.encrypt([0.5])
    for thing in (ct, toy.context, torvo.Message(2), torvo.ChebyshevSeries([1.0])):
        assert pickle.loads(pickle.dumps(thing, protocol)).to_bytes() == thing.to_bytes()
    with torvo.Plan(toy.context) as plan:
        for thing, text in [
            (torvo.Encryptor(toy.context), "class Encryptor is not pickled; make it again"),
            (toy.keys.pack.get_mult_key(), "class EvaluationKey is not pickled; send what its to_bytes gives"),
            (torvo.HomEvaluator(toy.context, toy.keys.pack), "class HomEvaluator is not pickled"),
            (plan, "class Plan is not pickled"),
            (plan.report, "class PlanReport is not pickled"),
            (torvo.Device(), "class Device is not pickled"),
            (torvo._torvo.Ciphertext(toy.context), "class Ciphertext is not pickled"),
        ]:
            with pytest.raises(TypeError, match=text):
                pickle.dumps(thing, protocol)


@pytest.mark.parametrize("dump", [pickle.dumps, lambda x: pickle.dumps([x], protocol=0)])
def test_secrets_are_not_pickled_and_the_text_says_how_to_save_them(toy, dump):
    with pytest.raises(TypeError, match=r"save\(path\)"):
        dump(toy.keys.secret)
    with pytest.raises(TypeError, match=r"keys\.public\(\)"):
        dump(toy.keys)


def test_public_keys_hold_no_secret(toy):
    public = toy.keys.public()
    assert not hasattr(public, "secret") and not hasattr(public, "decrypt")
    assert not any(isinstance(value, (torvo.SecretKey, torvo.Decryptor, torvo.Keys)) for value in vars(public).values())
    assert vars(torvo.Evaluator(toy.keys)).keys().isdisjoint({"keys", "_keys", "secret"})


def test_keys_come_back_from_a_directory_and_are_read_when_they_are_needed(toy, tmp_path):
    toy.keys.save(tmp_path / "keys")
    toy.keys.secret.save(str(tmp_path / "secret"))
    assert os.stat(tmp_path / "secret").st_mode & 0o777 == 0o600
    assert not any(name.startswith("secret") for name in os.listdir(tmp_path / "keys"))
    public = pickle.loads(pickle.dumps(torvo.PublicKeys.load(tmp_path / "keys")))
    assert not public.pack.is_left_rotation_key_loaded(1)
    with torvo.Evaluator(public):
        ct = public.encrypt([1.0, 2.0]) << 1
    assert public.pack.is_left_rotation_key_loaded(1)
    keys = torvo.Keys.load(tmp_path / "keys", tmp_path / "secret")
    np.testing.assert_allclose(keys.decrypt(ct), [2, 1], atol=1e-8)
    # None of the keys is in memory, and a pickle has them all.
    with torvo.Evaluator(pickle.loads(pickle.dumps(keys.public()))):
        np.testing.assert_allclose(keys.decrypt(ct << 1), [1, 2], atol=1e-8)


def _resident() -> int:
    """Bytes of memory of this process."""
    with open("/proc/self/statm") as file:
        return int(file.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")


@not_sanitized
def test_a_process_keeps_one_context_of_a_content():
    first = torvo.Context("ST11")
    data = pickle.dumps(first)
    before = _resident()
    kept = [pickle.loads(data) for _ in range(50)] + [torvo.Context("ST11") for _ in range(50)]
    assert _resident() - before < 16 << 20  # the tables of one take more than that
    assert all(context == first for context in kept)


@not_sanitized
def test_ten_thousand_objects_leave_no_memory_behind(toy, evaluator):
    def round_trip() -> None:
        ct = toy.encrypt([1.0, 2.0, 3.0])
        out = ct * 2 + [1, 2, 3]
        message = torvo.Message(3)
        view = np.asarray(message)[1:]
        pickle.loads(pickle.dumps(out))
        with pytest.raises(torvo.Error):
            torvo.Ciphertext.from_bytes(toy.context, b"\0" * 30)
        with pytest.raises(BufferError):
            message.resize(4)
        torvo.ChebyshevSeries([1.0, 2.0])(0.5)
        torvo.Context.custom(6, 2, 50, 40, 55, 1)
        view[0] = toy.decrypt(out)[0]

    for _ in range(200):
        round_trip()
    gc.collect()
    before = _resident()
    for _ in range(1500):  # some seven objects each
        round_trip()
    gc.collect()
    assert _resident() - before < 4 << 20


@not_sanitized
def test_ten_thousand_objects_of_packing_leave_no_memory_behind(toy):
    context = torvo.LWEContext(torvo.LWEParameterPreset.SD3)
    secret, encryptor = torvo.LWESecretKey(context), torvo.LWEEncryptor(context)
    evaluator, ring = torvo.LWEHomEvaluator(context), torvo.Context.custom(6, 1, 50, 40, 61, 1)
    ring_secret = torvo.SecretKey(ring)

    plan = torvo.Plan(toy.context)
    planned = plan.encrypt([0.5])

    def round_trip() -> None:
        ct = torvo.LWECiphertext(context)
        encryptor.encrypt(0.5, secret, ct)
        evaluator.add(pickle.loads(pickle.dumps(ct)), ct.copy(), ct)
        torvo.LWESecretKey(context)
        key = torvo.KeyGenerator(ring, ring_secret).gen_compose_key(ring_secret)
        torvo.RingSwitchKey.from_bytes(ring, key.to_bytes())
        torvo.ModPackKeyBundle(ring, 2)
        torvo.LWEContext.from_bytes(context.to_bytes())
        toy.keys.pack.get_mult_key()
        torvo.Encryptor(toy.context).encrypt_compact(torvo.Message(2), toy.keys.secret).expand()
        torvo.functions.sign(planned, accuracy=torvo.Accuracy(4, 4))
        with pytest.raises(torvo.Error):
            torvo.LWECiphertext.from_bytes(context, b"\0" * 30)
        with pytest.raises(TypeError):
            torvo.RingPacker().compose([None], key, torvo.Ciphertext(ring))

    with plan:
        for _ in range(200):
            round_trip()
        gc.collect()
        before = _resident()
        for _ in range(1000):  # some ten objects each
            round_trip()
        gc.collect()
    assert _resident() - before < 4 << 20


def test_threads_that_write_one_number_of_plain_lwe_lose_nothing():
    context = torvo.LWEContext(torvo.LWEParameterPreset.SD3)
    secret, evaluator = torvo.LWESecretKey(context), torvo.LWEHomEvaluator(context)
    ct = torvo.LWECiphertext(context)
    torvo.LWEEncryptor(context).encrypt(0.0, secret, ct)

    def add() -> None:
        for _ in range(500):
            evaluator.add(ct, 1.0, ct)

    threads = [threading.Thread(target=add) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert torvo.LWEDecryptor(context).decrypt(ct, secret) == pytest.approx(2000, abs=1e-6)


def test_a_pack_gives_and_takes_keys_while_threads_use_it(toy):
    data = toy.keys.pack.get_left_rot_key(1).to_bytes()
    done = threading.Event()
    failures: list[BaseException] = []

    def exchange() -> None:
        try:
            while not done.is_set():
                assert toy.keys.pack.get_left_rot_key(1).to_bytes() == data
                toy.keys.pack.load_left_rot_key(1, data)
        except BaseException as failure:
            failures.append(failure)

    thread = threading.Thread(target=exchange)
    thread.start()
    try:
        with torvo.Evaluator(toy.keys):
            ct = toy.encrypt(np.arange(32.0))
            for _ in range(100):
                ct = ct << 1
    finally:
        done.set()
        thread.join()
    assert failures == []
    np.testing.assert_allclose(toy.decrypt(ct), np.roll(np.arange(32.0), -100), atol=1e-6)


def _summed(job: Any) -> Any:
    """In another process: the sum of two numbers, and of what a module holds."""
    number, module, key, accuracy = job
    torvo.LWEHomEvaluator(number.context).add(number, number, number)
    evaluator = torvo.HomEvaluator(module.context, torvo.KeyPack(module.context))
    evaluator.add(module, module, module)
    return number, module, key.to_bytes(), accuracy, os.getpid()


@pytest.mark.parametrize("method", ["fork", "spawn"])
def test_processes_exchange_numbers_modules_and_keys(method):
    context, ring = torvo.LWEContext(torvo.LWEParameterPreset.SD3), torvo.Context("SD3D6R2")
    secret, module_secret = torvo.LWESecretKey(context), torvo.ModuleSecretKey(ring)
    number, module = torvo.LWECiphertext(context), torvo.ModuleCiphertext(ring)
    torvo.LWEEncryptor(context).encrypt(0.5, secret, number)
    torvo.Encryptor(ring).encrypt_coefficients([0.25] * 64, module_secret, module)
    small = torvo.Context.custom(6, 1, 50, 40, 61, 1)
    key = torvo.KeyGenerator(small, torvo.SecretKey(small)).gen_compose_key(torvo.SecretKey(small))
    with multiprocessing.get_context(method).Pool(1) as pool:
        job = (number, module, key, torvo.Accuracy(5, 6))
        doubled, modules, data, accuracy, process = pool.map_async(_summed, [job]).get(timeout=120)[0]
    assert process != os.getpid() and data == key.to_bytes() and accuracy.margin == 5
    assert torvo.LWEDecryptor(context).decrypt(doubled, secret) == pytest.approx(1.0, abs=1e-6)
    coefficients = torvo.Decryptor(ring).decrypt_coefficients(modules, module_secret)
    np.testing.assert_allclose(coefficients, 0.5, atol=1e-6)


def _score(job: Any) -> Any:
    keys, ciphertext = job
    with torvo.Evaluator(keys):
        return ciphertext * ciphertext + 1, os.getpid()


@pytest.mark.parametrize("method", ["fork", "spawn"])
def test_processes_compute_for_each_other(toy, evaluator, method):
    x = np.array([0.5, -0.25, 1.0])
    jobs = [(toy.keys.public(), toy.encrypt(x + i) ** 2) for i in range(4)]
    with multiprocessing.get_context(method).Pool(2) as pool:
        results = pool.map_async(_score, jobs).get(timeout=120)
    for i, (result, process) in enumerate(results):
        assert process != os.getpid()
        np.testing.assert_allclose(toy.decrypt(result), (x + i) ** 4 + 1, atol=1e-5)


def test_an_interrupt_ends_a_long_call_between_two_operations(toy, evaluator):
    array = toy.encrypt(np.ones(320))
    done = []

    def interrupting(part: Any) -> Any:
        done.append(part)
        if len(done) == 3:
            signal.raise_signal(signal.SIGINT)
        return part + 1

    with pytest.raises(KeyboardInterrupt):
        array.map(interrupting)
    assert len(done) == 3


def test_an_interrupt_ends_the_making_of_keys_between_two_of_them(toy, monkeypatch):
    made = []

    class Interrupting(torvo.KeyGenerator):
        def gen_rot_key_if_not_exist(self, index: int) -> None:
            made.append(index)
            if len(made) == 3:
                signal.raise_signal(signal.SIGINT)

    monkeypatch.setattr(torvo._torvo, "KeyGenerator", Interrupting)
    with pytest.raises(KeyboardInterrupt):
        torvo.keygen(toy.context, rotations=range(1, 30))
    assert made == [1, 2, 3]


def test_the_same_seed_gives_the_same_words():
    context = torvo.Context("FX")
    made = []
    for _ in range(2):
        torvo.set_seed([1, 2, 3, 4])
        made.append(torvo.keygen(context).encrypt([0.5]).to_bytes())
    assert made[0] == made[1]
