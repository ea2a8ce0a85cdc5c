"""What arrays an image may be, and how they are handed to the library without a copy."""

import numpy as np

DTYPES = ("uint8", "uint16", "float32", "float64")


def checked_dtype(dtype):
    """The dtype in the machine's byte order. Raises TypeError for one that does not work."""
    native = np.dtype(dtype).newbyteorder("=")
    if native.name not in DTYPES:
        raise TypeError(
            f"Samples are {native.name}; {', '.join(DTYPES[:-1])} and {DTYPES[-1]} work. Convert the "
            "image with astype and say with white= which value is white."
        )
    return native


def white_of(dtype, white):
    """The sample that stands for white: an integer type's greatest value, else `white`."""
    return float(np.iinfo(dtype).max) if dtype.kind == "u" else float(white)


def plain_array(image):
    """The image as an ndarray of a dtype that works.

    Raises TypeError for another dtype and for what would lose its unit, ValueError for what would
    lose its mask.
    """
    if hasattr(image, "unit"):
        raise TypeError(
            f"A {type(image).__name__} has a unit, which would be lost. nebulex.astropy.remove_stars "
            "takes NDData and CCDData; of a Quantity hand over its value."
        )
    if isinstance(image, np.ma.MaskedArray):
        count = np.ma.count_masked(image)
        if count:
            raise ValueError(
                f"Samples are masked, {count} of them. Fill them, or use nebulex.astropy.remove_stars with "
                'fill="median".'
            )
    array = np.asarray(image)
    checked_dtype(array.dtype)
    return array


def channels_last(image, channel_axis):
    """A view of rows x columns or rows x columns x channels. Raises ValueError for wrong axes."""
    if image.size == 0:
        raise ValueError(f"The image is empty: its shape is {image.shape}.")
    if image.ndim == 2:
        return image
    axis = channel_axis + image.ndim if channel_axis < 0 else channel_axis
    if image.ndim != 3 or not 0 <= axis < 3 or image.shape[axis] not in (1, 3):
        raise ValueError(_axes_message(image.shape, channel_axis))
    return np.moveaxis(image, axis, 2)


def _axes_message(shape, channel_axis):
    message = (
        "An image has rows x columns, or three channels on the axis channel_axis as well; the shape "
        f"is {shape} and channel_axis is {channel_axis}."
    )
    fitting = [axis for axis in range(3) if len(shape) == 3 and shape[axis] in (1, 3)]
    return message + (f" channel_axis={fitting[0]} would fit." if len(fitting) == 1 else "")


def library_array(image):
    """The same samples in native byte order, none of them shared; the image itself where it is so."""
    native = image.dtype.newbyteorder("=")
    if image.dtype != native or not _has_separate_samples(image):
        return image.astype(native, order="C")
    return image


def _has_separate_samples(image):
    """Whether the strides nest, each stepping over all that the smaller ones reach."""
    reach = image.itemsize
    axes = [(abs(stride), length) for stride, length in zip(image.strides, image.shape) if length > 1]
    for stride, length in sorted(axes):
        if stride < reach:
            return False
        reach += stride * (length - 1)
    return True


def to_byte_order_of(dtype, result):
    """A native result in the byte order of `dtype`; changed in place where that differs."""
    return result if result.dtype == dtype else result.byteswap(inplace=True).view(dtype)
