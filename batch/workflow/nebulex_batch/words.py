"""Numbers in words."""


def duration(seconds):
    """A duration as a person would say it."""
    if seconds < 90:
        return f"{seconds:.0f} s"
    if seconds < 90 * 60:
        return f"{seconds / 60:.0f} min"
    return f"{seconds / 3600:.1f} h"


def frame_count(number):
    """A number of frames as a person would say it."""
    return f"{number} frame{'' if number == 1 else 's'}"
