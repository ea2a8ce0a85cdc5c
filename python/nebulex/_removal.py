"""Star removal on arrays."""

import dataclasses
from collections.abc import Callable
from typing import Any, Generic, TypeVar

import numpy as np
import numpy.typing as npt

from nebulex import _nebulex
from nebulex._arrays import channels_last, library_array, plain_array, to_byte_order_of
from nebulex._integers import int32
from nebulex._messages import hand_on
from nebulex._model import Model, model_or_default
from nebulex._progress import progress_function


Image = TypeVar("Image")


@dataclasses.dataclass(frozen=True, eq=False)
class Result(Generic[Image]):
    """What `remove_stars` gives; a layer that was not asked for is None.

    Attributes
    ----------
    starless
        The image without its stars.
    mask
        Image minus starless, within [0, white]: where the stars were.
    unscreen
        The stars as a layer from which `screen` rebuilds the image. Integers are fractions of their
        greatest value, floating samples fractions within [0, 1], whatever `white` is.
    """

    starless: Image
    mask: Image | None = None
    unscreen: Image | None = None


def remove_stars(
    image: npt.ArrayLike,
    *,
    linear: bool = False,
    upsample: bool = False,
    stride: int = 256,
    shadows_clipping: float = -2.8,
    target_background: float = 0.25,
    protect_highlights: bool = True,
    mask: bool = False,
    unscreen: bool = False,
    channel_axis: int = -1,
    model: Model | None = None,
    progress: bool | Callable[[int, int], object] | None = None,
    white: float = 1.0,
) -> Result[np.ndarray[Any, Any]]:
    """Take the stars out of an image.

    The samples of the result are those of the program ``nebulex2``, bit for bit.

    Parameters
    ----------
    image : array_like
        uint8, uint16, float32 or float64, rows x columns (grey) or with three channels (red, green,
        blue) on `channel_axis`; at least 512 pixels wide and high, or 256 with `upsample`. Rows run
        from top to bottom or from bottom to top. Any byte order and any strides do; it is never
        changed. Floating samples lie within [0, `white`]; with `linear` those below 0 are welcome,
        too. Integers are counted from 0 to their greatest value.
    linear : bool
        The image has not been stretched: stretch it for the network, and take the stretch back.
    upsample : bool
        Work on a doubled grid, for small or undersampled images.
    stride : int
        Pixels between tiles: even, 2 to 512. Smaller is slower and smoother.
    shadows_clipping : float
        With `linear`: where the stretch begins, as a negative multiple of the normalised median
        absolute deviation from the median.
    target_background : float
        With `linear`: the level within (0, 1) that the stretch gives to the median.
    protect_highlights : bool
        Put back near-white highlights that hardly changed.
    mask, unscreen : bool
        Make these layers, too, see `Result`.
    channel_axis : int
        The axis of the channels, where `image` has three axes.
    model : Model, optional
        By default the network that comes with the package, which the first call opens and the
        process keeps.
    progress : bool or callable, optional
        True shows a bar where tqdm is installed. A function gets (tiles done, total): 0 first, then
        rising to the total. What it raises stops the run and comes out of this function.
    white : float
        The floating sample that stands for white, above 0, such as 65535.0. Nothing is rescaled by
        what is found in the image.

    Returns
    -------
    Result
        Arrays with the image's shape and dtype.

    Raises
    ------
    TypeError
        The dtype does not work, or the image is more than an array and would lose its unit.
    ValueError
        A setting or the axes make no sense.
    ImageError
        The image is too small, its samples are out of range or not finite. It is a ValueError.
    ModelError, InternalError
        The network cannot be used, or failed on a tile. Both are RuntimeErrors.
    MemoryError
    KeyboardInterrupt
        Ctrl-C stops the run within a second. The model can be used again.

    Warns
    -----
    NebulexWarning
        Something is lost, as the program would say it.

    Notes
    -----
    Other Python threads run meanwhile. The image must not be changed until the call returns. Messages
    that are no warnings go to the logger "nebulex" as INFO.

    Examples
    --------
    A star on an even sky:

    >>> import numpy as np
    >>> y, x = np.mgrid[-256:256, -256:256]
    >>> image = 0.1 + 0.8 * np.exp(-(x**2 + y**2) / 8)
    >>> result = nebulex.remove_stars(image, stride=512, mask=True)
    >>> float(image.max()), result.starless.max() < 0.2
    (0.9, True)
    >>> int(result.mask.argmax()) == int(image.argmax())
    True

    Counts of a camera with 16 bits, stored as floating samples:

    >>> result = nebulex.remove_stars(image * 65535, white=65535.0, stride=512)

    Without ``white=`` that is an error:

    >>> nebulex.remove_stars(image * 65535)
    Traceback (most recent call last):
        ...
    nebulex.ImageError: ...
    """
    array = plain_array(image)
    view = library_array(channels_last(array, channel_axis))
    settings = _nebulex.Settings()
    settings.stride = int32(stride, "stride")
    settings.layers = (_nebulex.MASK if mask else 0) | (_nebulex.UNSCREEN if unscreen else 0)
    settings.linear = bool(linear)
    settings.upsample = bool(upsample)
    settings.protect_highlights = bool(protect_highlights)
    settings.shadows_clipping = shadows_clipping
    settings.target_background = target_background
    settings.white = white
    results = [_empty_like(array) if wanted else None for wanted in (True, mask, unscreen)]
    rooms = [None if result is None else channels_last(result, channel_axis) for result in results]
    with progress_function(progress) as tell:
        hand_on(model_or_default(model)._opened.remove_stars(view, *rooms, settings, tell))
    return Result(*(result if result is None else to_byte_order_of(array.dtype, result)
                    for result in results))


def _empty_like(array):
    """In native byte order, and laid out like the array where that has no gaps."""
    return np.empty_like(array, dtype=array.dtype.newbyteorder("="), subok=False)
