"""Every source is compiled with the flags on which the same results everywhere depend."""

import json
import os
import pathlib
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
OF_OTHER_SYSTEMS = {*(ROOT / "src").rglob("*Windows.cpp"), *(ROOT / "src").rglob("Windows*.cpp")}
COMMANDS = json.loads(
    pathlib.Path(os.environ["NEBULEX_BUILD"], "compile_commands.json").read_text())
# The studio is built where it is asked for.
FOLDERS = [ROOT / "src", *(folder for folder in [ROOT / "studio/server"]
                           if any(str(folder) in entry["file"] for entry in COMMANDS))]


class CompilerFlags(unittest.TestCase):
    def test_no_compiler_joins_a_product_and_a_sum(self):
        entries = [entry for entry in COMMANDS
                   if any(pathlib.Path(entry["file"]).is_relative_to(folder) for folder in FOLDERS)]
        self.assertEqual({pathlib.Path(entry["file"]) for entry in entries},
                         {path for folder in FOLDERS for path in folder.rglob("*.cpp")}
                         - OF_OTHER_SYSTEMS)
        for entry in entries:
            with self.subTest(file=entry["file"]):
                self.assertIn("-ffp-contract=off", entry["command"].split())


if __name__ == "__main__":
    unittest.main()
