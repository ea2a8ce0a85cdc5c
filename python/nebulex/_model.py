"""Open networks."""

import concurrent.futures
import os
import threading
from typing import Literal

from nebulex import _nebulex
from nebulex._integers import int32
from nebulex._messages import hand_on

_PROVIDERS = {"auto": _nebulex.PROVIDER_AUTO, "cpu": _nebulex.PROVIDER_CPU}


class Model:
    """An open network, for many images.

    Opening takes about as long as two tiles. One model may be used from several threads at once:
    their calls take turns, a tile each. Several models run side by side.

    Parameters
    ----------
    path : str or os.PathLike, optional
        The network's file, ONNX. The network that comes with the package by default.
    threads : int, optional
        Threads that compute a tile, 1 to 1024. By default as many as there are processors that the
        process may use.
    provider : {"auto", "cpu"}
        "auto" takes a graphics card where one can be used, "cpu" the processor.

    Attributes
    ----------
    path : str
        The network's file.
    provider : str
        What computes the tiles, such as "CPU execution provider".
    threads : int or None
        As given.

    Raises
    ------
    ValueError
        `threads` or `provider` makes no sense.
    ModelError
        The network cannot be found or read, or does not run.
    MemoryError

    Notes
    -----
    A model cannot be used in a process that was forked after it was opened, as `multiprocessing`
    does on Linux unless told otherwise: open one in each process.

    Examples
    --------
    >>> import numpy as np
    >>> model = nebulex.Model(provider="cpu")
    >>> model.provider
    'CPU execution provider'
    >>> nights = [np.full((512, 512), level, np.uint8) for level in (20, 30)]
    >>> [int(nebulex.remove_stars(night, model=model).starless.max()) for night in nights]
    [20, 30]
    """

    def __init__(
        self,
        path: str | os.PathLike[str] | None = None,
        threads: int | None = None,
        provider: Literal["auto", "cpu"] = "auto",
    ) -> None:
        if provider not in _PROVIDERS:
            raise ValueError(f'provider is "auto" or "cpu", not {provider!r}.')
        self.threads = threads
        self._opened = _open(
            "" if path is None else os.fsdecode(path),
            0 if threads is None else int32(threads, "threads"),
            _PROVIDERS[provider],
        )
        hand_on(self._opened.opening_messages)

    @property
    def path(self) -> str:
        return self._opened.path

    @property
    def provider(self) -> str:
        return self._opened.provider

    def __repr__(self):
        return f"<nebulex.Model {self.path!r}, {self.provider}>"


def _open(path, threads, provider):
    """On a thread of its own, so that Ctrl-C need not wait for it."""
    opener = concurrent.futures.ThreadPoolExecutor(1)
    try:
        return opener.submit(_nebulex.Model, path, threads, provider).result()
    finally:
        opener.shutdown(wait=False)


class _DefaultModel:
    """The model of calls that name none: opened at the first one and kept for the process."""

    def __init__(self):
        self._forget()
        os.register_at_fork(after_in_child=self._forget)

    def _forget(self):
        self._lock = threading.Lock()
        self._model = None

    def get(self):
        with self._lock:
            if self._model is None:
                self._model = Model()
            return self._model


_default = _DefaultModel()


def model_or_default(model):
    """Raises TypeError for what is no model."""
    if model is None:
        return _default.get()
    if not isinstance(model, Model):
        raise TypeError(
            f"model is a nebulex.Model or None, not {model!r}. To use a network's file: "
            "nebulex.Model(path)."
        )
    return model
