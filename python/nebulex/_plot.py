"""Pictures of pairs."""

from typing import TYPE_CHECKING, Any, Literal

import numpy as np

from nebulex._arrays import channels_last, checked_dtype, white_of

if TYPE_CHECKING:
    from matplotlib.figure import Figure


def plot(
    before: Any,
    after: Any,
    *,
    stretch: bool = False,
    white: float = 1.0,
    channel_axis: int = -1,
    origin: Literal["upper", "lower"] = "upper",
    titles: tuple[str, str] = ("with stars", "without stars"),
) -> "Figure":
    """Show an image and its starless counterpart side by side, in the same tones.

    Needs matplotlib.

    Parameters
    ----------
    before, after : array_like
        Images of one shape as `remove_stars` takes them; of NDData and CCDData the data is shown.
    stretch : bool
        Brighten both alike for the eye, as linear data needs it.
    white : float
        The floating sample that stands for white.
    channel_axis : int
        The axis of the channels, where the images have three axes.
    origin : {"upper", "lower"}
        Where the first row lies; "lower" for data of FITS files.
    titles : pair of str

    Returns
    -------
    matplotlib.figure.Figure
        With two axes that zoom together.

    Raises
    ------
    ImportError
        matplotlib is not installed.
    TypeError, ValueError
        The images are none, or their shapes differ.

    Examples
    --------
    >>> import numpy as np
    >>> figure = nebulex.plot(np.ones((600, 700)), np.zeros((600, 700)))
    >>> [axes.get_title() for axes in figure.axes]
    ['with stars', 'without stars']
    """
    from matplotlib import pyplot

    images = [_shown(image, white, channel_axis) for image in (before, after)]
    if images[0].shape != images[1].shape:
        raise ValueError(f"The shapes differ: {images[0].shape} and {images[1].shape}.")
    if stretch:
        tone = _tone_curve(images[0])
        images = [tone(image) for image in images]
    figure, axes = pyplot.subplots(1, 2, sharex=True, sharey=True, figsize=(12, 5),
                                   layout="constrained")
    for place, image, title in zip(axes, images, titles):
        place.imshow(image, cmap="gray", vmin=0, vmax=1, origin=origin)
        place.set_title(title)
        place.set_axis_off()
    return figure


def _shown(image, white, channel_axis):
    """float32 within [0, 1], channels last; samples that are not finite are black."""
    data = np.asarray(getattr(image, "data", image) if hasattr(image, "unit") else image)
    scale = white_of(checked_dtype(data.dtype), white)
    view = channels_last(data, channel_axis)
    fraction = np.nan_to_num(view.astype(np.float32) / np.float32(scale), nan=0.0)
    return np.clip(np.squeeze(fraction, axis=2) if fraction.shape[2:] == (1,) else fraction, 0, 1)


def _tone_curve(image):
    """An inverse hyperbolic sine that gives the sky of this image a dark grey."""
    sky = np.median(image)
    deviation = max(1.4826 * float(np.median(np.abs(image - sky))), 1e-6)
    dark = float(sky) - 2.8 * deviation
    top = np.arcsinh((1.0 - dark) / (4 * deviation))
    return lambda samples: np.clip(np.arcsinh((samples - dark) / (4 * deviation)) / top, 0, 1)
