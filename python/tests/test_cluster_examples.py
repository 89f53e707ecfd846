"""The examples of clusters and of servers, run as programs; and what the server refuses."""

from __future__ import annotations

import http.client
import importlib.util
import os
import socket
import subprocess
import sys
import threading
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import numpy as np
import pytest

import torvo

EXAMPLES = Path(__file__).resolve().parents[2] / "examples" / "python"
PACKAGE = Path(torvo.__file__).parent.parent


def run(name: str, folder: Path) -> str:
    """What the program prints. It checks its numbers by itself."""
    environment = {**os.environ, "PYTHONPATH": str(PACKAGE), "OMP_NUM_THREADS": "1"}
    command = [sys.executable, str(EXAMPLES / name), "--small"]
    done = subprocess.run(command, cwd=folder, env=environment, capture_output=True, text=True, timeout=300)
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def test_scoring_on_a_cluster(tmp_path):
    pytest.importorskip("distributed")
    printed = run("04_distributed_scoring.py", tmp_path)
    assert "192 scores from 2 processes" in printed and "refused: " in printed and "two steps of training" in printed
    assert list(tmp_path.iterdir()) == []


def test_a_client_and_a_server(tmp_path):
    printed = run("05_client_and_server.py", tmp_path)
    assert printed.count("score 0.") == 3 and "a damaged upload: 400 the upload is no ciphertext" in printed
    assert list(tmp_path.iterdir()) == []


@pytest.fixture(scope="module")
def example() -> Any:
    spec = importlib.util.spec_from_file_location("client_and_server", EXAMPLES / "05_client_and_server.py")
    assert spec is not None and spec.loader is not None
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


@pytest.fixture
def server(example) -> Iterator[Any]:
    made = example.make_server("FX")
    thread = threading.Thread(target=made.serve_forever)
    thread.start()
    yield made
    made.shutdown()
    thread.join()
    made.server_close()


@pytest.fixture
def send(example, server) -> Any:
    """A request to the server: the status and the text or the bytes of the answer."""
    return lambda *request: example.send(server.server_port, *request)


@pytest.fixture
def request_(toy) -> bytes:
    return toy.encrypt(np.linspace(-1, 1, 16)).to_bytes()


def test_the_server_scores_what_the_client_decrypts(toy, example, send, request_):
    assert send("PUT", "/keys", toy.keys.pack.to_bytes()) == (200, b"")
    status, body = send("POST", "/score", request_)
    score = toy.decrypt(torvo.Ciphertext.from_bytes(toy.context, body))[0].real
    expected = 1 / (1 + np.exp(-(np.linspace(-1, 1, 16) @ example.WEIGHTS + example.BIAS)))
    assert status == 200 and abs(score - expected) < 2e-3


@pytest.mark.parametrize("save", [torvo.SecretKey.save, torvo.SecretKey.save_seed_only])
def test_the_server_refuses_a_secret_key_and_holds_none(toy, server, send, request_, tmp_path, save):
    assert send("PUT", "/keys", toy.keys.pack.to_bytes())[0] == 200
    kept = server.evaluator
    save(toy.keys.secret, str(tmp_path / "secret"))
    for method, path in (("PUT", "/keys"), ("POST", "/score")):
        status, text = send(method, path, (tmp_path / "secret").read_bytes())
        assert status == 400 and b"the upload is a secret key, which no server may have" in text
    # The keys that it had are there still, and no secret beside them.
    assert server.evaluator is kept and send("POST", "/score", request_)[0] == 200
    held = [*vars(server).values(), *vars(server.evaluator).values()]
    assert not any(isinstance(value, (torvo.SecretKey, torvo.Keys, torvo.Decryptor)) for value in held)


@pytest.mark.parametrize(
    "damage", [lambda data: data[:-1], lambda data: data + b"0", lambda data: b"", lambda data: b"\xff" * 99]
)
def test_a_damaged_upload_is_refused_with_a_text(toy, send, request_, damage):
    for method, path, kind, data in (
        ("PUT", "/keys", "key pack", toy.keys.pack.to_bytes()),
        ("POST", "/score", "ciphertext", request_),
    ):
        status, text = send(method, path, damage(data))
        assert status == 400 and text.startswith(f"the upload is no {kind}: ".encode()), text
        assert b"/proc" not in text


def test_another_kind_or_ring_or_length_is_refused_with_a_text(toy, send, request_):
    assert send("POST", "/score", request_) == (409, b"no keys are here; PUT them to /keys first")
    assert send("PUT", "/keys", toy.keys.pack.to_bytes())[0] == 200
    other = torvo.keygen(torvo.Context("SD3"))
    for request in (
        ("PUT", "/keys", request_),
        ("POST", "/score", toy.keys.pack.to_bytes()),
        ("PUT", "/keys", other.pack.to_bytes()),
        ("POST", "/score", other.encrypt(np.zeros(16)).to_bytes()),
        ("POST", "/score", toy.encrypt(np.zeros(8)).to_bytes()),
        ("POST", "/score", toy.encrypt(np.zeros(16), level=0).to_bytes()),
    ):
        status, text = send(*request)
        assert status == 400 and len(text) > 20, request[:2]
    assert send("GET", "/keys", b"")[0] == 501 and send("PUT", "/score", b"")[0] == 404
    assert send("POST", "/score", request_)[0] == 200


def test_keys_that_lack_one_are_refused_when_it_is_needed(toy, send, request_):
    bare = torvo.keygen(toy.context, secret=toy.keys.secret)
    assert send("PUT", "/keys", bare.pack.to_bytes())[0] == 200
    status, text = send("POST", "/score", request_)
    assert status == 400 and b"no left rotation key for index" in text


@pytest.mark.parametrize(
    "length, status",
    [((64 << 20) + 1, 413), (2**63, 413), ("9" * 5000, 413), ("-1", 411), ("many", 411), (None, 411)],
)
def test_a_length_is_refused_before_anything_is_read(server, length, status):
    connection = http.client.HTTPConnection("127.0.0.1", server.server_port, timeout=20)
    connection.putrequest("POST", "/score")
    if length is not None:
        connection.putheader("Content-Length", str(length))
    connection.endheaders()
    response = connection.getresponse()
    assert response.status == status and len(response.read()) > 20
    connection.close()


def test_an_upload_that_ends_early_is_refused(server, request_):
    with socket.create_connection(("127.0.0.1", server.server_port), timeout=20) as line:
        line.sendall(b"POST /score HTTP/1.1\r\nContent-Length: %d\r\n\r\n" % len(request_) + request_[:100])
        line.shutdown(socket.SHUT_WR)
        answer = b"".join(iter(lambda: line.recv(4096), b""))
    assert b" 400 " in answer and b"bytes early; send it again" in answer


def test_several_clients_are_served_at_once(toy, example, server, send, request_):
    assert send("PUT", "/keys", toy.keys.pack.to_bytes())[0] == 200
    answers: list[Any] = []
    threads = [threading.Thread(target=lambda: answers.append(send("POST", "/score", request_))) for _ in range(8)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join(60)
    assert len(answers) == 8 and len(set(answers)) == 1 and answers[0][0] == 200
