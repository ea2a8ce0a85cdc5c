"""What programs that were compiled with the library rely on is what src/lib/abi.txt says.

A line that changes or goes there breaks them: the library's name (NEBULEX_ABI) has to change with it.
Lines may be added at the end of what they belong to.
"""

import os
import pathlib
import re
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2] / "src/lib"
LIBRARY = pathlib.Path(os.environ["NEBULEX_LIBRARY"])
HEADER = (SOURCE / "include/nebulex/nebulex.h").read_text(encoding="utf-8")
ABI = [
    line.split()
    for line in (SOURCE / "abi.txt").read_text(encoding="utf-8").splitlines()
    if line and not line.startswith("#")
]


def of_kind(kind):
    return [words[1:] for words in ABI if words[0] == kind]


def output(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def code_of(header):
    return re.sub(r"/\*.*?\*/", "", header, flags=re.DOTALL)


def probe(assertions):
    """Lets the C compiler judge; gives what it says where it does not agree."""
    headers = LIBRARY.resolve().parents[1] / "include"
    lines = ["#include <stddef.h>", "#include <nebulex/nebulex.h>", *assertions]
    with tempfile.TemporaryDirectory() as folder:
        file = pathlib.Path(folder, "probe.c")
        file.write_text("\n".join(lines) + "\n", encoding="utf-8")
        compiler = ["gcc", "-std=c11", "-fsyntax-only", "-Wall", "-Wextra", "-Wpedantic", "-Werror"]
        roots = ["-I", SOURCE / "include", "-I", headers]
        return subprocess.run([*compiler, *roots, file], capture_output=True, text=True, check=False)


def claim(condition):
    return f'_Static_assert({condition}, "{condition}");'


class Abi(unittest.TestCase):
    def test_the_functions_are_those_of_the_list_and_nothing_else_is_visible(self):
        symbols = [line.split() for line in output("nm", "-D", "--defined-only", LIBRARY).splitlines()]
        functions = sorted(words[-1] for words in symbols if words[-2] == "T")
        others = [words for words in symbols if words[-2] != "T"]
        listed = sorted(f"{name}@@{version}" for version, name in of_kind("function"))
        self.assertEqual(functions, listed)
        self.assertEqual([words[-1] for words in others], ["NEBULEX_1"])

    def test_the_header_declares_the_functions_of_the_list(self):
        declared = re.findall(r"NEBULEX_API [^;]*?(nebulex_\w+)\(", code_of(HEADER))
        self.assertEqual(sorted(declared), sorted(name for _, name in of_kind("function")))

    def test_the_structures_have_the_sizes_and_members_of_the_list(self):
        sizes = [claim(f"sizeof({name}) == {size}") for name, size in of_kind("struct")]
        members = [
            claim(f"offsetof({name}, {member}) == {offset}")
            for name, member, offset in of_kind("member")
        ]
        judged = probe(sizes + members)
        self.assertEqual(judged.returncode, 0, judged.stderr)

    def test_the_list_names_every_member(self):
        for name, _ in of_kind("struct"):
            pattern = rf"typedef struct {name} \{{(.*?)\}} {name};"
            body = re.search(pattern, code_of(HEADER), re.DOTALL)
            declared = re.findall(r"\(\*(\w+)\)|(\w+);", body.group(1))
            members = [pointer or plain for pointer, plain in declared]
            listed = [member for owner, member, _ in of_kind("member") if owner == name]
            with self.subTest(name=name):
                self.assertEqual(listed, members)

    def test_the_constants_have_the_values_of_the_list(self):
        listed = {name: value for name, value in of_kind("constant")}
        declared = dict(re.findall(r"(NEBULEX_\w+) = (\d+)", code_of(HEADER)))
        self.assertEqual(declared, listed)
        judged = probe(claim(f"{name} == {value}") for name, value in listed.items())
        self.assertEqual(judged.returncode, 0, judged.stderr)

    def test_a_wrong_claim_would_be_noticed(self):
        self.assertNotEqual(probe([claim("sizeof(nebulex_view) == 1")]).returncode, 0)

    def test_the_name_of_the_library_is_that_of_the_list(self):
        dynamic = output("readelf", "-d", LIBRARY)
        soname = re.search(r"SONAME\)\s+Library soname: \[(.*)\]", dynamic).group(1)
        self.assertEqual([[soname]], of_kind("soname"))

    def test_one_version_feeds_file_header_and_program(self):
        version = os.environ["NEBULEX2_VERSION"]
        self.assertTrue(LIBRARY.resolve().name.endswith(f".so.1.{version}"), LIBRARY.resolve())
        parts = zip(("MAJOR", "MINOR", "PATCH"), version.split("."))
        judged = probe(claim(f"NEBULEX_VERSION_{name} == {number}") for name, number in parts)
        self.assertEqual(judged.returncode, 0, judged.stderr)
        self.assertIn(f"version: {version}", output(os.environ["NEBULEX2_PROGRAM"], "--version"))


if __name__ == "__main__":
    unittest.main()
