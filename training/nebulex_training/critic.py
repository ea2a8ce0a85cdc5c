"""The adversary of the last stage: tells filled places from sky that never had a star."""

import torch
from torch import nn
import torch.nn.functional as F
from torch.nn.utils import spectral_norm

from .losses import fine_detail


class Critic(nn.Module):
    """Looks at a picture, its fine detail and the star mask; one score for each 4 x 4 pixels."""

    def __init__(self, width=48):
        super().__init__()
        self.layers = nn.Sequential(
            spectral_norm(nn.Conv2d(7, width, 3, padding=1)),
            nn.LeakyReLU(0.2),
            spectral_norm(nn.Conv2d(width, width, 4, stride=2, padding=1)),
            nn.LeakyReLU(0.2),
            spectral_norm(nn.Conv2d(width, 2 * width, 4, stride=2, padding=1)),
            nn.LeakyReLU(0.2),
            spectral_norm(nn.Conv2d(2 * width, 2 * width, 3, padding=1)),
            nn.LeakyReLU(0.2),
            spectral_norm(nn.Conv2d(2 * width, 1, 3, padding=1)),
        )

    def forward(self, picture, mask):
        return self.layers(torch.cat((picture, 10.0 * fine_detail(picture), mask), dim=1))


def _in_footprints(score, mask):
    weight = F.max_pool2d(mask, 4)
    return (score * weight).sum() / (weight.sum() + 10.0)


def critic_loss(critic, result, target, mask):
    """Hinge loss of the critic; result must not carry gradients."""
    genuine = F.relu(1.0 - critic(target, mask))
    filled = F.relu(1.0 + critic(result, mask))
    return _in_footprints(genuine + filled, mask)


def deception_loss(critic, result, mask):
    """What the network makes small so that the critic takes its fillings for sky."""
    return -_in_footprints(critic(result, mask), mask)
