"""How many pixels an image has, from its header."""

import logging
import warnings


def pixels(path):
    """Width times height; 0 where no library can tell. The program then says what is wrong."""
    lower = str(path).lower()
    logging.getLogger("tifffile").setLevel(logging.CRITICAL + 1)
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        try:
            if lower.endswith((".tif", ".tiff")):
                return _tiff(path)
            if lower.endswith((".fit", ".fits", ".fts", ".gz")):
                return _fits(path)
            return _other(path)
        except Exception:  # pylint: disable=broad-except # a damaged header may raise anything
            return 0


def _tiff(path):
    import tifffile  # pylint: disable=import-outside-toplevel # takes long to load

    with tifffile.TiffFile(path) as file:
        page = file.pages[0]
        return page.imagewidth * page.imagelength


def _fits(path):
    from astropy.io import fits  # pylint: disable=import-outside-toplevel

    with fits.open(path, lazy_load_hdus=True) as units:
        for unit in units:
            shape = getattr(unit, "shape", ())
            if unit.is_image and len(shape) in (2, 3):
                # A cube's shortest axis is its colours.
                sides = sorted(shape)[-2:]
                return sides[0] * sides[1]
    return 0


def _other(path):
    from PIL import Image  # pylint: disable=import-outside-toplevel

    Image.MAX_IMAGE_PIXELS = None  # only the header is read
    with Image.open(path) as image:
        return image.width * image.height
