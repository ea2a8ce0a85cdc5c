"""Star removal on the images of astropy: NDData and CCDData, with all that they carry."""

import copy
import os
from collections.abc import Callable
from typing import Literal, TypeVar

import numpy as np
from astropy import units
from astropy.nddata import NDData

import nebulex
from nebulex import _arrays
from nebulex._messages import warn
from nebulex._model import model_or_default
from nebulex._removal import Result

Image = TypeVar("Image", bound=NDData)

# What HISTORY leaves out: these change no sample of the starless image.
_WITHOUT_EFFECT = {"mask", "unscreen", "model", "progress"}


def remove_stars(
    image: Image,
    *,
    fill: Literal["median"] | None = None,
    add_history: bool = True,
    linear: bool = False,
    upsample: bool = False,
    stride: int = 256,
    shadows_clipping: float = -2.8,
    target_background: float = 0.25,
    protect_highlights: bool = True,
    mask: bool = False,
    unscreen: bool = False,
    channel_axis: int = 0,
    model: nebulex.Model | None = None,
    progress: bool | Callable[[int, int], object] | None = None,
    white: float = 1.0,
) -> Result[Image]:
    """Take the stars out of an NDData or a CCDData.

    Parameters
    ----------
    image : NDData
        A CCDData, for example. Its samples are what `nebulex.remove_stars` takes; it is not changed.
        `channel_axis` is 0, as in the cubes of FITS files, unless another one is named.
    fill : {None, "median"}
        What to do about samples that are masked or not finite. None: they are an error. "median": the
        network sees the median of their channel's good samples in their place, and afterwards they
        are as they were in the starless image, and 0 in the layers.
    add_history : bool
        Whether the metadata gets a HISTORY that says with which version, network and settings it was
        done.
    linear, upsample, stride, shadows_clipping, target_background, protect_highlights
        As for `nebulex.remove_stars`, and so are the following.
    mask, unscreen, channel_axis, model, progress, white

    Returns
    -------
    Result
        Images of the class of `image` with its WCS, mask, unit and metadata. The unscreen layer is
        a fraction and has no unit. No uncertainty comes out: nobody knows that of the network.

    Raises
    ------
    TypeError
        `image` is no NDData, or its samples have a dtype that does not work.
    ValueError
        There are samples that are masked or not finite; the message counts them. Or `fill` is none
        of those above.
    Exception
        What `nebulex.remove_stars` raises.

    Warns
    -----
    NebulexWarning
        `image` has an uncertainty, which is left out of the results.

    Examples
    --------
    >>> import numpy as np
    >>> from astropy.nddata import CCDData
    >>> counts = np.full((512, 512), 800, np.uint16)
    >>> counts[100, 100] = 65535
    >>> hot = counts == 65535
    >>> frame = CCDData(counts, unit="adu", mask=hot, meta={"OBJECT": "M 31"})
    >>> starless = nebulex.astropy.remove_stars(frame, fill="median", stride=512).starless
    >>> starless.unit, starless.meta["OBJECT"], int(starless.data[100, 100])
    (Unit("adu"), 'M 31', 65535)
    """
    settings = {
        "linear": linear, "upsample": upsample, "stride": stride,
        "shadows_clipping": shadows_clipping, "target_background": target_background,
        "protect_highlights": protect_highlights, "mask": mask, "unscreen": unscreen,
        "channel_axis": channel_axis, "model": model, "progress": progress, "white": white,
    }
    if not isinstance(image, NDData):
        raise TypeError(
            f"A CCDData or an NDData is expected, not {type(image).__name__}; nebulex.remove_stars "
            "takes arrays."
        )
    if fill not in (None, "median"):
        raise ValueError(f'fill is None or "median", not {fill!r}.')
    if image.uncertainty is not None:
        warn("The uncertainty is left out of the results: that of the network is not known.")
    samples = np.asarray(image.data)
    _arrays.checked_dtype(samples.dtype)
    bad = _bad_samples(samples, image.mask)
    if bad.any() and fill is None:
        raise ValueError(_bad_samples_message(bad, image.mask))
    good = _filled(samples, bad, channel_axis) if bad.any() else samples
    result = nebulex.remove_stars(good, **settings)
    if bad.any():
        _restore(result, samples, bad)
    meta = copy.deepcopy(image.meta)
    if add_history:
        _add_history(meta, _history(settings, fill))
    return Result(
        _like(image, result.starless, meta),
        None if result.mask is None else _like(image, result.mask, meta),
        None if result.unscreen is None else _like(image, result.unscreen, meta, is_fraction=True),
    )


def _bad_samples(samples, mask):
    bad = ~np.isfinite(samples)
    return bad if mask is None else bad | mask


def _bad_samples_message(bad, mask):
    masked = 0 if mask is None else int(np.count_nonzero(np.broadcast_to(mask, bad.shape)))
    other = int(np.count_nonzero(bad)) - masked
    parts = [_count(masked, "masked")] if masked else []
    if other:
        parts.append(_count(other, "not finite", "further " if masked else ""))
    return (" and ".join(parts)
            + '. fill="median" fills them for the network and puts them back afterwards.')


def _count(number, what, kind=""):
    return f"{number} {kind}sample{'' if number == 1 else 's'} {'is' if number == 1 else 'are'} {what}"


def _filled(samples, bad, channel_axis):
    """The samples, the bad ones of each channel replaced by the median of its good ones."""
    filled = samples.copy()
    for part, part_bad in zip(_planes(filled, channel_axis), _planes(bad, channel_axis)):
        if part_bad.all():
            raise ValueError("All samples of a channel are masked or not finite.")
        part[part_bad] = np.median(part[~part_bad])
    return filled


def _planes(array, channel_axis):
    view = _arrays.channels_last(array, channel_axis)
    return [view] if view.ndim == 2 else np.moveaxis(view, 2, 0)


def _restore(result, samples, bad):
    result.starless[bad] = samples[bad]
    for layer in (result.mask, result.unscreen):
        if layer is not None:
            layer[bad] = 0


def _like(image, samples, meta, is_fraction=False):
    """An image of the same class, with new samples."""
    made = type(image)(
        samples,
        unit=units.dimensionless_unscaled if is_fraction and image.unit is not None else image.unit,
        wcs=copy.deepcopy(image.wcs),
        mask=copy.deepcopy(image.mask),
        meta=copy.deepcopy(meta),
        psf=copy.deepcopy(image.psf),
    )
    if getattr(image, "flags", None) is not None:
        made.flags = copy.deepcopy(image.flags)
    return made


def _history(settings, fill):
    """Lines that say what was done: version, network, and all settings that could matter."""
    effective = {name: value for name, value in settings.items() if name not in _WITHOUT_EFFECT}
    if not effective["linear"]:
        del effective["shadows_clipping"], effective["target_background"]
    network = os.path.basename(model_or_default(settings["model"]).path)
    told = ", ".join(f"{name}={value!r}" for name, value in {**effective, "fill": fill}.items())
    return [f"Stars removed by nebulex {nebulex.__version__}, network {network}", told]


def _add_history(meta, lines):
    if hasattr(meta, "add_history"):  # astropy.io.fits.Header
        for line in lines:
            meta.add_history(line)
    else:
        earlier = [meta["HISTORY"]] if "HISTORY" in meta else []
        meta["HISTORY"] = "; ".join([*earlier, *lines])
