"""The training loop: scenes in, averaged weights out, the state kept at any moment."""

import contextlib
import csv
import math
import pathlib
import time
from dataclasses import dataclass, replace

import torch

from .average import AveragedNetwork
from .carrying import adopt_moments, write_carried
from .checkpoint import (
    compact_optimizer,
    full_optimizer,
    read_newest_checkpoint,
    write_checkpoint,
)
from .critic import Critic, critic_loss, deception_loss
from .dice import Dice
from .feeder import BatchFeeder
from .losses import removal_loss, star_mask
from .measures import Sums
from .plot import plot_log
from .pool import ScenePool
from .scene_sets import SETS
from .weights import save_network

_LOG_COLUMNS = (
    "step", "seconds", "rate", "loss", "residual", "typical", "star_psnr", "other_psnr", "texture",
    "skipped",
)  # fmt: skip
_CRITIC_SEED = 77


@dataclass
class LossWeights:
    objects: float = 5.0  # of a pixel of a star, and of what stays and stands out as much
    gradient: float = 0.5
    coarse: float = 0.3
    texture: float = 0.0
    adversarial: float = 0.0


@dataclass
class Plan:
    """What a training does. Times are in seconds of training, summed over all its sessions."""

    folder: pathlib.Path
    device: str
    bfloat16: bool
    seed: int
    seconds: float
    most_steps: int
    rate: float
    batch: int  # pictures of a batch
    accumulate: int  # batches of a step
    patch: int
    pool: int
    scene_size: int
    fresh_scenes: float  # scenes replaced at each batch, also less than one
    decays: tuple  # of the averages of the weights, for each step; weights.pt is the slowest
    whole_from: float  # share of the run after which the batches are whole tiles
    losses: LossWeights
    critic_from: float  # share of the time after which texture and adversarial losses count
    report_steps: int  # at least so many between two reports
    report_share: float  # of the time, that the reports take at most
    checkpoint_seconds: float
    validation_scenes: int
    validation_size: int
    carried: bool = False  # whether a checkpoint in four parts is written too
    compiled: bool = False  # whether the network is compiled, from PyTorch 2 on


class Trainer:
    """One training. carried is what read_carried() gave, for one that was begun elsewhere."""

    def __init__(self, plan, network, carried=None):
        self.plan = plan
        plan.folder.mkdir(parents=True, exist_ok=True)
        # Channels last is what fast convolutions want, on processors and GPUs alike.
        self.network = network.to(plan.device, memory_format=torch.channels_last)
        self.averages = [AveragedNetwork(self.network, each) for each in sorted(plan.decays)]
        self.optimizer = torch.optim.Adam(self.network.parameters(), lr=plan.rate)
        self._forward = torch.compile(self.network) if plan.compiled else self.network
        torch.manual_seed(_CRITIC_SEED)
        self.critic = Critic().to(plan.device)
        self.critic_optimizer = torch.optim.AdamW(
            self.critic.parameters(), lr=2e-4, betas=(0.5, 0.99)
        )
        dice = Dice(plan.seed * 7919 + 1, plan.device)
        self.step, self.elapsed, self.reporting, self.skipped = 0, 0.0, 0.0, 0
        self.stop_requested = False
        next_scene = self._restore(dice)
        if carried is not None and self.step == 0:
            self._adopt(carried)
        pool = ScenePool(plan.seed, plan.device, plan.pool, plan.scene_size, next_scene)
        self._feeder = BatchFeeder(pool, dice, plan, self.step * plan.accumulate)
        self.validation = [
            SETS["validation"].scene(number, plan.validation_size)
            for number in range(plan.validation_scenes)
        ]
        self._losses = []

    def run(self):
        """Trains until the time or the steps are used up, or stop_requested was set. Runs once."""
        last_save = time.monotonic()
        while not self.stop_requested and not self._finished():
            began = time.monotonic()
            self._train_step()
            self.elapsed += time.monotonic() - began
            if self._report_is_due():
                self._report()
            if time.monotonic() - last_save > self.plan.checkpoint_seconds:
                self.save()
                last_save = time.monotonic()
        if self._losses:
            self._report()
        self._feeder.stop()
        self.save()

    def save(self):
        """Writes the checkpoint and the averaged weights.

        The slowest average is weights.pt, another one weights-DECAY.pt.
        """
        state = {
            "step": self.step,
            "elapsed": self.elapsed,
            "reporting": self.reporting,
            "skipped": self.skipped,
            "network": self.network.state_dict(),
            "averages": [average.network.state_dict() for average in self.averages],
            "optimizer": compact_optimizer(_copied(self.optimizer.state_dict())),
            "critic": self.critic.state_dict(),
            "critic_optimizer": compact_optimizer(_copied(self.critic_optimizer.state_dict())),
            **self._feeder.state,
            "random": torch.get_rng_state(),
        }
        write_checkpoint(self.plan.folder, state)
        for average, decay in zip(self.averages, sorted(self.plan.decays)):
            is_slowest = average is self.averages[-1]
            name = "weights.pt" if is_slowest else f"weights-{decay}.pt"
            save_network(average.network, self.plan.folder / name)
        if self.plan.carried:
            write_carried(
                self.plan.folder / "carried", self.network, self.averages[-1].network,
                self.optimizer, self.step,
            )  # fmt: skip

    def _restore(self, dice):
        state = read_newest_checkpoint(self.plan.folder, self.plan.device)
        if state is None:
            return 0
        self.step, self.elapsed = state["step"], state["elapsed"]
        self.reporting, self.skipped = state["reporting"], state["skipped"]
        self.network.load_state_dict(state["network"])
        for average, weights in zip(self.averages, state["averages"]):
            average.network.load_state_dict(weights)
        self.optimizer.load_state_dict(full_optimizer(state["optimizer"]))
        self.critic.load_state_dict(state["critic"])
        self.critic_optimizer.load_state_dict(full_optimizer(state["critic_optimizer"]))
        dice.set_state(state["dice"])
        torch.set_rng_state(state["random"].cpu())
        return state["next_scene"]

    def _adopt(self, carried):
        """Goes on with what another training had learned; its step and time count no more."""
        self.network.load_state_dict(carried["raw"])
        for average in self.averages:
            average.network.load_state_dict(carried["average"])
        adopt_moments(
            self.optimizer, self.network.parameters(), carried["moments"], carried["step"]
        )

    def _progress(self):
        by_time = self.elapsed / self.plan.seconds
        by_steps = self.step / self.plan.most_steps if self.plan.most_steps else 0.0
        return max(by_time, by_steps)

    def _finished(self):
        return self._progress() >= 1.0

    def _rate(self):
        """A short warm-up, then a cosine over the planned time down to zero."""
        warm = min(1.0, (self.step + 1) / 100.0)
        cosine = 0.5 * (1.0 + math.cos(math.pi * min(1.0, self._progress())))
        return self.plan.rate * warm * cosine

    def _train_step(self):
        plan = self.plan
        for group in self.optimizer.param_groups:
            group["lr"] = self._rate()
        progress = self._progress()
        if progress >= plan.whole_from:
            self._feeder.take_whole_tiles()
        late = progress >= plan.critic_from
        weights = plan.losses if late else replace(plan.losses, texture=0.0, adversarial=0.0)
        self.optimizer.zero_grad(set_to_none=True)
        total = 0.0
        for _ in range(plan.accumulate):
            loss = self._loss_of_a_batch(weights) / plan.accumulate
            loss.backward()
            total = total + loss.detach()
        norm = torch.nn.utils.clip_grad_norm_(self.network.parameters(), 1.0)
        self.step += 1
        if not bool(torch.isfinite(norm + total)):
            self.skipped += 1
            return
        self.optimizer.step()
        for average in self.averages:
            average.follow(self.network)
        self._losses.append(float(total))

    def _loss_of_a_batch(self, weights):
        picture, target = self._feeder.next()
        with self._precision():
            result = self._forward(picture.contiguous(memory_format=torch.channels_last))
        result = result.float()
        loss = removal_loss(result, picture, target, weights)
        if weights.adversarial > 0.0:
            mask = star_mask(picture, target)
            self._train_critic(result.detach(), target, mask)
            loss = loss + weights.adversarial * deception_loss(self.critic, result, mask)
        return loss

    def _precision(self):
        if self.plan.bfloat16:
            return torch.autocast(torch.device(self.plan.device).type, dtype=torch.bfloat16)
        return contextlib.nullcontext()

    def _train_critic(self, result, target, mask):
        loss = critic_loss(self.critic, result, target, mask)
        self.critic_optimizer.zero_grad(set_to_none=True)
        loss.backward()
        norm = torch.nn.utils.clip_grad_norm_(self.critic.parameters(), 1.0)
        if bool(torch.isfinite(norm)):
            self.critic_optimizer.step()

    @torch.no_grad()
    def validate(self):
        """The measures of the slowest average on the fixed scenes."""
        sums = Sums()
        network = self.averages[-1].network
        for (picture, target), _ in self.validation:
            result = network(picture.to(self.plan.device)).clamp(0.0, 1.0).cpu()
            sums.add(result[0], picture[0], target[0])
        return sums

    def _report_is_due(self):
        """Every report_steps steps, where the reports before did not take too much of the time."""
        affordable = self.reporting <= self.plan.report_share * self.elapsed
        return self.step % self.plan.report_steps == 0 and affordable

    def _report(self):
        began = time.monotonic()
        sums = self.validate()
        loss = sum(self._losses) / len(self._losses) if self._losses else math.nan
        self._losses = []
        row = (
            self.step, f"{self.elapsed:.0f}", f"{self._rate():.3g}", f"{loss:.5f}",
            f"{sums.residual:.4f}", f"{sums.typical_residual:.4f}", f"{sums.star_psnr:.2f}",
            f"{sums.other_psnr:.2f}", f"{sums.texture:.3f}", self.skipped,
        )  # fmt: skip
        path = self.plan.folder / "log.csv"
        is_new = not path.exists()
        with open(path, "a", newline="", encoding="utf-8") as log:
            writer = csv.writer(log)
            if is_new:
                writer.writerow(_LOG_COLUMNS)
            writer.writerow(row)
        plot_log(path, self.plan.folder / "log.png")
        print("  ".join(f"{name} {value}" for name, value in zip(_LOG_COLUMNS, row)), flush=True)
        self.reporting += time.monotonic() - began


def _copied(state):
    """An optimiser's state whose dictionaries can be changed without changing the optimiser."""
    return {
        "state": {key: dict(value) for key, value in state["state"].items()},
        "param_groups": state["param_groups"],
    }
