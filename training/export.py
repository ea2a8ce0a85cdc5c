#!/usr/bin/env python3
"""Turns trained weights into the model that the program loads.

    training/export.py RUN_FOLDER/weights.pt Nebulex2_weights.onnx
"""

import argparse

from nebulex_training.exporting import export_model
from nebulex_training.weights import load_network


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("weights", help="weights.pt of a training, or an exported model")
    parser.add_argument("model", help="the ONNX file to write")
    options = parser.parse_args()
    export_model(load_network(options.weights), options.model)


if __name__ == "__main__":
    main()
