"""The computed images of the browser tests, and what the program makes of them."""

import sys
import pathlib

import numpy
from astropy.io import fits

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "e2e"))
from program import model, read_image, run, star_field, write_image  # noqa: E402

ROWS, COLUMNS = 560, 640

# Takes everything above 0.4 away: a network whose results are known without running it.
NETWORK = "dimmer"


def write_scene(folder, name="field.tif", seed=1):
    """A star field with 16 bits; its samples."""
    samples = star_field(ROWS, COLUMNS, seed=seed)
    write_image(folder / name, samples)
    return samples


def write_network(folder, name=NETWORK):
    """Puts a small network into the folder, where the page can choose it; its file's name."""
    target = folder / f"{name}.onnx"
    target.write_bytes(model(name).read_bytes())
    return target.name


def write_linear_fits(folder, name="linear.fits", seed=2):
    """A dark mono FITS of unsigned 16 bits with a WCS, rows as stored (the first one is the first of the file)."""
    samples = (star_field(ROWS, COLUMNS, channels=1, seed=seed) // 40).astype(numpy.uint16)
    header = fits.Header()
    header["CTYPE1"], header["CTYPE2"] = "RA---TAN", "DEC--TAN"
    header["CRPIX1"], header["CRPIX2"] = 320.5, 280.5
    header["CRVAL1"], header["CRVAL2"] = 83.822, -5.391
    header["CD1_1"], header["CD1_2"], header["CD2_1"], header["CD2_2"] = -4e-4, 0.0, 0.0, 4e-4
    header["BUNIT"] = "adu"
    fits.PrimaryHDU(samples, header).writeto(folder / name)
    return samples


def own_results(image, folder, *options, network=NETWORK):
    """What the program itself writes for the image, as samples: {role: array}."""
    folder.mkdir(parents=True, exist_ok=True)
    paths = {role: folder / f"own_{role}.tif" for role in ("starless", "mask", "unscreen")}
    result = run("-q", "-i", image, "-o", paths["starless"], "-m", paths["mask"], "-n", paths["unscreen"],
                 "-w", model(network), *options)
    assert result.status == 0, result.err
    return {role: read_image(path) for role, path in paths.items()}
