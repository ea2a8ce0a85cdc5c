"""Eight Python threads, with one model and with eight."""

import concurrent.futures
import threading
import time
import unittest

import numpy as np

import nebulex
from images import network, star_field

THREADS = 8


def remove(image, model):
    return nebulex.remove_stars(image, mask=True, model=model)


class Threads(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.images = [star_field(520 + seed, 600 - seed, seed=seed) for seed in range(THREADS)]
        alone = nebulex.Model(network("pattern"))
        cls.expected = [remove(image, alone) for image in cls.images]

    def same_as_alone(self, models):
        start = threading.Barrier(THREADS)

        def work(image, model):
            start.wait()
            return [remove(image, model) for _ in range(2)]

        with concurrent.futures.ThreadPoolExecutor(THREADS) as pool:
            rounds = list(pool.map(work, self.images, models))
        for results, expected in zip(rounds, self.expected):
            for result in results:
                np.testing.assert_array_equal(result.starless, expected.starless)
                np.testing.assert_array_equal(result.mask, expected.mask)

    def test_with_one_model(self):
        self.same_as_alone([nebulex.Model(network("pattern"))] * THREADS)

    def test_with_eight_models(self):
        self.same_as_alone([nebulex.Model(network("pattern")) for _ in range(THREADS)])

    def test_a_call_from_inside_a_progress_function(self):
        model = nebulex.Model(network("pattern"))
        inner = []

        def call_again(done, total):
            if done == 1:
                inner.append(remove(self.images[1], model).starless)

        got = nebulex.remove_stars(self.images[0], model=model, progress=call_again)
        np.testing.assert_array_equal(inner[0], self.expected[1].starless)
        np.testing.assert_array_equal(got.starless, self.expected[0].starless)

    def test_other_threads_run_meanwhile(self):
        counted, done = [0], threading.Event()

        def count():
            while not done.is_set():
                counted[0] += 1
                time.sleep(0.001)

        counter = threading.Thread(target=count)
        image = star_field(900, 900, dtype=np.float64)
        model = nebulex.Model(network("pattern"))
        counter.start()
        before = counted[0]
        nebulex.remove_stars(image, stride=128, model=model)
        after = counted[0]
        done.set()
        counter.join()
        self.assertGreater(after - before, 10)


if __name__ == "__main__":
    unittest.main()
