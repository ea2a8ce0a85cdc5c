#!/usr/bin/env python3
"""A small host program for nebulex2, with the standard library alone.

It asks the program what it can do, builds its own options from the answer, runs one image, draws a
progress bar from the JSON Lines and shows warnings and errors:

    examples/host.py --program /usr/bin/nebulex2 --input sky.tif --output starless.tif

docs/host-interface.md explains what is read here.
"""

import argparse
import json
import subprocess
import sys

MACHINE_INFO_SCHEMA = "nebulexastro.cli.machine-info.v1"
DIAGNOSTIC_SCHEMA = "nebulexastro.cli.diagnostic.v1"
PROGRESS_SCHEMA = "nebulexastro.cli.progress.v1"

BAR_WIDTH = 40


def read_machine_info(program):
    answer = subprocess.run([program, "--machine-info"], stdout=subprocess.PIPE, check=True)
    info = json.loads(answer.stdout)
    if info["schema"] != MACHINE_INFO_SCHEMA:
        raise ValueError(f"{program} speaks {info['schema']}, not {MACHINE_INFO_SCHEMA}.")
    return info


def number_within(option):
    """A parser of the numbers that the option takes."""
    kind = int if option["type"] == "integer" else float

    def parse(text):
        value = kind(text)
        if (
            value < option.get("minimum", value)
            or value > option.get("maximum", value)
            or ("exclusive_minimum" in option and value <= option["exclusive_minimum"])
            or ("exclusive_maximum" in option and value >= option["exclusive_maximum"])
            or (option.get("constraints", {}).get("even") and value % 2 != 0)
        ):
            raise argparse.ArgumentTypeError(f"{text} is outside of what {option['name']} takes")
        return value

    parse.__name__ = option["type"]
    return parse


def processing_options(info):
    """The options that steer a run, without the one that this host sets itself."""
    own = info["progress"]["machine"]["option"]
    return [o for o in info["options"] if o["mode"] == "processing" and o["name"] != own]


def build_parser(info):
    parser = argparse.ArgumentParser(
        description=f"Runs {info['display_name']} {info['version']} on one image."
    )
    parser.add_argument("--program", default=info["executable"])
    for option in processing_options(info):
        settings = {"dest": option["name"]}
        if option["type"] == "boolean":
            settings["action"] = "store_true"
        else:
            settings["required"] = option.get("required", False)
            settings["default"] = argparse.SUPPRESS  # what is not given is left to the program
            if option["type"] in ("integer", "number"):
                settings["type"] = number_within(option)
        parser.add_argument(*option["flags"], **settings)
    return parser


def flag_of(option):
    return option["flags"][-1]


def command_line(info, chosen):
    """The program's arguments for the chosen options, a dictionary by name."""
    arguments = []
    by_name = {option["name"]: option for option in info["options"]}
    for option in processing_options(info):
        value = chosen.get(option["name"])
        if value is None or value is False:
            continue
        needed = option.get("requires")
        if needed and not chosen.get(needed):
            raise ValueError(f"{flag_of(option)} needs {flag_of(by_name[needed])}.")
        arguments += [flag_of(option)] if value is True else [flag_of(option), str(value)]
    return [*arguments, flag_of(by_name[info["progress"]["machine"]["option"]])]


class Screen:
    """Draws the bar on one line and other lines above it."""

    def __init__(self, stream):
        self.stream = stream
        self.bar = ""

    def draw_bar(self, percent):
        filled = round(BAR_WIDTH * percent / 100)
        self.bar = f"[{'#' * filled}{'.' * (BAR_WIDTH - filled)}] {percent:5.1f} %"
        self.stream.write("\r" + self.bar)
        self.stream.flush()

    def say(self, line):
        self.finish_bar()
        self.stream.write(line + "\n")

    def finish_bar(self):
        if self.bar:
            self.stream.write("\n")
        self.bar = ""


def show(record, screen):
    """Shows what one line of the program's standard error says."""
    if record["schema"] == PROGRESS_SCHEMA:
        if record["event"] == "error":
            # The first line is for the user, the rest says where the network was looked for.
            screen.say("Error: " + record["message"].split("\n", 1)[0])
        else:
            screen.draw_bar(record["percent"])
            if record["event"] == "finish":
                screen.finish_bar()
    elif record["schema"] == DIAGNOSTIC_SCHEMA and record["severity"] == "warning":
        screen.say(f"Warning ({record['code']}): {record['message']}")


def run_image(program, arguments, screen):
    """Runs the program and shows its records as they come. Returns its exit status."""
    with subprocess.Popen(
        [program, *arguments],
        stdin=subprocess.DEVNULL,
        stdout=subprocess.DEVNULL,
        stderr=subprocess.PIPE,
        encoding="utf-8",
        errors="replace",
    ) as process:
        for line in process.stderr:
            try:
                record = json.loads(line)
            except ValueError:
                screen.say(line.rstrip("\n"))  # not the program's words: a loader's, for example
                continue
            show(record, screen)
    return process.returncode


def main():
    finder = argparse.ArgumentParser(add_help=False)
    finder.add_argument("--program", default="nebulex2")
    program = finder.parse_known_args()[0].program
    try:
        info = read_machine_info(program)
        chosen = vars(build_parser(info).parse_args())
        arguments = command_line(info, chosen)
    except (OSError, ValueError, subprocess.CalledProcessError) as error:
        print(f"Error: {error}", file=sys.stderr)
        return 2
    return 0 if run_image(program, arguments, Screen(sys.stdout)) == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
