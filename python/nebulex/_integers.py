"""Integers on their way to the library."""

import operator


def int32(number, name):
    """Raises TypeError for what is no integer, ValueError for one that 32 bits do not hold."""
    integer = operator.index(number)
    if not -(2**31) <= integer < 2**31:
        raise ValueError(f"{name} is far out of range. It is {integer}.")
    return integer
