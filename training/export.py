#!/usr/bin/env python3
"""Turns trained weights into the model that the program loads.

    training/export.py RUN_FOLDER/weights.pt Nebulex2_weights.onnx

With --blend and --share, the weights lie between two trainings of which one went on from the other.
"""

import argparse

from nebulex_training.average import blended
from nebulex_training.exporting import export_model
from nebulex_training.weights import load_network


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("weights", help="weights.pt of a training, or an exported model")
    parser.add_argument("model", help="the ONNX file to write")
    parser.add_argument("--blend", metavar="WEIGHTS", help="weights to go some way towards")
    parser.add_argument("--share", type=float, default=0.5, help="how far, from 0 to 1")
    options = parser.parse_args()
    network = load_network(options.weights)
    if options.blend:
        try:
            network = blended(network, load_network(options.blend), options.share)
        except ValueError as error:
            parser.error(str(error))
    export_model(network, options.model)


if __name__ == "__main__":
    main()
