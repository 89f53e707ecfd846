"""Messages as buffers."""

from __future__ import annotations

import gc
import threading

import numpy as np
import pytest

import torvo


def test_an_array_stands_on_the_slots_themselves():
    message = torvo.Message(3, 0.5)
    array = np.asarray(message)
    assert array.shape == (8,) and array.dtype == np.complex128 and array.flags.writeable
    array[2] = 1 + 2j
    assert message[2] == 1 + 2j
    message[-1] = 7
    assert array[7] == 7
    assert np.asarray(message).__array_interface__["data"] == array.__array_interface__["data"]


def test_a_view_keeps_the_slots_alive():
    array = np.asarray(torvo.Message(10, 3.0))
    gc.collect()
    assert (array == 3).all()


def test_a_message_without_slots_is_an_empty_array():
    assert np.asarray(torvo.Message()).shape == (0,)


def test_while_a_view_lives_the_slots_stay_where_they_are(toy, tmp_path):
    path = str(tmp_path / "message")
    message, other = torvo.Message(2, 1.0), torvo.Message(4)
    other.save(path)
    ciphertext = toy.encrypt([1.0, 2.0])
    evaluator = torvo.HomEvaluator(toy.context, toy.keys.pack)
    moves = [
        lambda: message.resize(64),
        lambda: message.load(path),
        lambda: message.to(torvo.DeviceType.CPU),
        lambda: torvo.Decryptor(toy.context).decrypt(ciphertext, toy.keys.secret, message),
        lambda: evaluator.add(other, 1.0, message),
    ]
    for look in (np.asarray, memoryview):
        view = look(message)
        for move in moves:
            with pytest.raises(BufferError, match="1 live view"):
                move()
        assert len(message) == 4 and message[0] == 1
        del view
    gc.collect()
    for move in moves:
        move()
    assert len(message) == 16


def test_two_views_are_counted_apart():
    message = torvo.Message(2)
    first, second = np.asarray(message), np.asarray(message)[1:]
    del first
    with pytest.raises(BufferError):
        message.resize(8)
    del second
    message.resize(8)
    assert len(message) == 8


def test_views_are_taken_while_other_threads_resize():
    message = torvo.Message(4)
    refused, done = [0], threading.Event()

    def resize() -> None:
        while not done.is_set():
            for size in (16, 1 << 14):
                try:
                    message.resize(size)
                except BufferError:
                    refused[0] += 1

    thread = threading.Thread(target=resize)
    thread.start()
    try:
        for _ in range(2000):
            array = np.asarray(message)
            array[:] = 1
            assert array.size in (16, 1 << 14) and (array == 1).all()
            del array
    finally:
        done.set()
        thread.join()
    message.resize(2)
    assert len(message) == 2


def test_slots_outside_are_refused():
    message = torvo.Message(2)
    for index in (4, -5):
        with pytest.raises(IndexError, match="4 slots"):
            message[index]
        with pytest.raises(IndexError):
            message[index] = 1
