#!/usr/bin/env python3
"""Trains the network on computed scenes.

    training/train.py RUN_FOLDER --hours 2 [--init models/Nebulex2_weights.onnx]

Called again with the same folder, it goes on where it stood, also after an interrupt or a power
cut. Ctrl-C or SIGTERM stops it at the next step with everything saved. The folder gets log.csv,
log.png, the checkpoints and weights.pt, which training/export.py turns into a model.
"""

import argparse
import pathlib
import signal

import torch

from nebulex_training.growing import grown
from nebulex_training.network import SHAPES, StarNet
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
    add("--rate", type=float, default=1e-3, help="the highest learning rate")
    add("--batch", type=int, default=32 if cuda else 4)
    add("--patch", type=int, default=256, help="pixels, a multiple of 32")
    add("--scene-size", type=int, default=512, help="pixels, at least the patch")
    add("--pool", type=int, default=384 if cuda else 96, help="scenes kept at a time")
    add("--fresh-scenes", type=float, default=16.0 if cuda else 0.2, help="scenes a step")
    add("--decay", type=float, default=0.999, help="of the average of the weights")
    add("--compact", type=float, default=3.0, help="weight of what looks like a star and stays")
    add("--white", type=float, default=5.0, help="weight of white pixels that stay")
    add("--texture", type=float, default=0.006, help="weight of the texture loss")
    add("--adversarial", type=float, default=0.0005 if cuda else 0.0, help="weight of the critic")
    add("--critic-from", type=float, default=0.5, help="share of the run before both of them")
    add("--report-steps", type=int, default=500 if cuda else 100)
    add("--checkpoint-minutes", type=float, default=5.0)
    add("--validation-scenes", type=int, default=24)
    add("--validation-size", type=int, default=512)
    return parser.parse_args()


def first_network(options):
    """The network that a new run starts with."""
    if not options.init:
        return StarNet(SHAPES[options.shape or "large"])
    network = load_network(options.init)
    return grown(network, SHAPES[options.shape]) if options.shape else network


def main():
    options = parse_options()
    if options.threads:
        torch.set_num_threads(options.threads)
    torch.manual_seed(options.seed)
    network = first_network(options)
    plan = Plan(
        folder=options.folder,
        device=options.device,
        bfloat16=options.bfloat16,
        seed=options.seed,
        seconds=options.hours * 3600.0,
        most_steps=options.steps,
        rate=options.rate,
        batch=options.batch,
        patch=options.patch,
        pool=options.pool,
        scene_size=options.scene_size,
        fresh_scenes=options.fresh_scenes,
        decay=options.decay,
        losses=LossWeights(
            compact=options.compact, white=options.white, texture=options.texture,
            adversarial=options.adversarial,
        ),
        critic_from=options.critic_from,
        report_steps=options.report_steps,
        checkpoint_seconds=options.checkpoint_minutes * 60.0,
        validation_scenes=options.validation_scenes,
        validation_size=options.validation_size,
    )
    trainer = Trainer(plan, network)

    def stop(_signal, _frame):
        trainer.stop_requested = True

    signal.signal(signal.SIGINT, stop)
    signal.signal(signal.SIGTERM, stop)
    trainer.run()


if __name__ == "__main__":
    main()
