"""What `progress=` means."""

import contextlib

from nebulex._messages import warn


def progress_function(progress):
    """A context that gives the function to call with (done, total), or None; it closes its own bar."""
    if progress is None or progress is False:
        return contextlib.nullcontext()
    if progress is True:
        return _new_bar()
    if callable(progress):
        return contextlib.nullcontext(progress)
    raise TypeError(f"progress is None, True or a function of (done, total), not {progress!r}.")


def _new_bar():
    try:
        from tqdm.auto import tqdm
    except ImportError:
        warn("tqdm is not installed, so there is no bar.")
        return contextlib.nullcontext()
    return _Bar(tqdm)


class _Bar:
    def __init__(self, tqdm):
        self._tqdm = tqdm

    def __enter__(self):
        self._bar = self._tqdm(desc="Removing stars", unit="tile")
        return self._show

    def __exit__(self, *error):
        self._bar.close()

    def _show(self, done, total):
        self._bar.total = total
        self._bar.n = done
        self._bar.refresh()
