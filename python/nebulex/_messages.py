"""The library's messages: warnings become Python's, facts go to the logger "nebulex"."""

import logging
import os
import warnings

from nebulex import _nebulex

_LOGGER = logging.getLogger("nebulex")
_OWN_FOLDER = os.path.dirname(__file__) + os.sep


class NebulexWarning(UserWarning):
    """Something was lost or did not go as asked for. `code` is the diagnostic's, as the program has it."""

    def __init__(self, message, code=""):
        super().__init__(message)
        self.code = code


def warn(message, code=""):
    """Warns at the line outside of this package that led here."""
    import sys

    level, frame = 1, sys._getframe(0)
    while frame is not None and frame.f_code.co_filename.startswith(_OWN_FOLDER):
        level, frame = level + 1, frame.f_back
    warnings.warn(NebulexWarning(message, code), stacklevel=level)


def hand_on(messages):
    """Takes (severity, code, text) as the library gave them."""
    for severity, code, text in messages:
        if severity == _nebulex.WARNING:
            warn(text, code)
        else:
            _LOGGER.info("[%s] %s", code, text)
