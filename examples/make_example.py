#!/usr/bin/python3
"""Computes the example image: filaments of a nebula, a galaxy and some hundred stars.

Nothing in it was photographed. The scene is built in linear light, where light adds up, gets photon
and read noise, and is then stretched as an astrophotographer would do it. The same seed gives the
same image.

    examples/make_example.py [examples/veil_field.tif]

Needs numpy and tifffile.
"""

import pathlib
import sys

import numpy as np
import tifffile

SEED = 20
WIDTH, HEIGHT = 960, 640

# Linear light: 1.0 is where the camera saturates.
SKY = np.array([0.0094, 0.0090, 0.0098])
ELECTRONS_AT_SATURATION = 1.8e5  # of all exposures together
READ_NOISE_ELECTRONS = 25.0

HYDROGEN = np.array([1.00, 0.17, 0.26])
OXYGEN = np.array([0.06, 0.62, 0.74])
REFLECTION = np.array([0.42, 0.52, 1.00])

STAR_WIDTH = 2.3  # pixels, full width at half maximum
STAR_COUNT = 850


def pixel_grid():
    """Column and row of each pixel, as two arrays of the image's shape."""
    return np.meshgrid(np.arange(WIDTH, dtype=float), np.arange(HEIGHT, dtype=float))


def power_law_field(rng, slope, margin=0):
    """A random field whose power falls with the spatial frequency to the power of -slope.

    Mean 0, standard deviation 1; margin is the number of pixels that it has more on each side.
    Drawn larger than needed, so that its left edge knows nothing of its right one.
    """
    rows, columns = 2 * (HEIGHT + margin), 2 * (WIDTH + margin)
    frequency = np.hypot(np.fft.fftfreq(rows)[:, None], np.fft.rfftfreq(columns)[None, :])
    frequency[0, 0] = np.inf
    spectrum = np.fft.rfft2(rng.standard_normal((rows, columns))) * frequency ** (-slope / 2)
    field = np.fft.irfft2(spectrum, (rows, columns))
    field = field[: HEIGHT + 2 * margin, : WIDTH + 2 * margin]
    return (field - field.mean()) / field.std()


def turbulent_field(rng, slope, bend):
    """A power-law field bent as by flows: looked up, bilinearly, where two others point to.

    The standard deviation of the shift is bend pixels.
    """
    margin = 4 * bend + 2
    field = power_law_field(rng, slope, margin)
    x, y = pixel_grid()
    x += margin + np.clip(bend * power_law_field(rng, 3.6), -4 * bend, 4 * bend)
    y += margin + np.clip(bend * power_law_field(rng, 3.6), -4 * bend, 4 * bend)
    column, row = x.astype(int), y.astype(int)
    u, v = x - column, y - row
    upper = field[row, column] * (1 - u) + field[row, column + 1] * u
    lower = field[row + 1, column] * (1 - u) + field[row + 1, column + 1] * u
    return upper * (1 - v) + lower * v


def front(field, level, tail):
    """A sheet of gas seen edge-on along a contour line of a field: sharp on the lower side, with a
    tail of some pixels on the higher one."""
    gradient_y, gradient_x = np.gradient(field)
    distance = (field - level) / (np.hypot(gradient_x, gradient_y) + 4e-3)
    return np.exp(np.where(distance < 0, -((distance / 1.3) ** 2), -distance / tail))


def shell_depth():
    """Pixels outside (positive) or inside of a large round shell that crosses the image."""
    x, y = pixel_grid()
    return np.hypot(x + 0.10 * WIDTH, y - 1.35 * HEIGHT) - 0.92 * WIDTH


def in_color(light, color):
    return light[..., None] * color


def nebula(rng):
    """Sheets and threads of glowing gas along a shell, and a little reflected starlight."""
    depth = shell_depth()
    wobble = depth + 30 * power_law_field(rng, 3.8)
    shape = np.exp(-((wobble / np.where(wobble > 0, 62, 125)) ** 2))
    haze = shape * np.exp(0.7 * turbulent_field(rng, 3.2, 20))

    hydrogen = 0.0080 * haze
    oxygen = 0.0070 * shape * np.exp(0.7 * turbulent_field(rng, 3.2, 20))
    flow = -depth / 70 + 1.15 * turbulent_field(rng, 3.55, 34)
    for level in np.linspace(-1.5, 2.1, 6):
        patches = np.exp(1.25 * turbulent_field(rng, 3.2, 16) - 0.3)
        hydrogen += 0.017 * shape * patches * front(flow, level, rng.uniform(3, 14))
        patches = np.exp(1.25 * turbulent_field(rng, 3.2, 16) - 0.3)
        oxygen += 0.014 * shape * patches * front(flow, level - 0.10, rng.uniform(5, 20))

    x, y = pixel_grid()
    near_star = np.hypot(x - 0.738 * WIDTH, y - 0.268 * HEIGHT)
    blue = 0.0045 * np.exp(-near_star / 110) * np.exp(0.6 * turbulent_field(rng, 3.4, 24))
    return in_color(hydrogen, HYDROGEN) + in_color(oxygen, OXYGEN) + in_color(blue, REFLECTION)


def dust_transmission(rng):
    """The share of the light behind the dust that comes through, per channel."""
    x, y = pixel_grid()
    where = np.exp(-(((x / WIDTH - 0.60) / 0.28) ** 2 + ((y / HEIGHT - 0.80) / 0.30) ** 2))
    depth = where * np.clip(turbulent_field(rng, 3.0, 30) + 0.5, 0, None) ** 1.4
    return np.exp(-in_color(depth, np.array([0.55, 0.72, 0.95])))


def galaxy(rng, center_x, center_y, size, flatness, angle):
    """A tilted spiral: bulge, disc, two arms with young blue stars and pink knots."""
    x, y = pixel_grid()
    x, y = x - center_x * WIDTH, y - center_y * HEIGHT
    along = (x * np.cos(angle) + y * np.sin(angle)) / size
    across = (y * np.cos(angle) - x * np.sin(angle)) / (size * flatness)
    radius = np.hypot(along, across) + 1e-6
    texture = np.exp(0.45 * turbulent_field(rng, 2.6, 4))

    arms = np.cos(2 * (np.arctan2(across, along) - 2.6 * np.log(radius + 0.06)))
    disc = np.exp(-3.2 * radius) * texture
    young = disc * np.exp(2.0 * (arms - 1)) * np.clip(radius / 0.25, 0, 1)
    bulge = np.exp(-6.6 * np.hypot(along, across * flatness / 0.75) ** 0.62)
    knots = young * np.clip(power_law_field(rng, 1.3) - 1.1, 0, None)
    return (
        in_color(0.020 * disc, np.array([1.0, 0.86, 0.70]))
        + in_color(0.150 * young, np.array([0.62, 0.80, 1.0]))
        + in_color(0.55 * bulge, np.array([1.0, 0.84, 0.60]))
        + in_color(0.10 * knots, np.array([1.0, 0.35, 0.50]))
    )


def star_color(temperature):
    """Red, green and blue of a black body, relative to one of 6500 K; mean 1."""
    wavelengths = np.array([610e-9, 540e-9, 460e-9])

    def planck(kelvin):
        return 1 / (wavelengths**5 * np.expm1(1.4388e-2 / (wavelengths * kelvin)))

    color = planck(temperature) / planck(6500.0)
    return color / color.mean()


def moffat(distance, width, beta):
    """The Moffat profile of seeing; 1 at the centre, width at half maximum in pixels."""
    scale = width / (2 * np.sqrt(2 ** (1 / beta) - 1))
    return (1 + (distance / scale) ** 2) ** -beta


def spikes(x, y, length, angle):
    """The cross that the four vanes of a telescope's secondary mirror make."""
    total = np.zeros_like(x)
    for turn in (angle, angle + np.pi / 2):
        along = np.abs(x * np.cos(turn) + y * np.sin(turn))
        across = y * np.cos(turn) - x * np.sin(turn)
        total += np.exp(-along / length) / (1 + (across / 1.0) ** 2) ** 1.5
    return total


def add_star(image, x, y, light, color, halo=0.0):
    """Adds a star of the given peak; halo is the strength of what a bright one shows besides."""
    reach = 16 if halo == 0 else 260
    left, right = max(0, int(x) - reach), min(WIDTH, int(x) + reach + 1)
    top, bottom = max(0, int(y) - reach), min(HEIGHT, int(y) + reach + 1)
    dx, dy = np.meshgrid(np.arange(left, right) - x, np.arange(top, bottom) - y)
    distance = np.hypot(dx, dy)

    profile = moffat(distance, STAR_WIDTH, 3.1) if halo == 0 else moffat(distance, 2.6, 2.3)
    if halo > 0:
        profile += halo * (
            4e-4 * np.exp(-((distance / 26) ** 2)) + 0.8e-4 * np.exp(-distance / 60)
        )
        profile += halo * 7e-3 * spikes(dx, dy, 9, 0.21) + halo * 0.8e-3 * spikes(dx, dy, 30, 0.21)
        profile *= 1 / (1 + np.exp((distance - 225) / 12))
    image[top:bottom, left:right] += in_color(light * profile, color)


def random_temperature(rng):
    return float(np.clip(rng.lognormal(np.log(6000), 0.38), 2900, 22000))


def stars(rng, transmission):
    """The field stars, a small loose cluster and four bright ones."""
    image = np.zeros((HEIGHT, WIDTH, 3))
    for _ in range(STAR_COUNT):
        x, y = rng.uniform(0, WIDTH), rng.uniform(0, HEIGHT)
        light = min(0.006 * rng.uniform() ** (-1 / 0.95), 1.6)
        color = star_color(random_temperature(rng)) * transmission[int(y), int(x)]
        add_star(image, x, y, light, color)
    for _ in range(26):
        x, y = rng.normal(0.845 * WIDTH, 30), rng.normal(0.70 * HEIGHT, 26)
        light = min(0.05 * rng.uniform() ** (-1 / 0.8), 3.0)
        add_star(image, x, y, light, star_color(rng.uniform(8000, 16000)))

    add_star(image, 0.738 * WIDTH, 0.268 * HEIGHT, 26, star_color(12500), halo=1.0)
    add_star(image, 0.118 * WIDTH, 0.610 * HEIGHT, 12, star_color(3900), halo=1.0)
    add_star(image, 0.452 * WIDTH, 0.862 * HEIGHT, 7, star_color(5200), halo=0.9)
    add_star(image, 0.346 * WIDTH, 0.118 * HEIGHT, 5, star_color(9000), halo=0.8)
    return image


def seen_through_air(image):
    """Extended light, blurred as the stars are."""
    offsets = np.arange(-6, 7)
    weights = np.exp(-((offsets * 2.355 / STAR_WIDTH) ** 2) / 2)
    weights /= weights.sum()
    padded = np.pad(image, ((6, 6), (6, 6), (0, 0)), mode="reflect")
    rows = sum(w * padded[k : k + HEIGHT] for k, w in enumerate(weights))
    return sum(w * rows[:, k : k + WIDTH] for k, w in enumerate(weights))


def sky_gradient():
    """Faint light of the sky, brighter and warmer towards the lower edge."""
    x, y = pixel_grid()
    slope = 0.0022 * (y / HEIGHT) ** 1.5 + 0.0006 * (1 - x / WIDTH)
    return SKY + in_color(slope, np.array([1.0, 0.82, 0.70]))


def photographed(rng, light):
    """What the camera counts: saturation, photon noise, read noise."""
    electrons = rng.poisson(np.clip(light, 0, 1) * ELECTRONS_AT_SATURATION).astype(float)
    electrons += rng.normal(0, READ_NOISE_ELECTRONS, electrons.shape)
    return electrons / ELECTRONS_AT_SATURATION


def stretched(linear):
    """The picture for the eye: dark sky taken off, asinh stretch, a little more colour."""
    black = np.percentile(linear, 2, axis=(0, 1)) - 0.0030
    light = np.clip(linear - black, 0, None) / (1 - black)
    strength = 130.0
    picture = np.arcsinh(strength * light) / np.arcsinh(strength)
    gray = picture @ np.array([0.30, 0.59, 0.11])
    picture = gray[..., None] + 1.45 * (picture - gray[..., None])
    picture = np.clip(picture, 0, 1)
    return np.clip(picture + 0.25 * picture * (1 - picture) * (picture - 0.28), 0, 1)


def main():
    default = pathlib.Path(__file__).parent / "veil_field.tif"
    path = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else default
    rng = np.random.default_rng(SEED)
    transmission = dust_transmission(rng)
    extended = nebula(rng) * transmission + galaxy(rng, 0.200, 0.800, 105, 0.45, -0.50)
    light = sky_gradient() + seen_through_air(extended) + stars(rng, transmission)
    picture = stretched(photographed(rng, light))
    samples = np.round(picture * 65535).astype(np.uint16)
    tifffile.imwrite(
        path,
        samples,
        photometric="rgb",
        compression="zlib",
        predictor=True,
        metadata=None,
        software=False,
    )


if __name__ == "__main__":
    main()
