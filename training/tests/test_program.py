"""PyTorch and the program give the same tile. NEBULEX2 names the program."""

import os
import pathlib
import sys
import tempfile
import unittest

import numpy as np
import torch

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))

from nebulex_training.evaluation.program import ProgramRemover
from nebulex_training.exporting import export_model
from nebulex_training.network import SHAPES, StarNet


class Program(unittest.TestCase):
    def test_pytorch_and_the_program_give_the_same_tile(self):
        torch.manual_seed(2)
        network = StarNet(SHAPES["small"]).eval()
        torch.nn.init.normal_(network.out.weight, std=0.03)
        torch.nn.init.normal_(network.fill.weight, std=0.3)
        rng = np.random.default_rng(1)
        picture = rng.integers(6000, 60000, (512, 512, 3)).astype(np.float32) / np.float32(65535.0)
        with tempfile.TemporaryDirectory() as folder:
            model = pathlib.Path(folder, "model.onnx")
            export_model(network, model)
            seen = ProgramRemover("model", os.environ["NEBULEX2"], model, 512)(picture)
        with torch.no_grad():
            planes = torch.from_numpy(picture).permute(2, 0, 1)[None]
            expected = network(planes).clamp(0.0, 1.0)[0].permute(1, 2, 0).numpy()
        self.assertGreater(float(np.abs(expected - picture).mean()), 0.01)
        self.assertLess(float(np.abs(seen - expected).max()), 1e-4)


if __name__ == "__main__":
    unittest.main()
