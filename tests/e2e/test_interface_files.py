"""The manual page and the shell completions know every option, as the program itself does."""

import json
import os
import pathlib
import re
import subprocess
import unittest

from program import ProgramTest

SHARE = pathlib.Path(os.environ["NEBULEX2_SHARE"])
MANUAL = SHARE / "man/man1/nebulex2.1"
BASH = SHARE / "bash-completion/completions/nebulex2"
ZSH = SHARE / "zsh/site-functions/_nebulex2"
FISH = SHARE / "fish/vendor_completions.d/nebulex2.fish"

# Stands for a shell in which the line so far is: nebulex2 WORD...
COMPLETE = """
source "$1"
shift
COMP_WORDS=(nebulex2 "$@")
COMP_CWORD=$#
_nebulex2
printf '%s\\n' "${COMPREPLY[@]}"
"""


class InterfaceFiles(ProgramTest):
    def setUp(self):
        super().setUp()
        self.info = json.loads(self.succeed("--machine-info").out)
        self.flags = {flag for option in self.info["options"] for flag in option["flags"]}

    def complete(self, *words):
        answer = subprocess.run(
            ["bash", "--norc", "-c", COMPLETE, "bash", BASH, *words],
            capture_output=True, encoding="utf-8", cwd=self.folder, timeout=60, check=True,
        )
        self.assertEqual(answer.stderr, "")
        return set(answer.stdout.split("\n")) - {""}

    def test_the_manual_has_an_entry_for_every_option(self):
        text = MANUAL.read_text().replace("\\-", "-")
        entries = re.findall(r"^\.TP\n(.+)\n(.+)$", text, re.MULTILINE)
        listed = {flag for tag, _ in entries for flag in re.findall(r"\\fB(-[^\\]+)\\fR", tag)}
        self.assertEqual(listed, self.flags)
        self.assertEqual(len(entries), len(self.info["options"]))

    def test_the_manual_tells_defaults_as_the_program_does(self):
        text = MANUAL.read_text().replace("\\-", "-")
        for name, default in (("stride", "256"), ("shadows-clipping", "-2.8"),
                              ("target-background", "0.25"), ("output", "starless.jpg")):
            with self.subTest(name=name):
                entry = re.search(rf"^.*--{name}\\fR.*\n(.+)$", text, re.MULTILINE).group(1)
                self.assertIn(f"Default: {default}.", entry)

    def test_the_manual_holds_the_sections_of_the_help(self):
        manual = " ".join(MANUAL.read_text().replace("\\-", "-").split())
        words = " ".join(self.succeed("--help").out.split())
        inputs = words[words.index(" Inputs: ") + 9 : words.index(" Outputs: ")]
        outputs = words[words.index(" Outputs: ") + 10 : words.index(" Package layout: ")]
        self.assertIn(f".SH INPUTS .nf {inputs} .fi .SH OUTPUTS .nf {outputs} .fi", manual)

    def test_the_manual_has_the_version_of_the_program(self):
        self.assertIn(f'"nebulex2 {self.info["version"]}"', MANUAL.read_text())

    def test_bash_completes_every_option(self):
        self.assertEqual(self.complete("-") | self.complete(""), self.flags)

    def test_bash_completes_what_was_begun(self):
        self.assertEqual(self.complete("--machine-"), {"--machine-info", "--machine-progress"})

    def test_bash_completes_files_where_a_path_belongs_and_nothing_where_a_number_does(self):
        self.path("my sky.tif").touch()
        for option in self.info["options"]:
            for flag in option["flags"]:
                with self.subTest(flag=flag):
                    found = self.complete(flag, "my")
                    self.assertEqual(found, {"my sky.tif"} if option["type"] == "path" else set())

    def test_zsh_knows_every_option(self):
        listed = re.findall(r"^  '\([^)]*\)(-[^[]+)\[", ZSH.read_text(), re.MULTILINE)
        self.assertEqual(set(listed), self.flags)
        self.assertEqual(len(listed), len(self.flags))

    def test_fish_knows_every_option(self):
        text = FISH.read_text()
        listed = {"--" + name for name in re.findall(r" -l (\S+)", text)}
        listed |= {"-" + letter for letter in re.findall(r" -s (\S+)", text)}
        self.assertEqual(listed, self.flags)


if __name__ == "__main__":
    unittest.main()
