"""Every source is compiled with the flags on which the same results everywhere depend."""

import json
import os
import pathlib
import unittest

SRC = pathlib.Path(__file__).resolve().parents[2] / "src"
OF_OTHER_SYSTEMS = {SRC / "common" / "PlatformWindows.cpp"}
COMMANDS = pathlib.Path(os.environ["NEBULEX_BUILD"], "compile_commands.json").read_text()


class CompilerFlags(unittest.TestCase):
    def test_no_compiler_joins_a_product_and_a_sum(self):
        entries = [entry for entry in json.loads(COMMANDS)
                   if pathlib.Path(entry["file"]).is_relative_to(SRC)]
        self.assertEqual({pathlib.Path(entry["file"]) for entry in entries},
                         set(SRC.rglob("*.cpp")) - OF_OTHER_SYSTEMS)
        for entry in entries:
            with self.subTest(file=entry["file"]):
                self.assertIn("-ffp-contract=off", entry["command"].split())


if __name__ == "__main__":
    unittest.main()
