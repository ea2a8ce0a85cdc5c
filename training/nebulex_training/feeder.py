"""Batches computed ahead by a thread of their own, while the network learns from the last one."""

import queue
import threading

import torch

_AHEAD = 2
_TILE = 512  # pixels, the program's


class BatchFeeder:
    """Draws batches from a pool in a fixed order and renews the pool's scenes between them.

    The pool and the dice belong to the feeder's thread from here on. After next(), state is what
    a checkpoint needs to go on behind that batch. drawn is how many batches there were before.
    """

    def __init__(self, pool, dice, plan, drawn):
        self._pool, self._dice, self._plan, self._drawn = pool, dice, plan, drawn
        self._ready = queue.Queue(_AHEAD)
        self._stopped = threading.Event()
        self._whole_tiles = threading.Event()
        self.state = self._state()
        self._thread = threading.Thread(
            target=self._feed, args=(torch.get_num_threads(),), daemon=True
        )
        self._thread.start()

    def next(self):
        """Pictures with and without stars, batch x 3 x patch x patch.

        Raises what computing them raised.
        """
        batch, self.state, error = self._ready.get()
        if error is not None:
            raise error
        return batch

    def take_whole_tiles(self):
        """From one of the next batches on they are a few whole tiles in the place of patches."""
        self._whole_tiles.set()

    def stop(self):
        """Ends the thread; next() must not be called any more."""
        self._stopped.set()
        while self._thread.is_alive():
            try:
                self._ready.get(timeout=0.1)
            except queue.Empty:
                pass

    def _feed(self, thread_count):
        torch.set_num_threads(thread_count)  # OpenMP keeps the number for each thread
        while not self._stopped.is_set():
            try:
                item = (self._compute(), self._state(), None)
            except Exception as error:  # pylint: disable=broad-except  # next() raises it
                item = (None, self.state, error)
            self._ready.put(item)
            if item[2] is not None:
                return

    def _compute(self):
        plan = self._plan
        if self._whole_tiles.is_set():
            tile = min(_TILE, plan.scene_size)
            count = max(1, plan.batch * plan.patch**2 // tile**2)
            batch = self._pool.draw_whole(self._dice, count, tile)
        else:
            batch = self._pool.draw_batch(self._dice, plan.batch, plan.patch)
        self._drawn += 1
        share = plan.fresh_scenes
        due = int(self._drawn * share) - int((self._drawn - 1) * share)
        if due > 0:
            self._pool.refresh(due)
        return batch

    def _state(self):
        return {"next_scene": self._pool.next_number, "dice": self._dice.state()}
