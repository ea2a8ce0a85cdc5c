"""The compiled part. Nothing of it but the exceptions is meant for users; it checks little."""

from collections.abc import Callable
from typing import Any

import numpy as np

Messages = list[tuple[int, str, str]]  # severity, code, text

MASK: int
UNSCREEN: int
PROVIDER_AUTO: int
PROVIDER_CPU: int
WARNING: int

class InternalError(RuntimeError): ...
class ModelError(RuntimeError): ...
class ImageError(ValueError): ...

class Settings:
    stride: int
    layers: int
    linear: int
    upsample: int
    protect_highlights: int
    shadows_clipping: float
    target_background: float
    white: float
    def __init__(self) -> None: ...

class Model:
    def __init__(self, path: str, threads: int, provider: int) -> None: ...
    @property
    def path(self) -> str: ...
    @property
    def provider(self) -> str: ...
    @property
    def opening_messages(self) -> Messages: ...
    def remove_stars(
        self,
        image: np.ndarray[Any, Any],
        starless: np.ndarray[Any, Any],
        mask: np.ndarray[Any, Any] | None,
        unscreen: np.ndarray[Any, Any] | None,
        settings: Settings,
        progress: Callable[[int, int], object] | None,
    ) -> Messages: ...

def version() -> str: ...
