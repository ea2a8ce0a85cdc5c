"""What is asked for a frame: the part of a batch's plan that its run and its planning share."""

from .frames import fits_pattern, result_names


def options_of(batch, name):
    """The program's options for a frame."""
    for exception in batch["exceptions"]:
        if fits_pattern(name, exception["pattern"]):
            return exception["options"]
    return batch["options"]


def request_of(batch, name):
    """What a frame's results depend on, beside the frame. Results of another request are made
    again."""
    return {
        "options": options_of(batch, name),
        "results": result_names(name, batch["suffix"], batch["layers"]),
    }
