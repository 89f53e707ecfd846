"""A pool of workers in processes of their own: order, lost workers, poisoned inputs, keys, secrets."""

from __future__ import annotations

import inspect
import os
import pickle
import shutil
import signal
import subprocess
import sys
import time
from collections.abc import Iterator
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from typing import Any

import numpy as np
import pytest

import torvo

distributed = pytest.importorskip("distributed")
cloudpickle = pytest.importorskip("cloudpickle")

import dask

from torvo import functions as F
from torvo.distributed import BatchError, Failure, Pool

# Workers do not have this file: its functions travel whole.
cloudpickle.register_pickle_by_value(sys.modules[__name__])

#: Every worker whose batch dies twice is believed to be no accident: half of what Dask allows, to save time.
SETTINGS = {"distributed.scheduler.allowed-failures": 1, "distributed.logging.distributed": "critical"}


def start(workers: int = 2, **options: Any) -> Any:
    options = {"threads_per_worker": 1, "dashboard_address": ":0", "silence_logs": 60, **options}
    with dask.config.set(SETTINGS):
        return distributed.LocalCluster(n_workers=workers, **options)


@pytest.fixture(scope="module")
def client() -> Iterator[Any]:
    with start() as cluster, distributed.Client(cluster) as made:
        yield made


@pytest.fixture(scope="module")
def directory(toy, tmp_path_factory) -> Path:
    made = tmp_path_factory.mktemp("keys")
    toy.keys.save(made)
    return made


@pytest.fixture
def pool(client, directory) -> Iterator[Pool]:
    with Pool(client, directory, timeout=60) as made:
        yield made


def rows(count: int, length: int = 8) -> Any:
    return np.linspace(-0.9, 0.9, count * length).reshape(count, length)


def score(ct: Any, weights: Any, bias: float) -> Any:
    return F.sigmoid(F.inner_product([ct], [ct]) * 0.1 + weights + bias, bound=4, error=1e-3)


def slow_first(ct: Any, slow: bytes) -> Any:
    """The results of early inputs come last."""
    if ct.to_bytes() == slow:
        time.sleep(1)
    return ct + 1, os.getpid()


def test_results_come_in_the_order_of_the_inputs_from_several_processes(toy, pool):
    x = rows(12)
    cts = [toy.encrypt(row) for row in x]
    results = pool.map(slow_first, cts, cts[0].to_bytes(), batch=1)
    for row, (result, _) in zip(x, results):
        np.testing.assert_allclose(toy.decrypt(result), row + 1, atol=1e-6)
    processes = {process for _, process in results}
    assert len(processes) == 2 and os.getpid() not in processes


@pytest.mark.parametrize("batch", [None, 1, 5, 1000])
def test_batches_of_any_size_give_the_words_of_one_process(toy, evaluator, pool, batch):
    cts = [toy.encrypt(row) for row in rows(7)]
    weights = toy.encrypt(rows(1)[0])
    results = pool.map(score, cts, weights, 0.25, batch=batch)
    assert [result.to_bytes() for result in results] == [score(ct, weights, 0.25).to_bytes() for ct in cts]
    assert all(result.shape == (8,) and result.dtype == np.float64 for result in results)


def test_an_iterable_is_taken_as_workers_get_free(toy, pool):
    ct = toy.encrypt([0.5])
    taken = []

    def items() -> Iterator[Any]:
        for index in range(1000):
            taken.append(index)
            yield ct

    results = pool.imap(lambda ct: ct + 1, items(), batch=1)
    for _ in range(3):
        np.testing.assert_allclose(toy.decrypt(next(results)), [1.5], atol=1e-6)
    assert len(taken) < 30
    results.close()
    np.testing.assert_allclose(toy.decrypt(pool.sum([ct, ct])), [1], atol=1e-6)


def test_threads_of_the_client_and_of_a_worker_share_a_pool(toy, directory):
    x = rows(8)
    with start(1, threads_per_worker=2) as cluster, distributed.Client(cluster) as made:
        with Pool(made, directory) as pool, ThreadPoolExecutor(4) as callers:
            calls = [callers.submit(pool.map, square, [toy.encrypt(row) for row in x], batch=1) for _ in range(4)]
            for call in calls:
                np.testing.assert_allclose([toy.decrypt(ct) for ct in call.result(60)], x**2, atol=1e-6)


def test_no_more_bytes_are_under_way_than_a_scheduler_can_hold(toy, pool, monkeypatch):
    ct = toy.encrypt([0.5])
    taken = []

    def items() -> Iterator[Any]:
        for index in range(20):
            taken.append(index)
            yield ct

    monkeypatch.setattr(torvo.distributed, "_BYTES_AHEAD", 1)
    results = pool.imap(lambda ct: ct + 1, items(), batch=1)
    next(results)
    assert len(taken) == 2  # the one whose batch is under way, and the one that ends it
    np.testing.assert_allclose([toy.decrypt(result)[0] for result in results], [1.5] * 19, atol=1e-6)


def test_no_input_gives_no_result_and_no_sum(pool):
    assert pool.map(torvo.negative, []) == []
    with pytest.raises(ValueError, match="no input"):
        pool.sum([])


@pytest.mark.parametrize("batch", [0, -1, True, 1.5])
def test_a_batch_is_a_positive_integer(toy, pool, batch):
    with pytest.raises(ValueError, match="give a positive integer"):
        pool.map(torvo.negative, [toy.encrypt([1.0])], batch=batch)


def square(ct: Any) -> Any:
    return ct * ct


@pytest.mark.parametrize("batch", [1, 4, None])
def test_a_poisoned_input_fails_alone_with_its_index(toy, pool, tmp_path, batch):
    """A ciphertext without levels, a damaged file, none at all, something else."""
    x = rows(10)
    cts: list[Any] = [toy.encrypt(row) for row in x]
    cts[2] = toy.encrypt(x[2], level=0)
    (tmp_path / "damaged").write_bytes(cts[5].to_bytes()[:-100])
    cts[5] = tmp_path / "damaged"
    cts[6] = tmp_path / "missing"
    cts[9] = "text"
    with pytest.raises(BatchError, match=r"^4 of 10 inputs failed, the first of them: input 2: Error: ") as caught:
        pool.map(square, cts, batch=batch)
    error = caught.value
    assert isinstance(error, torvo.Error)
    assert [failure.index for failure in error.failures] == [2, 5, 6, 9]
    assert error.failures[2].text.startswith("Cannot open file") and error.failures[3].kind == "TypeError"
    assert "in square" in error.failures[3].traceback
    for index, result in enumerate(error.results):
        if index in (2, 5, 6, 9):
            assert result is None
        else:
            np.testing.assert_allclose(toy.decrypt(result), x[index] ** 2, atol=1e-6)
    found = list(pool.imap(square, cts, batch=batch))
    assert [index for index, result in enumerate(found) if isinstance(result, Failure)] == [2, 5, 6, 9]


@pytest.mark.parametrize("batch", [1, 3, None])
def test_a_sum_with_poisoned_inputs_names_them(toy, pool, batch):
    cts: list[Any] = [toy.encrypt(row) for row in rows(10)]
    cts[3], cts[7] = "text", "more"
    with pytest.raises(BatchError, match=r"^2 of 10 inputs failed, the first of them: input 3: TypeError") as caught:
        pool.map_reduce(square, cts, batch=batch)
    assert [failure.index for failure in caught.value.failures] == [3, 7]
    assert caught.value.results is None


@pytest.mark.parametrize("batch", [1, 10])
def test_an_input_that_does_not_go_with_those_before_is_named(toy, pool, batch):
    cts = [toy.encrypt(np.ones(4 if index == 5 else 8)) for index in range(10)]
    with pytest.raises(BatchError, match=r"the first of them: input 5: ValueError: ciphertexts of shapes"):
        pool.sum(cts, batch=batch)


def test_a_result_that_does_not_pickle_is_a_failure_of_its_input(toy, pool):
    made = list(pool.imap(lambda ct: (lambda: 1) if ct.shape == (2,) else ct, [toy.encrypt([1.0] * n) for n in (1, 2)]))
    assert isinstance(made[1], Failure) and "pickle" in made[1].text
    assert made[0].shape == (1,)


def die_once(ct: Any, marker: str) -> Any:
    """Kills its worker, the first one of all."""
    try:
        os.close(os.open(marker, os.O_CREAT | os.O_EXCL))
    except FileExistsError:
        return ct + 1
    os.kill(os.getpid(), signal.SIGKILL)


def test_nothing_is_lost_with_a_worker_that_is_killed(toy, pool, tmp_path):
    x = rows(20)
    results = pool.map(die_once, [toy.encrypt(row) for row in x], str(tmp_path / "map"), batch=2)
    assert (tmp_path / "map").exists()
    np.testing.assert_allclose([toy.decrypt(result) for result in results], x + 1, atol=1e-6)
    total = pool.map_reduce(die_once, [toy.encrypt(row) for row in x], str(tmp_path / "reduce"), batch=2)
    assert (tmp_path / "reduce").exists()
    np.testing.assert_allclose(toy.decrypt(total), (x + 1).sum(axis=0), atol=1e-6)


def test_a_worker_killed_from_outside_in_the_middle_loses_nothing(toy, pool):
    x = rows(30)
    results = pool.imap(lambda ct: (time.sleep(0.05), ct + 1, os.getpid())[1:], [toy.encrypt(r) for r in x], batch=1)
    got = [next(results)]
    os.kill(got[0][1], signal.SIGKILL)
    got += results
    np.testing.assert_allclose([toy.decrypt(result) for result, _ in got], x + 1, atol=1e-6)
    assert len({process for _, process in got}) > 1


def kill(ct: Any) -> Any:
    if ct.shape == (4,):
        os.kill(os.getpid(), signal.SIGKILL)
    return ct + 1


def test_an_input_that_kills_every_worker_fails_alone(toy, pool):
    cts = [toy.encrypt([0.5] * (4 if index == 3 else 8)) for index in range(8)]
    with pytest.raises(BatchError, match="1 of 8 inputs failed, .* input 3: KilledWorker: every worker") as caught:
        pool.map(kill, cts, batch=2)
    for index, result in enumerate(caught.value.results):
        assert (result is None) == (index == 3)
    with pytest.raises(BatchError, match="input 3: KilledWorker"):
        pool.map_reduce(kill, cts, batch=2)


@pytest.mark.parametrize("count, batch", [(1, None), (2, 1), (9, 1), (70, 1), (70, 4), (70, None)])
def test_a_sum_by_a_tree_has_the_words_of_a_sum_in_a_row(toy, evaluator, pool, count, batch):
    x = rows(count)
    cts = [toy.encrypt(row) for row in x]
    total = cts[0].copy()
    for ct in cts[1:]:
        total += ct
    assert pool.sum(cts, batch=batch).to_bytes() == total.to_bytes()
    np.testing.assert_allclose(toy.decrypt(pool.mean(cts, batch=batch)), x.mean(axis=0), atol=1e-6)


def test_a_combination_keeps_the_order(toy, pool):
    cts = [toy.encrypt([float(index)]) for index in range(20)]
    joined = pool.map_reduce(lambda ct: [ct], cts, combine=lambda a, b: a + b, batch=2)
    np.testing.assert_allclose([toy.decrypt(ct)[0] for ct in joined], np.arange(20), atol=1e-5)


def gradient(part: Any, weights: Any) -> Any:
    """Of the squared error of a line through the origin, over one partition of points."""
    x, y = part
    return (x * weights - y) * x


def test_training_steps_sum_gradients_over_partitions(toy, pool, rng):
    x = rng.uniform(0.5, 1, (12, 8))
    y = 0.7 * x
    partitions = [(toy.encrypt(a), toy.encrypt(b)) for a, b in zip(x, y)]
    weights, expected = toy.encrypt(np.zeros(8)), np.zeros(8)
    for _ in range(3):
        slope = pool.map_reduce(gradient, partitions, weights, batch=2)
        weights = pool.map(lambda pair: pair[0] - pair[1] * 0.1, [(weights, slope)])[0]
        expected = expected - 0.1 * ((x * expected - y) * x).sum(axis=0)
    np.testing.assert_allclose(toy.decrypt(weights), expected, atol=1e-4)


def test_ciphertexts_are_bootstrapped_by_the_workers(toy, client, tmp_path):
    keys = torvo.keygen(toy.context, bootstrap=True, rotations="all")
    keys.save(tmp_path)
    x = rows(3, 32) / 2
    with Pool(client, tmp_path, bootstrap=True) as pool:
        made = pool.bootstrap([keys.encrypt(row, level=3) for row in x])
        for row, ct in zip(x, made):
            assert ct.level > 3
            np.testing.assert_allclose(keys.decrypt(ct), row, atol=2.0**-16)
    with Pool(client, tmp_path) as pool, pytest.raises(BatchError, match="no bootstrapper"):
        pool.bootstrap([keys.encrypt(x[0])])


def test_a_path_is_the_file_of_a_ciphertext_that_the_worker_reads(toy, pool, tmp_path):
    x = rows(4)
    paths = [tmp_path / f"{index}.bin" for index in range(4)]
    for path, row in zip(paths, x):
        toy.encrypt(row).save(str(path))
    for row, ct in zip(x, pool.map(torvo.add, paths, 1.0)):
        np.testing.assert_allclose(toy.decrypt(ct), row + 1, atol=1e-6)
    np.testing.assert_allclose(toy.decrypt(pool.sum(paths)), x.sum(axis=0), atol=1e-6)
    added = pool.map(lambda pair, shared: pair[0] + pair[1] + shared, [(paths[0], paths[1])], paths[2])[0]
    np.testing.assert_allclose(toy.decrypt(added), x[:3].sum(axis=0), atol=1e-6)


def kept() -> list[str]:
    """The pools whose evaluators this process keeps."""
    from torvo import _worker

    return [setup.pool for setup in _worker._evaluators]


def test_a_process_makes_one_evaluator_for_a_pool_and_forgets_it_with_the_pool(toy, client, directory):
    with Pool(client, directory) as pool:
        name = pool._setup.pool
        assert pool.map(lambda ct: kept().count(name), [toy.encrypt([0.5])] * 12, batch=1) == [1] * 12
        assert any(name in pools for pools in client.run(kept).values())
    assert not any(name in pools for pools in client.run(kept).values())


def test_a_process_reads_a_key_when_it_is_first_needed_and_keeps_it(toy, directory, tmp_path):
    shutil.copytree(directory, tmp_path / "keys")
    ct = toy.encrypt([0.5, 0.25])
    with start(1) as cluster, distributed.Client(cluster) as made, Pool(made, tmp_path / "keys", timeout=60) as pool:
        pool.map(square, [ct])
        shutil.rmtree(tmp_path / "keys" / "PK")
        np.testing.assert_allclose(toy.decrypt(pool.map(square, [ct])[0]), [0.25, 0.0625], atol=1e-6)
        with pytest.raises(BatchError, match="1 of 1 inputs failed"):
            pool.map(lambda ct: ct << 1, [ct])


def test_arrays_longer_than_a_ciphertext_are_inputs_too(toy, pool):
    x = np.linspace(-1, 1, 70)
    arrays = [toy.encrypt(x), toy.encrypt(x + 1)]
    np.testing.assert_allclose(toy.decrypt(pool.map(square, arrays)[1]), (x + 1) ** 2, atol=1e-5)
    np.testing.assert_allclose(toy.decrypt(pool.sum(arrays)), 2 * x + 1, atol=1e-5)


def test_evaluators_of_pools_that_nobody_closed_do_not_pile_up(toy, client, directory):
    for _ in range(7):
        Pool(client, directory).map(torvo.negative, [toy.encrypt([0.5])] * 4, batch=1)
    assert all(1 <= len(pools) <= 4 for pools in client.run(kept).values())


def test_a_worker_computes_with_as_many_threads_as_it_is_told(toy, client, directory):
    ct = toy.encrypt([0.5])
    for threads, options in ((1, {}), (3, {"threads": 3})):
        with Pool(client, directory, **options) as pool:
            assert pool.map(lambda ct: torvo.get_thread_count(), [ct] * 3) == [threads] * 3


# --- keys ---


def test_a_key_directory_that_is_missing_on_the_workers_is_named(toy, client, tmp_path):
    pool = Pool(client, tmp_path / "nowhere")
    with pytest.raises(torvo.Error, match=r"a worker on .* cannot use the keys: Cannot open file .*nowhere"):
        pool.map(torvo.negative, [toy.encrypt([1.0])])


def test_a_directory_without_keys_is_refused_at_once(client, tmp_path):
    with pytest.raises(torvo.Error, match="Cannot open file"):
        Pool(client, tmp_path)


def test_a_directory_without_the_key_needed_fails_the_inputs_that_need_it(toy, client, tmp_path):
    bare = torvo.keygen(toy.context, secret=toy.keys.secret)
    bare.save(tmp_path)
    cts = [toy.encrypt([0.5] * n) for n in (4, 1, 4)]
    with Pool(client, tmp_path) as pool, pytest.raises(BatchError, match="no left rotation key for index 1") as caught:
        pool.map(lambda ct: ct << 1 if ct.slots > 1 else ct + 1, cts)
    assert [failure.index for failure in caught.value.failures] == [0, 2]
    np.testing.assert_allclose(toy.decrypt(caught.value.results[1]), [1.5], atol=1e-6)


def test_keys_of_another_context_fail_the_inputs_or_the_pool(toy, client, directory, tmp_path):
    other = torvo.keygen(torvo.Context("SD3"))
    other.save(tmp_path / "other")
    with Pool(client, tmp_path / "other") as pool, pytest.raises(BatchError, match="not of the ring"):
        pool.map(lambda ct: ct * ct, [toy.encrypt([0.5])])
    # The workers see another directory under the path than the client did.
    shutil.copytree(directory, tmp_path / "moved")
    pool = Pool(client, tmp_path / "moved")
    shutil.rmtree(tmp_path / "moved")
    shutil.copytree(tmp_path / "other", tmp_path / "moved")
    with pytest.raises(torvo.Error, match="is of another context than the pool"):
        pool.map(torvo.negative, [toy.encrypt([0.5])])
    with pytest.raises(torvo.Error, match="is of another context than the pool"):
        Pool(client, _loaded_elsewhere(directory, tmp_path / "moved"))


def _loaded_elsewhere(directory: Path, moved: Path) -> torvo.PublicKeys:
    keys = torvo.PublicKeys.load(directory)
    keys._directory = str(moved)
    return keys


# --- secrets ---


@pytest.mark.parametrize("save", [torvo.SecretKey.save, torvo.SecretKey.save_seed_only])
@pytest.mark.parametrize("place", ["key.bin", "PK/RotKey9.bin", "below/further/key"])
def test_a_key_directory_with_a_secret_is_refused_by_client_and_workers(toy, client, directory, tmp_path, save, place):
    shutil.copytree(directory, tmp_path / "keys")
    path = tmp_path / "keys" / place
    path.parent.mkdir(parents=True, exist_ok=True)
    pool = Pool(client, tmp_path / "keys")  # as yet there is none
    save(toy.keys.secret, str(path))
    with pytest.raises(torvo.Error, match=f"cannot use the keys: the key directory .* holds a secret key, .*{place}"):
        pool.map(torvo.negative, [toy.encrypt([1.0])])
    with pytest.raises(torvo.Error, match="holds a secret key"):
        Pool(client, tmp_path / "keys")


def test_a_link_to_a_secret_counts_and_a_circle_of_links_ends(toy, client, directory, tmp_path):
    shutil.copytree(directory, tmp_path / "keys")
    (tmp_path / "keys" / "circle").symlink_to(tmp_path / "keys")
    with Pool(client, tmp_path / "keys") as pool:
        np.testing.assert_allclose(toy.decrypt(pool.map(torvo.negative, [toy.encrypt([1.0])])[0]), [-1], atol=1e-6)
    (tmp_path / "secrets").mkdir()
    toy.keys.secret.save(str(tmp_path / "secrets" / "key"))
    (tmp_path / "keys" / "elsewhere").symlink_to(tmp_path / "secrets")
    with pytest.raises(torvo.Error, match="holds a secret key"):
        Pool(client, tmp_path / "keys")


def test_a_directory_of_too_many_files_is_none_for_keys(client, directory, tmp_path, monkeypatch):
    monkeypatch.setattr(torvo._worker, "_MOST_FILES", 3)
    with pytest.raises(torvo.Error, match="more than 3 files"):
        Pool(client, directory)


def test_no_secret_travels_in_a_function_an_input_or_what_is_shared(toy, client, pool):
    keys, secret, ct = toy.keys, toy.keys.secret, toy.encrypt([0.5])
    generator = torvo.KeyGenerator(toy.context, secret, toy.keys.pack)
    for hidden in (keys, secret, [secret], {"key": keys}, generator):
        with pytest.raises(TypeError, match="pickle"):
            pool.map(lambda ct: hidden, [ct])
        with pytest.raises(TypeError, match="pickle"):
            pool.map(torvo.add, [ct, hidden])
        with pytest.raises(TypeError, match="pickle"):
            pool.map(torvo.add, [ct], hidden)
        with pytest.raises(TypeError, match="pickle"):
            pool.map_reduce(None, [ct], combine=lambda a, b: hidden)
    # Nor where nothing is pickled on the way: workers that are threads of this process.
    with start(1, processes=False) as cluster, distributed.Client(cluster) as near:
        local = Pool(near, pool._setup.directory)
        with pytest.raises(TypeError, match="pickle"):
            local.map(lambda ct: secret, [ct])
        np.testing.assert_allclose(toy.decrypt(local.map(torvo.add, [ct], 1.0)[0]), [1.5], atol=1e-6)


def test_keys_with_a_secret_make_no_pool_and_a_pool_holds_none(toy, client, directory, tmp_path):
    with pytest.raises(TypeError, match=r"do not go to a cluster"):
        Pool(client, toy.keys)
    toy.keys.secret.save(str(tmp_path / "secret"))
    with pytest.raises(TypeError, match=r"do not go to a cluster"):
        Pool(client, torvo.Keys.load(directory, tmp_path / "secret"))
    with pytest.raises(TypeError, match="in memory alone"):
        Pool(client, toy.keys.public())
    with Pool(client, torvo.PublicKeys.load(directory)) as pool:
        pickle.dumps(pool._setup)
        assert pool._setup.directory == str(directory)


# --- clients ---


@pytest.mark.parametrize("threads", [0, -1, True, 1.5])
def test_threads_are_a_positive_integer(client, directory, threads):
    with pytest.raises(ValueError, match="give a positive integer"):
        Pool(client, directory, threads=threads)
    if threads is not True and threads < 1:
        with pytest.raises(ValueError, match="give a positive integer"):
            torvo.set_thread_count(threads)


def test_a_closed_client_and_a_closed_pool_say_what_to_do(toy, client, directory):
    ct = toy.encrypt([0.5])
    pool = Pool(client, directory)
    pool.close()
    pool.close()
    with pytest.raises(torvo.Error, match="the pool is closed; make another one"):
        pool.map(torvo.negative, [ct])
    with distributed.Client(client.cluster) as other:
        pool = Pool(other, directory)
    for call in (lambda: pool.map(torvo.negative, [ct]), lambda: pool.sum([ct])):
        with pytest.raises(torvo.Error, match="the client of the pool is closed; make a new client"):
            call()
    pool.close()
    with pytest.raises(TypeError, match="give a distributed.Client"):
        Pool("tcp://127.0.0.1:8786", directory)


def test_a_client_that_is_closed_in_the_middle_ends_the_call(toy, directory):
    ct = toy.encrypt([0.5])
    with start(1) as cluster, distributed.Client(cluster) as made:
        results = Pool(made, directory).imap(lambda ct: (time.sleep(0.2), ct + 1)[1], [ct] * 50, batch=1)
        next(results)
        made.close()
        with pytest.raises(torvo.Error, match="closed") as caught:
            list(results)
        assert len(str(caught.value)) < 200 and caught.value.__context__ is None


def test_a_cluster_without_workers_is_waited_for_as_long_as_one_is_told(toy, directory):
    with start(0) as cluster, distributed.Client(cluster) as made:
        with pytest.raises(torvo.Error, match="no result came for 0.5 s; look whether the cluster has workers"):
            Pool(made, directory, timeout=0.5).map(torvo.negative, [toy.encrypt([0.5])])
        cluster.scale(1)
        result = Pool(made, directory, timeout=60).map(torvo.negative, [toy.encrypt([0.5])])[0]
        np.testing.assert_allclose(toy.decrypt(result), [-0.5], atol=1e-6)


def test_everything_public_has_a_docstring():
    for public in (torvo.distributed, Pool, BatchError, Failure):
        assert inspect.getdoc(public)
        for name, member in vars(public).items():
            if inspect.isfunction(member) and not name.startswith("_"):
                assert inspect.getdoc(member), name


def test_without_dask_the_import_says_what_to_install(tmp_path):
    (tmp_path / "distributed.py").write_text("raise ImportError('no such thing')\n")
    script = "import torvo\ntry:\n    import torvo.distributed\nexcept ImportError as e:\n    print(e)\n"
    path = os.pathsep.join([str(tmp_path), str(Path(torvo.__file__).parent.parent)])
    environment = {**os.environ, "PYTHONPATH": path}
    done = subprocess.run([sys.executable, "-c", script], env=environment, capture_output=True, text=True)
    text = "torvo.distributed needs Dask; install python3-distributed, or distributed with pip\n"
    assert done.stdout == text, done.stderr
