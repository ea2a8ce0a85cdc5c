"""The network: a U-Net on the image folded 2 x 2, which says what to take away or to replace.

For each pixel it gives light to subtract, as a faint star or a halo needs it, and a filling with
the share of it, as a saturated star needs it, whose edge is too sharp to be subtracted. How much of
the filling is spread from the trusted pixels around, and which these are, it says too: that carries
any colour of a sky under its stars. What was taken only a little of is given back at last.

It works at 1/2, 1/4, 1/8, 1/16 and 1/32 of the size: 3 x 3 convolutions in pairs with one ReLU, a
2 x 2 convolution of stride 2 down, a transposed one up, skips added, no normalisation. The last
convolutions start at zero, so an untrained network changes next to nothing.
"""

from dataclasses import asdict, dataclass

import torch
from torch import nn
import torch.nn.functional as F

from .restraint import restrained
from .surroundings import grain, spread


@dataclass(frozen=True)
class Shape:
    """Channels and residual blocks at each level, the finest first."""

    widths: tuple = (24, 40, 64, 96, 128)
    blocks: tuple = (1, 1, 1, 2, 2)

    fills: bool = True  # whether it replaces too, or subtracts only as the first networks did
    borrows: bool = True  # whether what it fills in can be spread from around; only if it fills
    gates: bool = False  # whether the two deepest levels know what there is in all of the tile

    def as_dict(self):
        return asdict(self)


# The planes of the filling: three of light, then, before their sigmoids, the share of the filling
# in the result, of what is spread from around in the filling, and the trust in a pixel.
_FIRST_FILLING = (0.2, 0.2, 0.2, -5.0)
_FIRST_BORROWING = (-2.0, 2.0)

# large is the shape of the shipped weights; it takes less than three times small's time for a tile.
SHAPES = {
    "small": Shape(),
    "medium": Shape((32, 56, 96, 144, 192), (1, 1, 2, 2, 3)),
    "large": Shape((32, 64, 112, 160, 224), (1, 2, 2, 3, 4)),
    "gated": Shape((32, 64, 112, 160, 224), (1, 2, 2, 3, 4), gates=True),
}


class ResidualBlock(nn.Module):
    def __init__(self, width):
        super().__init__()
        self.a = nn.Conv2d(width, width, 3, padding=1)
        self.b = nn.Conv2d(width, width, 3, padding=1)

    def forward(self, x):
        return x + self.b(F.relu(self.a(x)))


class Gate(nn.Module):
    """Channels strengthened or weakened by their means and largest values over the whole picture.

    So the network can hold what the image of a star looks like here. The last convolution starts
    at zero, which changes nothing.
    """

    def __init__(self, width):
        super().__init__()
        self.a = nn.Conv2d(width, width, 1)
        self.largest = nn.Conv2d(width, width, 1, bias=False)
        self.b = nn.Conv2d(width, width, 1)
        nn.init.zeros_(self.b.weight)
        nn.init.zeros_(self.b.bias)

    def forward(self, x):
        seen = self.a(F.adaptive_avg_pool2d(x, 1)) + self.largest(F.adaptive_max_pool2d(x, 1))
        return x * (1.0 + self.b(F.relu(seen)))


class Doubling(nn.ConvTranspose2d):
    """A 2 x 2 transposed convolution of stride 2.

    Computed as one of 1 x 1 and a shuffle, which is the same, since PyTorch has no fast transposed
    convolution for the CPU; an exported model has the operator itself.
    """

    def __init__(self, width, narrower):
        super().__init__(width, narrower, 2, stride=2)

    def forward(self, x):
        if torch.onnx.is_in_onnx_export():
            return super().forward(x)
        weight = self.weight.permute(1, 2, 3, 0).reshape(-1, x.shape[1], 1, 1)
        return F.pixel_shuffle(F.conv2d(x, weight, self.bias.repeat_interleave(4)), 2)


def _blocks(width, count):
    return nn.Sequential(*(ResidualBlock(width) for _ in range(count)))


class StarNet(nn.Module):
    """batch x 3 x rows x columns pictures in [0, 1] to pictures without stars.

    Rows and columns are multiples of 32. Values are not limited to [0, 1], so that training sees
    by how much they miss.
    """

    def __init__(self, shape=SHAPES["small"]):
        super().__init__()
        self.shape = shape
        widths, blocks = shape.widths, shape.blocks
        levels = len(widths)
        self.inp = nn.Conv2d(12, widths[0], 3, padding=1)
        self.enc = nn.ModuleList(_blocks(widths[i], blocks[i]) for i in range(levels - 1))
        self.dn = nn.ModuleList(
            nn.Conv2d(widths[i], widths[i + 1], 2, stride=2) for i in range(levels - 1)
        )
        self.mid = _blocks(widths[-1], blocks[-1])
        deep_first = range(levels - 2, -1, -1)
        self.up = nn.ModuleList(
            Doubling(widths[i + 1], widths[i]) for i in deep_first
        )
        self.dec = nn.ModuleList(_blocks(widths[i], blocks[i]) for i in deep_first)
        if shape.gates:
            self.gate = nn.ModuleList((Gate(widths[-2]), Gate(widths[-1])))
        self.out = nn.Conv2d(widths[0], 12, 3, padding=1)
        nn.init.zeros_(self.out.weight)
        nn.init.zeros_(self.out.bias)
        if shape.fills:
            first = _FIRST_FILLING + (_FIRST_BORROWING if shape.borrows else ())
            self.fill = nn.Conv2d(widths[0], 4 * len(first), 3, padding=1)
            nn.init.zeros_(self.fill.weight)
            with torch.no_grad():
                self.fill.bias.copy_(torch.tensor(first).repeat_interleave(4))

    def forward(self, picture):
        x = self.inp(F.pixel_unshuffle(picture * 2.0 - 1.0, 2))
        skips = []
        for level, (encode, down) in enumerate(zip(self.enc, self.dn)):
            x = encode(x)
            if self.shape.gates and level == len(self.enc) - 1:
                x = self.gate[0](x)
            skips.append(x)
            x = down(x)
        x = self.mid(x)
        if self.shape.gates:
            x = self.gate[1](x)
        for up, decode in zip(self.up, self.dec):
            x = decode(up(x) + skips.pop())
        result = picture - F.pixel_shuffle(self.out(x), 2)
        if not self.shape.fills:
            return result
        planes = F.pixel_shuffle(self.fill(x), 2)
        if not self.shape.borrows:
            filling, share = planes.split((3, 1), dim=1)
            return result + torch.sigmoid(share) * (filling - result)
        if planes.dtype != picture.dtype:  # small weights would get lost in half of the bits
            planes = planes.to(picture.dtype)
        filling, share, borrowed, trust = planes.split((3, 1, 1, 1), dim=1)
        share = torch.sigmoid(share)
        trust = (1.0 - share) * torch.sigmoid(trust)
        filling = filling + torch.sigmoid(borrowed) * (spread(result, trust) - filling)
        if not self.training:  # no loss could tell which grain is right
            filling = filling + grain(result, trust)
        result = result + share * (filling - result)
        if not self.training:  # training needs the slope of what it takes, however little that is
            result = restrained(picture, result)
        return result


class TileModel(nn.Module):
    """The network as the program calls it: 1 x 512 x 512 x 3, channels last, result in [0, 1]."""

    def __init__(self, network):
        super().__init__()
        self.n = network

    def forward(self, tile):
        return self.n(tile.permute(0, 3, 1, 2)).permute(0, 2, 3, 1).clamp(0.0, 1.0)
