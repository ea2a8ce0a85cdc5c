#!/usr/bin/env python3
"""Trains the network on computed scenes.

    training/train.py RUN_FOLDER --hours 30 --init models/Nebulex2_weights.onnx --shape gated

Called again with the same folder, it goes on where it stood, also after an interrupt or a power
cut. Ctrl-C or SIGTERM stops it at the next step with everything saved. The folder gets log.csv,
log.png, the checkpoints and the averaged weights, weights.pt and weights-0.999.pt, which
training/export.py turns into models. With --carry it also gets a checkpoint of four parts of less
than 16 MiB, in the folder carried; --carried FOLDER begins another run with it.
"""

import argparse
import pathlib
import signal

import torch

from nebulex_training.carrying import read_carried
from nebulex_training.growing import grown
from nebulex_training.network import SHAPES, Shape, StarNet
from nebulex_training.trainer import LossWeights, Plan, Trainer
from nebulex_training.weights import load_network


def parse_options():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    cuda = torch.cuda.is_available()
    add = parser.add_argument
    add("folder", type=pathlib.Path, help="where the run lives, outside the tree")
    add("--hours", type=float, default=2.0, help="of training, over all sessions of the run")
    add("--steps", type=int, default=0, help="end after so many steps, if that comes first")
    add("--init", help="start from these weights (.onnx or weights.pt)")
    add("--shape", choices=SHAPES, help="default: that of --init, else large; --init grows to it")
    add("--device", default="cuda" if cuda else "cpu")
    add("--bfloat16", action=argparse.BooleanOptionalAction, default=cuda,
        help="mixed precision; on a CPU worth it where that computes bfloat16 (AMX)")
    add("--threads", type=int, default=0, help="of the CPU; 0 is all")
    add("--seed", type=int, default=1)
    add("--rate", type=float, default=2e-4, help="the highest learning rate")
    add("--batch", type=int, default=256 if cuda else 4, help="pictures computed at a time")
    add("--accumulate", type=int, default=1 if cuda else 8, help="batches of a step")
    add("--patch", type=int, default=256, help="pixels, a multiple of 32")
    add("--scene-size", type=int, default=512, help="pixels, at least the patch")
    add("--pool", type=int, default=4096 if cuda else 96, help="scenes kept at a time")
    add("--fresh-scenes", type=float, default=4.0 if cuda else 0.25, help="scenes a batch")
    add("--decays", type=float, nargs="+", default=(0.999, 0.9995),
        help="of the averages of the weights, for each step")
    add("--whole-from", type=float, default=5.0 / 6.0,
        help="share of the run after which the pictures are whole tiles of 512 pixels")
    add("--objects", type=float, default=5.0, help="weight of stars and of what stays as clearly")
    add("--texture", type=float, default=0.006, help="weight of the texture loss")
    add("--adversarial", type=float, default=0.0, help="weight of the critic")
    add("--critic-from", type=float, default=0.5, help="share of the run before both of them")
    add("--report-steps", type=int, default=100, help="at least so many between two reports")
    add("--report-share", type=float, default=0.03, help="of the time that the reports may take")
    add("--checkpoint-minutes", type=float, default=5.0)
    add("--validation-scenes", type=int, default=24)
    add("--validation-size", type=int, default=512)
    add("--carry", action="store_true", help="write a checkpoint of four small parts too")
    add("--carried", metavar="FOLDER", help="begin with such a one, in the place of --init")
    add("--compile", action="store_true", help="compile the network; PyTorch 2 and a GPU")
    options = parser.parse_args()
    if options.compile and not hasattr(torch, "compile"):
        parser.error("--compile needs PyTorch 2")
    if options.carried and options.init:
        parser.error("--carried and --init exclude each other")
    return options


def first_network(options, carried):
    """The network that a new run starts with."""
    if carried is not None:
        return StarNet(Shape(**carried["shape"]))
    if not options.init:
        return StarNet(SHAPES[options.shape or "large"])
    network = load_network(options.init)
    return grown(network, SHAPES[options.shape]) if options.shape else network


def main():
    options = parse_options()
    if options.threads:
        torch.set_num_threads(options.threads)
    torch.manual_seed(options.seed)
    carried = read_carried(options.carried) if options.carried else None
    network = first_network(options, carried)
    plan = Plan(
        folder=options.folder,
        device=options.device,
        bfloat16=options.bfloat16,
        seed=options.seed,
        seconds=options.hours * 3600.0,
        most_steps=options.steps,
        rate=options.rate,
        batch=options.batch,
        accumulate=options.accumulate,
        patch=options.patch,
        pool=options.pool,
        scene_size=options.scene_size,
        fresh_scenes=options.fresh_scenes,
        decays=tuple(options.decays),
        whole_from=options.whole_from,
        losses=LossWeights(
            objects=options.objects, texture=options.texture, adversarial=options.adversarial
        ),
        critic_from=options.critic_from,
        report_steps=options.report_steps,
        report_share=options.report_share,
        checkpoint_seconds=options.checkpoint_minutes * 60.0,
        validation_scenes=options.validation_scenes,
        validation_size=options.validation_size,
        carried=options.carry,
        compiled=options.compile,
    )
    trainer = Trainer(plan, network, carried)

    def stop(_signal, _frame):
        trainer.stop_requested = True

    signal.signal(signal.SIGINT, stop)
    signal.signal(signal.SIGTERM, stop)
    trainer.run()


if __name__ == "__main__":
    main()
