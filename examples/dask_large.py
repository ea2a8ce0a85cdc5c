#!/usr/bin/python3
"""Takes the stars out of an image that is larger than memory, chunk by chunk, with Dask:

    examples/dask_large.py IN.npy OUT.npy [--linear] [--white 65535]

Both files hold rows x columns or rows x columns x 3 samples. Needs the packages nebulex and dask.

The result is that of one call on the whole image. Of images that have been stretched it is so bit
for bit, and of linear floating samples in colour, for four reasons:

- Chunks begin on the grid of the tiles, so that every tile sees the same pixels.
- Chunks overlap by a tile or more, so that no pixel that is kept has seen the edge of a chunk.
- What stretches linear data comes from the whole image, computed once and exactly.
- The stretch is the library's own formula in the same precision.

Three things differ in linear data. Near-white highlights are not protected, because that compares
samples from before the stretch and after it. A grey image turns to grey before the stretch is taken
back, not after it. And integers come out another count in one of some thousand samples, those near
a half, because the library's last product is in float32.
"""

import argparse
import functools
import math

import dask.array as da
import numpy as np

import nebulex

TILE = 512


def remove_stars(image, *, stride=256, chunk=4096, linear=False, shadows_clipping=-2.8,
                 target_background=0.25, white=1.0, network=None, **settings):
    """The starless image of a Dask array, computed when Dask is asked for it.

    Rows x columns, with three channels on the last axis or none; further settings are those of
    nebulex.remove_stars without layers. `chunk` is the least length of a chunk in pixels: memory for
    each one that Dask works on at a time is about 40 bytes a sample of (chunk + 2 * overlap)**2.
    """
    overlap = stride * math.ceil(TILE / stride)
    chunks = tuple(grid_chunks(length, stride, max(chunk, overlap)) for length in image.shape[:2])
    image = image.rechunk((*chunks, *image.shape[2:]))
    settings.update(stride=stride, white=white, network=network)
    if linear:
        stretch = measure_stretch(image, full_scale(image.dtype, white), shadows_clipping,
                                  target_background)
        work = functools.partial(work_on_linear_chunk, stretch=stretch, settings=settings)
    else:
        work = functools.partial(work_on_chunk, settings=settings)
    return da.map_overlap(work, image, depth={0: overlap, 1: overlap}, boundary="none",
                          allow_rechunk=False, dtype=image.dtype, meta=image._meta)


def grid_chunks(length, stride, least):
    """Lengths that add up to `length`, none below `least` unless alone; all but the last one are
    the same multiple of the stride."""
    step = stride * math.ceil(least / stride)
    count = max(1, length // step)
    return (step,) * (count - 1) + (length - step * (count - 1),)


@functools.lru_cache(maxsize=1)
def model_of_this_worker(network):
    """Opened once in each process, whose threads take turns on it."""
    return nebulex.Model(network)


def work_on_chunk(samples, settings):
    settings = dict(settings)
    model = model_of_this_worker(settings.pop("network"))
    return nebulex.remove_stars(samples, model=model, **settings).starless


def work_on_linear_chunk(samples, stretch, settings):
    scale = full_scale(samples.dtype, settings["white"])
    source = samples.astype(np.float64) / scale
    stretched = np.empty(samples.shape, np.float32)
    for channel, curve in enumerate(stretch):
        planes(stretched)[channel][:] = curve.forward(planes(source)[channel])
    prediction = work_on_chunk(stretched, {**settings, "white": 1.0, "protect_highlights": False})
    starless = np.empty(samples.shape, np.float64)
    for channel, curve in enumerate(stretch):
        before = planes(source)[channel]
        after = curve.backward(planes(prediction)[channel].astype(np.float64))
        planes(starless)[channel][:] = np.where(before <= curve.shadows, before, after)
    if samples.dtype.kind == "u":
        return np.rint(np.clip(starless, 0, 1) * scale).astype(samples.dtype)
    return (starless * scale).astype(samples.dtype)


def planes(image):
    """A view of each channel."""
    return [image] if image.ndim == 2 else [image[..., channel] for channel in range(image.shape[2])]


def full_scale(dtype, white):
    return np.iinfo(dtype).max if dtype.kind == "u" else white


class Stretch:
    """The midtones transfer function of one channel and its inverse: the rational curve through
    (0, 0), (m, 1/2) and (1, 1)."""

    def __init__(self, median, deviation, shadows_clipping, target_background):
        self.shadows = 0.0
        if deviation > 0:
            self.shadows = min(max(median + shadows_clipping * deviation, 0.0), 1.0)
        self.midtones = float(self._transfer(target_background, median - self.shadows))
        if not 0 < self.midtones < 1:
            raise ValueError("The median of a channel of linear data lies strictly between 0 and white.")

    @staticmethod
    def _transfer(m, x):
        inside = np.clip(x, 0.0, 1.0)
        return np.where(inside < 1.0, (m - 1.0) * inside / ((2.0 * m - 1.0) * inside - m), 1.0)

    def forward(self, x):
        return self._transfer(self.midtones, x - self.shadows)

    def backward(self, y):
        m, inside = self.midtones, np.clip(y, 0.0, 1.0)
        return m * inside / ((1.0 - m) * (1.0 - inside) + m * inside) + self.shadows


def measure_stretch(image, scale, shadows_clipping, target_background):
    """The stretch of each channel, from the median and the deviation of all its samples."""
    stretch = []
    for plane in planes(image):
        samples = plane.astype(np.float64) / scale
        least, greatest = da.compute(samples.min(), samples.max())
        if not (np.isfinite(least) and greatest <= 1.0):
            raise ValueError(f"Samples lie within [{least * scale:g}, {greatest * scale:g}], and "
                             f"white is {scale:g}.")
        median = exact_median(samples)
        deviation = 1.4826 * exact_median(abs(samples - median))
        stretch.append(Stretch(median, deviation, shadows_clipping, target_background))
    return stretch


def exact_median(samples):
    """The median of a float64 Dask array that memory need not hold: 16 bits of it a pass."""
    ranks = [(samples.size - 1) // 2, samples.size // 2]
    return sum(value_of_rank(samples, rank) / 2 for rank in sorted(ranks))


def value_of_rank(samples, rank):
    """The sample that `rank` others precede in order."""
    found = np.uint64(0)
    for shift in (48, 32, 16, 0):
        counts = samples.map_blocks(count_digits, found, shift, dtype=np.int64, new_axis=2,
                                    chunks=((1,) * samples.numblocks[0], (1,) * samples.numblocks[1],
                                            (2**16,)))
        preceding = np.cumsum(counts.sum(axis=(0, 1)).compute())
        digit = int(np.searchsorted(preceding, rank, side="right"))
        rank -= int(preceding[digit - 1]) if digit else 0
        found |= np.uint64(digit) << np.uint64(shift)
    sign = np.uint64(1) << np.uint64(63)
    bits = found & ~sign if found & sign else ~found
    return float(bits.view(np.float64))


def count_digits(samples, found, shift):
    """How often each 16-bit digit at `shift` occurs among samples whose higher digits are found."""
    keys = ordered_bits(samples).ravel()
    if shift < 48:
        above = np.uint64(shift + 16)
        keys = keys[keys >> above == found >> above]
    digits = (keys >> np.uint64(shift)) & np.uint64(0xFFFF)
    return np.bincount(digits.astype(np.int64), minlength=2**16)[None, None]


def ordered_bits(samples):
    """Integers in the order of the floating samples they stand for."""
    bits = np.ascontiguousarray(samples).view(np.uint64)
    sign = np.uint64(1) << np.uint64(63)
    return np.where(bits & sign, ~bits, bits | sign)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("source")
    parser.add_argument("result")
    parser.add_argument("--linear", action="store_true")
    parser.add_argument("--stride", type=int, default=256)
    parser.add_argument("--white", type=float, default=1.0)
    parser.add_argument("--network")
    options = vars(parser.parse_args())
    source, result = options.pop("source"), options.pop("result")
    image = da.from_array(np.load(source, mmap_mode="r"))
    starless = remove_stars(image, **options)
    stored = np.lib.format.open_memmap(result, "w+", image.dtype, image.shape)
    # One chunk at a time: each of them computes its tiles on all processors.
    da.store(starless, stored, scheduler="single-threaded")
    stored.flush()


if __name__ == "__main__":
    main()
