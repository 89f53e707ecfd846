# %% [markdown]
# # A client and a server
#
# A server scores encrypted records over HTTP, with nothing but Python's own library. The client keeps the secret key;
# what it uploads are public keys and ciphertexts in their file formats. `python 05_client_and_server.py` is the client,
# which starts the server as a process of its own; with `--small` on toy parameters.

# %%
import http.client
import os
import signal
import subprocess
import sys
import threading
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

import numpy as np

import torvo

FEATURES = 16
WEIGHTS, BIAS = 0.3 * np.cos(0.7 * np.arange(FEATURES)), -0.2
#: What the server reads at most: the keys of one client, and one ciphertext.
LIMITS = {"key pack": 1 << 30, "ciphertext": 64 << 20}

# %% [markdown]
# ## The server
#
# It knows a preset, so that no upload decides how much memory a context takes. An upload is refused before a byte of it
# is read if it is too long, and before it is loaded if it is something else than the path says: above all a secret key,
# which a server must never have. `torvo.inspect` looks at a file in memory, so that none lies on the server's disk.


# %%
class Refusal(Exception):
    """What is wrong with a request: a status of HTTP and a text."""

    def __init__(self, status, text):
        super().__init__(text)
        self.status = status


class Scoring(BaseHTTPRequestHandler):
    """PUT /keys takes a key pack; POST /score takes a ciphertext and returns the scores."""

    timeout = 60  # of a client that says nothing

    def do_PUT(self):
        self.answer(self.keys if self.path == "/keys" else self.nothing_here)

    def do_POST(self):
        self.answer(self.score if self.path == "/score" else self.nothing_here)

    def keys(self):
        pack = torvo.KeyPack(self.server.context)
        pack.load_bytes(self.upload("key pack"))
        self.server.evaluator = torvo.Evaluator(torvo.PublicKeys(self.server.context, pack))
        return b""

    def score(self):
        ciphertext = torvo.Ciphertext.from_bytes(self.server.context, self.upload("ciphertext"))
        if self.server.evaluator is None:
            raise Refusal(409, "no keys are here; PUT them to /keys first")
        if ciphertext.slots != FEATURES:
            raise Refusal(400, f"the ciphertext has {ciphertext.slots} slots; give {FEATURES} features")
        with self.server.evaluator:
            total = torvo.functions.sum(ciphertext * WEIGHTS) + BIAS
            return torvo.functions.sigmoid(total, bound=4, error=1e-3).to_bytes()

    def nothing_here(self):
        raise Refusal(404, f"there is no {self.path}; PUT /keys or POST /score")

    def upload(self, kind):
        """The bytes of the request, which are a file of this kind."""
        length = self.headers.get("Content-Length", "")
        if not length.isdecimal():
            raise Refusal(411, "the length of the upload is not told; send Content-Length")
        if len(length) > 18 or int(length) > LIMITS[kind]:
            raise Refusal(413, f"the upload is longer than the {LIMITS[kind]} bytes that a {kind} has at most")
        with open(os.memfd_create("upload"), "w+b") as file:
            left = int(length)
            while left > 0 and (data := self.rfile.read(min(left, 1 << 20))):
                left -= file.write(data)
            if left > 0:
                raise Refusal(400, f"the upload ended {left} bytes early; send it again")
            file.flush()
            path = f"/proc/self/fd/{file.fileno()}"
            report = torvo.inspect(path)
            kinds = [content.kind for content in report.kinds]
            if any(found.endswith("secret key") for found in kinds):
                raise Refusal(400, "the upload is a secret key, which no server may have; it is not kept")
            if kind not in kinds:
                found = " or ".join(kinds) or report.refusal.replace(path, "the upload")
                raise Refusal(400, f"the upload is no {kind}: {found}")
            file.seek(0)
            return file.read()

    def answer(self, work):
        try:
            status, body = 200, work()
        except Refusal as refusal:
            status, body = refusal.status, str(refusal).encode()
        except torvo.Error as error:  # what the library refuses: damaged, of another context, without a key
            status, body = 400, str(error).encode()
        self.close_connection = status != 200  # what is left of the upload is not read
        self.send_response(status)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *_):
        """Nothing: who asks what is the client's affair."""


def make_server(preset, port=0):
    """A server of this machine alone; port 0 takes a free one."""
    server = ThreadingHTTPServer(("127.0.0.1", port), Scoring)
    server.context, server.evaluator = torvo.Context(preset), None
    return server


# %% [markdown]
# ## The client


# %%
def send(port, method, path, body):
    """The status and the body of the answer."""
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=120)
    try:
        connection.request(method, path, body)
        response = connection.getresponse()
        return response.status, response.read()
    finally:
        connection.close()


def request(port, preset):
    context = torvo.Context(preset)
    keys = torvo.keygen(context, rotations=[1, 2, 4, 8])
    pack = keys.pack.to_bytes()
    status, _ = send(port, "PUT", "/keys", pack)
    assert status == 200
    print(f"uploaded {len(pack) / 2**20:.1f} MiB of public keys")

    rng = np.random.default_rng(1)
    for _ in range(3):
        record = rng.uniform(-1, 1, FEATURES)
        ciphertext = keys.encrypt(record)
        status, body = send(port, "POST", "/score", ciphertext.to_bytes())
        assert status == 200, body
        score = keys.decrypt(torvo.Ciphertext.from_bytes(context, body))[0].real
        expected = 1 / (1 + np.exp(-(record @ WEIGHTS + BIAS)))
        print(f"score {score:.5f}, in the clear {expected:.5f}")
        assert abs(score - expected) < 2e-3

    status, text = send(port, "POST", "/score", ciphertext.to_bytes()[:-1])
    print(f"a damaged upload: {status} {text.decode()}")
    assert status == 400


def main():
    preset = "FX" if "--small" in sys.argv else "ST11"
    server = subprocess.Popen([sys.executable, __file__, "serve", preset], stdout=subprocess.PIPE, text=True)
    try:
        request(int(server.stdout.readline()), preset)
    finally:
        server.send_signal(signal.SIGTERM)
        server.wait()


def serve(preset):
    server = make_server(preset)
    print(server.server_port, flush=True)
    signal.signal(signal.SIGTERM, lambda *_: threading.Thread(target=server.shutdown).start())
    server.serve_forever()


# %%
if __name__ == "__main__":
    serve(sys.argv[2]) if sys.argv[1:2] == ["serve"] else main()
